// The blur's whole radius: truncation toward zero, and the most negative integer for what has
// no 32-bit whole part.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "blur.h"

namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

TEST(BlurRadius, TruncatesTowardZero) {
  EXPECT_EQ(BlurRadius(0.0), 0);
  EXPECT_EQ(BlurRadius(0.99), 0);
  EXPECT_EQ(BlurRadius(1.0), 1);
  EXPECT_EQ(BlurRadius(1.99), 1);
  EXPECT_EQ(BlurRadius(-0.99), 0);
  EXPECT_EQ(BlurRadius(-5.7), -5);
  EXPECT_EQ(BlurRadius(2147483647.0), 2147483647);
  EXPECT_EQ(BlurRadius(2147483647.9), 2147483647);
  EXPECT_EQ(BlurRadius(-2147483648.0), kMin);
  EXPECT_EQ(BlurRadius(-2147483648.9), kMin);
}

TEST(BlurRadius, NoWholePartIn32BitsGivesTheMostNegativeInteger) {
  EXPECT_EQ(BlurRadius(2147483648.0), kMin);
  EXPECT_EQ(BlurRadius(-2147483649.0), kMin);
  EXPECT_EQ(BlurRadius(1e300), kMin);
  EXPECT_EQ(BlurRadius(std::numeric_limits<double>::infinity()), kMin);
  EXPECT_EQ(BlurRadius(-std::numeric_limits<double>::infinity()), kMin);
  EXPECT_EQ(BlurRadius(std::numeric_limits<double>::quiet_NaN()), kMin);
}

}  // namespace
