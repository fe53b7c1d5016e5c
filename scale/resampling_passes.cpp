#include "resampling_passes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "int_conversion.h"
#include "pixel_layout.h"
#include "resampling_avx2.h"

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

// --- Vector loops: the four bytes of a pixel in four double lanes -------------------------------
// Each lane does one channel's plain operations in the plain order; the lane of the fourth byte
// is worked out too and left unused. GCC's vector types compile to SSE2 on x86 (two registers
// a vector) and to NEON on ARM64.
typedef double Doubles4 __attribute__((vector_size(32)));
typedef int64_t Longs4 __attribute__((vector_size(32)));
typedef float Floats4 __attribute__((vector_size(16)));
typedef int32_t Ints4 __attribute__((vector_size(16)));
typedef uint8_t Bytes16 __attribute__((vector_size(16)));

// ChannelValue in every lane: a quotient outside the 32-bit range (or NaN) gives the most
// negative integer, which the clamping makes 0; within it, clamping before the truncation
// gives what clamping after it would.
inline Ints4 ChannelValues(Doubles4 sums, float weightSum) {
  const Doubles4 zero = {0, 0, 0, 0}, top = {255, 255, 255, 255};
  Doubles4 q = sums / static_cast<double>(weightSum) + 0.5;
  const Longs4 inRange = (q > -2147483649.0) & (q < 2147483648.0);
  q = inRange ? q : zero;
  q = q > zero ? q : zero;
  q = q < top ? q : top;
  return __builtin_convertvector(q, Ints4);
}

// The four bytes at `p` as 32-bit lanes, byte 0 in lane 0: a byte shuffle, which compiles to
// a few instructions where a lane-by-lane conversion would take each byte out on its own.
inline Ints4 LoadBytes(const void* p) {
  Bytes16 bytes = {};
  std::memcpy(&bytes, p, 4);
  const Bytes16 zero = {};
  return reinterpret_cast<Ints4>(__builtin_shufflevector(bytes, zero, 0, 16, 16, 16, 1, 16, 16, 16,
                                                         2, 16, 16, 16, 3, 16, 16, 16));
}

// Each pixel's sum is one serial chain of additions, so several pixels are worked out side by
// side: rows at a time across (they share the column's contributors), columns at a time down
// (they share the row's).
constexpr int kGroup = 4;

template <class In, int N>
inline void HorizontalRowsLanes(const uint8_t* const* rows, const ContributorList* columns,
                                int32_t width, IntermediateWord* const* outs) {
  for (int32_t i = 0; i < width; ++i) {
    const ContributorList& list = columns[i];
    Doubles4 sums[N] = {};
    for (int32_t k = 0; k < list.count; ++k) {
      const Contributor& c = list.entries[k];
      if (c.weight == 0.0f) continue;
      const ptrdiff_t offset = kBytesPerPixel * static_cast<ptrdiff_t>(c.pixel);
      const double weight = c.weight;
      for (int n = 0; n < N; ++n) {
        sums[n] += __builtin_convertvector(LoadBytes(rows[n] + offset), Doubles4) * weight;
      }
    }
    for (int n = 0; n < N; ++n) {
      const Ints4 v = ChannelValues(sums[n], list.weightSum);
      outs[n][i] = Word(static_cast<uint32_t>(v[In::kBlue]), static_cast<uint32_t>(v[In::kGreen]),
                        static_cast<uint32_t>(v[In::kRed]));
    }
  }
}

// `count` rows (at most kGroup) at `rows` into the intermediate rows at `outs`.
template <class In>
void HorizontalVector(const uint8_t* const* rows, int32_t count, const ContributorList* columns,
                      int32_t width, IntermediateWord* const* outs) {
  if (count == kGroup) return HorizontalRowsLanes<In, kGroup>(rows, columns, width, outs);
  for (int32_t n = 0; n < count; ++n) {
    HorizontalRowsLanes<In, 1>(rows + n, columns, width, outs + n);
  }
}

template <class Out, int N>
inline void VerticalColumnsLanes(const IntermediateWord* intermediate, int32_t width,
                                 const ContributorList& list, int32_t column, uint8_t* out) {
  Doubles4 sums[N] = {};
  for (int32_t k = 0; k < list.count; ++k) {
    const Contributor& c = list.entries[k];
    if (c.weight == 0.0f) continue;
    const IntermediateWord* words = IntermediateAt(intermediate, c.pixel, width, column);
    for (int n = 0; n < N; ++n) {
      const Floats4 products = __builtin_convertvector(LoadBytes(words + n), Floats4) * c.weight;
      sums[n] += __builtin_convertvector(products, Doubles4);
    }
  }
  for (int n = 0; n < N; ++n) {
    const Ints4 v = ChannelValues(sums[n], list.weightSum);  // lanes: blue, green, red, 0
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

// The plain loops, one row at a time.
template <class In>
void HorizontalPlain(const uint8_t* const* rows, int32_t count, const ContributorList* columns,
                     int32_t width, IntermediateWord* const* outs) {
  for (int32_t n = 0; n < count; ++n) HorizontalRowPlain<In>(rows[n], columns, width, outs[n]);
}

template <class Out>
void VerticalVector(const IntermediateWord* intermediate, int32_t width,
                    const ContributorList& list, uint8_t* out) {
  VerticalLanesFrom<Out>(intermediate, width, list, out, 0);
}

// The AVX2 loops live in their own file, built for AVX2; they are chosen only on processors
// that have it.
template <class In>
void HorizontalAvx2(const uint8_t* const* rows, int32_t count, const ContributorList* columns,
                    int32_t width, IntermediateWord* const* outs) {
  HorizontalRowsAvx2(rows, count, columns, width, PixelBytes{In::kBlue, In::kGreen, In::kRed},
                     outs);
}

// Eight columns a vector per channel where the row is wide enough, the rest as above.
template <class Out>
void VerticalAvx2(const IntermediateWord* intermediate, int32_t width, const ContributorList& list,
                  uint8_t* out) {
  const WordLayout layout = {8 * Out::kRed, 8 * Out::kGreen, 8 * Out::kBlue,
                             uint32_t{Out::kFourthValue} << (8 * Out::kFourth)};
  const int32_t done = VerticalColumnsAvx2(intermediate, width, list, layout, out);
  VerticalLanesFrom<Out>(intermediate, width, list, out, done);
}

template <class In>
using HorizontalFn = void (*)(const uint8_t* const*, int32_t, const ContributorList*, int32_t,
                              IntermediateWord* const*);
template <class Out>
using VerticalFn = void (*)(const IntermediateWord*, int32_t, const ContributorList&, uint8_t*);

// The loops of that version for a read layout; formats without channels take the plain ones.
template <class In>
HorizontalFn<In> HorizontalFor(PixelLoops loops) {
  if constexpr (In::kReads) {
    if (loops == PixelLoops::Avx2) return HorizontalAvx2<In>;
    if (loops != PixelLoops::Plain) return HorizontalVector<In>;
  }
  return HorizontalPlain<In>;
}

template <class Out>
VerticalFn<Out> VerticalFor(PixelLoops loops) {
  if constexpr (Out::kStores) {
    if (loops == PixelLoops::Avx2) return VerticalAvx2<Out>;
    if (loops != PixelLoops::Plain) return VerticalVector<Out>;
  }
  return VerticalRowPlain<Out>;
}

}  // namespace

void HorizontalPass(const PictureReader& reader, const ContributorList* columns, int32_t width,
                    IntermediateWord* intermediate, PixelLoops loops) {
  // The store layout plays no part here.
  WithLayouts(reader.pixelFormat, 0, [&]<class In, class>() {
    const HorizontalFn<In> resize = HorizontalFor<In>(loops);
    for (int32_t first = 0; first < reader.height; first += kGroup) {
      const int32_t count = std::min(reader.height - first, kGroup);
      const uint8_t* rows[kGroup];
      IntermediateWord* outs[kGroup];
      for (int32_t n = 0; n < count; ++n) {
        rows[n] = reader.RowAddress(first + n);
        outs[n] = intermediate + static_cast<ptrdiff_t>(first + n) * width;
      }
      resize(rows, count, columns, width, outs);
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
