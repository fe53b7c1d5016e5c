// Direct access to a host picture's pixels. A reader opens a source picture; a writer makes a
// new 32-bit picture, is filled row by row and hands the picture back to the host.
#pragma once

#include <cstdint>

#include "REALplugin.h"

// Pixel layouts (4 bytes a pixel, bytes in memory order): 1, 3, 5 = R, G, B, A (or a skipped
// byte); 2, 4, 6 = A, R, G, B; 8 = B, G, R and a byte without colour (console and web).
constexpr int32_t kPixelFormatConsole = 8;

class PictureEditor {
 public:
  PictureEditor() = default;
  virtual ~PictureEditor();
  PictureEditor(const PictureEditor&) = delete;
  PictureEditor& operator=(const PictureEditor&) = delete;

  // Opens `picture`: as a bitmap context in desktop applications (or, when that fails and
  // `copyIfNeeded` is set for a reader, through a 32-bit copy), through the row table in
  // console and web applications. False when it cannot be opened.
  bool GetPictureEditor(REALpicture picture, bool copyIfNeeded, bool clearCacheOnRelease);
  // The held picture with one new reference for the caller (or one built from `buffer`),
  // then releases the editor.
  REALpicture RenderPictureWriter();
  void clear() { Release(); }

  // Row y; rows at or past the bottom give row 0.
  uint8_t* RowAddress(int32_t y) const {
    if (y >= height) return baseAddress;
    if (pixelFormat == kPixelFormatConsole) return rowTable[y];
    // In 64 bits: a block of more than 2 GiB can be had in a 32-bit process.
    return baseAddress + static_cast<int64_t>(y) * rowBytes;
  }
  // Moves `cursor` to the start of the next row (after the last row: row 0).
  void NextRow() {
    cursorX = 0;
    ++cursorY;
    cursor = RowAddress(cursorY);
  }

  int32_t rowBytes = 0;
  int32_t width = 0;
  int32_t height = 0;
  int32_t bytesPerPixel = 0;
  int32_t rowState = 0;
  int32_t pixelFormat = 0;
  uint8_t* cursor = nullptr;
  REALpictureDescription description = {};
  void* buffer = nullptr;
  uint8_t* baseAddress = nullptr;
  int32_t cursorX = 0;
  int32_t cursorY = 0;
  REALpicture picture = nullptr;
  void* pixelMap = nullptr;
  uint8_t** rowTable = nullptr;
  bool hasAlpha = false;
  bool alphaOpened = false;
  bool copyIfNeeded = false;
  bool clearCacheOnRelease = false;
  bool descriptionLocked = false;

 protected:
  void Release();

 private:
  bool Open(REALpicture source, bool copyIfNeeded, bool clearCacheOnRelease, bool mayCopy);
  bool OpenBitmapContext(REALpicture source);
  bool OpenThroughCopy(REALpicture source, int32_t width, int32_t height);
  bool OpenConsoleRecord(REALpicture source);
};

class PictureReader : public PictureEditor {
 public:
  ~PictureReader() override;
};

class PictureWriter : public PictureEditor {
 public:
  ~PictureWriter() override;
  // Makes and opens a new picture of `width` x `height`: with an alpha channel when the
  // reader's picture has one (through the "Picture" constructor, hosts 2011.04 and later),
  // else a 32-bit picture of at most 32767 a side.
  bool NewPictureWriter(const PictureReader& reader, int32_t width, int32_t height) {
    return NewPictureWriter(reader.hasAlpha, width, height);
  }
  bool NewPictureWriter(bool withAlpha, int32_t width, int32_t height);
};
