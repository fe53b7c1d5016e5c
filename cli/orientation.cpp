#include "orientation.h"

namespace qpx {

int ExifOrientation(const uint8_t* tiff, size_t size) {
  if (size < 8) return 1;
  const bool little = tiff[0] == 'I' && tiff[1] == 'I';
  if (!little && !(tiff[0] == 'M' && tiff[1] == 'M')) return 1;
  auto u16 = [&](size_t at) {
    return little ? uint32_t(tiff[at] | tiff[at + 1] << 8) : uint32_t(tiff[at] << 8 | tiff[at + 1]);
  };
  auto u32 = [&](size_t at) {
    return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2);
  };
  if (u16(2) != 42) return 1;
  const size_t directory = u32(4);
  if (directory + 2 > size) return 1;
  const size_t entries = u16(directory);
  for (size_t i = 0; i < entries; ++i) {
    const size_t entry = directory + 2 + 12 * i;
    if (entry + 12 > size) return 1;
    constexpr uint32_t kOrientation = 0x0112, kShort = 3;
    if (u16(entry) != kOrientation) continue;
    if (u16(entry + 2) != kShort || u32(entry + 4) != 1) return 1;
    const uint32_t value = u16(entry + 8);  // a single short sits at the start of the field
    return value >= 1 && value <= 8 ? int(value) : 1;
  }
  return 1;
}

Image Oriented(const Image& image, int orientation) {
  if (orientation < 2 || orientation > 8) {
    Image same = image;
    same.orientation = 1;
    return same;
  }
  const int32_t w = image.width, h = image.height;
  const bool across = orientation >= 5;  // the sides trade places
  Image out;
  out.width = across ? h : w;
  out.height = across ? w : h;
  out.hasAlpha = image.hasAlpha;
  out.rgba.resize(image.rgba.size());
  uint8_t* to = out.rgba.data();
  for (int32_t y = 0; y < out.height; ++y) {
    for (int32_t x = 0; x < out.width; ++x, to += 4) {
      // The stored pixel that shows at (x, y).
      int32_t sx = x, sy = y;
      switch (orientation) {
        case 2:
          sx = w - 1 - x;
          break;
        case 3:
          sx = w - 1 - x, sy = h - 1 - y;
          break;
        case 4:
          sy = h - 1 - y;
          break;
        case 5:
          sx = y, sy = x;
          break;
        case 6:
          sx = y, sy = h - 1 - x;
          break;
        case 7:
          sx = w - 1 - y, sy = h - 1 - x;
          break;
        default:
          sx = w - 1 - y, sy = x;
          break;  // 8
      }
      const uint8_t* from = image.rgba.data() + (size_t(sy) * size_t(w) + size_t(sx)) * 4;
      to[0] = from[0], to[1] = from[1], to[2] = from[2], to[3] = from[3];
    }
  }
  return out;
}

}  // namespace qpx
