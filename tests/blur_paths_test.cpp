// BlurQPX gives the same bytes and yields as often with every version of its pixel loops that
// this processor runs: random pictures 1 to 70 pixels wide in every layout of every kind of
// host, and radii of every class (1, small beside the picture, at and past its sides, past the
// 16-bit sums, the largest the size test lets through and the first it does not), each vector
// version compared with the plain loops byte for byte. Also the exact division the loops use
// in place of a table.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "blur.h"
#include "blur_division.h"
#include "differential.h"
#include "module_host.h"
#include "picture_bytes.h"
#include "pixel_loops.h"
#include "random_pictures.h"

namespace {

using qpxhost::HostPicture;
using qpxtest::ModuleHost;
using qpxtest::RawPicture;
using qpxtest::Ref;

// The largest radius whose division table, (2r + 2) * 1024 bytes, stays within 2^31 - 1.
constexpr int32_t kLargestTableRadius = 1048574;

TEST(BlurDivision, SixteenBitSumsDivideExactlyForEveryWindowUpTo257) {
  for (uint32_t k = 3; k <= 257; k += 2) {
    const BlurDivision16 divide = MakeBlurDivision16(k);
    ASSERT_TRUE(divide.found) << "k " << k;
    for (uint32_t sum = 0; sum <= 255 * k; ++sum) {
      ASSERT_EQ(divide.Divide(sum + divide.bias), sum / k) << "k " << k << ", sum " << sum;
    }
  }
  EXPECT_FALSE(MakeBlurDivision16(259).found);  // 255 * 259 needs 17 bits
}

TEST(BlurDivision, ThirtyTwoBitSumsDivideExactly) {
  auto check = [](uint32_t k, uint32_t sum) {
    ASSERT_EQ(MakeBlurDivision32(k).Divide(sum), sum / k) << "k " << k << ", sum " << sum;
  };
  // Every sum for small windows; for large ones the sums next to each multiple of k, where a
  // quotient changes, at the bottom and the top of the range.
  for (uint32_t k = 3; k <= 513; k += 2) {
    for (uint32_t sum = 0; sum <= 255 * k; ++sum) check(k, sum);
  }
  std::mt19937 rng(13);
  std::vector<uint32_t> windows = {515, 65535, 65537, 1048575, 1048577, 2097149};
  for (int i = 0; i < 200; ++i) windows.push_back(2 * (rng() % 1048575) + 3);
  for (uint32_t k : windows) {
    for (uint32_t q : {0u, 1u, 2u, 127u, 128u, 253u, 254u, 255u, uint32_t(rng() % 256)}) {
      for (int64_t sum : {int64_t{q} * k - 1, int64_t{q} * k, int64_t{q} * k + k - 1}) {
        if (sum >= 0 && sum <= 255 * int64_t{k}) check(k, static_cast<uint32_t>(sum));
      }
    }
  }
}

// Pictures 1 to 70 pixels a side of every pattern (noise, edges, extremes...), in random
// layouts on a desktop host; a few wider than several blocks.
std::vector<qpxtest::PictureRecipe> Recipes(const qpxhost::HostConfig& config, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<qpxtest::PictureRecipe> recipes =
      qpxtest::RandomPictureRecipes(seed, 120, 70, /*alpha=*/true);
  for (int i = 0; i < 2; ++i) {
    qpxtest::PictureRecipe wide;
    wide.width = 200 + int32_t(rng() % 100), wide.height = 60 + int32_t(rng() % 30);
    wide.seed = rng();
    recipes.push_back(wide);
  }
  qpxtest::MixDesktopLayouts(recipes, config, rng);
  return recipes;
}

// Every class of radius, with a fraction now and then.
double RandomRadius(const qpxtest::PictureRecipe& recipe, std::mt19937& rng) {
  auto side = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
  };
  const int32_t longest = std::max(recipe.width, recipe.height);
  const int32_t classes[] = {1,
                             side(2, 6),
                             side(1, std::max(1, longest / 2)),
                             std::min(recipe.width, recipe.height),
                             longest + side(0, 5),
                             128,  // the largest with 16-bit sums
                             129,
                             side(130, 400),
                             kLargestTableRadius,
                             kLargestTableRadius + 1};
  const int32_t r = classes[rng() % (sizeof classes / sizeof classes[0])];
  return r + (rng() % 4 == 0 ? 0.5 : 0.0);
}

// The call with each version of the loops on the same picture, compared with the plain loops'
// bytes and yields; then releases the picture.
void Compare(ModuleHost& env, HostPicture* picture, double radius, int32_t yield) {
  RawPicture plain;
  int plainYields = 0;
  for (PixelLoops loops : AvailablePixelLoops()) {
    const int before = env.host.yieldCount;
    auto* blurred = reinterpret_cast<HostPicture*>(BlurQPXWith(Ref(picture), radius, yield, loops));
    const int yields = env.host.yieldCount - before;
    ASSERT_NE(blurred, nullptr) << PixelLoopsName(loops);
    ASSERT_NE(blurred, picture);
    EXPECT_EQ(env.host.RefCount(blurred), 1) << PixelLoopsName(loops);
    const RawPicture bytes = qpxtest::ReadRaw(*blurred);
    env.host.Unlock(blurred);
    if (loops == PixelLoops::Plain) {
      plain = bytes;
      plainYields = yields;
    } else {
      EXPECT_EQ(yields, plainYields) << PixelLoopsName(loops);
      EXPECT_TRUE(qpxtest::SamePixels(plain, bytes))
          << PixelLoopsName(loops) << " differs from the plain loops";
    }
  }
  env.host.Unlock(picture);
}

class BlurLoops : public ::testing::TestWithParam<qpxtest::HostVariant> {};

TEST_P(BlurLoops, EveryVersionMatchesThePlainLoops) {
  EXPECT_IN_FRESH_PROCESS({
    ModuleHost env(GetParam().config);
    const uint32_t seed = qpxtest::SeedOf("BlurQPXWith " + GetParam().name);
    std::mt19937 rng(seed);
    int trial = 0;
    for (const qpxtest::PictureRecipe& recipe : Recipes(GetParam().config, seed)) {
      if (::testing::Test::HasFailure()) break;
      const double radius = RandomRadius(recipe, rng);
      const int32_t yield = trial++ % 3 == 0 ? qpxtest::method_test_names::kYieldEveryCall : 0;
      std::ostringstream trace;
      trace.precision(17);
      trace << "seed " << seed << ": " << recipe.Describe() << ", radius " << radius << ", yield "
            << yield;
      SCOPED_TRACE(trace.str());
      Compare(env, qpxtest::MakePicture(env.host, recipe), radius, yield);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(EveryHost, BlurLoops, ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

}  // namespace
