// The resampling passes' loops for processors with AVX2, built in a file of their own with AVX2
// enabled and called only when the processor has it.
#pragma once

#include <cstdint>

#include "contributors.h"
#include "converted_rows.h"

// Where a result pixel keeps its channels: bit shifts of red, green and blue in the stored
// 32-bit word, and the fourth byte's bits.
struct WordLayout {
  int redShift, greenShift, blueShift;
  uint32_t fourth;
};

// A block of the pass across (a HorizontalBlockFn) in 256-bit registers.
void HorizontalBlockAvx2(const uint8_t* const* sources, int rows, const ColourBytes& colours,
                         const ColumnBlock& block, const TapColumn* columns, const Tap* taps,
                         double* converted, uint32_t* const* outs);

// Columns 0 to `width` - 1 of one output row, eight at a time, from `intermediate` through
// `list`; returns how many columns it did (a multiple of eight), leaving the rest to the
// caller. Each channel of each column gets exactly the plain loop's operations.
int32_t VerticalColumnsAvx2(const uint32_t* intermediate, int32_t width,
                            const ContributorList& list, const WordLayout& layout, uint8_t* out);
