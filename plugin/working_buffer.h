// Working buffers of one method call: zero-filled, from the system allocator, released with
// free() before the call returns.
#pragma once

#include <cstdint>
#include <cstdlib>

// Byte sizes above this count as an allocation failure, like a size of 0.
constexpr uint64_t kMaxWorkingBufferBytes = 2147483647;

// Whether a buffer of `byteSize` bytes passes the size test.
inline bool NewWorkingBufferFits(uint64_t byteSize) {
  return byteSize != 0 && byteSize <= kMaxWorkingBufferBytes;
}

// Null when the size fails that test or the allocator has no room. Sizes are taken in 64 bits
// so that callers can compute them without wrap-around.
inline void* NewWorkingBuffer(uint64_t byteSize) {
  if (!NewWorkingBufferFits(byteSize)) return nullptr;
  return std::calloc(1, static_cast<size_t>(byteSize));
}
