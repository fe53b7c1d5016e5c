// The blur's division of a window sum by k = 2r + 1, truncating, done as a multiplication and a
// shift instead of a lookup in a table of 256 k entries. A window sum adds k channel values of
// 0 to 255, so every sum S the passes divide lies in 0 .. 255 k.
#pragma once

#include <cstdint>

// Window sums in 32 bits, for every k the division table's size test lets through
// (3 <= k <= 2097150, odd).
//
// Why q = floor(S m / 2^s) equals floor(S / k): let L = floor(log2 k), s = 32 + L,
// m = ceil(2^s / k) and e = m k - 2^s, so 0 <= e < k. Then S m / 2^s = S / k + S e / (k 2^s);
// writing S = q k + rho with 0 <= rho < k, S m / 2^s = q + (rho + S e / 2^s) / k, and the floor
// is q as long as S e < 2^s. Here S e < 256 k * k < 2^(2L + 10) <= 2^(32 + L) = 2^s because
// L <= 20. Also m < 2^32: k is odd and above 2^L, so 2^s / k <= 2^32 / (1 + 2^-L), which lies
// more than 1 below 2^32; and S m < 2^29 * 2^32 fits 64 bits.
struct BlurDivision32 {
  uint32_t multiplier = 0;
  int shift = 0;  // s; at least 32
  uint32_t Divide(uint32_t sum) const {
    return static_cast<uint32_t>((static_cast<uint64_t>(sum) * multiplier) >> shift);
  }
};

inline BlurDivision32 MakeBlurDivision32(uint32_t k) {
  int log2k = 0;
  while ((k >> (log2k + 1)) != 0) ++log2k;
  const int shift = 32 + log2k;
  const uint64_t power = uint64_t{1} << shift;
  return {static_cast<uint32_t>((power + k - 1) / k), shift};
}

// Window sums in 16 bits, for k up to 257 (255 k < 2^16): q = floor((S + bias) m / 2^(16 + t)),
// a 16 x 16-bit multiplication keeping the high half and a shift by t. The bias is added to a
// sum once, when it is primed, and carried along by the running updates.
//
// A multiplier is taken only where a test below shows it exact for every S in 0 .. 255 k; with
// s = 16 + t, S = q k + rho and 0 <= rho < k:
// - bias 0, m = ceil(2^s / k), e = m k - 2^s: S m / 2^s = q + (rho + S e / 2^s) / k, exact when
//   255 k e < 2^s (then S e / 2^s < 1);
// - bias 1, m = floor(2^s / k), f = 2^s - m k (0 < f < k as k is odd):
//   (S + 1) m / 2^s = q + (rho + 1 - (S + 1) f / 2^s) / k, exact when (255 k + 1) f <= 2^s
//   (then the subtracted part lies in (0, 1]) and 255 k + 1 < 2^16.
// Every odd k from 3 to 257 has one of the two with t <= 15; `found` is false otherwise and the
// passes take 32-bit sums.
struct BlurDivision16 {
  bool found = false;
  uint16_t bias = 0;
  uint16_t multiplier = 0;
  int shift = 0;  // t
  uint32_t Divide(uint32_t biasedSum) const { return ((biasedSum * multiplier) >> 16) >> shift; }
};

inline BlurDivision16 MakeBlurDivision16(uint32_t k) {
  const uint64_t top = 255 * uint64_t{k};
  if (top >= 65536) return {};
  for (int t = 0; t < 16; ++t) {
    const uint64_t power = uint64_t{1} << (16 + t);
    const uint64_t up = (power + k - 1) / k, down = power / k;
    if (up < 65536 && top * (up * k - power) < power) {
      return {true, 0, static_cast<uint16_t>(up), t};
    }
    if (down < 65536 && top + 1 < 65536 && (top + 1) * (power - down * k) <= power) {
      return {true, 1, static_cast<uint16_t>(down), t};
    }
  }
  return {};
}
