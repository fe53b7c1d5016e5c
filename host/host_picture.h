// Pictures of the emulated host. Desktop applications keep a picture's pixels in a bitmap
// context (32 bits a pixel in one of the layouts 1 to 6, rows possibly padded); console and web
// applications keep them in rows reached through the console record's row table (B, G, R and
// a fourth byte), rows placed apart from each other, last row first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "REALplugin.h"
#include "host_config.h"
#include "host_object.h"

namespace qpxhost {

// What the host's bitmap-context functions read.
struct BitmapContext {
  void* data = nullptr;
  size_t bitsPerPixel = 0;
  size_t width = 0;
  size_t height = 0;
  size_t bytesPerRow = 0;
  uint32_t alphaInfo = 0;
};

struct RGBA {
  uint8_t r = 0, g = 0, b = 0, a = 255;
  bool operator==(const RGBA&) const = default;
};

enum class PictureStorage { Bitmap, Console };

// Pixel memory, zero-filled when allocated. It comes from calloc, which hands out large blocks
// as fresh pages that the system zero-fills on first touch, as a platform's bitmap allocator
// does, instead of writing every byte before the picture is used.
class PixelMemory {
 public:
  // `bytes` zeroed bytes (none: data() is null); throws std::bad_alloc when they cannot be had.
  void Allocate(size_t bytes);
  uint8_t* data() const { return bytes_.get(); }
  size_t size() const { return size_; }

 private:
  struct Free {
    void operator()(uint8_t* p) const;
  };
  std::unique_ptr<uint8_t, Free> bytes_;
  size_t size_ = 0;
};

class HostPicture : public HostObject {
 public:
  // `layout`: 1 to 6 for bitmap storage (ignored for console storage). `rowPadding`: extra
  // bytes after each bitmap row. `guardBytes`: lay out guard bytes around the rows.
  HostPicture(PictureStorage storage, int32_t width, int32_t height, int32_t depth, bool hasAlpha,
              int32_t layout, int32_t rowPadding, bool guardBytes);
  ~HostPicture() override;
  // (Re)allocates the pixels for a new size, all zero.
  void Allocate(int32_t width, int32_t height);
  // Sets every byte of every row's pixels to `value` (guard bytes stay as they are).
  void FillPixels(uint8_t value);

  // Address of row y (0 <= y < height).
  uint8_t* Row(int32_t y);
  // Colour of a pixel as the picture shows it (premultiplied layouts are divided back).
  RGBA Get(int32_t x, int32_t y) const;
  void Set(int32_t x, int32_t y, RGBA colour);
  // Row y as Get gives its pixels, into `rgba` (width x 4 bytes: R, G, B, A), and from it as
  // Set stores them: for copying whole pictures in and out.
  void GetRow(int32_t y, uint8_t* rgba) const;
  void SetRow(int32_t y, const uint8_t* rgba);

  std::vector<HostObject*> HeldReferences() const override;

  // Whether every guard byte still holds its pattern (always true without guard bytes).
  bool GuardBytesIntact() const;

  PictureStorage storage;
  int32_t width = 0, height = 0, depth = 32;
  bool hasAlpha = false;
  int32_t layout;  // 1 to 6, or 8 for console storage
  int32_t rowPadding;
  int32_t rowBytes = 0;
  const bool guardBytes;

  // Bitmap storage.
  PixelMemory bitmap;
  BitmapContext context;
  // Console storage: the rows in one block (last row first, with gaps), the row table and the
  // record a type-10 description points at.
  PixelMemory consoleBlock;
  std::vector<uint8_t*> rowTable;
  std::vector<uintptr_t> record;

  // False for a picture without pixels of its own to hand out (as the host's vector
  // pictures): its description never locks, though drawing it still renders it.
  bool lockable = true;
  // How this picture's description and bitmap context answer when they are faulty.
  PictureFaults faults;
  // One reference held. Its size may differ from the picture's: the mask setter keeps what it
  // is given, as the real host leaves that case to itself.
  HostPicture* mask = nullptr;
  int clearCacheCount = 0;
  int lockCount = 0;         // descriptions locked and not yet unlocked
  int unmatchedUnlocks = 0;  // unlocks without a lock (older hosts' callers make these)

 private:
  const uint8_t* Pixel(int32_t x, int32_t y) const;
  // Whether colours are stored multiplied by alpha (layouts 1 and 2 with alpha).
  bool Premultiplied() const;
  // The fourth byte of a pixel of a picture without alpha.
  uint8_t OpaqueFourth() const;
  // The block holding the rows, and the bytes of it that are not pixels, as (offset, length).
  const PixelMemory& Block() const;
  std::vector<std::pair<size_t, size_t>> GuardSpans() const;
  void FillGuardBytes();
  // Tells the booted host when a guard byte was overwritten.
  void ReportDamagedGuardBytes() const;

  size_t guardMargin_ = 0;  // bytes before the first and after the last row
};

}  // namespace qpxhost
