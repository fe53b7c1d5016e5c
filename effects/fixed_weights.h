// Integer stand-ins for the products of channel values and fixed weights. A channel value v is
// one of 256 bytes, so whether v × weight truncated equals (v × M) >> 16 for some multiplier M
// can be checked for every v; where it holds for every v, a 16-bit integer multiply gives the
// very same share as the double product, and where it does not, the double product is used.
#pragma once

#include <cstdint>

#include "draw_rows.h"

// The multiplier M (below 2^17) with (v × M) >> 16 == trunc(v × weight) for every v in 0..255,
// the product taken in double as the rule does; false when no such M exists (weights below 0,
// from 2 up, NaN, and the rare weight whose rounded products no one M can follow).
bool FindFixedMultiplier(double weight, uint32_t& multiplier);

// Fills `plan.fixed` for a call without mask: the four weights and the remaining weight of a
// pixel whose four neighbours all take part (0 when it is not above 0.0). Leaves
// `plan.fixed.found` false when one of them has no multiplier.
void PlanFixedWeights(DrawPlan& plan);
// Fills the masked multipliers of `plan.fixed` from `plan.maskWeight`; leaves
// `plan.fixed.maskFound` false when one of them has none.
void PlanFixedMaskWeights(DrawPlan& plan);
