#include "resampling_passes.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "int_conversion.h"
#include "pixel_layout.h"
#include "resampling_avx2.h"
#include "working_buffer.h"

#define QPX_TAPS_TARGET
#include "horizontal_taps.h"

namespace {

// trunc(sum / weightSum + 0.5) by the 32-bit rule (NaN and out-of-range quotients, as from a
// weight sum of 0, give the most negative integer), clamped to 0..255.
uint32_t ChannelValue(double sum, float weightSum) {
  const int32_t value = TruncateToInt32(sum / static_cast<double>(weightSum) + 0.5);
  return value < 0 ? 0 : value > 255 ? 255 : static_cast<uint32_t>(value);
}

IntermediateWord Word(uint32_t blue, uint32_t green, uint32_t red) {
  return blue | green << 8 | red << 16;
}

const IntermediateWord* IntermediateAt(const IntermediateWord* intermediate, int32_t row,
                                       int32_t width, int32_t column) {
  return intermediate + static_cast<ptrdiff_t>(row) * width + column;
}

// --- Plain loops: one channel at a time ---------------------------------------------------------
template <class In>
void HorizontalRowPlain(const uint8_t* row, const ContributorList* columns, int32_t width,
                        IntermediateWord* out) {
  for (int32_t i = 0; i < width; ++i) {
    const ContributorList& list = columns[i];
    double blue = 0.0, green = 0.0, red = 0.0;
    for (int32_t k = 0; k < list.count; ++k) {
      const Contributor& c = list.entries[k];
      if (c.weight == 0.0f) continue;
      const uint8_t* p = row + kBytesPerPixel * static_cast<ptrdiff_t>(c.pixel);
      const double weight = c.weight;
      blue += In::Blue(p) * weight;
      green += In::Green(p) * weight;
      red += In::Red(p) * weight;
    }
    out[i] = Word(ChannelValue(blue, list.weightSum), ChannelValue(green, list.weightSum),
                  ChannelValue(red, list.weightSum));
  }
}

template <class Out>
void VerticalRowPlain(const IntermediateWord* intermediate, int32_t width,
                      const ContributorList& list, uint8_t* out) {
  for (int32_t column = 0; column < width; ++column, out += kBytesPerPixel) {
    double blue = 0.0, green = 0.0, red = 0.0;
    for (int32_t k = 0; k < list.count; ++k) {
      const Contributor& c = list.entries[k];
      if (c.weight == 0.0f) continue;
      const IntermediateWord word = *IntermediateAt(intermediate, c.pixel, width, column);
      blue += static_cast<float>(word & 0xFF) * c.weight;
      green += static_cast<float>(word >> 8 & 0xFF) * c.weight;
      red += static_cast<float>(word >> 16 & 0xFF) * c.weight;
    }
    Out::Store(out, static_cast<uint8_t>(ChannelValue(red, list.weightSum)),
               static_cast<uint8_t>(ChannelValue(green, list.weightSum)),
               static_cast<uint8_t>(ChannelValue(blue, list.weightSum)));
  }
}

// --- Vector loops down: the four bytes of an intermediate word in four double lanes ------------
// Each lane does one channel's plain operations in the plain order; the lane of the fourth byte
// is worked out too and left unused (the vector types, WidenBytes and TapChannelValues are
// horizontal_taps.h's).
typedef float Floats4 __attribute__((vector_size(16)));

// The intermediate word at `p` in four 32-bit lanes, blue in lane 0.
inline TapInts LoadBytes(const IntermediateWord* p) {
  IntermediateWord word;
  std::memcpy(&word, p, sizeof word);
  return WidenBytes(word);
}

// Each pixel's sum is one serial chain of additions, so several pixels are worked out side by
// side: columns at a time down (they share the row's contributors).
constexpr int kGroup = 4;

template <class Out, int N>
inline void VerticalColumnsLanes(const IntermediateWord* intermediate, int32_t width,
                                 const ContributorList& list, int32_t column, uint8_t* out) {
  TapDoubles sums[N] = {};
  for (int32_t k = 0; k < list.count; ++k) {
    const Contributor& c = list.entries[k];
    if (c.weight == 0.0f) continue;
    const IntermediateWord* words = IntermediateAt(intermediate, c.pixel, width, column);
    for (int n = 0; n < N; ++n) {
      const Floats4 products = __builtin_convertvector(LoadBytes(words + n), Floats4) * c.weight;
      sums[n] += __builtin_convertvector(products, TapDoubles);
    }
  }
  const double reciprocal = ExactReciprocal(list.weightSum);
  for (int n = 0; n < N; ++n) {
    const TapInts v =
        TapChannelValues(sums[n], list.weightSum, reciprocal);  // lanes: blue, green, red, 0
    Out::Store(out + kBytesPerPixel * n, static_cast<uint8_t>(v[2]), static_cast<uint8_t>(v[1]),
               static_cast<uint8_t>(v[0]));
  }
}

// Columns from `column` on.
template <class Out>
void VerticalLanesFrom(const IntermediateWord* intermediate, int32_t width,
                       const ContributorList& list, uint8_t* out, int32_t column) {
  for (; column + kGroup <= width; column += kGroup) {
    VerticalColumnsLanes<Out, kGroup>(intermediate, width, list, column,
                                      out + kBytesPerPixel * column);
  }
  for (; column < width; ++column) {
    VerticalColumnsLanes<Out, 1>(intermediate, width, list, column, out + kBytesPerPixel * column);
  }
}

template <class Out>
void VerticalVector(const IntermediateWord* intermediate, int32_t width,
                    const ContributorList& list, uint8_t* out) {
  VerticalLanesFrom<Out>(intermediate, width, list, out, 0);
}

// The AVX2 loops live in their own file, built for AVX2; they are chosen only on processors
// that have it. Eight columns a vector per channel where the row is wide enough, the rest as
// above.
template <class Out>
void VerticalAvx2(const IntermediateWord* intermediate, int32_t width, const ContributorList& list,
                  uint8_t* out) {
  const WordLayout layout = {8 * Out::kRed, 8 * Out::kGreen, 8 * Out::kBlue,
                             uint32_t{Out::kFourthValue} << (8 * Out::kFourth)};
  const int32_t done = VerticalColumnsAvx2(intermediate, width, list, layout, out);
  VerticalLanesFrom<Out>(intermediate, width, list, out, done);
}

template <class Out>
using VerticalFn = void (*)(const IntermediateWord*, int32_t, const ContributorList&, uint8_t*);

// The loops of that version for a store layout; formats without channels take the plain ones.
template <class Out>
VerticalFn<Out> VerticalFor(PixelLoops loops) {
  if constexpr (Out::kStores) {
    if (loops == PixelLoops::Avx2) return VerticalAvx2<Out>;
    if (loops != PixelLoops::Plain) return VerticalVector<Out>;
  }
  return VerticalRowPlain<Out>;
}

// --- Vector loops across: rows converted to doubles once (converted_rows.h) ---------------------
// Source pixels a block of columns spans at most: 128 converted pixels of eight rows take 24 KB,
// which stay in the first-level cache while the block's taps read them again and again. Where
// columns' contributors span more (a strong shrink with a wide kernel), a block spans
// kBlockLists times the longest list instead, so that each source pixel is still converted
// about once rather than once for every column whose span it falls in; the block then stays in
// the second-level cache.
constexpr int32_t kBlockPixels = 128;
constexpr int64_t kBlockLists = 4;

// The output columns split into blocks and their contributors as taps, worked out once per
// pass: the columns' contributors are the same for every row.
class AcrossTaps {
 public:
  AcrossTaps(const ContributorList* columns, int32_t width)
      : blocks_(static_cast<uint64_t>(width) * sizeof(ColumnBlock)),
        columns_(static_cast<uint64_t>(width) * sizeof(TapColumn)),
        taps_(TapCount(columns, width) * sizeof(Tap)) {
    if (!blocks_ || !columns_ || !taps_) return;
    int64_t widestList = 0;
    for (int32_t i = 0; i < width; ++i)
      widestList = std::max<int64_t>(widestList, columns[i].count);
    const int64_t blockPixels = std::max<int64_t>(kBlockPixels, kBlockLists * widestList);
    ColumnBlock block = {0, 0, INT32_MAX, INT32_MIN};
    for (int32_t i = 0; i < width; ++i) {
      int32_t lo = INT32_MAX, hi = INT32_MIN;
      for (int32_t k = 0; k < columns[i].count; ++k) {
        lo = std::min(lo, columns[i].entries[k].pixel);
        hi = std::max(hi, columns[i].entries[k].pixel);
      }
      const int32_t blockLo = std::min(block.lo, lo), blockHi = std::max(block.hi, hi);
      if (block.end > block.first && blockLo <= blockHi &&
          int64_t{blockHi} - blockLo >= blockPixels) {
        Add(block);
        block = {i, i, lo, hi};
      } else {
        block.lo = blockLo;
        block.hi = blockHi;
      }
      block.end = i + 1;
    }
    Add(block);
    FillTaps(columns);
    ready_ = true;
  }

  explicit operator bool() const { return ready_; }
  const ColumnBlock* begin() const { return blocks_.get(); }
  const ColumnBlock* end() const { return blocks_.get() + count_; }
  const TapColumn* columns() const { return columns_.get(); }
  const Tap* taps() const { return taps_.get(); }
  // Pixels of the widest block.
  int64_t widestSpan() const { return widestSpan_; }

 private:
  // Contributors of weight other than 0, at least 1 (a buffer of 0 bytes cannot be had).
  static uint64_t TapCount(const ContributorList* columns, int32_t width) {
    uint64_t taps = 1;
    for (int32_t i = 0; i < width; ++i) {
      for (int32_t k = 0; k < columns[i].count; ++k) taps += columns[i].entries[k].weight != 0.0f;
    }
    return taps;
  }

  void Add(ColumnBlock block) {
    if (block.lo > block.hi) block.lo = 0, block.hi = -1;  // columns without contributors
    widestSpan_ = std::max(widestSpan_, int64_t{block.hi} - block.lo + 1);
    blocks_[static_cast<size_t>(count_++)] = block;
  }

  void FillTaps(const ContributorList* columns) {
    int32_t next = 0;
    for (const ColumnBlock& block : *this) {
      for (int32_t i = block.first; i < block.end; ++i) {
        const ContributorList& list = columns[i];
        columns_[static_cast<size_t>(i)] = {next, next, list.weightSum};
        for (int32_t k = 0; k < list.count; ++k) {
          const Contributor& c = list.entries[k];
          if (c.weight == 0.0f) continue;
          taps_[static_cast<size_t>(next++)] = {c.weight, c.pixel - block.lo};
        }
        columns_[static_cast<size_t>(i)].end = next;
      }
    }
  }

  WorkingBuffer<ColumnBlock> blocks_;
  WorkingBuffer<TapColumn> columns_;
  WorkingBuffer<Tap> taps_;
  int32_t count_ = 0;
  int64_t widestSpan_ = 0;
  bool ready_ = false;
};

// Every source row into the intermediate image, kConvertedRows rows at a time (the last few one
// at a time) through `taps`; false, with nothing done, when its working memory cannot be had.
template <class In>
bool HorizontalLanes(const PictureReader& reader, const ContributorList* columns, int32_t width,
                     IntermediateWord* intermediate, HorizontalBlockFn convertAndTap) {
  constexpr int kFirst = std::min({In::kBlue, In::kGreen, In::kRed});
  static_assert(std::max({In::kBlue, In::kGreen, In::kRed}) == kFirst + 2);
  const ColourBytes colours = {kFirst, In::kBlue - kFirst, In::kGreen - kFirst, In::kRed - kFirst};
  const AcrossTaps blocks(columns, width);
  if (!blocks) return false;
  const WorkingBuffer<double> converted(ConvertedDoubles(blocks.widestSpan()) * sizeof(double));
  if (!converted) return false;
  for (int32_t first = 0; first < reader.height;) {
    const int rows = reader.height - first >= kConvertedRows ? kConvertedRows : 1;
    const uint8_t* sources[kConvertedRows];
    IntermediateWord* outs[kConvertedRows];
    for (int n = 0; n < rows; ++n) {
      sources[n] = reader.RowAddress(first + n);
      outs[n] = intermediate + static_cast<ptrdiff_t>(first + n) * width;
    }
    for (const ColumnBlock& block : blocks) {
      convertAndTap(sources, rows, colours, block, blocks.columns(), blocks.taps(), converted.get(),
                    outs);
    }
    first += rows;
  }
  return true;
}

}  // namespace

void HorizontalPass(const PictureReader& reader, const ContributorList* columns, int32_t width,
                    IntermediateWord* intermediate, PixelLoops loops) {
  // The store layout plays no part here.
  WithLayouts(reader.pixelFormat, 0, [&]<class In, class>() {
    if constexpr (In::kReads) {
      if (loops != PixelLoops::Plain &&
          HorizontalLanes<In>(reader, columns, width, intermediate,
                              loops == PixelLoops::Avx2 ? HorizontalBlockAvx2 : ConvertAndTap)) {
        return;
      }
    }
    for (int32_t r = 0; r < reader.height; ++r) {
      HorizontalRowPlain<In>(reader.RowAddress(r), columns, width,
                             intermediate + static_cast<ptrdiff_t>(r) * width);
    }
  });
}

void VerticalPass(const IntermediateWord* intermediate, const ContributorList* rows,
                  PictureWriter& writer, YieldData& yielding, PixelLoops loops) {
  WithLayouts(0, writer.pixelFormat, [&]<class, class Out>() {
    const VerticalFn<Out> resizeRow = VerticalFor<Out>(loops);
    for (int32_t r = 0; r < writer.height; ++r) {
      // A layout without channels gets no pixels.
      if constexpr (Out::kStores) {
        resizeRow(intermediate, writer.width, rows[r], writer.RowAddress(r));
      }
      if (yielding.interval != 0) yielding.DoYield();
    }
  });
}
