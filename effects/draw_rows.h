// The pixel work of DrawPictureFQPX: what a call fixes before its first pixel, and the row loop
// that draws the picture into the destination.
#pragma once

#include <cstdint>

#include "picture_editor.h"
#include "pixel_loops.h"
#include "yield_data.h"

// The four picture pixels a destination pixel (X, Y) takes, in the order they are added.
enum Neighbour {
  kTopLeft,      // (X − ix − 1, Y − iy − 1)
  kTopRight,     // (X − ix, Y − iy − 1)
  kBottomRight,  // (X − ix, Y − iy)
  kBottomLeft,   // (X − ix − 1, Y − iy)
  kNeighbours
};

constexpr int kMaskValues = 256;

// Multipliers M = whole · 2^16 + fraction (whole 0 or 1, kept as a 16-bit mask) that give a
// share as (v × M) >> 16.
struct FixedWeights {
  // Without a mask: one per neighbour, then the remaining weight's.
  bool found = false;
  uint16_t fraction[kNeighbours + 1] = {};
  uint16_t whole[kNeighbours + 1] = {};
  // With a mask: one per neighbour and mask value, for the effective weights, each part
  // repeated in the four 16-bit lanes of a pixel. Filled only when found (left unset
  // otherwise: the tables are large and most calls never read them).
  bool maskFound = false;
  uint64_t maskFraction[kNeighbours][kMaskValues];
  uint64_t maskWhole[kNeighbours][kMaskValues];
};

struct DrawPlan {
  int32_t ix = 0;
  int32_t iy = 0;
  double weight[kNeighbours] = {};
  // With a mask, each neighbour's effective weight for every mask value m,
  // ((255 − m) × weight) / 255: the per-pixel division looked up instead of repeated. Set
  // only for masked calls.
  bool masked = false;
  double maskWeight[kNeighbours][kMaskValues];
  // Without a mask, when every weight has one: integer multipliers giving the same shares.
  FixedWeights fixed;
};

// The editors of one call; `mask` is null without a mask.
struct DrawEditors {
  PictureEditor& destination;
  const PictureEditor& picture;
  const PictureEditor* mask;
};

// Draws every destination row, yielding after each when `yielding.interval` is not 0. A
// destination that shares its pixels with the picture or the mask (a picture drawn into itself
// or into its own mask) is drawn by the plain loops, which read every pixel after the ones
// before it were stored, as the rule's order of work has it.
void DrawRows(const DrawPlan& plan, const DrawEditors& editors, PixelLoops loops,
              YieldData& yielding);
