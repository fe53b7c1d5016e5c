// A plain box blur to check BlurQPX against, written for obviousness rather than speed: each
// mean is summed afresh over its whole window.
#pragma once

#include <cstdint>

#include "differential.h"
#include "picture_bytes.h"

namespace qpxtest {

// The radius's whole part, truncated toward zero; NaN and values outside the 32-bit range give
// the most negative integer.
int32_t ReferenceWholeRadius(double radius);

// The blurred picture for whole radius r >= 1: each channel at (x, y) is
// floor(sum over dx of V(clamp(x + dx), y) / k) with V(x, y) = floor(sum over dy of
// S(x, clamp(y + dy)) / k), dx and dy from -r to r, k = 2r + 1. The source is read in its own
// layout; both passes write opaque pixels in `newFormat`, and the second reads the first's
// bytes in the source's layout again.
RawPicture ReferenceBlur(const RawPicture& source, int32_t newFormat, int32_t r);

// What BlurQPX(radius) gives for a receiver with these pixels in a host whose new pictures
// have layout `newFormat` (and start zeroed): the receiver itself for r < 1, the new picture
// unblurred when the division table would exceed 2^31 - 1 bytes, else ReferenceBlur.
ExpectedPicture ExpectedBlur(const RawPicture& source, int32_t newFormat, double radius);

}  // namespace qpxtest
