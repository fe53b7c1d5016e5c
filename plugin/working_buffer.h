// Working buffers of one method call: zero-filled, from the system allocator, released with
// free() before the call returns.
#pragma once

#include <cstddef>
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

// Owns one working buffer of `T`s, made by NewWorkingBuffer, and frees it when it goes.
template <class T>
class WorkingBuffer {
 public:
  WorkingBuffer() = default;
  explicit WorkingBuffer(uint64_t byteSize) : data_(static_cast<T*>(NewWorkingBuffer(byteSize))) {}
  ~WorkingBuffer() { std::free(data_); }
  WorkingBuffer(const WorkingBuffer&) = delete;
  WorkingBuffer& operator=(const WorkingBuffer&) = delete;

  T* get() const { return data_; }
  T& operator[](size_t index) const { return data_[index]; }
  explicit operator bool() const { return data_ != nullptr; }

 private:
  T* data_ = nullptr;
};
