#include "fixed_weights.h"

#include <algorithm>

#include "int_conversion.h"

namespace {

constexpr int kChannelValues = 256;
constexpr uint64_t kOne = 1u << 16;  // the multiplier of weight 1.0

bool MultiplierFits(const int32_t* shares, uint64_t multiplier) {
  for (uint64_t v = 0; v < kChannelValues; ++v) {
    if (static_cast<int64_t>((v * multiplier) >> 16) != shares[v]) return false;
  }
  return true;
}

}  // namespace

bool FindFixedMultiplier(double weight, uint32_t& multiplier) {
  if (!(weight >= 0.0 && weight < 2.0)) return false;
  int32_t shares[kChannelValues];
  for (int v = 0; v < kChannelValues; ++v) shares[v] = TruncateToInt32(v * weight);
  // The usual answer: the weight rounded up to 16 fraction bits.
  uint64_t m = static_cast<uint64_t>(weight * kOne);
  if (static_cast<double>(m) < weight * kOne) ++m;
  if (!MultiplierFits(shares, m)) {
    // Otherwise the least M with shares[v] · 2^16 <= v · M for every v, if any fits.
    m = 0;
    for (uint64_t v = 1; v < kChannelValues; ++v) {
      m = std::max(m, (static_cast<uint64_t>(shares[v]) * kOne + v - 1) / v);
    }
    if (!MultiplierFits(shares, m)) return false;
  }
  if (m >= 2 * kOne) return false;
  multiplier = static_cast<uint32_t>(m);
  return true;
}

void PlanFixedWeights(DrawPlan& plan) {
  FixedWeights& fixed = plan.fixed;
  fixed.found = false;
  double remaining = 1.0;
  for (int k = 0; k < kNeighbours; ++k) remaining -= plan.weight[k];
  for (int k = 0; k <= kNeighbours; ++k) {
    const double weight = k < kNeighbours ? plan.weight[k] : remaining > 0.0 ? remaining : 0.0;
    uint32_t m;
    if (!FindFixedMultiplier(weight, m)) return;
    fixed.fraction[k] = static_cast<uint16_t>(m & 0xFFFF);
    fixed.whole[k] = m >> 16 ? 0xFFFF : 0;
  }
  fixed.found = true;
}

void PlanFixedMaskWeights(DrawPlan& plan) {
  FixedWeights& fixed = plan.fixed;
  fixed.maskFound = false;
  constexpr uint64_t kEveryLane = 0x0001000100010001;
  for (int k = 0; k < kNeighbours; ++k) {
    for (int m = 0; m < kMaskValues; ++m) {
      uint32_t multiplier;
      if (!FindFixedMultiplier(plan.maskWeight[k][m], multiplier)) return;
      fixed.maskFraction[k][m] = (multiplier & 0xFFFF) * kEveryLane;
      fixed.maskWhole[k][m] = multiplier >> 16 ? 0xFFFF * kEveryLane : 0;
    }
  }
  fixed.maskFound = true;
}
