// Pictures made from fixed seeds by a generator written out here, so that every processor and
// every standard library builds the very same bytes; and short names that tell them apart.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host.h"
#include "host_picture.h"

namespace qpxtest {

// SplitMix64: a 64-bit state stepped by a constant and mixed; its output depends on nothing
// but the seed.
class SplitMix64 {
 public:
  explicit SplitMix64(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint8_t Byte() { return static_cast<uint8_t>(Next() >> 56); }

 private:
  uint64_t state_;
};

// How every byte of a picture (the fourth one of each pixel too) is drawn from the seed.
enum class Fill : char {
  Noise = 'n',     // every byte random
  Ramp = 'g',      // each byte a ramp across and down, of random slopes and offsets
  Extremes = 'e',  // every byte 0 or 255
  Uniform = 'u',   // one pixel everywhere
};

struct SeededRecipe {
  int32_t width = 1;
  int32_t height = 1;
  Fill fill = Fill::Noise;
  bool hasAlpha = false;
  std::optional<int32_t> layout;  // desktop hosts only; default: the host's for its kind
  bool lockable = true;           // false: its pixels never lock, as a vector picture's
  // "37x5n", then "a" with an alpha channel, ":l3" for layout 3, ":nolock".
  std::string Name() const;
};

// Every byte of every row of `picture` (row padding left alone) drawn from `seed`.
void FillPicture(qpxhost::HostPicture& picture, Fill fill, uint64_t seed);
// The picture in the booted host, filled from `seed`, carrying one reference (the caller's).
// A layout is used only in a desktop host.
qpxhost::HostPicture* SeededPicture(qpxhost::Host& host, const SeededRecipe& recipe, uint64_t seed);

}  // namespace qpxtest
