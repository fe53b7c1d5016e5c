// Picture sizes and the noise every benchmark fills its pictures and masks with, so that the
// module and the other libraries work on the same bytes.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qpxbench {

struct Size {
  int32_t width = 0;
  int32_t height = 0;

  int64_t Pixels() const { return static_cast<int64_t>(width) * height; }
  size_t RowBytes() const { return 4 * static_cast<size_t>(width); }
  std::string Name() const { return std::to_string(width) + "x" + std::to_string(height); }
  auto operator<=>(const Size&) const = default;
};

inline constexpr Size kLarge{4000, 3000};
inline constexpr Size kSmall{1000, 750};
// A thumbnail of kLarge, a tenth on each side.
inline constexpr Size kThumb{400, 300};

// Noise from xorshift64*: nothing a filter or the memory system could take a shortcut on.
class Noise {
 public:
  static constexpr uint64_t kSeed = 0x9E3779B97F4A7C15u;

  explicit Noise(uint64_t seed = kSeed) : state_(seed) {}
  void Fill(uint8_t* bytes, size_t count);

 private:
  uint64_t state_;
};

// 4-byte pixels of noise, rows one after the other, made once per size: the same bytes as the
// rows of a host picture of that size filled from the start of the stream.
const std::vector<uint8_t>& NoisePixels(Size size);

// One byte a pixel of noise from a stream of its own, made once per size: the values of a mask
// (0 opaque, 255 transparent, as the host's masks have them).
const std::vector<uint8_t>& MaskNoise(Size size);

}  // namespace qpxbench
