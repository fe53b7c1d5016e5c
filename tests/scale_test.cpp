// ScaleQPX through the emulated host: the module loaded fresh, pictures made in the host, every
// result byte compared with the plain resizers of scale_reference.h, yields counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <limits>
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
#include "scale_reference.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxtest::ExpectedScale;
using qpxtest::ExpectedScaleResult;
using qpxtest::ScaleCall;

// The smallest 32-bit interval is its own negation, so every yield check hands control over.

using Bytes = std::array<uint8_t, 4>;

std::vector<qpxhost::Value> Arguments(const ScaleCall& call) {
  return {call.width, call.height, call.antiAlias, call.yieldTicks};
}

HostObject* CallScale(Host& host, HostObject* receiver, const ScaleCall& call) {
  return host.Call("ScaleQPX", receiver, Arguments(call)).picture;
}

// The call's result as a picture (null when it is nil or no picture).
HostPicture* Scaled(Host& host, HostObject* receiver, const ScaleCall& call) {
  return dynamic_cast<HostPicture*>(CallScale(host, receiver, call));
}

void Release(Host& host, std::initializer_list<HostObject*> objects) {
  for (HostObject* object : objects) host.Unlock(object);
}

// One call on `receiver` (its reference taken over) checked by CheckPictureCall, and the
// number of yields it made.
void CheckScale(Host& host, HostPicture* receiver, const ScaleCall& call,
                const ExpectedPicture& expected, int yields) {
  const int before = host.yieldCount;
  CheckPictureCall(host, receiver, "ScaleQPX", Arguments(call), expected);
  EXPECT_EQ(host.yieldCount - before, yields) << "yields";
}

// The same against what the references make of the receiver's pixels.
void CheckScaleAgainstReference(Host& host, HostPicture* receiver, const ScaleCall& call) {
  const RawPicture pixels = ReadRaw(*receiver);
  const ExpectedScaleResult expected =
      ExpectedScale(&pixels, receiver->hasAlpha, host.config(), call);
  CheckScale(host, receiver, call, expected.picture, expected.yields);
}

PictureOptions WithAlpha() {
  PictureOptions options;
  options.hasAlpha = true;
  return options;
}

// A picture whose pixels hold these bytes (memory order), row by row.
HostPicture* BytePicture(Host& host, int32_t width, int32_t height,
                         const std::vector<Bytes>& pixels, const PictureOptions& options = {}) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height, options);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const Bytes& p = pixels[size_t(y) * width + x];
      std::copy(p.begin(), p.end(), picture->Row(y) + 4 * x);
    }
  }
  return picture;
}

// Grey pixels of these values, the fourth byte too (the box resizer must not read it).
std::vector<Bytes> Grey(const std::vector<int>& values) {
  std::vector<Bytes> pixels;
  for (int v : values) pixels.push_back({uint8_t(v), uint8_t(v), uint8_t(v), uint8_t(v)});
  return pixels;
}

// Every pixel's bytes, row by row.
std::vector<Bytes> AllBytes(HostPicture& picture) {
  const RawPicture raw = ReadRaw(picture);
  std::vector<Bytes> out;
  for (int32_t y = 0; y < raw.height; ++y) {
    for (int32_t x = 0; x < raw.width; ++x) {
      const uint8_t* p = raw.Pixel(x, y);
      out.push_back({p[0], p[1], p[2], p[3]});
    }
  }
  return out;
}

// Position of the alpha (or unused) byte in a layout, and the value the box resizer puts there.
int AlphaByte(int32_t layout) {
  return (layout == 2 || layout == 4 || layout == 6) ? 0 : 3;
}
uint8_t OpaqueByte(int32_t layout) {
  return layout == 8 ? 0 : 255;
}

// --- Differential run over random pictures, targets and hosts --------------------------------

enum class Target { Same, Shrink, Grow, GrowByFactor, Mixed, OneSideKept, OnePixel, NotPositive };
constexpr int kTargetCount = 8;

// A target size of that kind for a w x h source. Growing stays within about 400 pixels a side,
// which keeps the references' work (the enlargement redoes a source row per output row and
// byte) small.
std::pair<int32_t, int32_t> TargetSize(Target target, int32_t w, int32_t h, std::mt19937& rng) {
  auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, std::max(lo, hi))(rng);
  };
  auto grow = [&](int32_t side) { return side + pick(1, side + 7); };
  const bool across = rng() % 2 == 0;
  switch (target) {
    case Target::Same:
      return {w, h};
    case Target::Shrink:
      return {pick(1, w), pick(1, h)};
    case Target::Grow:
      return {grow(w), grow(h)};
    case Target::GrowByFactor: {
      const int32_t factor = pick(2, std::min(4, 400 / std::max(w, h)));
      return {factor * w, factor * h};
    }
    case Target::Mixed:
      return across ? std::pair{grow(w), pick(1, h)} : std::pair{pick(1, w), grow(h)};
    case Target::OneSideKept:
      return across ? std::pair{grow(w), h} : std::pair{w, grow(h)};
    case Target::OnePixel: {
      const std::pair<int32_t, int32_t> sizes[] = {
          {1, 1}, {1, pick(1, 2 * h)}, {pick(1, 2 * w), 1}};
      return sizes[rng() % 3];
    }
    case Target::NotPositive: {
      const std::pair<int32_t, int32_t> sizes[] = {
          {0, h}, {w, 0}, {0, 0}, {-pick(1, 5), h + 1}, {w + 1, -1}};
      return sizes[rng() % 5];
    }
  }
  return {w, h};
}

class ScaleDifferential : public qpxtest::HostVariantTest {};

TEST_P(ScaleDifferential, MatchesTheReferenceByteForByte) {
  Host& host = BootVariant();
  const HostConfig& config = GetParam().config;
  const uint32_t seed = qpxtest::SeedOf("ScaleQPX " + GetParam().name);
  std::mt19937 rng(seed);
  std::vector<qpxtest::PictureRecipe> recipes =
      qpxtest::RandomPictureRecipes(seed, 20, 200, /*alpha=*/true);
  // Some desktop sources in a layout other than new pictures get: the box resizer reads the
  // source's layout and writes the new one's, the enlargement carries bytes by position.
  qpxtest::MixDesktopLayouts(recipes, config, rng);
  int caseNumber = 0;
  for (const qpxtest::PictureRecipe& recipe : recipes) {
    for (int t = 0; t < kTargetCount; ++t) {
      const auto target = static_cast<Target>(t);
      ScaleCall call;
      std::tie(call.width, call.height) = TargetSize(target, recipe.width, recipe.height, rng);
      const bool grows = target == Target::Grow || target == Target::GrowByFactor;
      call.antiAlias = grows ? caseNumber % 4 != 0 : rng() % 2 == 0;
      call.yieldTicks = caseNumber++ % 3 == 0 ? kYieldEveryCall : 0;
      std::ostringstream trace;
      trace << "seed " << seed << ", case " << caseNumber << ": " << recipe.Describe() << " to "
            << call.width << "x" << call.height << (call.antiAlias ? " anti-aliased" : "")
            << ", yield " << call.yieldTicks;
      SCOPED_TRACE(trace.str());

      CheckScaleAgainstReference(host, qpxtest::MakePicture(host, recipe), call);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryHost, ScaleDifferential,
                         ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

// --- Named cases ------------------------------------------------------------------------------

class ScaleTest : public qpxtest::MultiHostTest {};

TEST_F(ScaleTest, SameSizeReturnsTheReceiverItself) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (bool antiAlias : {false, true}) {
      for (const PictureOptions& options : {PictureOptions{}, WithAlpha()}) {
        HostPicture* picture = qpxhost::NewHostPicture(host, 5, 3, options);
        EXPECT_EQ(CallScale(host, picture, {5, 3, antiAlias, kYieldEveryCall}), picture);
        EXPECT_EQ(host.RefCount(picture), 2);
        // Nothing else was made, opened or told to redraw.
        EXPECT_EQ(host.LiveObjectCount(), 1u);
        EXPECT_EQ(picture->lockCount, 0);
        EXPECT_EQ(picture->clearCacheCount, 0);
        host.Unlock(picture);
        CheckScale(host, picture, {5, 3, antiAlias, kYieldEveryCall}, ExpectedPicture::Receiver(),
                   0);
      }
      // A picture without pixels asked for its own size of 0 x 0 comes back too.
      CheckScale(host, qpxhost::NewHostPicture(host, 0, 0), {0, 0, antiAlias, kYieldEveryCall},
                 ExpectedPicture::Receiver(), 0);
    }
  });
}

TEST_F(ScaleTest, AntiAliasWithOneSideNotGrowingUsesTheBoxResizer) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    const int32_t format = qpxtest::NewPictureFormat(config);
    for (auto [width, height] :
         {std::pair{9, 2}, std::pair{9, 3}, std::pair{4, 7}, std::pair{2, 8}, std::pair{4, 4}}) {
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(4, 3, 5));
      const RawPicture source = ReadRaw(*picture);
      const RawPicture box = qpxtest::ReferenceBoxResize(source, width, height, format);
      EXPECT_FALSE(SamePixels(qpxtest::ReferenceEnlarge(source, width, height, format), box));
      CheckScale(host, picture, {width, height, true, kYieldEveryCall}, ExpectedPicture::New(box),
                 height + 1);
    }
  });
}

// xScale = yScale = 0.5: boxes of 1 x 1 at sx = i / 2, sy = j / 2, each (0.5 + v) / 1.
TEST_F(ScaleTest, TwoByTwoToFourByFourRepeatsEachPixelAsABlock) {
  const std::vector<RGBA> colours = {
      {10, 20, 30, 255}, {255, 0, 128, 255}, {1, 2, 3, 255}, {200, 100, 50, 255}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    HostPicture* picture = qpxhost::NewHostPicture(host, 2, 2);
    for (int32_t i = 0; i < 4; ++i) picture->Set(i % 2, i / 2, colours[size_t(i)]);
    HostPicture* result = Scaled(host, picture, {4, 4, false, 0});
    ASSERT_NE(result, nullptr);
    for (int32_t y = 0; y < 4; ++y) {
      for (int32_t x = 0; x < 4; ++x) {
        EXPECT_EQ(result->Get(x, y), colours[size_t(y / 2 * 2 + x / 2)]) << x << ", " << y;
      }
    }
    Release(host, {result, picture});
  });
}

// xScale = yScale = 2: boxes of 2 x 2 at columns 0 and 2 of rows 0 and 2, each channel
// (0.5 + 2 * (a + b)) / 4 truncated, a and b the two pixels of the box's top row.
TEST_F(ScaleTest, FourByFourToTwoByTwoReadsRowsZeroAndTwoOnly) {
  const std::vector<int> rows02 = {10, 21, 200, 255,  //
                                   0,  0,  0,   0,    //
                                   0,  1,  7,   100,  //
                                   0,  0,  0,   0};
  std::vector<int> otherRows13 = rows02;
  for (int x = 0; x < 4; ++x) otherRows13[size_t(4 + x)] = 255, otherRows13[size_t(12 + x)] = 77;
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const std::vector<int>& values : {rows02, otherRows13}) {
      HostPicture* picture = BytePicture(host, 4, 4, Grey(values));
      HostPicture* result = Scaled(host, picture, {2, 2, false, 0});
      ASSERT_NE(result, nullptr);
      // (0.5 + 62) / 4 = 15.6, (0.5 + 910) / 4 = 227.6, (0.5 + 2) / 4 = 0.6, (0.5 + 214) / 4 = 53.6
      EXPECT_EQ(result->Get(0, 0), (RGBA{15, 15, 15, 255}));
      EXPECT_EQ(result->Get(1, 0), (RGBA{227, 227, 227, 255}));
      EXPECT_EQ(result->Get(0, 1), (RGBA{0, 0, 0, 255}));
      EXPECT_EQ(result->Get(1, 1), (RGBA{53, 53, 53, 255}));
      Release(host, {result, picture});
    }
  });
}

// xScale = 2.5: boxes of ceil(2.5) = 3 columns starting at trunc(2.5 * i) = 0, 2, 5, 7. A lit
// column shows in the outputs whose box holds it: (0.5 + 255) / 3 = 85, (0.5 + 3) / 3 = 1.
TEST_F(ScaleTest, TenColumnsToFourAverageBoxesOfThreeFromColumnsZeroTwoFiveAndSeven) {
  const std::vector<std::vector<int32_t>> boxesHolding = {{0}, {0}, {0, 1}, {1}, {1},
                                                          {2}, {2}, {2, 3}, {3}, {3}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (int32_t lit = 0; lit < 10; ++lit) {
      SCOPED_TRACE("lit column " + std::to_string(lit));
      HostPicture* picture = qpxhost::NewHostPicture(host, 10, 1);
      for (int32_t x = 0; x < 10; ++x) picture->Set(x, 0, {0, 0, 0, 255});
      picture->Set(lit, 0, {255, 3, 0, 255});
      HostPicture* result = Scaled(host, picture, {4, 1, false, 0});
      ASSERT_NE(result, nullptr);
      const std::vector<int32_t>& boxes = boxesHolding[size_t(lit)];
      for (int32_t i = 0; i < 4; ++i) {
        const bool holds = std::find(boxes.begin(), boxes.end(), i) != boxes.end();
        EXPECT_EQ(result->Get(i, 0), holds ? (RGBA{85, 1, 0, 255}) : (RGBA{0, 0, 0, 255})) << i;
      }
      Release(host, {result, picture});
    }
  });
}

// The box resizer never reads the alpha (or unused) byte and writes 255 there, or 0 in the
// fourth byte of console and web pictures, even when the new picture has an alpha channel.
TEST_F(ScaleTest, BoxResizerGivesAnOpaqueResultFromTransparentPixels) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (const PictureOptions& options : {PictureOptions{}, WithAlpha()}) {
      for (const ScaleCall& call : {ScaleCall{3, 2}, ScaleCall{7, 5}, ScaleCall{9, 2, true}}) {
        SCOPED_TRACE(std::to_string(call.width) + "x" + std::to_string(call.height));
        HostPicture* picture = qpxhost::NewHostPicture(host, 6, 4, options);
        std::mt19937 rng(3);
        for (int32_t y = 0; y < 4; ++y) {
          for (int32_t x = 0; x < 6; ++x) {
            picture->Set(x, y, {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), uint8_t(x * 40)});
            picture->Row(y)[4 * x + AlphaByte(picture->layout)] = uint8_t(x * 40);
          }
        }
        HostPicture* result = Scaled(host, picture, call);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->hasAlpha, options.hasAlpha);
        EXPECT_TRUE(SamePixels(
            qpxtest::ReferenceBoxResize(ReadRaw(*picture), call.width, call.height, result->layout),
            ReadRaw(*result)));
        for (const Bytes& pixel : AllBytes(*result)) {
          ASSERT_EQ(pixel[size_t(AlphaByte(result->layout))], OpaqueByte(result->layout));
        }
        Release(host, {result, picture});
      }
    }
  });
}

// Only the box resizer runs (nothing grows) and it yields once at its end, having made no
// picture. No exception reaches the host.
TEST_F(ScaleTest, WidthOrHeightNotPositiveGivesNil) {
  const std::vector<std::pair<int32_t, int32_t>> sizes = {
      {0, 4}, {4, 0}, {0, 0}, {-1, 4}, {4, -1}, {-3, -3}, {std::numeric_limits<int32_t>::min(), 8},
      {0, 8}, {8, -8}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const PictureOptions& options : {PictureOptions{}, WithAlpha()}) {
      for (auto [width, height] : sizes) {
        for (bool antiAlias : {false, true}) {
          SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
          CheckScale(host, qpxhost::NewHostPicture(host, 4, 4, options),
                     {width, height, antiAlias, kYieldEveryCall}, ExpectedPicture::Nil(), 1);
        }
      }
    }
    EXPECT_THAT(host.raisedExceptions, ::testing::IsEmpty());
  });
}

// The yield state is set before the receiver is looked at: with a nil receiver the box
// resizer (after the enlargement, which yields nothing when its reader fails) still yields once
// at its end. A requested size of 0 x 0 is the nil receiver's own size: nil at once.
TEST_F(ScaleTest, NilReceiverGivesNilAndStillSetsTheYieldState) {
  Host& host = Boot(AppHost(AppKind::Console));
  for (bool antiAlias : {false, true}) {
    for (auto [width, height] : {std::pair{5, 5}, std::pair{1, 7}, std::pair{-2, 3}}) {
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
      CheckScale(host, nullptr, {width, height, antiAlias, kYieldEveryCall}, ExpectedPicture::Nil(),
                 1);
      CheckScale(host, nullptr, {width, height, antiAlias, 0}, ExpectedPicture::Nil(), 0);
    }
    CheckScale(host, nullptr, {0, 0, antiAlias, kYieldEveryCall}, ExpectedPicture::Nil(), 0);
  }
}

// The yield state is one shared record: a call made by the host during a yield overwrites it,
// and the outer call reads the interval the inner one left (0 here) at its next checks.
TEST_F(ScaleTest, CallDuringAYieldOverwritesTheSharedYieldState) {
  for (bool antiAlias : {false, true}) {
    SCOPED_TRACE(antiAlias ? "enlargement" : "box resizer");
    Host& host = Reboot(AppHost(AppKind::Web));
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(6, 5, 9));
    const RawPicture source = ReadRaw(*picture);
    int innerCalls = 0;
    host.onYield = [&] {
      if (innerCalls++ == 0) {
        EXPECT_EQ(CallScale(host, nullptr, {3, 3, false, 0}), nullptr);
      }
    };
    HostPicture* result = Scaled(host, picture, {11, 9, antiAlias, kYieldEveryCall});
    host.onYield = nullptr;
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(host.yieldCount, 1);
    const RawPicture expected = antiAlias ? qpxtest::ReferenceEnlarge(source, 11, 9, 8)
                                          : qpxtest::ReferenceBoxResize(source, 11, 9, 8);
    EXPECT_TRUE(SamePixels(expected, ReadRaw(*result)));
    Release(host, {result, picture});
  }
}

// Output positions 0, 0.5, 1 and 1.5 of each source direction. At t = 0 the weights are
// w2 = 1 and the rest 0: the source byte itself. At t = 0.5: s = 0.75, u = 0.25, w1 = w2 = 0.5,
// so (with 0.5 added before truncation) 0 and 100 give 50, 0 and 255 give 128. The last
// position mixes the last source pixel with its clamped copy.
TEST_F(ScaleTest, AntiAliasedTwoByTwoToFourByFour) {
  const std::vector<Bytes> source = {{0, 0, 10, 20},
                                     {100, 255, 30, 200},  //
                                     {200, 0, 50, 60},
                                     {40, 255, 70, 0}};
  // Between the rows, byte 0 mixes columns 100 and 70 (0 + 200, 100 + 40 halved): 100, 85, 70.
  const std::vector<Bytes> expected = {
      {0, 0, 10, 20},   {50, 128, 20, 110}, {100, 255, 30, 200}, {100, 255, 30, 200},
      {100, 0, 30, 40}, {85, 128, 40, 70},  {70, 255, 50, 100},  {70, 255, 50, 100},
      {200, 0, 50, 60}, {120, 128, 60, 30}, {40, 255, 70, 0},    {40, 255, 70, 0},
      {200, 0, 50, 60}, {120, 128, 60, 30}, {40, 255, 70, 0},    {40, 255, 70, 0}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const PictureOptions& options : {PictureOptions{}, WithAlpha()}) {
      HostPicture* picture = BytePicture(host, 2, 2, source, options);
      HostPicture* result = Scaled(host, picture, {4, 4, true, 0});
      ASSERT_NE(result, nullptr);
      EXPECT_EQ(result->hasAlpha, options.hasAlpha);
      EXPECT_THAT(AllBytes(*result), ::testing::ElementsAreArray(expected));
      Release(host, {result, picture});
    }
  });
}

// Alpha is one more byte to the enlargement: transparent and opaque columns blend to 128 at
// the midpoints, as the colour bytes do (blended as stored, premultiplied or not).
TEST_F(ScaleTest, AntiAliasInterpolatesVaryingAlpha) {
  for (const HostConfig& config : {DesktopHost(5), DesktopHost(6, 4), AppHost(AppKind::Console)}) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    const Bytes clear = {0, 0, 0, 0}, opaque = {255, 255, 255, 255};
    HostPicture* picture = BytePicture(host, 2, 2, {clear, opaque, clear, opaque}, WithAlpha());
    HostPicture* result = Scaled(host, picture, {4, 4, true, kYieldEveryCall});
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(result->hasAlpha);
    const Bytes mid = {128, 128, 128, 128};
    EXPECT_THAT(AllBytes(*result), ::testing::ElementsAreArray(
                                       {clear, mid, opaque, opaque, clear, mid, opaque, opaque,
                                        clear, mid, opaque, opaque, clear, mid, opaque, opaque}));
    EXPECT_EQ(host.yieldCount, 3 + 4 * 4);
    Release(host, {result, picture});
  }
}

// At output k * f the source position k is whole: t = 0, weights (0, 0, 1, 0), so all four
// bytes are the source pixel's (v + 0.5 truncated). For f = 2 the positions between have
// t = 0.5 across: the byte (a + b) / 2 + 0.5 truncated.
TEST_F(ScaleTest, IntegerFactorKeepsTheSourcePixelsAtItsMultiples) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (int32_t factor : {2, 3, 4}) {
      SCOPED_TRACE("factor " + std::to_string(factor));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(5, 4, uint32_t(factor)));
      const RawPicture source = ReadRaw(*picture);
      HostPicture* result = Scaled(host, picture, {5 * factor, 4 * factor, true, 0});
      ASSERT_NE(result, nullptr);
      const RawPicture raw = ReadRaw(*result);
      EXPECT_TRUE(
          SamePixels(qpxtest::ReferenceEnlarge(source, 5 * factor, 4 * factor, raw.format), raw));
      for (int32_t y = 0; y < 4; ++y) {
        for (int32_t x = 0; x < 5; ++x) {
          const uint8_t* out = raw.Pixel(x * factor, y * factor);
          EXPECT_THAT(std::vector<int>(out, out + 4),
                      ::testing::ElementsAreArray(source.Pixel(x, y), 4))
              << x << ", " << y;
          if (factor != 2 || x == 4) continue;
          for (int b = 0; b < 4; ++b) {
            const int mix = int((source.Pixel(x, y)[b] + source.Pixel(x + 1, y)[b]) / 2.0 + 0.5);
            EXPECT_EQ(raw.Pixel(2 * x + 1, 2 * y)[b], mix) << x << ", " << y << " byte " << b;
          }
        }
      }
      Release(host, {result, picture});
    }
  });
}

// Box resizer: one yield a destination row and one at the end. Enlargement: three before its
// pixel loops, one a destination row for each of the four bytes, none at the end.
TEST_F(ScaleTest, YieldCountsOfBothResizers) {
  struct Case {
    int32_t width, height;
    ScaleCall call;
    int yields;
  };
  const std::vector<Case> cases = {
      {5, 7, {3, 2, false, kYieldEveryCall}, 2 + 1}, {1, 1, {4, 9, false, kYieldEveryCall}, 9 + 1},
      {6, 6, {2, 9, true, kYieldEveryCall}, 9 + 1},  {3, 2, {7, 5, true, kYieldEveryCall}, 3 + 20},
      {1, 1, {2, 2, true, kYieldEveryCall}, 3 + 8},  {8, 1, {40, 3, true, kYieldEveryCall}, 3 + 12},
      {20, 20, {1, 1, true, kYieldEveryCall}, 1 + 1}};
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::to_string(c.call.width) + "x" + std::to_string(c.call.height) +
                   (c.call.antiAlias ? " anti-aliased" : ""));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(c.width, c.height));
      const RawPicture source = ReadRaw(*picture);
      CheckScale(host, picture, c.call, ExpectedScale(&source, false, config, c.call).picture,
                 c.yields);
    }
  });
}

TEST_F(ScaleTest, YieldTicksZeroNeverYields) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (const ScaleCall& call :
         {ScaleCall{3, 2, false}, ScaleCall{17, 12, false}, ScaleCall{17, 12, true},
          ScaleCall{0, 4, true}, ScaleCall{32768, 4, true}}) {
      SCOPED_TRACE(std::to_string(call.width) + "x" + std::to_string(call.height));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(8, 9));
      if (HostObject* result = CallScale(host, picture, call)) host.Unlock(result);
      host.Unlock(picture);
    }
    EXPECT_EQ(CallScale(host, nullptr, {4, 4, true, 0}), nullptr);
    EXPECT_EQ(host.yieldCount, 0);
  });
}

// The call's yield state starts at 0, so the first check yields at once.
TEST_F(ScaleTest, TickAndMillisecondIntervalsYieldAtOnce) {
  Host& host = Boot(AppHost(AppKind::Console));
  HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(8, 9));
  for (int32_t yield : {1, -1, 2, -2}) {
    for (bool antiAlias : {false, true}) {
      SCOPED_TRACE(std::to_string(yield) + (antiAlias ? " anti-aliased" : ""));
      const int before = host.yieldCount;
      HostObject* result = CallScale(host, picture, {16, 18, antiAlias, yield});
      ASSERT_NE(result, nullptr);
      EXPECT_GE(host.yieldCount - before, 1);
      EXPECT_LE(host.yieldCount - before, antiAlias ? 3 + 4 * 18 : 18 + 1);
      host.Unlock(result);
    }
  }
  host.Unlock(picture);
}

// A new picture without alpha channel is at most 32767 a side; one with an alpha channel needs
// a host of 2011.04 or later and has no upper bound.
TEST_F(ScaleTest, WriterThatCannotBeCreatedGivesNil) {
  qpxtest::PictureRecipe withAlpha = NoiseRecipe(4, 4, 1);
  withAlpha.hasAlpha = true;
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    for (const ScaleCall& call :
         {ScaleCall{32768, 3, false, kYieldEveryCall}, ScaleCall{3, 32768, false, kYieldEveryCall},
          ScaleCall{32768, 1, true, kYieldEveryCall}}) {
      SCOPED_TRACE(std::to_string(call.width) + "x" + std::to_string(call.height));
      CheckScale(host, qpxtest::MakePicture(host, NoiseRecipe(4, 4)), call, ExpectedPicture::Nil(),
                 1);
    }
    for (const ScaleCall& call :
         {ScaleCall{32768, 3, false, kYieldEveryCall}, ScaleCall{40000, 5, true, 0}}) {
      SCOPED_TRACE(std::to_string(call.width) + "x" + std::to_string(call.height) + " alpha");
      CheckScaleAgainstReference(host, qpxtest::MakePicture(host, withAlpha), call);
    }
    // A host older than 2011.04 makes no picture with an alpha channel.
    HostConfig old = config;
    old.version = 2011.03;
    Host& oldHost = Reboot(old);
    for (const ScaleCall& call :
         {ScaleCall{2, 2, false, kYieldEveryCall}, ScaleCall{9, 9, true, kYieldEveryCall}}) {
      CheckScale(oldHost, qpxtest::MakePicture(oldHost, withAlpha), call, ExpectedPicture::Nil(),
                 1);
    }
  });
}

// The enlargement's writer fails before any yield; the box resizer it falls back to fails the
// same way and yields once at its end.
TEST_F(ScaleTest, EnlargementWhoseWriterFailsFallsBackAndStillGivesNil) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (auto [width, height] : {std::pair{32768, 8}, std::pair{5, 40000}}) {
      CheckScale(host, qpxtest::MakePicture(host, NoiseRecipe(4, 4)),
                 {width, height, true, kYieldEveryCall}, ExpectedPicture::Nil(), 1);
    }
  });
}

// Column k's source position k * srcW / dstW comes from a 32-bit running sum: from k = 46685
// on, k * 46000 passes 2^31 - 1 and wraps negative, so the index turns negative (its taps
// clamp to column 0) and t = (n mod dstW) / dstW is negative.
TEST_F(ScaleTest, EnlargementRunningSumsWrapAt32Bits) {
  for (const HostConfig& config : {DesktopHost(6), AppHost(AppKind::Console)}) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    qpxtest::PictureRecipe recipe;
    recipe.width = 46000;
    recipe.pattern = qpxtest::Pattern::HorizontalGradient;
    recipe.hasAlpha = true;
    CheckScaleAgainstReference(host, qpxtest::MakePicture(host, recipe), {50000, 2, true, 0});
  }
}

// The box resizer's final yield comes whether or not the reader opened; the enlargement whose
// reader fails yields nothing.
TEST_F(ScaleTest, UnopenableReceiverGivesNil) {
  PictureOptions depth16;
  depth16.depth = 16;
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (bool antiAlias : {false, true}) {
      CheckScale(host, qpxhost::NewHostPicture(host, 0, 0), {3, 3, antiAlias, kYieldEveryCall},
                 ExpectedPicture::Nil(), 1);
      CheckScale(host, qpxhost::NewHostPicture(host, 4, 4, depth16),
                 {8, 8, antiAlias, kYieldEveryCall}, ExpectedPicture::Nil(), 1);
    }
  });
}

// A desktop picture whose pixels do not lock is read through a 32-bit copy of it; with every
// byte set through the host, the copy holds the same bytes.
TEST_F(ScaleTest, ReceiverThatDoesNotLockIsReadThroughACopy) {
  for (const ScaleCall& call : {ScaleCall{5, 4}, ScaleCall{14, 13, true}}) {
    Host& host = Reboot(DesktopHost(6, 4));
    PictureOptions options;
    options.lockable = false;
    HostPicture* picture = qpxhost::NewHostPicture(host, 9, 6, options);
    std::mt19937 rng(11);
    for (int32_t y = 0; y < 6; ++y) {
      for (int32_t x = 0; x < 9; ++x) {
        picture->Set(x, y, {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), 255});
      }
    }
    CheckScaleAgainstReference(host, picture, call);
  }
}

}  // namespace
