// The two passes of the separable resampler. The horizontal pass resizes every source row to
// the new width into the intermediate image; the vertical pass resizes its columns to the new
// height into the writer. Each output channel is trunc(sum / weightSum + 0.5), clamped to
// 0..255, where the sum adds channel x weight over the contributors in their stored order
// (skipping weights of 0.0): products in double across, in single precision (then widened)
// down.
#pragma once

#include <cstdint>

#include "contributors.h"
#include "picture_editor.h"
#include "pixel_loops.h"
#include "yield_data.h"

// An intermediate word: blue in bits 0-7, green in 8-15, red in 16-23, 0 in 24-31.
using IntermediateWord = uint32_t;

// Every source row of `reader` into `intermediate` (source height rows of `width` words),
// through the lists of the `width` output columns.
void HorizontalPass(const PictureReader& reader, const ContributorList* columns, int32_t width,
                    IntermediateWord* intermediate, PixelLoops loops);

// Every row of `writer` from `intermediate` (rows of writer.width words) through the lists of
// its rows, yielding after each row when the interval is not 0.
void VerticalPass(const IntermediateWord* intermediate, const ContributorList* rows,
                  PictureWriter& writer, YieldData& yielding, PixelLoops loops);
