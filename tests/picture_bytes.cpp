#include "picture_bytes.h"

#include <cstring>
#include <sstream>

namespace qpxtest {

RawPicture ReadRaw(qpxhost::HostPicture& picture) {
  RawPicture raw(picture.width, picture.height, picture.layout);
  if (picture.width == 0) return raw;  // rows without bytes
  for (int32_t y = 0; y < picture.height; ++y) {
    std::memcpy(raw.Pixel(0, y), picture.Row(y), 4 * size_t(picture.width));
  }
  return raw;
}

void WriteRaw(qpxhost::HostPicture& picture, const RawPicture& raw) {
  if (picture.width == 0) return;
  for (int32_t y = 0; y < picture.height; ++y) {
    std::memcpy(picture.Row(y), raw.Pixel(0, y), 4 * size_t(picture.width));
  }
}

Channels ReadChannels(const uint8_t* p, int32_t format) {
  switch (format) {
    case 1:
    case 3:
    case 5:
      return {p[0], p[1], p[2]};
    case 2:
    case 4:
    case 6:
      return {p[1], p[2], p[3]};
    case 8:
      return {p[2], p[1], p[0]};
    default:
      return {};
  }
}

void WriteOpaque(uint8_t* p, int32_t format, Channels c) {
  const auto r = static_cast<uint8_t>(c.red), g = static_cast<uint8_t>(c.green),
             b = static_cast<uint8_t>(c.blue);
  switch (format) {
    case 1:
    case 3:
    case 5:
      p[0] = r, p[1] = g, p[2] = b, p[3] = 255;
      break;
    case 2:
    case 4:
    case 6:
      p[0] = 255, p[1] = r, p[2] = g, p[3] = b;
      break;
    case 8:
      p[0] = b, p[1] = g, p[2] = r, p[3] = 0;
      break;
    default:
      break;
  }
}

RawPicture OpaqueInLayout(const RawPicture& raw, int32_t format) {
  RawPicture out(raw.width, raw.height, format);
  for (int32_t y = 0; y < raw.height; ++y) {
    for (int32_t x = 0; x < raw.width; ++x) {
      WriteOpaque(out.Pixel(x, y), format, ReadChannels(raw.Pixel(x, y), raw.format));
    }
  }
  return out;
}

::testing::AssertionResult SamePixels(const RawPicture& expected, const RawPicture& actual) {
  if (expected.width != actual.width || expected.height != actual.height) {
    return ::testing::AssertionFailure()
           << "size " << actual.width << "x" << actual.height << ", expected " << expected.width
           << "x" << expected.height;
  }
  if (expected.format != actual.format) {
    return ::testing::AssertionFailure()
           << "pixel format " << actual.format << ", expected " << expected.format;
  }
  std::ostringstream out;
  int shown = 0, differing = 0;
  for (int32_t y = 0; y < expected.height; ++y) {
    for (int32_t x = 0; x < expected.width; ++x) {
      const uint8_t* e = expected.Pixel(x, y);
      const uint8_t* a = actual.Pixel(x, y);
      if (std::memcmp(e, a, 4) == 0) continue;
      ++differing;
      if (shown++ < 8) {
        out << "\n  (" << x << ", " << y << "): bytes " << int(a[0]) << " " << int(a[1]) << " "
            << int(a[2]) << " " << int(a[3]) << ", expected " << int(e[0]) << " " << int(e[1])
            << " " << int(e[2]) << " " << int(e[3]);
      }
    }
  }
  if (differing == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << differing << " pixels differ:" << out.str();
}

}  // namespace qpxtest
