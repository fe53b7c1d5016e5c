// The taps of the pass across over converted rows (converted_rows.h), as file-local templates:
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

#ifndef QPX_TAPS_TARGET
#error "define QPX_TAPS_TARGET before including horizontal_taps.h"
#endif

namespace {

typedef double TapDoubles __attribute__((vector_size(32)));
typedef int64_t TapLongs __attribute__((vector_size(32)));
typedef int32_t TapInts __attribute__((vector_size(16)));

// trunc(sum / weightSum + 0.5) clamped to 0..255 in every lane: a quotient outside the 32-bit
// range (or NaN) gives the most negative integer, which the clamping makes 0; within it,
// clamping before the truncation gives what clamping after it would.
QPX_TAPS_TARGET inline TapInts TapChannelValues(const TapDoubles& sums, float weightSum) {
  const TapDoubles zero = {0, 0, 0, 0}, top = {255, 255, 255, 255};
  TapDoubles q = sums / static_cast<double>(weightSum) + 0.5;
  const TapLongs inRange = (q > -2147483649.0) & (q < 2147483648.0);
  q = inRange ? q : zero;
  q = q > zero ? q : zero;
  q = q < top ? q : top;
  return __builtin_convertvector(q, TapInts);
}

template <int Rows>
QPX_TAPS_TARGET inline void TapsOf(const double* converted, const ColumnBlock& block,
                                   const ContributorList* columns, uint32_t* const* outs) {
  constexpr int kStride = ConvertedStride(Rows), kVectors = kStride / 4;
  for (int32_t i = block.first; i < block.end; ++i) {
    const ContributorList& list = columns[i];
    TapDoubles sums[kVectors] = {};
    for (int32_t k = 0; k < list.count; ++k) {
      const Contributor& c = list.entries[k];
      if (c.weight == 0.0f) continue;
      const double* pixel = converted + static_cast<ptrdiff_t>(c.pixel - block.lo) * kStride;
      const double weight = c.weight;
      for (int v = 0; v < kVectors; ++v) {
        TapDoubles channels;
        std::memcpy(&channels, pixel + 4 * v, sizeof channels);
        sums[v] += channels * weight;
      }
    }
    int32_t values[kStride];
    for (int v = 0; v < kVectors; ++v) {
      const TapInts lanes = TapChannelValues(sums[v], list.weightSum);
      std::memcpy(values + 4 * v, &lanes, sizeof lanes);
    }
    for (int n = 0; n < Rows; ++n) {
      outs[n][i] =
          static_cast<uint32_t>(values[3 * n] | values[3 * n + 1] << 8 | values[3 * n + 2] << 16);
    }
  }
}

QPX_TAPS_TARGET inline void Taps(const double* converted, const ColumnBlock& block,
                                 const ContributorList* columns, int rows, uint32_t* const* outs) {
  if (rows == kConvertedRows) return TapsOf<kConvertedRows>(converted, block, columns, outs);
  TapsOf<1>(converted, block, columns, outs);
}

}  // namespace
