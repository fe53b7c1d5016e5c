#include "host_picture.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace qpxhost {
namespace {

constexpr int32_t kConsoleRowGap = 16;

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
                         bool hasAlpha, int32_t layout, int32_t rowPadding)
    : HostObject("Picture"),
      storage(storage),
      depth(depth),
      hasAlpha(hasAlpha),
      layout(storage == PictureStorage::Console ? 8 : layout),
      rowPadding(rowPadding) {
  Allocate(width, height);
}

void HostPicture::Allocate(int32_t newWidth, int32_t newHeight) {
  width = newWidth;
  height = newHeight;
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  if (storage == PictureStorage::Bitmap) {
    rowBytes = width * 4 + rowPadding;
    bitmap.Allocate(static_cast<size_t>(rowBytes) * h);
    context = {bitmap.data(),
               static_cast<size_t>(depth),
               w,
               h,
               static_cast<size_t>(rowBytes),
               static_cast<uint32_t>(layout)};
    return;
  }
  rowBytes = width * 4;
  const size_t stride = w * 4 + kConsoleRowGap;
  consoleBlock.Allocate(stride * h);
  rowTable.assign(h, nullptr);
  for (size_t y = 0; y < h; ++y) rowTable[y] = consoleBlock.data() + (h - 1 - y) * stride;
  record.assign(kConsoleRecordSlots, 0);
  record[1] = w;
  record[2] = h;
  record[kConsoleRecordRowTableFlagSlot] = 1;
  record[kConsoleRecordRowTableSlot] = reinterpret_cast<uintptr_t>(rowTable.data());
}

uint8_t* HostPicture::Row(int32_t y) {
  if (storage == PictureStorage::Console) return rowTable[static_cast<size_t>(y)];
  return bitmap.data() + static_cast<size_t>(y) * static_cast<size_t>(rowBytes);
}

const uint8_t* HostPicture::Pixel(int32_t x, int32_t y) const {
  return const_cast<HostPicture*>(this)->Row(y) + 4 * static_cast<size_t>(x);
}

RGBA HostPicture::Get(int32_t x, int32_t y) const {
  const uint8_t* p = Pixel(x, y);
  RGBA c;
  switch (layout) {
    case 1:
    case 3:
    case 5:
      c = {p[0], p[1], p[2], p[3]};
      break;
    case 2:
    case 4:
    case 6:
      c = {p[1], p[2], p[3], p[0]};
      break;
    default:
      c = {p[2], p[1], p[0], p[3]};
      break;
  }
  if (!hasAlpha) {
    c.a = 255;
  } else if (layout == 1 || layout == 2) {
    c = {Unpremultiply(c.r, c.a), Unpremultiply(c.g, c.a), Unpremultiply(c.b, c.a), c.a};
  }
  return c;
}

void HostPicture::Set(int32_t x, int32_t y, RGBA c) {
  uint8_t* p = const_cast<uint8_t*>(Pixel(x, y));
  if (!hasAlpha) {
    c.a = 255;
  } else if (layout == 1 || layout == 2) {
    c = {Premultiply(c.r, c.a), Premultiply(c.g, c.a), Premultiply(c.b, c.a), c.a};
  }
  switch (layout) {
    case 1:
    case 3:
    case 5:
      p[0] = c.r;
      p[1] = c.g;
      p[2] = c.b;
      p[3] = c.a;
      break;
    case 2:
    case 4:
    case 6:
      p[0] = c.a;
      p[1] = c.r;
      p[2] = c.g;
      p[3] = c.b;
      break;
    default:
      p[0] = c.b;
      p[1] = c.g;
      p[2] = c.r;
      p[3] = hasAlpha ? c.a : 0;
      break;
  }
}

std::vector<HostObject*> HostPicture::HeldReferences() const {
  if (mask == nullptr) return {};
  return {mask};
}

}  // namespace qpxhost
