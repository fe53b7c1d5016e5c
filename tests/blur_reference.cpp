#include "blur_reference.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qpxtest {

int32_t ReferenceWholeRadius(double radius) {
  const double whole = std::trunc(radius);
  if (std::isnan(whole) || whole < std::numeric_limits<int32_t>::min() ||
      whole > std::numeric_limits<int32_t>::max()) {
    return std::numeric_limits<int32_t>::min();
  }
  return static_cast<int32_t>(whole);
}

RawPicture ReferenceBlur(const RawPicture& source, int32_t newFormat, int32_t r) {
  const int32_t w = source.width, h = source.height;
  const int64_t k = 2 * int64_t{r} + 1;
  auto clampTo = [](int64_t v, int32_t size) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, 0, size - 1));
  };

  RawPicture vertical(w, h, newFormat);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      int64_t red = 0, green = 0, blue = 0;
      for (int64_t dy = -r; dy <= r; ++dy) {
        const Channels c = ReadChannels(source.Pixel(x, clampTo(y + dy, h)), source.format);
        red += c.red, green += c.green, blue += c.blue;
      }
      WriteOpaque(vertical.Pixel(x, y), newFormat, {int(red / k), int(green / k), int(blue / k)});
    }
  }

  RawPicture result = vertical;
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      int64_t red = 0, green = 0, blue = 0;
      for (int64_t dx = -r; dx <= r; ++dx) {
        const Channels c = ReadChannels(vertical.Pixel(clampTo(x + dx, w), y), source.format);
        red += c.red, green += c.green, blue += c.blue;
      }
      WriteOpaque(result.Pixel(x, y), newFormat, {int(red / k), int(green / k), int(blue / k)});
    }
  }
  return result;
}

ExpectedPicture ExpectedBlur(const RawPicture& source, int32_t newFormat, double radius) {
  const int32_t r = ReferenceWholeRadius(radius);
  if (r < 1) return ExpectedPicture::Receiver();
  if (source.width < 1 || source.height < 1 || source.width > 32767 || source.height > 32767) {
    return ExpectedPicture::Nil();
  }
  const uint64_t tableBytes = (2 * uint64_t(r) + 2) * 1024;
  if (tableBytes > 2147483647)
    return ExpectedPicture::New(RawPicture(source.width, source.height, newFormat));
  return ExpectedPicture::New(ReferenceBlur(source, newFormat, r));
}

}  // namespace qpxtest
