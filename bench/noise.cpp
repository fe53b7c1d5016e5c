#include "noise.h"

#include <cstring>
#include <map>

namespace qpxbench {

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
  if (pixels.empty()) {
    pixels.resize(static_cast<size_t>(size.Pixels()) * 4);
    Noise noise;
    // Row by row, as host pictures are filled, so that partial words fall alike.
    for (int32_t y = 0; y < size.height; ++y) {
      noise.Fill(pixels.data() + static_cast<size_t>(y) * size.RowBytes(), size.RowBytes());
    }
  }
  return pixels;
}

}  // namespace qpxbench
