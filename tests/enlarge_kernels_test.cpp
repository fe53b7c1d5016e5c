// Every version of the enlargement's pixel loops gives the plain loops' results bit for bit, on
// random rows of every length up to 70 and beyond, with weights of both signs and indices that
// reach past both edges of the row.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "enlarge_rows.h"

namespace {

std::vector<uint8_t> RandomBytes(std::mt19937& rng, size_t count) {
  std::vector<uint8_t> bytes(count);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
  return bytes;
}

float RandomWeight(std::mt19937& rng) {
  // Mostly smoothstep-like weights in [0, 1], sometimes beyond, and exact zeros of both signs.
  switch (rng() % 8) {
    case 0:
      return 0.0f;
    case 1:
      return -0.0f;
    case 2:
      return std::uniform_real_distribution<float>(-1.5f, 2.5f)(rng);
    default:
      return std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
  }
}

TEST(EnlargeKernels, BlendingMatchesThePlainLoopsBitForBit) {
  std::mt19937 rng(7);
  const EnlargeKernels plain = EnlargeKernelsFor(PixelLoops::Plain);
  for (PixelLoops loops : AvailablePixelLoops()) {
    const EnlargeKernels kernels = EnlargeKernelsFor(loops);
    for (int32_t bytes = 0; bytes < 300; bytes += bytes < 80 ? 1 : 37) {
      const std::vector<uint8_t> upper = RandomBytes(rng, bytes), lower = RandomBytes(rng, bytes);
      const float wUpper = RandomWeight(rng), wLower = RandomWeight(rng);
      std::vector<float> expected(bytes + 1, 7.0f), actual(bytes + 1, 7.0f);
      plain.blend(upper.data(), lower.data(), bytes, wUpper, wLower, expected.data());
      kernels.blend(upper.data(), lower.data(), bytes, wUpper, wLower, actual.data());
      ASSERT_EQ(std::memcmp(expected.data(), actual.data(), actual.size() * sizeof(float)), 0)
          << PixelLoopsName(loops) << ", " << bytes << " bytes, weights " << wUpper << " "
          << wLower;
    }
  }
}

TEST(EnlargeKernels, ExpandingMatchesThePlainLoopsBitForBit) {
  std::mt19937 rng(11);
  const EnlargeKernels plain = EnlargeKernelsFor(PixelLoops::Plain);
  for (PixelLoops loops : AvailablePixelLoops()) {
    const EnlargeKernels kernels = EnlargeKernelsFor(loops);
    for (int32_t trial = 0; trial < 400; ++trial) {
      const int32_t sourceWidth = 1 + static_cast<int32_t>(rng() % 40);
      const int32_t width = static_cast<int32_t>(rng() % 90);
      // Blended values as the blending gives them, and some beyond 0 to 255.
      std::vector<float> padded(4 * size_t(sourceWidth + 2));
      for (float& v : padded) v = std::uniform_real_distribution<float>(-20.0f, 280.0f)(rng);
      std::vector<int32_t> first(width);
      for (int32_t& x : first) x = static_cast<int32_t>(rng() % (sourceWidth + 1));
      std::vector<float> groups(4 * size_t(width));
      for (float& w : groups) w = RandomWeight(rng);
      std::vector<uint8_t> expected(4 * size_t(width) + 1, 9), actual(expected);
      plain.expand(padded.data(), first.data(), groups.data(), width, expected.data());
      kernels.expand(padded.data(), first.data(), groups.data(), width, actual.data());
      ASSERT_EQ(expected, actual) << PixelLoopsName(loops) << ", trial " << trial;
    }
  }
}

TEST(EnlargeKernels, ExpandingRoundsHalfUpAndClamps) {
  // Hand-worked: v = (0.5 + A * w2) + B * w1, A and B the padded pixels first[i] and the next.
  const float padded[12] = {0, 100, 255, 300, 100, 255, 255, -40, 7, 8, 9, 10};
  const int32_t first[3] = {0, 1, 0};
  const float groups[12] = {0, 0.5f, 0.5f, 0, 0, 0.5f, 0.5f, 0, 0, 0, 1, 0};
  for (PixelLoops loops : AvailablePixelLoops()) {
    const EnlargeKernels kernels = EnlargeKernelsFor(loops);
    uint8_t out[12] = {};
    kernels.expand(padded, first, groups, 3, out);
    // Pixel 0: A = (0, 100, 255, 300), B = (100, 255, 255, -40): 50.5, 178, 255.5, 130.5.
    // Pixel 1: A = (100, 255, 255, -40), B = (7, 8, 9, 10): 54, 132, 132.5, -14.5.
    // Pixel 2: w2 = 1, w1 = 0: A + 0.5.
    const uint8_t expected[12] = {50, 178, 255, 130, 54, 132, 132, 0, 0, 100, 255, 255};
    EXPECT_EQ(std::memcmp(out, expected, sizeof out), 0) << PixelLoopsName(loops);
  }
}

TEST(EnlargeKernels, PaddedPositionsGiveTheClampedNeighbours) {
  // Row of 3 pixels, padded: 0 = copy of 0, 1..3 = pixels 0..2, 4 = copy of 2.
  EXPECT_EQ(PaddedFirst(-7, 2), 0);  // A = B = pixel 0
  EXPECT_EQ(PaddedFirst(-1, 2), 0);
  EXPECT_EQ(PaddedFirst(0, 2), 1);  // pixels 0 and 1
  EXPECT_EQ(PaddedFirst(1, 2), 2);
  EXPECT_EQ(PaddedFirst(2, 2), 3);  // A = B = pixel 2
  EXPECT_EQ(PaddedFirst(9, 2), 3);
}

}  // namespace
