// Box blur: BlurQPX (declared with the other methods in picture_methods.h), the same with a
// chosen version of its pixel loops, and its radius rule.
#pragma once

#include <cstdint>

#include "picture_methods.h"
#include "pixel_loops.h"

// The whole part of a radius, truncated toward zero; NaN and values outside the 32-bit range
// give INT32_MIN.
int32_t BlurRadius(double radius);

// BlurQPX with a chosen version of its pixel loops (the method itself takes the widest the
// processor runs).
REALpicture BlurQPXWith(REALpicture source, double radius, int32_t yield, PixelLoops loops);
