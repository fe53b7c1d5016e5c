// The pixel loops of the anti-aliased enlargement, in a plain version and in vector versions
// that give the same bytes: every lane does the plain version's single-precision operations
// in the same order.
#pragma once

#include <algorithm>
#include <cstdint>

#include "pixel_loops.h"

// Blends two source rows into one row of floats, byte by byte:
// out[k] = upper[k] * wUpper + lower[k] * wLower, each product rounded to float, then the sum.
using BlendRowsFn = void (*)(const uint8_t* upper, const uint8_t* lower, int32_t bytes,
                             float wUpper, float wLower, float* out);

// One destination row from a blended row (4 floats a pixel) padded with a copy of its first
// pixel before it and of its last pixel after it. Destination pixel i blends padded pixels
// A = first[i] and B = first[i] + 1 with its weight group G at groups + 4 i (w0, w1, w2, w3):
// each of its 4 bytes is v = (0.5 + A * w2) + B * w1, rounded to float after every
// operation, stored as 0 if v <= 0, 255 if v >= 255, else v truncated.
using ExpandRowFn = void (*)(const float* padded, const int32_t* first, const float* groups,
                             int32_t width, uint8_t* out);

struct EnlargeKernels {
  BlendRowsFn blend;
  ExpandRowFn expand;
};

// The loops of that version.
EnlargeKernels EnlargeKernelsFor(PixelLoops loops);

// The padded position of A for source column x, which may lie outside the row's columns 0 to
// `last`: A and B are then the pixels at clamp(x) and clamp(x + 1). With the copies at both
// ends, clamp(x, -1, last) + 1 and the pixel after it are exactly those.
inline int32_t PaddedFirst(int32_t x, int32_t last) {
  return std::clamp(x, -1, last) + 1;
}
