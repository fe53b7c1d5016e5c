#include "host_picture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "host.h"

namespace qpxhost {
namespace {

constexpr int32_t kConsoleRowGap = 16;
// Guard bytes before the first row and after the last: a stray pixel or a short run of them
// lands here, where the pattern shows it; AddressSanitizer sees writes further out.
constexpr size_t kGuardMargin = 64;

// The pattern of the guard bytes, by a byte's place in its block, so that rows moved or
// copied out of place show as well as stray values.
uint8_t GuardByte(size_t offset) {
  return static_cast<uint8_t>(0xA5 ^ (offset * 0x3B));
}

// A block's size, worked out in 64 bits: where size_t has 32 bits, a picture the size test
// allows can need more bytes (padding, gaps, guards) than the address space holds.
size_t BlockBytes(uint64_t bytes) {
  if (bytes > SIZE_MAX) throw std::bad_alloc();
  return static_cast<size_t>(bytes);
}

uint8_t Premultiply(uint8_t c, uint8_t a) {
  return static_cast<uint8_t>((c * a + 127) / 255);
}
uint8_t Unpremultiply(uint8_t c, uint8_t a) {
  if (a == 0) return 0;
  const int value = (c * 255 + a / 2) / a;
  return static_cast<uint8_t>(value > 255 ? 255 : value);
}

}  // namespace

void PixelMemory::Free::operator()(uint8_t* p) const {
  std::free(p);
}

void PixelMemory::Allocate(size_t bytes) {
  bytes_.reset();
  size_ = 0;
  if (bytes == 0) return;
  bytes_.reset(static_cast<uint8_t*>(std::calloc(1, bytes)));
  if (!bytes_) throw std::bad_alloc();
  size_ = bytes;
}

HostPicture::HostPicture(PictureStorage storage, int32_t width, int32_t height, int32_t depth,
                         bool hasAlpha, int32_t layout, int32_t rowPadding, bool guardBytes)
    : HostObject("Picture"),
      storage(storage),
      depth(depth),
      hasAlpha(hasAlpha),
      layout(storage == PictureStorage::Console ? 8 : layout),
      rowPadding(rowPadding),
      guardBytes(guardBytes) {
  Allocate(width, height);
}

HostPicture::~HostPicture() {
  ReportDamagedGuardBytes();
}

void HostPicture::Allocate(int32_t newWidth, int32_t newHeight) {
  ReportDamagedGuardBytes();  // the old rows go now
  width = newWidth;
  height = newHeight;
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  if (storage == PictureStorage::Bitmap) {
    rowBytes = width * 4 + rowPadding;
    const size_t bytes = BlockBytes(uint64_t{static_cast<uint32_t>(rowBytes)} * h);
    guardMargin_ = guardBytes && bytes > 0 ? kGuardMargin : 0;
    bitmap.Allocate(BlockBytes(uint64_t{bytes} + 2 * guardMargin_));
    if (guardBytes) FillGuardBytes();
    context = {bytes > 0 ? bitmap.data() + guardMargin_ : nullptr,
               static_cast<size_t>(depth),
               w,
               h,
               static_cast<size_t>(rowBytes),
               static_cast<uint32_t>(layout)};
    return;
  }
  rowBytes = width * 4;
  const size_t stride = w * 4 + kConsoleRowGap;
  guardMargin_ = guardBytes && h > 0 ? kGuardMargin : 0;
  consoleBlock.Allocate(BlockBytes(uint64_t{stride} * h + 2 * guardMargin_));
  rowTable.assign(h, nullptr);
  for (size_t y = 0; y < h; ++y) {
    rowTable[y] = consoleBlock.data() + guardMargin_ + (h - 1 - y) * stride;
  }
  if (guardBytes) FillGuardBytes();
  record.assign(kConsoleRecordSlots, 0);
  record[1] = w;
  record[2] = h;
  record[kConsoleRecordRowTableFlagSlot] = 1;
  record[kConsoleRecordRowTableSlot] = reinterpret_cast<uintptr_t>(rowTable.data());
}

void HostPicture::FillPixels(uint8_t value) {
  for (int32_t y = 0; y < height; ++y) {
    std::memset(Row(y), value, 4 * static_cast<size_t>(width));
  }
}

uint8_t* HostPicture::Row(int32_t y) {
  if (storage == PictureStorage::Console) return rowTable[static_cast<size_t>(y)];
  return bitmap.data() + guardMargin_ + static_cast<size_t>(y) * static_cast<size_t>(rowBytes);
}

const uint8_t* HostPicture::Pixel(int32_t x, int32_t y) const {
  return const_cast<HostPicture*>(this)->Row(y) + 4 * static_cast<size_t>(x);
}

namespace {

// Where a layout keeps each channel in a pixel's four bytes; layouts past 6 (console storage)
// keep blue, green, red and a fourth byte.
struct ByteOrder {
  int r, g, b, a;
};

ByteOrder OrderOf(int32_t layout) {
  switch (layout) {
    case 1:
    case 3:
    case 5:
      return {0, 1, 2, 3};
    case 2:
    case 4:
    case 6:
      return {1, 2, 3, 0};
    default:
      return {2, 1, 0, 3};
  }
}

// The colour of the pixel at `p`, as Get gives it.
inline RGBA Decode(const uint8_t* p, ByteOrder order, bool hasAlpha, bool premultiplied) {
  RGBA c = {p[order.r], p[order.g], p[order.b], p[order.a]};
  if (!hasAlpha) {
    c.a = 255;
  } else if (premultiplied) {
    c = {Unpremultiply(c.r, c.a), Unpremultiply(c.g, c.a), Unpremultiply(c.b, c.a), c.a};
  }
  return c;
}

// Stores `c` at `p`, as Set does; `opaqueFourth` is the fourth byte of a picture without alpha.
inline void Encode(RGBA c, uint8_t* p, ByteOrder order, bool hasAlpha, bool premultiplied,
                   uint8_t opaqueFourth) {
  if (!hasAlpha) {
    c.a = opaqueFourth;
  } else if (premultiplied) {
    c = {Premultiply(c.r, c.a), Premultiply(c.g, c.a), Premultiply(c.b, c.a), c.a};
  }
  p[order.r] = c.r;
  p[order.g] = c.g;
  p[order.b] = c.b;
  p[order.a] = c.a;
}

}  // namespace

bool HostPicture::Premultiplied() const {
  return hasAlpha && (layout == 1 || layout == 2);
}

uint8_t HostPicture::OpaqueFourth() const {
  // Bitmaps without alpha hold 255 there; console records 0.
  return layout >= 1 && layout <= 6 ? 255 : 0;
}

RGBA HostPicture::Get(int32_t x, int32_t y) const {
  return Decode(Pixel(x, y), OrderOf(layout), hasAlpha, Premultiplied());
}

void HostPicture::Set(int32_t x, int32_t y, RGBA c) {
  Encode(c, const_cast<uint8_t*>(Pixel(x, y)), OrderOf(layout), hasAlpha, Premultiplied(),
         OpaqueFourth());
}

void HostPicture::GetRow(int32_t y, uint8_t* rgba) const {
  const uint8_t* p = Pixel(0, y);
  const ByteOrder order = OrderOf(layout);
  const bool premultiplied = Premultiplied();
  for (int32_t x = 0; x < width; ++x, p += 4, rgba += 4) {
    const RGBA c = Decode(p, order, hasAlpha, premultiplied);
    rgba[0] = c.r;
    rgba[1] = c.g;
    rgba[2] = c.b;
    rgba[3] = c.a;
  }
}

void HostPicture::SetRow(int32_t y, const uint8_t* rgba) {
  uint8_t* p = Row(y);
  const ByteOrder order = OrderOf(layout);
  const bool premultiplied = Premultiplied();
  const uint8_t opaqueFourth = OpaqueFourth();
  for (int32_t x = 0; x < width; ++x, p += 4, rgba += 4) {
    Encode({rgba[0], rgba[1], rgba[2], rgba[3]}, p, order, hasAlpha, premultiplied, opaqueFourth);
  }
}

std::vector<HostObject*> HostPicture::HeldReferences() const {
  if (mask == nullptr) return {};
  return {mask};
}

const PixelMemory& HostPicture::Block() const {
  return storage == PictureStorage::Bitmap ? bitmap : consoleBlock;
}

std::vector<std::pair<size_t, size_t>> HostPicture::GuardSpans() const {
  const PixelMemory& block = Block();
  if (block.size() == 0) return {};
  std::vector<size_t> rowStarts;
  for (int32_t y = 0; y < height; ++y) {
    rowStarts.push_back(static_cast<size_t>(const_cast<HostPicture*>(this)->Row(y) - block.data()));
  }
  std::sort(rowStarts.begin(), rowStarts.end());
  std::vector<std::pair<size_t, size_t>> spans;
  size_t at = 0;
  for (size_t start : rowStarts) {
    if (start > at) spans.emplace_back(at, start - at);
    at = start + 4 * static_cast<size_t>(width);
  }
  if (block.size() > at) spans.emplace_back(at, block.size() - at);
  return spans;
}

void HostPicture::FillGuardBytes() {
  uint8_t* bytes = Block().data();
  for (const auto& [offset, length] : GuardSpans()) {
    for (size_t i = offset; i < offset + length; ++i) bytes[i] = GuardByte(i);
  }
}

bool HostPicture::GuardBytesIntact() const {
  if (!guardBytes) return true;
  const uint8_t* bytes = Block().data();
  for (const auto& [offset, length] : GuardSpans()) {
    for (size_t i = offset; i < offset + length; ++i) {
      if (bytes[i] != GuardByte(i)) return false;
    }
  }
  return true;
}

void HostPicture::ReportDamagedGuardBytes() const {
  Host* host = Host::Current();
  if (host == nullptr || GuardBytesIntact()) return;
  host->ReportProblem("a " + std::to_string(width) + " x " + std::to_string(height) +
                      " picture's bytes outside its rows were overwritten");
}

}  // namespace qpxhost
