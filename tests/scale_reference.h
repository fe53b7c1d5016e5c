// Plain resizers to check ScaleQPX against, written for obviousness rather than speed: the box
// resizer sums every box afresh, the anti-aliased enlargement evaluates all four taps of every
// sample in single precision in the order the module must use.
#pragma once

#include <cstdint>

#include "differential.h"
#include "host_config.h"
#include "picture_bytes.h"

namespace qpxtest {

// The box resizer: for output (i, j), sx = (int)(xScale * i) and sy = (int)(yScale * j) with
// xScale = source width / width and yScale = source height / height in doubles; each channel is
// (int)((0.5 + boxHeight * S) / (boxWidth * boxHeight)), S the sum of that channel over the
// boxWidth = ceil(xScale) pixels of row sy from column sx, boxHeight = ceil(yScale). The source
// is read in its own layout, the result written opaque in `newFormat`. Sizes at least 1.
RawPicture ReferenceBoxResize(const RawPicture& source, int32_t width, int32_t height,
                              int32_t newFormat);

// The anti-aliased enlargement: a separable four-tap cubic with parameter 0, each of the four
// bytes of a pixel interpolated on its own (byte b of the source feeds byte b of the result,
// whatever the layouts). `newFormat` only labels the result. ScaleQPX runs it only for a source
// strictly smaller both ways; here any sizes of at least 1 will do.
RawPicture ReferenceEnlarge(const RawPicture& source, int32_t width, int32_t height,
                            int32_t newFormat);

// The arguments of one ScaleQPX call.
struct ScaleCall {
  int32_t width = 0;
  int32_t height = 0;
  bool antiAlias = false;
  int32_t yieldTicks = 0;
};

// What a ScaleQPX call must give and how many times it must yield when every yield check
// hands control to the host (a yield argument of 0 never yields).
struct ExpectedScaleResult {
  ExpectedPicture picture;
  int yields = 0;
};

// What ScaleQPX gives in a host configured as `host` for a receiver with these pixels (nil
// for a nil receiver) that has an alpha channel or not. The receiver must open.
ExpectedScaleResult ExpectedScale(const RawPicture* source, bool hasAlpha,
                                  const qpxhost::HostConfig& host, const ScaleCall& call);

}  // namespace qpxtest
