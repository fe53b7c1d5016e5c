#include "fuzz_input.h"

#include <bit>
#include <cstring>
#include <iterator>
#include <limits>

namespace qpxfuzz {
namespace {

constexpr int32_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int32_t kInt32Max = std::numeric_limits<int32_t>::max();

// Sizes past what a host makes, negative ones, and sizes whose byte counts overflow 32 bits.
constexpr int32_t kSpecialSizes[] = {-1,    -7,    -32768,  kInt32Min, kInt32Max, 32767,
                                     32768, 65535, 65536,   1 << 29,   1 << 30,   (1 << 30) + 1,
                                     16383, 1000,  -100000, 4097};

const double kSpecialNumbers[] = {
    std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::infinity(),
    -std::numeric_limits<double>::infinity(),
    -0.0,
    0.0,
    1.0,
    -1.0,
    0.5,
    -0.5,
    0.9999999999999999,
    1.9999999999999998,
    2147483647.0,
    2147483647.75,
    2147483648.0,
    -2147483648.0,
    -2147483648.25,
    -2147483649.0,
    1048575.0,
    1e300,
    -1e300,
    std::numeric_limits<double>::min(),
    std::numeric_limits<double>::denorm_min(),
    std::numeric_limits<double>::max(),
    -std::numeric_limits<double>::max(),
    1e-300,
    4503599627370497.0,
    0.25,
    255.5,
};

}  // namespace

uint8_t FuzzInput::Byte() {
  return at_ < size_ ? data_[at_++] : 0;
}

int64_t FuzzInput::Int(int64_t lo, int64_t hi) {
  const uint64_t range = static_cast<uint64_t>(hi - lo);
  uint64_t value = 0;
  for (uint64_t left = range; left != 0; left >>= 8) value = value << 8 | Byte();
  return lo + static_cast<int64_t>(value % (range + 1));
}

uint32_t FuzzInput::Word() {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value |= uint32_t{Byte()} << (8 * i);
  return value;
}

double FuzzInput::RawDouble() {
  const uint64_t low = Word();
  return std::bit_cast<double>(uint64_t{Word()} << 32 | low);
}

int32_t FuzzInput::Size() {
  const uint8_t choice = Byte();
  if (choice < 240) return choice % 60;
  return kSpecialSizes[choice - 240];
}

int32_t FuzzInput::Mode() {
  const uint8_t choice = Byte();
  if (choice < 224) return 1 + choice % 7;
  if (choice == 254) return kInt32Min;
  if (choice == 255) return kInt32Max;
  return int32_t{choice} - 232;
}

double FuzzInput::Number(double scaled) {
  const uint8_t choice = Byte();
  if (choice < 160) return scaled;
  if (choice < 224) return kSpecialNumbers[(choice - 160) % std::size(kSpecialNumbers)];
  return RawDouble();
}

double FuzzInput::Coordinate() {
  return Number(static_cast<double>(Int(-32768, 32767)) / 256.0);
}

double FuzzInput::Opacity() {
  return Number(static_cast<double>(Int(-32768, 32767)) / 16384.0);
}

double FuzzInput::Radius() {
  return Number(static_cast<double>(Int(0, 4095)) / 64.0 - 4.0);
}

int32_t FuzzInput::Yield() {
  switch (Byte() % 8) {
    case 4:
    case 5:
      return kInt32Min;  // its negation stays negative: every check yields
    case 6:
      return static_cast<int32_t>(Int(-3, 3));
    case 7:
      return static_cast<int32_t>(Word());
    default:
      return 0;
  }
}

}  // namespace qpxfuzz
