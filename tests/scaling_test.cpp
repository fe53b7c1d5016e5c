// ScalingQPX through the emulated host: the module loaded fresh, pictures made in the host, every
// result byte compared with the plain resampler of scaling_reference.h or with values worked out
// by hand, yields counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "differential.h"
#include "host_fixture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"
#include "scaling_reference.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxtest::ExpectedScaling;
using qpxtest::ReferenceScaling;
using qpxtest::ScalingCall;

constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();

std::vector<qpxhost::Value> Arguments(const ScalingCall& call) {
  return {call.mode, call.width, call.height, call.yield};
}

std::string Describe(const ScalingCall& call) {
  std::ostringstream out;
  out << "mode " << call.mode << " to " << call.width << "x" << call.height << ", yield "
      << call.yield;
  return out.str();
}

HostObject* CallScaling(Host& host, HostObject* receiver, const ScalingCall& call) {
  return host.Call("ScalingQPX", receiver, Arguments(call)).picture;
}

// One call on `receiver` (its reference taken over) checked by CheckPictureCall, the number of
// yields it made, and no exception raised.
void CheckScaling(Host& host, HostPicture* receiver, const ScalingCall& call,
                  const ExpectedPicture& expected, int yields) {
  SCOPED_TRACE(Describe(call));
  qpxtest::CheckPictureCallAndYields(host, receiver, "ScalingQPX", Arguments(call), expected,
                                     yields);
  EXPECT_THAT(host.raisedExceptions, ::testing::IsEmpty());
}

// The same against what the reference makes of the receiver's pixels.
void CheckScalingAgainstReference(Host& host, HostPicture* receiver, const ScalingCall& call) {
  const RawPicture pixels = ReadRaw(*receiver);
  const qpxtest::ExpectedResult expected =
      ExpectedScaling(&pixels, receiver->hasAlpha, host.config(), call);
  CheckScaling(host, receiver, call, expected.picture, expected.yields);
}

int32_t ResultFormat(const HostConfig& config, bool hasAlpha) {
  return hasAlpha ? qpxtest::NewAlphaPictureFormat(config) : qpxtest::NewPictureFormat(config);
}

// A width x height picture whose pixel (x, y) has the colour of source pixel (x mod source
// width, y mod source height), written opaque in `format`: the source itself at its own size,
// a column repeated across, one colour everywhere.
RawPicture Tiled(const RawPicture& source, int32_t width, int32_t height, int32_t format) {
  RawPicture out(width, height, format);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      qpxtest::WriteOpaque(
          out.Pixel(x, y), format,
          qpxtest::ReadChannels(source.Pixel(x % source.width, y % source.height), source.format));
    }
  }
  return out;
}

// Pixels of these colours in a line across (n x 1) or down (1 x n), written opaque in `format`.
RawPicture Line(const std::vector<RGBA>& colours, bool across, int32_t format) {
  const auto n = static_cast<int32_t>(colours.size());
  RawPicture out(across ? n : 1, across ? 1 : n, format);
  for (int32_t k = 0; k < n; ++k) {
    const RGBA& c = colours[size_t(k)];
    qpxtest::WriteOpaque(out.Pixel(across ? k : 0, across ? 0 : k), format, {c.r, c.g, c.b});
  }
  return out;
}

// A picture of one colour.
HostPicture* SolidPicture(Host& host, int32_t width, int32_t height, RGBA colour) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) picture->Set(x, y, colour);
  }
  return picture;
}

// A picture of random bytes, with an alpha channel or not.
qpxtest::PictureRecipe Noise(int32_t width, int32_t height, uint32_t seed, bool alpha) {
  qpxtest::PictureRecipe recipe = NoiseRecipe(width, height, seed);
  recipe.hasAlpha = alpha;
  return recipe;
}

// --- Differential run over random pictures, modes, targets and hosts ------------------------

enum class Target { Same, Shrink, ShrinkByLargeFactor, Grow, Mixed, OnePixel, Invalid };
constexpr int kTargetCount = 7;

// A call of that kind for a w x h source. Growing stays within about 400 pixels a side, which
// keeps the reference's work small; shrinking by a large factor gives long lists (mode 4 has
// 16 times the factor candidates an output).
ScalingCall TargetCall(Target target, int32_t mode, int32_t w, int32_t h, std::mt19937& rng) {
  auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, std::max(lo, hi))(rng);
  };
  auto grow = [&](int32_t side) { return side + pick(1, std::min(side + 7, 200)); };
  const bool across = rng() % 2 == 0;
  ScalingCall call{mode, w, h, 0};
  switch (target) {
    case Target::Same:
      break;
    case Target::Shrink:
      call.width = pick(1, w), call.height = pick(1, h);
      break;
    case Target::ShrinkByLargeFactor:
      call.width = pick(1, w / 8), call.height = pick(1, h / 8);
      break;
    case Target::Grow:
      call.width = grow(w), call.height = grow(h);
      break;
    case Target::Mixed:
      call.width = across ? grow(w) : pick(1, w);
      call.height = across ? pick(1, h) : grow(h);
      break;
    case Target::OnePixel: {
      const std::pair<int32_t, int32_t> sizes[] = {
          {1, 1}, {1, pick(1, 2 * h)}, {pick(1, 2 * w), 1}};
      std::tie(call.width, call.height) = sizes[rng() % 3];
      break;
    }
    case Target::Invalid: {
      const std::pair<int32_t, int32_t> sizes[] = {{0, h}, {w, 0}, {-pick(1, 5), h}, {w, kMinInt}};
      const int32_t modes[] = {0, 8, -1, kMinInt, kMaxInt};
      if (across) {
        std::tie(call.width, call.height) = sizes[rng() % 4];
      } else {
        call.mode = modes[rng() % 5];
      }
      break;
    }
  }
  return call;
}

class ScalingDifferential : public qpxtest::HostVariantTest {};

TEST_P(ScalingDifferential, MatchesTheReferenceByteForByte) {
  Host& host = BootVariant();
  const uint32_t seed = qpxtest::SeedOf("ScalingQPX " + GetParam().name);
  std::mt19937 rng(seed);
  std::vector<qpxtest::PictureRecipe> recipes =
      qpxtest::RandomPictureRecipes(seed, 21, 200, /*alpha=*/true);
  // The result is written in the new picture's layout whatever the source's.
  qpxtest::MixDesktopLayouts(recipes, GetParam().config, rng);
  int caseNumber = 0;
  for (size_t r = 0; r < recipes.size(); ++r) {
    const qpxtest::PictureRecipe& recipe = recipes[r];
    for (int t = 0; t < kTargetCount; ++t) {
      // Every recipe meets every mode, each with a target of its own.
      const auto mode = static_cast<int32_t>(1 + (r + size_t(t)) % 7);
      ScalingCall call = TargetCall(static_cast<Target>(t), mode, recipe.width, recipe.height, rng);
      call.yield = caseNumber++ % 3 == 0 ? kYieldEveryCall : 0;
      SCOPED_TRACE("seed " + std::to_string(seed) + ", case " + std::to_string(caseNumber) + ": " +
                   recipe.Describe());
      CheckScalingAgainstReference(host, qpxtest::MakePicture(host, recipe), call);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryHost, ScalingDifferential,
                         ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

// --- Named cases ------------------------------------------------------------------------------

class ScalingTest : public qpxtest::MultiHostTest {};

// Nil before anything is opened, allocated or yielded; no exception for any of them.
TEST_F(ScalingTest, BadModeOrSizeGivesNilWithoutException) {
  std::vector<ScalingCall> calls;
  for (int32_t mode : {0, 8, -1, 9, kMinInt, kMaxInt}) calls.push_back({mode, 5, 5});
  for (int32_t mode = 1; mode <= 7; ++mode) {
    for (auto [width, height] : {std::pair{0, 5}, std::pair{5, 0}, std::pair{0, 0},
                                 std::pair{-1, 5}, std::pair{5, -3}, std::pair{kMinInt, 5}}) {
      calls.push_back({mode, width, height});
    }
  }
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (bool alpha : {false, true}) {
      for (ScalingCall call : calls) {
        call.yield = kYieldEveryCall;
        CheckScaling(host, qpxtest::MakePicture(host, Noise(4, 4, 1, alpha)), call,
                     ExpectedPicture::Nil(), 0);
      }
    }
    CheckScaling(host, nullptr, {1, 5, 5, kYieldEveryCall}, ExpectedPicture::Nil(), 0);
  });
}

// The same size still resamples into a new picture. At scale 1 the distances are whole numbers:
// the triangle is not applied at 1, the box and the cubic give 0.0 there, the six-point cubic
// and the Lanczos kernels tiny values (about 1e-16) that cannot move a rounded channel, so the
// source comes back; Mitchell weighs each neighbour 1/18 and softens the picture.
TEST_F(ScalingTest, SameSizeStillResamples) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    for (bool alpha : {false, true}) {
      const qpxtest::PictureRecipe recipe = Noise(7, 5, 3, alpha);
      const int32_t format = ResultFormat(config, alpha);
      for (int32_t mode = 1; mode <= 7; ++mode) {
        SCOPED_TRACE(std::string("mode ") + std::to_string(mode) + (alpha ? " alpha" : ""));
        HostPicture* picture = qpxtest::MakePicture(host, recipe);
        const RawPicture source = ReadRaw(*picture);
        const RawPicture copy = Tiled(source, 7, 5, format);
        const RawPicture reference = ReferenceScaling(source, mode, 7, 5, format);
        EXPECT_EQ(bool(SamePixels(copy, reference)), mode != 5);
        CheckScaling(host, picture, {mode, 7, 5, kYieldEveryCall},
                     ExpectedPicture::New(mode == 5 ? reference : copy, alpha), 5 + 7);
      }
    }
  });
}

// Mitchell at scale 1 on one row (red, green, blue) = 0 | 180, 90, 18 | 0. The middle output
// weighs its neighbours 1/18 and itself 16/18, sum 1: 160, 80, 16. An edge output has only
// itself (16/18) and the middle (1/18): 180 / 17 = 10.6 gives 11, 90 / 17 gives 5, 18 / 17
// gives 1. Down, one row keeps its values.
TEST_F(ScalingTest, MitchellSoftensAtTheSameSize) {
  const RGBA edge = {11, 5, 1, 255}, middle = {160, 80, 16, 255};
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    HostPicture* picture = SolidPicture(host, 3, 1, {0, 0, 0, 255});
    picture->Set(1, 0, {180, 90, 18, 255});
    CheckScaling(
        host, picture, {5, 3, 1, 0},
        ExpectedPicture::New(Line({edge, middle, edge}, true, ResultFormat(config, false))), 0);
  });
}

// Alpha is not resampled and the result is opaque: 255 in the alpha byte of layouts 1 and 2,
// 0 in the fourth byte of layout 8, whatever the source's alpha bytes; so too for desktop
// pictures without alpha channel whose layout keeps an alpha byte (3 and 4).
TEST_F(ScalingTest, AlphaSourceComesBackOpaque) {
  std::vector<HostConfig> hosts = qpxtest::EveryKindOfHost();
  hosts.push_back(DesktopHost(3));
  hosts.push_back(DesktopHost(4, 4));
  for (const HostConfig& config : hosts) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    for (bool alpha : {true, false}) {
      HostPicture* picture = qpxtest::MakePicture(host, Noise(6, 4, 8, alpha));
      const RawPicture source = ReadRaw(*picture);
      const int32_t format = ResultFormat(config, alpha);
      const int alphaByte = source.format == 2 || source.format == 4 || source.format == 6 ? 0 : 3;
      int notOpaque = 0;
      for (size_t i = size_t(alphaByte); i < source.bytes.size(); i += 4) {
        notOpaque += source.bytes[i] != 255 && source.bytes[i] != 0;
      }
      EXPECT_GT(notOpaque, 10) << "the source's alpha bytes vary";
      CheckScaling(host, picture, {1, 6, 4, 0},
                   ExpectedPicture::New(Tiled(source, 6, 4, format), alpha), 0);
      CheckScalingAgainstReference(host, qpxtest::MakePicture(host, Noise(6, 4, 8, alpha)),
                                   {3, 9, 7, 0});
    }
  }
}

// Enlarging a 1-pixel-wide picture, every output column has the one contributor source column
// 0 and copies it; down, the column is resampled as a 1-pixel-wide target would be (at the same
// height: itself, except Mitchell's softening). A single pixel fills the whole result.
TEST_F(ScalingTest, OnePixelWideSourceEnlargedCopiesColumnZero) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    const int32_t format = ResultFormat(config, false);
    for (int32_t mode = 1; mode <= 7; ++mode) {
      SCOPED_TRACE("mode " + std::to_string(mode));
      HostPicture* column = qpxtest::MakePicture(host, NoiseRecipe(1, 6, uint32_t(mode)));
      const RawPicture source = ReadRaw(*column);
      const RawPicture down = mode == 5 ? ReferenceScaling(source, 5, 1, 6, format) : source;
      CheckScaling(host, column, {mode, 5, 6, 0}, ExpectedPicture::New(Tiled(down, 5, 6, format)),
                   0);
      HostPicture* pixel = qpxtest::MakePicture(host, NoiseRecipe(1, 1, uint32_t(mode)));
      const RawPicture one = ReadRaw(*pixel);
      CheckScaling(host, pixel, {mode, 9, 4, 0}, ExpectedPicture::New(Tiled(one, 9, 4, format)), 0);
    }
  });
}

// Near the edges the candidates are cut and the weights that remain are renormalised by their
// own sum, so one colour stays that colour everywhere, for every mode, shrinking, enlarging,
// both at once, by large factors and at the same size.
TEST_F(ScalingTest, UniformPictureStaysUniformUpToItsEdges) {
  const RGBA colours[] = {
      {255, 255, 255, 255}, {0, 0, 0, 255}, {255, 0, 128, 255}, {3, 250, 77, 255}};
  struct Sizes {
    int32_t sourceWidth, sourceHeight, width, height;
  };
  const Sizes sizes[] = {{37, 23, 5, 4}, {37, 23, 2, 1}, {60, 3, 1, 2}, {5, 3, 17, 11},
                         {2, 2, 40, 33}, {9, 20, 30, 3}, {8, 8, 8, 8}};
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    const int32_t format = ResultFormat(config, false);
    for (const RGBA& colour : colours) {
      RawPicture one(1, 1, format);
      qpxtest::WriteOpaque(one.Pixel(0, 0), format, {colour.r, colour.g, colour.b});
      for (const Sizes& s : sizes) {
        for (int32_t mode = 1; mode <= 7; ++mode) {
          SCOPED_TRACE("mode " + std::to_string(mode) + ", " + std::to_string(s.sourceWidth) + "x" +
                       std::to_string(s.sourceHeight) + " colour " + std::to_string(colour.r) +
                       " " + std::to_string(colour.g) + " " + std::to_string(colour.b));
          CheckScaling(host, SolidPicture(host, s.sourceWidth, s.sourceHeight, colour),
                       {mode, s.width, s.height, 0},
                       ExpectedPicture::New(Tiled(one, s.width, s.height, format)), 0);
        }
      }
    }
  });
}

// Box, 2 to 3: the middle output's centre lies halfway between the two source pixels, at
// distance exactly 0.5 from each, and both count fully: (a + b) / 2 + 0.5 truncated, so
// (10 + 201) / 2 gives 106, (20 + 0) / 2 gives 10 and (30 + 255) / 2 gives 143. The outer
// outputs copy their pixel. The same holds down a column.
TEST_F(ScalingTest, BoxCountsAHalfwayPixelFullyForBothNeighbours) {
  const RGBA a = {10, 20, 30, 255}, b = {201, 0, 255, 255}, mid = {106, 10, 143, 255};
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    for (bool across : {true, false}) {
      HostPicture* picture = SolidPicture(host, across ? 2 : 1, across ? 1 : 2, a);
      picture->Set(across ? 1 : 0, across ? 0 : 1, b);
      CheckScaling(host, picture, {2, across ? 3 : 1, across ? 1 : 3, 0},
                   ExpectedPicture::New(Line({a, mid, b}, across, ResultFormat(config, false))), 0);
    }
  });
}

// With a yield argument of 0 nothing yields: not on success, nor when the writer fails, nor for
// bad arguments or a nil receiver.
TEST_F(ScalingTest, YieldZeroNeverYields) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (const ScalingCall& call :
         {ScalingCall{3, 13, 4, 0}, ScalingCall{5, 6, 21, 0}, ScalingCall{2, 32768, 2, 0},
          ScalingCall{0, 5, 5, 0}, ScalingCall{1, 0, 5, 0}}) {
      CheckScalingAgainstReference(host, qpxtest::MakePicture(host, NoiseRecipe(9, 7)), call);
    }
    CheckScaling(host, qpxtest::MakePicture(host, NoiseRecipe(1, 16385)), {1, 32767, 1, 0},
                 ExpectedPicture::Nil(), 0);
    CheckScaling(host, nullptr, {1, 4, 4, 0}, ExpectedPicture::Nil(), 0);
    EXPECT_EQ(host.yieldCount, 0);
  });
}

// Yielding at every check: once after setting up, once after each of the horizontal lists,
// the horizontal pass and the vertical lists, once a row, once after the last row, once after
// rendering and once after clearing the reader: height + 7.
TEST_F(ScalingTest, YieldsOnceARowAndSevenTimesMore) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    for (const ScalingCall& call :
         {ScalingCall{1, 4, 1, kYieldEveryCall}, ScalingCall{4, 3, 2, kYieldEveryCall},
          ScalingCall{7, 20, 9, kYieldEveryCall}, ScalingCall{5, 2, 40, kYieldEveryCall},
          ScalingCall{2, 11, 11, kYieldEveryCall}}) {
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(11, 11));
      const RawPicture source = ReadRaw(*picture);
      CheckScaling(host, picture, call, ExpectedScaling(&source, false, config, call).picture,
                   call.height + 7);
    }
  });
}

// The yield state is the call's own: a call made by the host during a yield that sets the
// shared state of ScaleQPX to "never", or runs ScalingQPX itself without yielding, leaves the
// outer call yielding at every check.
TEST_F(ScalingTest, CallDuringAYieldLeavesTheYieldStateAlone) {
  Host& host = Boot(AppHost(AppKind::Web));
  int yields = 0;
  host.onYield = [&] {
    if (yields++ != 1) return;
    EXPECT_EQ(host.Call("ScaleQPX", nullptr, {3, 3, false, 0}).picture, nullptr);
    HostPicture* inner = qpxtest::MakePicture(host, NoiseRecipe(3, 3, 4));
    HostObject* result = CallScaling(host, inner, {4, 5, 5, 0});
    EXPECT_EQ(host.RefCount(result), 1);
    host.Unlock(result);
    host.Unlock(inner);
  };
  CheckScalingAgainstReference(host, qpxtest::MakePicture(host, NoiseRecipe(6, 5, 9)),
                               {3, 11, 9, kYieldEveryCall});
  host.onYield = nullptr;
  EXPECT_EQ(yields, 9 + 7);
}

// The call's yield state starts at 0, so the first check yields at once; then the interval
// holds.
TEST_F(ScalingTest, TickAndMillisecondIntervalsYieldAtOnce) {
  Host& host = Boot(AppHost(AppKind::Console));
  for (int32_t yield : {1, -1, 2, -2}) {
    SCOPED_TRACE(yield);
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(8, 9));
    const RawPicture source = ReadRaw(*picture);
    const ScalingCall call{6, 16, 18, yield};
    const int before = host.yieldCount;
    CheckPictureCall(host, picture, "ScalingQPX", Arguments(call),
                     ExpectedScaling(&source, false, host.config(), call).picture);
    EXPECT_GE(host.yieldCount - before, 1);
    EXPECT_LE(host.yieldCount - before, 18 + 7);
  }
}

// A new picture without alpha channel is at most 32767 a side, and one with an alpha channel
// needs a host of 2011.04 or later: otherwise nil, after the horizontal work and the vertical
// lists (four yields) and the yield after clearing the reader. With an alpha channel there is
// no upper bound.
TEST_F(ScalingTest, WriterThatCannotBeCreatedGivesNilAfterTheHorizontalWork) {
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    for (const ScalingCall& call :
         {ScalingCall{1, 32768, 3, kYieldEveryCall}, ScalingCall{4, 3, 32768, kYieldEveryCall},
          ScalingCall{2, 40000, 1, kYieldEveryCall}}) {
      CheckScaling(host, qpxtest::MakePicture(host, NoiseRecipe(4, 3)), call,
                   ExpectedPicture::Nil(), 5);
    }
    CheckScalingAgainstReference(host, qpxtest::MakePicture(host, Noise(4, 3, 1, true)),
                                 {2, 40000, 2, kYieldEveryCall});
    // Older hosts, or one that does not tell its version, make no picture with alpha channel.
    for (std::optional<double> version :
         {std::optional<double>(2011.03), std::optional<double>()}) {
      HostConfig old = config;
      old.version = version;
      Host& oldHost = Reboot(old);
      CheckScaling(oldHost, qpxtest::MakePicture(oldHost, Noise(4, 3, 1, true)),
                   {3, 5, 5, kYieldEveryCall}, ExpectedPicture::Nil(), 5);
    }
  });
}

// The intermediate's byte size width x source height x 4 is formed in 32 bits: 32767 x 16385 x
// 4 = 2,147,549,180 is above 0x7FFFFFFF, 2^19 x 1024 x 4 = 2^31 too, and 2^20 x 1024 x 4
// wraps to 0. Each gives nil before any yield.
TEST_F(ScalingTest, IntermediateThatFailsItsSizeTestGivesNilBeforeAnyYield) {
  for (const HostConfig& config : {DesktopHost(5), AppHost(AppKind::Console)}) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    CheckScaling(host, qpxtest::MakePicture(host, NoiseRecipe(1, 16385)),
                 {1, 32767, 1, kYieldEveryCall}, ExpectedPicture::Nil(), 0);
    for (int32_t width : {1 << 19, 1 << 20}) {
      CheckScaling(host, qpxtest::MakePicture(host, Noise(1, 1024, 2, true)),
                   {1, width, 1, kYieldEveryCall}, ExpectedPicture::Nil(), 0);
    }
  }
}

// A picture without pixels, or of another depth, does not open: nil before any yield.
TEST_F(ScalingTest, UnopenableReceiverGivesNil) {
  PictureOptions depth16;
  depth16.depth = 16;
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    CheckScaling(host, qpxhost::NewHostPicture(host, 0, 0), {1, 3, 3, kYieldEveryCall},
                 ExpectedPicture::Nil(), 0);
    CheckScaling(host, qpxhost::NewHostPicture(host, 4, 4, depth16), {3, 8, 8, kYieldEveryCall},
                 ExpectedPicture::Nil(), 0);
  });
}

// A desktop picture whose pixels do not lock is read through a 32-bit copy of it; with every
// byte set through the host, the copy holds the same bytes.
TEST_F(ScalingTest, ReceiverThatDoesNotLockIsReadThroughACopy) {
  Host& host = Boot(DesktopHost(6, 4));
  for (int32_t mode = 1; mode <= 7; ++mode) {
    PictureOptions options;
    options.lockable = false;
    HostPicture* picture = qpxhost::NewHostPicture(host, 9, 6, options);
    std::mt19937 rng(static_cast<uint32_t>(mode));
    for (int32_t y = 0; y < 6; ++y) {
      for (int32_t x = 0; x < 9; ++x) {
        picture->Set(x, y, {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), 255});
      }
    }
    CheckScalingAgainstReference(host, picture, {mode, 14, 4, kYieldEveryCall});
  }
}

}  // namespace
