// One 64-bit digest of what a method call did: its answer, every byte of the picture it made
// (and of that picture's mask) or of the picture it drew into, and its yields. Each call is
// also checked as the other method tests check theirs: references, locks, leaks and misuse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "declaration.h"
#include "host.h"
#include "host_picture.h"

namespace qpxtest {

// FNV-1a, 64 bits; integers are taken as 8 little-endian bytes on every processor.
class Fnv1a64 {
 public:
  void Bytes(const uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) value_ = (value_ ^ bytes[i]) * 0x100000001B3ull;
  }
  void Int(int64_t value) {
    for (int i = 0; i < 8; ++i) {
      const auto byte = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
      Bytes(&byte, 1);
    }
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xCBF29CE484222325ull;
};

// Calls picture method `method` on `receiver` (may be nil; its reference is taken over) and
// digests the outcome (nil, the receiver, or a new picture with its size, layout, bytes and
// mask) and the yields. Checks that a new picture and its mask carry one reference each, that
// the receiver and its mask were left as they were, and that the host holds nothing once the
// receiver and the result are released.
uint64_t DigestPictureCall(qpxhost::Host& host, qpxhost::HostPicture* receiver,
                           const std::string& method, std::vector<qpxhost::Value> arguments);

// Calls DrawPictureFQPX on `destination` with `picture` (either may be nil, the picture or its
// mask may be the destination; the caller's references to both are taken over) and `x`, `y`,
// `alpha`, `yield`, and digests the answer, the exceptions raised, the destination's bytes
// afterwards and the yields. Checks that the picture and its mask were only read, that no
// reference or lock is left over and that the host holds nothing afterwards.
uint64_t DigestDrawCall(qpxhost::Host& host, qpxhost::HostPicture* destination,
                        qpxhost::HostPicture* picture, double x, double y, double alpha,
                        int32_t yield);

}  // namespace qpxtest
