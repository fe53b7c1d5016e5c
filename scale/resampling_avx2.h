// The vertical pass's row loop for processors with AVX2, built in a file of its own with AVX2
// enabled and called only when the processor has it.
#pragma once

#include <cstdint>

#include "contributors.h"

// Where a result pixel keeps its channels: bit shifts of red, green and blue in the stored
// 32-bit word, and the fourth byte's bits.
struct WordLayout {
  int redShift, greenShift, blueShift;
  uint32_t fourth;
};

// The bytes of a source pixel that hold blue, green and red.
struct PixelBytes {
  int blue, green, red;
};

// `count` source rows (1 to 4) at `rows` resized into the intermediate rows at `outs`, through
// the lists of the `width` output columns; the rows are worked out side by side, each pixel's
// four bytes in four double lanes, with exactly the plain loop's operations.
void HorizontalRowsAvx2(const uint8_t* const* rows, int32_t count, const ContributorList* columns,
                        int32_t width, const PixelBytes& bytes, uint32_t* const* outs);

// Columns 0 to `width` - 1 of one output row, eight at a time, from `intermediate` through
// `list`; returns how many columns it did (a multiple of eight), leaving the rest to the
// caller. Each channel of each column gets exactly the plain loop's operations.
int32_t VerticalColumnsAvx2(const uint32_t* intermediate, int32_t width,
                            const ContributorList& list, const WordLayout& layout, uint8_t* out);
