// Pixel bytes of host pictures as plain arrays, the channel layouts of the pixel format codes,
// and byte-for-byte comparison.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "host_picture.h"

namespace qpxtest {

// Rows of 4-byte pixels, packed, in layout `format` (1 to 6, or 8).
struct RawPicture {
  int32_t width = 0;
  int32_t height = 0;
  int32_t format = 0;
  std::vector<uint8_t> bytes;

  RawPicture() = default;
  RawPicture(int32_t width, int32_t height, int32_t format)
      : width(width), height(height), format(format), bytes(4 * size_t(width) * height, 0) {}
  uint8_t* Pixel(int32_t x, int32_t y) { return bytes.data() + 4 * (size_t(y) * width + x); }
  const uint8_t* Pixel(int32_t x, int32_t y) const {
    return bytes.data() + 4 * (size_t(y) * width + x);
  }
};

// The picture's pixel bytes (row padding left out) and its layout.
RawPicture ReadRaw(qpxhost::HostPicture& picture);
// Stores every byte of `raw` into the picture's rows; sizes must agree.
void WriteRaw(qpxhost::HostPicture& picture, const RawPicture& raw);

struct Channels {
  int red = 0;
  int green = 0;
  int blue = 0;
};
// Red, green and blue of a pixel in layout `format`: bytes 0-2 for 1, 3, 5; bytes 1-3 for
// 2, 4, 6; bytes 2, 1, 0 for 8; zeros for any other code.
Channels ReadChannels(const uint8_t* pixel, int32_t format);
// Stores an opaque pixel: alpha 255 for 1 to 6, a fourth byte 0 for 8; nothing for other codes.
void WriteOpaque(uint8_t* pixel, int32_t format, Channels channels);

// Every pixel's colour read in `raw`'s layout and stored opaque in layout `format`: what the
// host makes of a picture without alpha channel when it copies it colour by colour into one of
// that layout.
RawPicture OpaqueInLayout(const RawPicture& raw, int32_t format);

// Same size, same layout, same bytes; on failure names the first differing pixels.
::testing::AssertionResult SamePixels(const RawPicture& expected, const RawPicture& actual);

}  // namespace qpxtest
