#include "noise.h"

#include <cstring>
#include <map>

namespace qpxbench {
namespace {

// Another stream than the pictures', so that a mask does not follow its picture's bytes.
constexpr uint64_t kMaskSeed = 0xD1B54A32D192ED03u;

// `bytesPerPixel` bytes a pixel of noise from `seed`, filled row by row, as host pictures are,
// so that partial words fall alike.
std::vector<uint8_t> MakeNoise(Size size, size_t bytesPerPixel, uint64_t seed) {
  const size_t rowBytes = bytesPerPixel * static_cast<size_t>(size.width);
  std::vector<uint8_t> bytes(rowBytes * static_cast<size_t>(size.height));
  Noise noise(seed);
  for (int32_t y = 0; y < size.height; ++y) {
    noise.Fill(bytes.data() + static_cast<size_t>(y) * rowBytes, rowBytes);
  }
  return bytes;
}

}  // namespace

void Noise::Fill(uint8_t* bytes, size_t count) {
  while (count > 0) {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    const uint64_t word = state_ * 0x2545F4914F6CDD1Du;
    const size_t n = count < sizeof(word) ? count : sizeof(word);
    std::memcpy(bytes, &word, n);
    bytes += n;
    count -= n;
  }
}

const std::vector<uint8_t>& NoisePixels(Size size) {
  static std::map<Size, std::vector<uint8_t>> made;
  std::vector<uint8_t>& pixels = made[size];
  if (pixels.empty()) pixels = MakeNoise(size, 4, Noise::kSeed);
  return pixels;
}

const std::vector<uint8_t>& MaskNoise(Size size) {
  static std::map<Size, std::vector<uint8_t>> made;
  std::vector<uint8_t>& values = made[size];
  if (values.empty()) values = MakeNoise(size, 1, kMaskSeed);
  return values;
}

}  // namespace qpxbench
