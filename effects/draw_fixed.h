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

// With a mask: each neighbour's share as above, through the multiplier of its mask value
// (`Ops::Multipliers` puts a table entry per pixel into the lanes of `Ops::Low` or
// `Ops::High`); the remaining weight, which depends on four mask values, and the old colour's
// shares stay in the double lanes of `Lanes` (draw_lanes.h), four pixels a group. Every share
// lies in 0..255 here, as the effective weights lie in [0, 2) and the remaining weight below 1.
template <class Ops, class Lanes>
int64_t DrawMaskedInterior(const DrawPlan& plan, const LaneLayout& layout, const InteriorRun& run) {
  using V = typename Ops::V;
  using D = typename Lanes::D;
  using draw_lanes::Words;
  constexpr int kPixels = Ops::kPixels;
  constexpr int kGroups = kPixels / 4;
  const FixedWeights& fixed = plan.fixed;
  const D one = Lanes::Broadcast(1.0);
  const V keep = Ops::Set32(layout.keep);
  const V fourth = Ops::Set32(layout.fourth);

  int64_t i = 0;
  for (; i + kPixels <= run.count; i += kPixels) {
    // Mask values of the columns the pixels' left neighbours lie in, and one more.
    uint8_t topMask[kPixels + 1], bottomMask[kPixels + 1];
    for (int j = 0; j <= kPixels; ++j) {
      topMask[j] = run.topMask[4 * (i + j) + layout.maskByte];
      bottomMask[j] = run.bottomMask[4 * (i + j) + layout.maskByte];
    }
    const uint8_t* m[kNeighbours] = {topMask, topMask + 1, bottomMask + 1, bottomMask};
    const V source[kNeighbours] = {Ops::Load(run.top + 4 * i), Ops::Load(run.top + 4 * i + 4),
                                   Ops::Load(run.bottom + 4 * i + 4),
                                   Ops::Load(run.bottom + 4 * i)};
    V low = Ops::Zero(), high = Ops::Zero();
    for (int k = 0; k < kNeighbours; ++k) {
      const V l = Ops::Low(source[k]), h = Ops::High(source[k]);
      low = Ops::Add16(
          low, Ops::Add16(Ops::MulHigh16(l, Ops::Multipliers(fixed.maskFraction[k], m[k], false)),
                          Ops::And(l, Ops::Multipliers(fixed.maskWhole[k], m[k], false))));
      high = Ops::Add16(
          high, Ops::Add16(Ops::MulHigh16(h, Ops::Multipliers(fixed.maskFraction[k], m[k], true)),
                           Ops::And(h, Ops::Multipliers(fixed.maskWhole[k], m[k], true))));
    }

    Words oldShares[kGroups];
    for (int g = 0; g < kGroups; ++g) {
      D remaining = one;
      for (int k = 0; k < kNeighbours; ++k) {
        const double* table = plan.maskWeight[k];
        const uint8_t* mk = m[k] + 4 * g;
        remaining = remaining - Lanes::Of(table[mk[0]], table[mk[1]], table[mk[2]], table[mk[3]]);
      }
      const Words useOld = draw_lanes::AsWords(Lanes::Positive(remaining));
      const Words old = draw_lanes::LoadWords(run.destination + 4 * (i + 4 * g));
      Words shares{};
      for (int c = 0; c < 3; ++c) {
        const D v = Lanes::FromInts(draw_lanes::Byte(old, layout.destShift[c]));
        shares |= (draw_lanes::AsWords(Lanes::Truncate(v * remaining)) & useOld)
                  << layout.destShift[c];
      }
      oldShares[g] = shares;
    }
    const V olds = Ops::FromWords(oldShares);
    low = Ops::Add16(low, Ops::Low(olds));
    high = Ops::Add16(high, Ops::High(olds));
    Ops::Store(run.destination + 4 * i, Ops::Or(Ops::And(Ops::Pack(low, high), keep), fourth));
  }
  return i;
}

}  // namespace
}  // namespace draw_fixed
