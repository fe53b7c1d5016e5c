// The integer version of DrawPictureFQPX's interior pixels for calls without a mask whose
// weights all have fixed-point multipliers (fixed_weights.h): each channel value is widened to
// 16 bits, each share is (v × M) >> 16, which equals the double product truncated for every
// possible v, and the five shares of a channel are added and clamped to 0..255 by a saturating
// pack. Needs the picture's channels at the destination's bytes; the fourth byte is replaced.
#pragma once

#include <cstdint>

#include "draw_lanes.h"

namespace draw_fixed {
namespace {

// `Ops` supplies the vector type `V` holding `kPixels` pixels and its operations.
template <class Ops>
int64_t DrawInterior(const DrawPlan& plan, const LaneLayout& layout, const InteriorRun& run) {
  using V = typename Ops::V;
  constexpr int kSources = kNeighbours + 1;  // the neighbours, then the old colour
  V fraction[kSources], whole[kSources];
  for (int k = 0; k < kSources; ++k) {
    fraction[k] = Ops::Set16(plan.fixed.fraction[k]);
    whole[k] = Ops::Set16(plan.fixed.whole[k]);
  }
  const V keep = Ops::Set32(layout.keep);
  const V fourth = Ops::Set32(layout.fourth);

  int64_t i = 0;
  for (; i + Ops::kPixels <= run.count; i += Ops::kPixels) {
    const V source[kSources] = {Ops::Load(run.top + 4 * i), Ops::Load(run.top + 4 * i + 4),
                                Ops::Load(run.bottom + 4 * i + 4), Ops::Load(run.bottom + 4 * i),
                                Ops::Load(run.destination + 4 * i)};
    V low = Ops::Zero(), high = Ops::Zero();
    for (int k = 0; k < kSources; ++k) {
      const V l = Ops::Low(source[k]), h = Ops::High(source[k]);
      low = Ops::Add16(low, Ops::Add16(Ops::MulHigh16(l, fraction[k]), Ops::And(l, whole[k])));
      high = Ops::Add16(high, Ops::Add16(Ops::MulHigh16(h, fraction[k]), Ops::And(h, whole[k])));
    }
    Ops::Store(run.destination + 4 * i, Ops::Or(Ops::And(Ops::Pack(low, high), keep), fourth));
  }
  return i;
}

}  // namespace
}  // namespace draw_fixed
