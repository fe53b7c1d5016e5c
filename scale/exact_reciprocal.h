// Dividing by a power of two is multiplying by its reciprocal, exactly: both round the same real
// number, and NaN, infinities and zeros come out alike. A product takes a fraction of a double
// division's time, which the per-pixel quotients of short kernels (and of whole-number shrinks,
// whose weights sum to the factor) would otherwise be waiting on.
#pragma once

#include <cstdint>
#include <cstring>

// 1 / weightSum when weightSum is plus or minus a power of two (a normal float with no fraction
// bits), otherwise 0: divide then.
inline double ExactReciprocal(float weightSum) {
  uint32_t bits;
  std::memcpy(&bits, &weightSum, sizeof bits);
  const uint32_t exponent = bits >> 23 & 0xFF;
  if ((bits & 0x7FFFFF) != 0 || exponent == 0 || exponent == 0xFF) return 0.0;
  return 1.0 / static_cast<double>(weightSum);
}
