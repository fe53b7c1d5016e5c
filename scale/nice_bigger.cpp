// The anti-aliased enlargement: a separable four-tap cubic convolution whose parameter is fixed
// at 0.0, so that each output byte is a smoothstep blend of the two nearest source bytes down
// and then across. Output column k sits at source position k * srcW / dstW (likewise rows);
// neighbours beyond the edges are clamped onto the edge. All four bytes of a pixel, alpha
// included, are blended alike, in single precision, and rounded half up.
#include "nice_bigger.h"

#include <algorithm>
#include <cstdint>

#include "enlarge_rows.h"
#include "new_picture.h"
#include "pixel_layout.h"
#include "working_buffer.h"
#include "yield_data.h"

namespace {

// A weight group: w0 weighs the sample two after the base one, w1 the one after it, w2 the
// base sample and w3 the one before it.
struct WeightGroup {
  float w0, w1, w2, w3;
};
static_assert(sizeof(WeightGroup) == 4 * sizeof(float));

// Slack after every table; never read.
constexpr uint64_t kTableSlack = 20;

// The cubic convolution weights at fraction t with the kernel parameter a = 0.0, evaluated in
// single precision in this order. The products with a stay: they make the outer weights w0
// and w3 zero (of either sign), rather than being dropped by hand.
WeightGroup CubicWeights(float t) {
  const float a = 0.0f;
  const float p = t * a;
  const float q = t * p;
  const float r = t * q;
  const float w0 = q - r;
  const float s = t * 3.0f * t;
  const float u = (t + t) * t * t;
  const float w1 = s - u - p;
  const float w2 = u - s + 1.0f;
  const float w3 = r - q + p;
  return {w0, w1, w2, w3};
}

// The five working buffers. Their sizes are taken in 64 bits, so a size that 32-bit arithmetic
// would wrap into a small allocation fails the size test instead.
struct Buffers {
  Buffers(uint64_t entries, uint64_t blendedColumns)
      : columnIndex(IndexBytes(entries)),
        rowIndex(IndexBytes(entries)),
        columnWeights(WeightBytes(entries)),
        rowWeights(WeightBytes(entries)),
        blended(BlendedBytes(entries, blendedColumns)) {}

  bool complete() const {
    return columnIndex && rowIndex && columnWeights && rowWeights && blended;
  }

  static uint64_t IndexBytes(uint64_t entries) { return entries * sizeof(int32_t) + kTableSlack; }
  static uint64_t WeightBytes(uint64_t entries) {
    return entries * sizeof(WeightGroup) + kTableSlack;
  }
  // The blended row holds all four bytes of each source pixel as floats, with a copy of the
  // first and the last pixel at its ends. The size test is that of one channel's row, which
  // the enlargement has always made; the source is never wider than the destination, so the
  // weight tables' size passed it already.
  static uint64_t BlendedBytes(uint64_t entries, uint64_t columns) {
    if (!NewWorkingBufferFits(IndexBytes(entries))) return 0;
    return (std::max(entries, columns) + 2) * kBytesPerPixel * sizeof(float) + kTableSlack;
  }

  WorkingBuffer<int32_t> columnIndex;
  WorkingBuffer<int32_t> rowIndex;
  WorkingBuffer<WeightGroup> columnWeights;
  WorkingBuffer<WeightGroup> rowWeights;
  WorkingBuffer<float> blended;
};

// index[k] = k * source / destination for k below `count`, the products formed by a 32-bit
// running sum, which wraps as the host's integers do.
void FillIndexTable(int32_t* index, int32_t count, int32_t source, int32_t destination) {
  uint32_t product = 0;
  for (int32_t k = 0; k < count; ++k) {
    index[k] = static_cast<int32_t>(product) / destination;
    product += static_cast<uint32_t>(source);
  }
}

// The weights of every destination column (or row): t is the fractional part of the source
// position, taken from the same running product.
void FillWeightTable(WeightGroup* weights, int32_t source, int32_t destination) {
  uint32_t product = 0;
  for (int32_t k = 0; k < destination; ++k) {
    const int32_t n = static_cast<int32_t>(product);
    const float t = static_cast<float>(n % destination) / static_cast<float>(destination);
    weights[k] = CubicWeights(t);
    product += static_cast<uint32_t>(source);
  }
}

// Entries from `filled` up to `maxDim` repeat the filled ones.
void RepeatWeights(WeightGroup* weights, int32_t filled, int32_t maxDim) {
  for (int32_t k = filled; k < maxDim; ++k) weights[k] = weights[k % filled];
}

void YieldCheck() {
  if (yield.interval != 0) yield.DoYield();
}

// Every destination row from the two source rows around its position, all four bytes at once.
// The outer taps weigh zero, and adding a zero product leaves every sum as it was (up to the
// sign of a zero, which no later step can tell), so only the two inner taps are computed. The
// rows come in any order the bytes allow; the yield checks stay one per row and byte.
void EnlargeRows(const PictureReader& reader, PictureWriter& writer, const Buffers& b,
                 PixelLoops loops) {
  const EnlargeKernels kernels = EnlargeKernelsFor(loops);
  const int32_t lastRow = reader.height - 1;
  const int32_t lastColumn = reader.width - 1;
  const int32_t rowBytes = kBytesPerPixel * reader.width;
  // The column index table is read by nothing else from here on: it becomes the padded
  // positions of the blended row.
  for (int32_t i = 0; i < writer.width; ++i) {
    b.columnIndex[i] = PaddedFirst(b.columnIndex[i], lastColumn);
  }
  float* padded = b.blended.get();
  float* row = padded + kBytesPerPixel;
  float* after = row + rowBytes;
  const float* columnGroups = &b.columnWeights[0].w0;
  for (int32_t j = 0; j < writer.height; ++j) {
    const int32_t y = b.rowIndex[j];
    const WeightGroup& w = b.rowWeights[j];
    const uint8_t* upper = reader.RowAddress(std::clamp(y, 0, lastRow));
    const uint8_t* lower = reader.RowAddress(std::clamp(y + 1, 0, lastRow));
    kernels.blend(upper, lower, rowBytes, w.w2, w.w1, row);
    std::copy(row, row + kBytesPerPixel, padded);
    std::copy(after - kBytesPerPixel, after, after);
    kernels.expand(padded, b.columnIndex.get(), columnGroups, writer.width, writer.RowAddress(j));
    for (int32_t byte = 0; byte < kBytesPerPixel; ++byte) YieldCheck();
  }
}

}  // namespace

REALpicture ScalePictureNiceBigger(REALpicture source, int32_t width, int32_t height) {
  return ScalePictureNiceBiggerWith(source, width, height, ChoosePixelLoops());
}

REALpicture ScalePictureNiceBiggerWith(REALpicture source, int32_t width, int32_t height,
                                       PixelLoops loops) {
  auto shape = [&](const PictureReader& reader) {
    return NewPictureShape{reader.hasAlpha, width, height};
  };
  return FillNewPicture(source, shape, [&](const PictureReader& reader, PictureWriter& writer) {
    const int32_t srcW = reader.width, srcH = reader.height;
    const int32_t dstW = writer.width, dstH = writer.height;
    const int32_t maxDim = std::max(dstW, dstH);
    const Buffers buffers(static_cast<uint64_t>(maxDim), static_cast<uint64_t>(srcW));
    if (!buffers.complete()) return false;

    FillIndexTable(buffers.columnIndex.get(), maxDim, srcW, dstW);
    FillIndexTable(buffers.rowIndex.get(), maxDim, srcH, dstH);
    FillWeightTable(buffers.columnWeights.get(), srcW, dstW);
    YieldCheck();
    FillWeightTable(buffers.rowWeights.get(), srcH, dstH);
    YieldCheck();
    if (dstW < maxDim) RepeatWeights(buffers.columnWeights.get(), dstW, maxDim);
    if (dstH < dstW) RepeatWeights(buffers.rowWeights.get(), dstH, maxDim);
    YieldCheck();

    EnlargeRows(reader, writer, buffers, loops);
    return true;
  });
}
