// The pass across in double lanes works on source rows converted to doubles once: a group of
// rows at a time, a block of output columns at a time, so that each source channel is
// converted once instead of once for every tap that reads it, and a tap is a load, a multiply
// and an add per lane.
#pragma once

#include <cstdint>

#include "contributors.h"

// Output columns [first, end) and the source pixels [lo, hi] their contributors name.
struct ColumnBlock {
  int32_t first, end;
  int32_t lo, hi;
};

// Where a source layout keeps its colours: every layout has its three colour bytes side by
// side, from byte `first` on; `blue`, `green` and `red` count from there (0 to 2).
struct ColourBytes {
  int first;
  int blue, green, red;
};

// Rows a group converts at most.
constexpr int kConvertedRows = 8;

// Doubles a converted source pixel takes for a group of `rows` rows: the three colour bytes of
// row 0 in their order in the pixel, then of row 1, ..., padded to whole 4-lane vectors
// (8 rows: 24, one row: 4).
constexpr int ConvertedStride(int rows) {
  return (3 * rows + 3) / 4 * 4;
}

// Doubles the conversion of `span` pixels needs: the last pixel's last row stores a fourth
// lane past its stride.
constexpr uint64_t ConvertedDoubles(uint64_t span) {
  return span * ConvertedStride(kConvertedRows) + 4;
}

// A contributor as the taps read it, worked out once per pass: its float weight widened to
// double, and its source pixel counted from its column's block.lo. Contributors of weight 0 are
// left out, as the plain loop skips them.
struct Tap {
  double weight;
  int32_t pixel;
};

// An output column's taps, taps[begin] to taps[end - 1] in the contributors' order, and its
// weight sum.
struct TapColumn {
  int32_t begin, end;
  float weightSum;
};

// Output columns block.first to block.end - 1 of `rows` (1 or kConvertedRows) source rows at
// `sources` into the intermediate rows at `outs`: converts the block's source pixels into
// `converted` (ConvertedDoubles(span) doubles), then sums each output channel's taps, the plain
// loop's operations in its order, in one double lane.
using HorizontalBlockFn = void (*)(const uint8_t* const* sources, int rows,
                                   const ColourBytes& colours, const ColumnBlock& block,
                                   const TapColumn* columns, const Tap* taps, double* converted,
                                   uint32_t* const* outs);
