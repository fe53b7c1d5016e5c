// Box blur: BlurQPX (declared with the other methods in picture_methods.h) and its radius rule.
#pragma once

#include <cstdint>

#include "picture_methods.h"

// The whole part of a radius, truncated toward zero; NaN and values outside the 32-bit range
// give INT32_MIN.
int32_t BlurRadius(double radius);
