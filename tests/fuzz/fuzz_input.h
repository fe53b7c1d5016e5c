// A fuzz input read front to back: bytes, bounded numbers, and the argument values the picture
// methods are called with. Past its end an input reads as zeros, so every input is a whole case
// and short inputs take the plainest choices.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qpxfuzz {

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t Byte();
  bool Flag() { return (Byte() & 1) != 0; }
  // A number from lo to hi, read from as few bytes as the range needs (at most 4).
  int64_t Int(int64_t lo, int64_t hi);
  // Four bytes, little-endian.
  uint32_t Word();
  // Eight bytes taken as the bits of a double: any value, NaN payloads and subnormals included.
  double RawDouble();

  // A result width or height: mostly 0 to 59, sometimes negative or far beyond what the host
  // makes.
  int32_t Size();
  // A ScalingQPX mode: mostly 1 to 7, else a number around them or an extreme.
  int32_t Mode();
  // A drawing position: mostly multiples of 1/256 within +-128, else a special value (NaN,
  // infinities, the 32-bit limits and just past them, huge and tiny values) or any double.
  double Coordinate();
  // An opacity: mostly multiples of 1/16384 within +-2, else a special value or any double.
  double Opacity();
  // A blur radius: mostly multiples of 1/64 from -4 to 60, else a special value or any double.
  double Radius();
  // A yield argument: mostly 0 or one that yields at every check, else small or any number.
  int32_t Yield();

 private:
  // `scaled` for the common choice, else a special value or any double.
  double Number(double scaled);

  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

}  // namespace qpxfuzz
