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

// Rows a group converts at most.
constexpr int kConvertedRows = 4;

// Doubles a converted source pixel takes for a group of `rows` rows: blue, green and red of
// row 0, then of row 1, ..., padded to whole 4-lane vectors (4 rows: 12, one row: 4).
constexpr int ConvertedStride(int rows) {
  return (3 * rows + 3) / 4 * 4;
}

// Output columns `first` to `end` - 1 of `rows` intermediate rows (1 or kConvertedRows) from
// `converted` (pixels block.lo to block.hi, ConvertedStride(rows) doubles each): each output
// channel is the plain loop's sum, in its order, in one double lane.
using HorizontalTapsFn = void (*)(const double* converted, const ColumnBlock& block,
                                  const ContributorList* columns, int rows, uint32_t* const* outs);
