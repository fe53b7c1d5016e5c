// The integer multipliers that stand in for DrawPictureFQPX's double products: when one is
// found it gives trunc(v × weight) for every channel value v, and none is found for weights
// the 16-bit lanes cannot carry.
#include "fixed_weights.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

// The share as the rule computes it: the double product truncated toward zero.
int64_t Share(int v, double weight) {
  return static_cast<int64_t>(std::trunc(v * weight));
}

void ExpectStandsIn(double weight, uint32_t multiplier) {
  for (int v = 0; v < 256; ++v) {
    ASSERT_EQ((static_cast<uint64_t>(v) * multiplier) >> 16, Share(v, weight))
        << "weight " << weight << ", v " << v;
  }
}

TEST(FixedWeights, SimpleWeightsHaveTheirExactMultipliers) {
  const struct {
    double weight;
    uint32_t multiplier;
  } cases[] = {{0.0, 0}, {0.5, 32768}, {0.25, 16384}, {0.375, 24576}, {1.0, 65536}, {1.5, 98304}};
  for (const auto& c : cases) {
    uint32_t m = 0;
    ASSERT_TRUE(FindFixedMultiplier(c.weight, m)) << c.weight;
    EXPECT_EQ(m, c.multiplier) << c.weight;
    ExpectStandsIn(c.weight, m);
  }
}

TEST(FixedWeights, WeightsOutsideTheLanesHaveNone) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (double weight :
       {-0.5, -1e-300, 2.0, 2.5, 1e300, nan, std::numeric_limits<double>::infinity()}) {
    uint32_t m = 0;
    EXPECT_FALSE(FindFixedMultiplier(weight, m)) << weight;
  }
}

// Every multiplier found stands in for all 256 products; weights just below a fraction k / v,
// whose rounded products the first guess misses, are searched further.
TEST(FixedWeights, FoundMultipliersGiveEveryShare) {
  std::mt19937_64 rng(9);
  std::uniform_real_distribution<double> weights(0.0, 2.0);
  int found = 0;
  for (int i = 0; i < 20000; ++i) {
    double weight = weights(rng);
    if (i % 4 == 1) {  // next to a fraction with a small denominator
      const int v = 1 + static_cast<int>(rng() % 255);
      weight = std::nextafter(std::floor(weight * v) / v, i % 8 == 1 ? 0.0 : 2.0);
    }
    uint32_t m = 0;
    if (!FindFixedMultiplier(weight, m)) continue;
    ++found;
    ExpectStandsIn(weight, m);
  }
  EXPECT_GT(found, 19000);
}

TEST(FixedWeights, TheRemainingWeightGetsZeroWhenNotAboveZero) {
  DrawPlan plan;
  plan.weight[kTopLeft] = 0.25;
  plan.weight[kTopRight] = 0.5;
  plan.weight[kBottomRight] = 0.75;
  plan.weight[kBottomLeft] = 0.0;
  PlanFixedWeights(plan);
  ASSERT_TRUE(plan.fixed.found);
  EXPECT_EQ(plan.fixed.fraction[kNeighbours], 0);
  EXPECT_EQ(plan.fixed.whole[kNeighbours], 0);
  EXPECT_EQ(plan.fixed.whole[kTopLeft], 0);
  EXPECT_EQ(plan.fixed.fraction[kTopRight], 32768);

  plan.weight[kBottomRight] = -0.1;  // a negative weight: the double lanes it is
  PlanFixedWeights(plan);
  EXPECT_FALSE(plan.fixed.found);
}

}  // namespace
