// The pixel work of BlurQPX: what a call fixes before its first pixel, the plain two passes,
// and the vector loops that do both passes on a block of rows at a time.
#pragma once

#include <cstdint>

#include "blur_division.h"
#include "picture_editor.h"
#include "yield_data.h"

struct BlurJob {
  const PictureReader& reader;
  PictureWriter& writer;
  int32_t radius;           // r >= 1 with k = 2r + 1 <= 2097150
  BlurDivision32 divide;    // for 32-bit sums
  BlurDivision16 divide16;  // found: the sums fit 16 bits
};

// How many of the positions -r .. r land on `index` once clamped to 0 .. last. Priming with
// these counts gives the same sums as adding 2r + 1 clamped reads one by one.
inline uint32_t TimesCovered(int32_t index, int32_t last, int32_t r) {
  const int64_t from = index == 0 ? -static_cast<int64_t>(r) : index;
  const int64_t to = index == last ? r : (index < r ? index : r);
  return to < from ? 0 : static_cast<uint32_t>(to - from + 1);
}

// The plain loops' buffers: a running sum per column for each channel, and a copy of one
// destination row.
struct BlurPlainBuffers {
  uint32_t* red;
  uint32_t* green;
  uint32_t* blue;
  uint8_t* line;
};

// The vertical pass over every row, then the horizontal pass over every row, one pixel and one
// channel at a time, each row followed by a yield when `yielding.interval` is not 0. Any
// pair of layouts, those without one included.
void BlurPlainPasses(const BlurJob& job, const BlurPlainBuffers& buffers, YieldData& yielding);

// The vector loops work on blocks of `rows` rows (the number of pixels in a vector), and
// within a block on strips of `rows` columns. Each column's running sums keep the four bytes
// of its pixels apart, in lanes of 16 or 32 bits (the fourth byte's lane is carried along and
// never used), so a pixel needs no unpicking into channels; the layouts' differences are one
// shuffle of lanes where a pixel is stored.
struct BlurBlockBuffers {
  uint8_t* sums;   // the vertical pass's sums of every column
  uint8_t* block;  // the block's rows after the vertical pass, column after column
};

struct BlurBlockLoops {
  int32_t rows = 0;  // 0: no vector loops for this pair of layouts
  // Primes the vertical sums over the rows -r .. r around row 0.
  void (*prime)(const BlurJob& job, const BlurBlockBuffers& buffers) = nullptr;
  // Vertical pass of rows first .. first + rows - 1 into `block`, moving the sums on.
  void (*vertical)(const BlurJob& job, const BlurBlockBuffers& buffers, int32_t first) = nullptr;
  // Horizontal pass of the same rows from `block` into the destination (rows at or past its
  // height are left alone).
  void (*horizontal)(const BlurJob& job, const BlurBlockBuffers& buffers, int32_t first) = nullptr;
};

// The bytes of each buffer the loops need for a picture `width` pixels wide.
inline uint64_t BlurSumsBytes(const BlurBlockLoops& loops, int32_t width, bool sums16) {
  const uint64_t columns =
      (static_cast<uint64_t>(width) + loops.rows - 1) / loops.rows * loops.rows;
  return columns * 4 * (sums16 ? 2 : 4);
}
inline uint64_t BlurBlockBytes(const BlurBlockLoops& loops, int32_t width) {
  const uint64_t columns =
      (static_cast<uint64_t>(width) + loops.rows - 1) / loops.rows * loops.rows;
  return columns * 4 * loops.rows;
}

// The loops of each version for a reader and a writer of these pixelFormat codes and sums of
// 16 or 32 bits; `rows` 0 for pairs where a layout is missing (the plain loops take those).
BlurBlockLoops BlurBlockLoops128(int32_t readerFormat, int32_t writerFormat, bool sums16);
BlurBlockLoops BlurBlockLoopsAvx2(int32_t readerFormat, int32_t writerFormat, bool sums16);
