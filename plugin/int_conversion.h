// Conversions of doubles to 32-bit integers that behave the same on every processor.
#pragma once

#include <cstdint>

// Truncates toward zero. NaN and values whose whole part lies outside the 32-bit range give the
// most negative integer, as x86's conversion instruction does; the test comes first because
// the bare conversion of such values is undefined in C++ and saturates on ARM64.
inline int32_t TruncateToInt32(double value) {
  // NaN fails both comparisons.
  if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
  return static_cast<int32_t>(value);
}
