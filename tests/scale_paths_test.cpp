// The resizers and the resampler give the same bytes with every version of their pixel loops that
// this processor runs: random pictures in every layout, random target sizes, each vector version
// compared with the plain loops byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "box_resize.h"
#include "module_host.h"
#include "nice_bigger.h"
#include "pixel_loops.h"
#include "scaling_qpx.h"
#include "yield_data.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostConfig;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxtest::ModuleHost;
using qpxtest::Ref;

using Resizer = std::function<REALpicture(REALpicture, int32_t, int32_t, PixelLoops)>;

// Every byte of every row, padding left out.
std::vector<uint8_t> Bytes(HostPicture& picture) {
  std::vector<uint8_t> bytes;
  for (int32_t y = 0; y < picture.height; ++y) {
    bytes.insert(bytes.end(), picture.Row(y), picture.Row(y) + 4 * size_t(picture.width));
  }
  return bytes;
}

HostConfig Host(AppKind app, int32_t layout, int32_t alphaLayout) {
  HostConfig config = qpxtest::Config(app);
  config.desktopLayout = layout;
  config.desktopAlphaLayout = alphaLayout;
  config.rowPadding = layout % 2 ? 0 : 8;
  return config;
}

// The source pictures' sizes: widths and heights from 1 to these, and how many.
struct Sources {
  int32_t widest = 70, tallest = 40;
  int trials = 40;
  // Shrinks by 2, 4 or 8 on both sides only, whose triangle and box weights sum to a power of
  // two (the loops then take each quotient as a product).
  bool wholeFactors = false;
};

// Resizes random pictures to random sizes with each version of the loops.
void CompareLoops(const HostConfig& config, const Resizer& resize, uint32_t seed,
                  Sources sources = {}) {
  ModuleHost env(config);
  std::mt19937 rng(seed);
  auto side = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
  };
  yield = {0, 0};
  for (int trial = 0; trial < sources.trials; ++trial) {
    PictureOptions options;
    options.hasAlpha = trial % 3 == 1;
    const int32_t factor = sources.wholeFactors ? 1 << side(1, 3) : 1;
    HostPicture* source = env.Picture(factor * side(1, sources.widest / factor),
                                      factor * side(1, sources.tallest / factor), options);
    for (int32_t y = 0; y < source->height; ++y) {
      for (int32_t x = 0; x < 4 * source->width; ++x) source->Row(y)[x] = uint8_t(rng());
    }
    // Shrinking by up to 40 (box widths past the 16 of the vector boxes) and growing by up to 5.
    int32_t width = trial % 4 == 0 ? side(1, 4) : side(1, 5 * source->width);
    int32_t height = side(1, 3 * source->height);
    if (sources.wholeFactors) width = source->width / factor, height = source->height / factor;
    SCOPED_TRACE(std::to_string(source->width) + "x" + std::to_string(source->height) + " to " +
                 std::to_string(width) + "x" + std::to_string(height) +
                 (options.hasAlpha ? " with alpha" : ""));

    std::vector<uint8_t> plain;
    for (PixelLoops loops : AvailablePixelLoops()) {
      auto* result = reinterpret_cast<HostPicture*>(resize(Ref(source), width, height, loops));
      ASSERT_NE(result, nullptr) << PixelLoopsName(loops);
      const std::vector<uint8_t> bytes = Bytes(*result);
      env.host.Unlock(result);
      if (loops == PixelLoops::Plain) {
        plain = bytes;
      } else {
        ASSERT_TRUE(bytes == plain) << PixelLoopsName(loops) << " differs from the plain loops";
      }
    }
    env.host.Unlock(source);
  }
}

struct Variant {
  std::string name;
  HostConfig config;
};

void PrintTo(const Variant& variant, std::ostream* out) {
  *out << variant.name;
}

std::vector<Variant> Variants() {
  std::vector<Variant> variants;
  for (int32_t layout = 1; layout <= 6; ++layout) {
    variants.push_back(
        {"Desktop" + std::to_string(layout), Host(AppKind::Desktop, layout, layout % 2 ? 1 : 2)});
  }
  variants.push_back({"Console", Host(AppKind::Console, 5, 1)});
  return variants;
}

class ScaleLoops : public ::testing::TestWithParam<Variant> {};

TEST_P(ScaleLoops, BoxResizerMatchesThePlainLoops) {
  EXPECT_IN_FRESH_PROCESS(CompareLoops(GetParam().config, ScalePictureFastWith, 1));
}

TEST_P(ScaleLoops, EnlargementMatchesThePlainLoops) {
  EXPECT_IN_FRESH_PROCESS(CompareLoops(GetParam().config, ScalePictureNiceBiggerWith, 2));
}

// CompareLoops for the resampler in each mode, mode m with seed `seed` + m.
void CompareEveryMode(const HostConfig& config, uint32_t seed, Sources sources = {}) {
  for (int32_t mode = 1; mode <= 7; ++mode) {
    SCOPED_TRACE("mode " + std::to_string(mode));
    EXPECT_IN_FRESH_PROCESS(CompareLoops(
        config,
        [mode](REALpicture source, int32_t width, int32_t height, PixelLoops loops) {
          return PictureScalingQPXWith(source, mode, width, height, 0, loops);
        },
        seed + uint32_t(mode), sources));
  }
}

// Every mode of the resampler, shrinking and enlarging.
TEST_P(ScaleLoops, ResamplerMatchesThePlainLoops) {
  CompareEveryMode(GetParam().config, 3);
}

// Rows wide enough that the vector loops across work through their columns in several blocks
// (a block's contributors span at most 128 source pixels, or four times the longest list where
// that is more), and heights that leave groups of eight rows and single rows.
TEST_P(ScaleLoops, ResamplerMatchesThePlainLoopsOnWideRows) {
  CompareEveryMode(GetParam().config, 20, {1200, 9, 6});
}

// Whole-factor shrinks, wide and narrow, with every mode: the triangle's and the box's weights
// sum to the factor there.
TEST_P(ScaleLoops, ResamplerMatchesThePlainLoopsOnWholeFactorShrinks) {
  CompareEveryMode(GetParam().config, 40, {1200, 40, 8, true});
}

INSTANTIATE_TEST_SUITE_P(Hosts, ScaleLoops, ::testing::ValuesIn(Variants()),
                         [](const auto& info) { return info.param.name; });

TEST(PixelLoops, ThePlainLoopsComeFirstAndTheChosenOnesAreAvailable) {
  const std::vector<PixelLoops> loops = AvailablePixelLoops();
  ASSERT_FALSE(loops.empty());
  EXPECT_EQ(loops.front(), PixelLoops::Plain);
  EXPECT_NE(std::find(loops.begin(), loops.end(), ChoosePixelLoops()), loops.end());
#ifdef QPX_PLAIN_LOOPS
  EXPECT_EQ(ChoosePixelLoops(), PixelLoops::Plain);
#endif
}

}  // namespace
