// The pass across over converted rows (converted_rows.h), as file-local functions:
// each file that includes this compiles its own copy for the instruction set it is built for,
// with QPX_TAPS_TARGET (defined before the include) on every function. GCC's vector types
// compile to SSE2 or NEON (two registers a vector) or, under an AVX2 target, to one register.
// Lane by lane these are the plain loop's operations in its order: product in double, then the
// addition, contributor after contributor, zero weights skipped; the quotient, rounding and
// clamping as ChannelValue does them.
#pragma once

#include <cstdint>
#include <cstring>

#include "converted_rows.h"
#include "exact_reciprocal.h"

#ifndef QPX_TAPS_TARGET
#error "define QPX_TAPS_TARGET before including horizontal_taps.h"
#endif

namespace {

typedef double TapDoubles __attribute__((vector_size(32)));
typedef int64_t TapLongs __attribute__((vector_size(32)));
typedef int32_t TapInts __attribute__((vector_size(16)));
typedef uint8_t TapBytes __attribute__((vector_size(16)));

// The four bytes of `word`, byte 0 in lane 0: a byte shuffle with zeros, which compiles to a
// few instructions where putting the bytes in another order or taking them out one by one
// would not.
QPX_TAPS_TARGET inline TapInts WidenBytes(uint32_t word) {
  TapBytes bytes = {};
  std::memcpy(&bytes, &word, sizeof word);
  const TapBytes zero = {};
  return reinterpret_cast<TapInts>(__builtin_shufflevector(bytes, zero, 0, 16, 16, 16, 1, 16, 16,
                                                           16, 2, 16, 16, 16, 3, 16, 16, 16));
}

// The three colour bytes of the pixel at `p` and the byte after them (or 0), as doubles at
// `out`.
QPX_TAPS_TARGET inline void ConvertPixel(const uint8_t* p, int first, double* out) {
  uint32_t word;
  std::memcpy(&word, p, sizeof word);
#ifdef QPX_TAPS_WIDEN_TO_DOUBLES
  QPX_TAPS_WIDEN_TO_DOUBLES(word >> 8 * first, out);
#else
  const TapDoubles doubles = __builtin_convertvector(WidenBytes(word >> 8 * first), TapDoubles);
  std::memcpy(out, &doubles, sizeof doubles);
#endif
}

// Pixels block.lo to block.hi of `rows` rows, in the order converted_rows.h gives. Each row's
// vector of four lands its fourth lane on the next row's first colour, stored after it, or,
// after the last row, on the next pixel's first double or the buffer's padding.
QPX_TAPS_TARGET inline void ConvertBlock(const uint8_t* const* sources, int rows, int first,
                                         const ColumnBlock& block, double* converted) {
  const int stride = ConvertedStride(rows);
#ifdef QPX_TAPS_FOUR_ROWS
  // Four rows' colours at a time, as three whole vectors.
  if (rows % 4 == 0) {
    const QPX_TAPS_FOUR_ROWS convert(first);
    int32_t p = block.lo;
    for (; p <= block.hi - 3; p += 4, converted += 4 * stride) {
      const ptrdiff_t offset = 4 * static_cast<ptrdiff_t>(p);
      for (int n = 0; n < rows; n += 4)
        convert.Four(sources + n, offset, converted + 3 * n, stride);
    }
    for (; p <= block.hi; ++p, converted += stride) {
      const ptrdiff_t offset = 4 * static_cast<ptrdiff_t>(p);
      for (int n = 0; n < rows; n += 4) convert(sources + n, offset, converted + 3 * n);
    }
    return;
  }
#endif
  for (int32_t p = block.lo; p <= block.hi; ++p, converted += stride) {
    const ptrdiff_t offset = 4 * static_cast<ptrdiff_t>(p);
    for (int n = 0; n < rows; ++n) ConvertPixel(sources[n] + offset, first, converted + 3 * n);
  }
}

// trunc(sum / weightSum + 0.5) clamped to 0..255 in every lane, the quotient taken as a product
// when `reciprocal` (ExactReciprocal(weightSum)) is not 0: a quotient outside the 32-bit range
// (or NaN) gives the most negative integer, which the clamping makes 0; within it, clamping
// before the truncation gives what clamping after it would.
QPX_TAPS_TARGET inline TapInts TapChannelValues(const TapDoubles& sums, float weightSum,
                                                double reciprocal) {
  const TapDoubles zero = {0, 0, 0, 0}, top = {255, 255, 255, 255};
  TapDoubles q =
      (reciprocal != 0.0 ? sums * reciprocal : sums / static_cast<double>(weightSum)) + 0.5;
  const TapLongs inRange = (q > -2147483649.0) & (q < 2147483648.0);
  q = inRange ? q : zero;
  q = q > zero ? q : zero;
  q = q < top ? q : top;
  return __builtin_convertvector(q, TapInts);
}

template <int Rows>
QPX_TAPS_TARGET inline void TapsOf(const double* converted, const ColourBytes& colours,
                                   const ColumnBlock& block, const TapColumn* columns,
                                   const Tap* taps, uint32_t* const* outs) {
  constexpr int kStride = ConvertedStride(Rows), kVectors = kStride / 4;
  for (int32_t i = block.first; i < block.end; ++i) {
    const TapColumn& column = columns[i];
    TapDoubles sums[kVectors] = {};
    for (const Tap* tap = taps + column.begin; tap != taps + column.end; ++tap) {
      const double* pixel = converted + static_cast<ptrdiff_t>(tap->pixel) * kStride;
      for (int v = 0; v < kVectors; ++v) {
        TapDoubles channels;
        std::memcpy(&channels, pixel + 4 * v, sizeof channels);
        sums[v] += channels * tap->weight;
      }
    }
    int32_t values[kStride];
    const double reciprocal = ExactReciprocal(column.weightSum);
    for (int v = 0; v < kVectors; ++v) {
      const TapInts lanes = TapChannelValues(sums[v], column.weightSum, reciprocal);
      std::memcpy(values + 4 * v, &lanes, sizeof lanes);
    }
    for (int n = 0; n < Rows; ++n) {
      const int32_t* colour = values + 3 * n;
      outs[n][i] = static_cast<uint32_t>(colour[colours.blue] | colour[colours.green] << 8 |
                                         colour[colours.red] << 16);
    }
  }
}

// A HorizontalBlockFn.
QPX_TAPS_TARGET inline void ConvertAndTap(const uint8_t* const* sources, int rows,
                                          const ColourBytes& colours, const ColumnBlock& block,
                                          const TapColumn* columns, const Tap* taps,
                                          double* converted, uint32_t* const* outs) {
  ConvertBlock(sources, rows, colours.first, block, converted);
  if (rows == kConvertedRows) {
    return TapsOf<kConvertedRows>(converted, colours, block, columns, taps, outs);
  }
  TapsOf<1>(converted, colours, block, columns, taps, outs);
}

}  // namespace
