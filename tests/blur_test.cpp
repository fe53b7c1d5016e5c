// BlurQPX through the emulated host: the module loaded fresh, pictures made in the host, every
// result byte compared with a plain reference blur.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "blur_reference.h"
#include "differential.h"
#include "host_fixture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxtest::ExpectedBlur;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();

HostObject* CallBlur(Host& host, HostObject* receiver, double radius, int32_t yield = 0) {
  return host.Call("BlurQPX", receiver, {radius, yield}).picture;
}

HostPicture* AsPicture(HostObject* object) {
  return dynamic_cast<HostPicture*>(object);
}

// A grey picture with the given values, row by row.
HostPicture* Grey(Host& host, int32_t width, int32_t height, const std::vector<int>& values) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const auto v = static_cast<uint8_t>(values[size_t(y) * width + x]);
      picture->Set(x, y, {v, v, v, 255});
    }
  }
  return picture;
}

// The red channel of every pixel, row by row (the channels of grey results agree).
std::vector<int> Reds(const HostPicture& picture) {
  std::vector<int> out;
  for (int32_t y = 0; y < picture.height; ++y) {
    for (int32_t x = 0; x < picture.width; ++x) {
      const RGBA c = picture.Get(x, y);
      EXPECT_TRUE(c.r == c.g && c.g == c.b) << "(" << x << ", " << y << ")";
      out.push_back(c.r);
    }
  }
  return out;
}

// Every pixel is opaque: alpha 255 in layouts 1 to 6, a fourth byte 0 in layout 8.
void ExpectOpaque(HostPicture& picture) {
  const RawPicture raw = ReadRaw(picture);
  const int alphaByte = (raw.format == 2 || raw.format == 4 || raw.format == 6) ? 0 : 3;
  const uint8_t opaque = raw.format == 8 ? 0 : 255;
  for (int32_t y = 0; y < raw.height; ++y) {
    for (int32_t x = 0; x < raw.width; ++x) {
      ASSERT_EQ(raw.Pixel(x, y)[alphaByte], opaque) << "(" << x << ", " << y << ")";
    }
  }
}

// --- Differential run over random pictures, radii and hosts ---------------------------------

// Radii below 1 or without a 32-bit whole part (the receiver comes back), whole radii from 1
// up, and whole parts whose division table fails the size test.
const std::vector<double> kReceiverRadii = {0,         0.99,       -5,           -0.5,         kNaN,
                                            kInfinity, -kInfinity, 2147483648.0, -2147483649.0};
const std::vector<double> kWholeRadii = {1, 1.99, 2, 2.5, 3, 4.75, 6, 9, 15, 40};
const std::vector<double> kHugeRadii = {1e9, 1048575.0, 2097152.0, 2147483647.0};
// The largest radius whose division table, (2r + 2) * 1024 bytes, stays within 2^31 - 1.
constexpr int32_t kLargestTableRadius = 1048574;

// Keeps the reference's work (it sums every window afresh) within bounds.
bool Affordable(const qpxtest::PictureRecipe& recipe, double radius) {
  const int32_t r = qpxtest::ReferenceWholeRadius(radius);
  if (r < 1 || r > kLargestTableRadius) return true;
  return double(recipe.width) * recipe.height * (2.0 * r + 1) <= 2.5e6;
}

class BlurDifferential : public qpxtest::HostVariantTest {};

TEST_P(BlurDifferential, MatchesTheReferenceByteForByte) {
  Host& host = BootVariant();
  const uint32_t seed = qpxtest::SeedOf(GetParam().name);
  std::mt19937 rng(seed);
  const std::vector<qpxtest::PictureRecipe> recipes =
      qpxtest::RandomPictureRecipes(seed, 24, 300, /*alpha=*/true);
  std::vector<double> others = kReceiverRadii;
  others.insert(others.end(), kHugeRadii.begin(), kHugeRadii.end());
  size_t nextOther = 0, caseNumber = 0;
  for (const qpxtest::PictureRecipe& recipe : recipes) {
    // Two whole radii, one without a blur, and one wider than the picture (fraction and all).
    std::vector<double> radii;
    for (int i = 0; i < 2; ++i) radii.push_back(kWholeRadii[rng() % kWholeRadii.size()]);
    radii.push_back(others[nextOther++ % others.size()]);
    radii.push_back(std::max(recipe.width, recipe.height) + 0.25 + double(rng() % 4));
    for (double radius : radii) {
      if (!Affordable(recipe, radius)) radius = 1 + double(rng() % 3);
      const int32_t yield = caseNumber++ % 3 == 0 ? kYieldEveryCall : 0;
      std::ostringstream trace;
      trace.precision(17);
      trace << "seed " << seed << ", case " << caseNumber << ": " << recipe.Describe()
            << ", radius " << radius << ", yield " << yield;
      SCOPED_TRACE(trace.str());

      HostPicture* source = qpxtest::MakePicture(host, recipe);
      const ExpectedPicture expected = ExpectedBlur(ReadRaw(*source), NewFormat(), radius);
      int expectedYields = 0;
      if (yield != 0 && expected.kind == ExpectedPicture::Kind::NewPicture) {
        const int32_t r = qpxtest::ReferenceWholeRadius(radius);
        expectedYields = r <= kLargestTableRadius ? 2 * recipe.height + 2 : 1;
      }
      const int yieldsBefore = host.yieldCount;
      CheckPictureCall(host, source, "BlurQPX", {radius, yield}, expected);
      EXPECT_EQ(host.yieldCount - yieldsBefore, expectedYields);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryHost, BlurDifferential,
                         ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

// --- Named cases ------------------------------------------------------------------------------

class BlurTest : public qpxtest::MultiHostTest {};

TEST_F(BlurTest, RadiusBelowOneReturnsTheReceiverItself) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(4, 3));
    const RawPicture before = ReadRaw(*picture);
    for (double radius : {0.99, 0.0, -5.0, -0.0, 0.5}) {
      SCOPED_TRACE(radius);
      EXPECT_EQ(CallBlur(host, picture, radius, kYieldEveryCall), picture);
      EXPECT_EQ(host.RefCount(picture), 2);
      host.Unlock(picture);
    }
    // Nothing else happened: no other object, no lock, no yield.
    EXPECT_EQ(host.LiveObjectCount(), 1u);
    EXPECT_EQ(picture->lockCount, 0);
    EXPECT_EQ(picture->clearCacheCount, 0);
    EXPECT_EQ(host.yieldCount, 0);
    EXPECT_TRUE(SamePixels(before, ReadRaw(*picture)));
    host.Unlock(picture);
  });
}

TEST_F(BlurTest, RadiiWithoutA32BitWholePartReturnTheReceiver) {
  Host& host = Boot(AppHost(AppKind::Console));
  for (double radius : {kNaN, kInfinity, -kInfinity, 2147483648.0, 1e300, -2147483649.0}) {
    SCOPED_TRACE(radius);
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 2));
    CheckPictureCall(host, picture, "BlurQPX", {radius, kYieldEveryCall},
                     ExpectedPicture::Receiver());
  }
  EXPECT_EQ(host.yieldCount, 0);
}

TEST_F(BlurTest, RadiusBelowOneWithoutTheLockServiceAddsNoReference) {
  HostConfig config = AppHost(AppKind::Console);
  config.unavailable = {"REALLockObject"};
  Host& host = Boot(config);
  HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(2, 2));
  EXPECT_EQ(CallBlur(host, picture, 0.5), picture);
  EXPECT_EQ(host.RefCount(picture), 1);
  host.Unlock(picture);
}

TEST_F(BlurTest, RadiusOneAndOnePointNineNineAreBothAThreeByThreeBox) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(9, 7, 7));
    const RawPicture source = ReadRaw(*picture);
    const int32_t format = qpxtest::NewPictureFormat(config);
    auto* one = AsPicture(CallBlur(host, picture, 1.0));
    auto* almostTwo = AsPicture(CallBlur(host, picture, 1.99));
    auto* two = AsPicture(CallBlur(host, picture, 2.0));
    ASSERT_TRUE(one && almostTwo && two);
    EXPECT_TRUE(SamePixels(qpxtest::ReferenceBlur(source, format, 1), ReadRaw(*one)));
    EXPECT_TRUE(SamePixels(ReadRaw(*one), ReadRaw(*almostTwo)));
    EXPECT_FALSE(SamePixels(ReadRaw(*one), ReadRaw(*two)));
    for (HostObject* object : {static_cast<HostObject*>(one), static_cast<HostObject*>(almostTwo),
                               static_cast<HostObject*>(two), static_cast<HostObject*>(picture)}) {
      host.Unlock(object);
    }
  });
}

TEST_F(BlurTest, UniformPictureKeepsItsColourAndBecomesOpaque) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* picture = qpxhost::NewHostPicture(host, 11, 6);
    for (int32_t y = 0; y < 6; ++y) {
      for (int32_t x = 0; x < 11; ++x) picture->Set(x, y, {200, 17, 99, 255});
    }
    // The unused byte of every source pixel is set too: it must not leak into the result.
    for (int32_t y = 0; y < 6; ++y) {
      for (int32_t x = 0; x < 11; ++x) {
        const int alphaByte = (picture->layout % 2 == 0 && picture->layout != 8) ? 0 : 3;
        picture->Row(y)[4 * x + alphaByte] = 77;
      }
    }
    for (double radius : {1.0, 3.0, 20.0}) {
      SCOPED_TRACE(radius);
      auto* result = AsPicture(CallBlur(host, picture, radius));
      ASSERT_NE(result, nullptr);
      EXPECT_FALSE(result->hasAlpha);
      for (int32_t y = 0; y < 6; ++y) {
        for (int32_t x = 0; x < 11; ++x) {
          ASSERT_EQ(result->Get(x, y), (RGBA{200, 17, 99, 255})) << x << ", " << y;
        }
      }
      ExpectOpaque(*result);
      host.Unlock(result);
    }
    host.Unlock(picture);
  });
}

TEST_F(BlurTest, PictureWithAlphaChannelGivesAnOpaquePictureWithout) {
  for (HostConfig config : {DesktopHost(5), DesktopHost(2), AppHost(AppKind::Console)}) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    PictureOptions options;
    options.hasAlpha = true;
    HostPicture* picture = qpxhost::NewHostPicture(host, 5, 4, options);
    for (int32_t y = 0; y < 4; ++y) {
      for (int32_t x = 0; x < 5; ++x) picture->Set(x, y, {40, 80, 120, 128});
    }
    auto* result = AsPicture(CallBlur(host, picture, 2.0));
    ASSERT_NE(result, nullptr);
    EXPECT_FALSE(result->hasAlpha);
    ExpectOpaque(*result);
    // Premultiplied colour bytes are averaged as they are stored; the layouts agree here.
    const qpxtest::Channels stored = qpxtest::ReadChannels(picture->Row(0), picture->layout);
    const qpxtest::Channels blurred = qpxtest::ReadChannels(result->Row(3), result->layout);
    EXPECT_EQ(blurred.red, stored.red);
    EXPECT_EQ(blurred.green, stored.green);
    EXPECT_EQ(blurred.blue, stored.blue);
    host.Unlock(result);
    host.Unlock(picture);
  }
}

// The horizontal pass reads its copy of each destination row in the source's layout. When the
// source's layout differs from the new picture's (an alpha picture in ARGB order, new pictures
// in RGBA order), the channels come out shifted by one byte.
TEST_F(BlurTest, LineCopyIsReadInTheSourcesLayout) {
  Host& host = Boot(DesktopHost(5));
  PictureOptions options;
  options.hasAlpha = true;
  options.layout = 2;
  HostPicture* picture = qpxhost::NewHostPicture(host, 4, 3, options);
  for (int32_t y = 0; y < 3; ++y) {
    for (int32_t x = 0; x < 4; ++x) {
      uint8_t* p = picture->Row(y) + 4 * x;
      p[0] = 200, p[1] = 10, p[2] = 20, p[3] = 30;  // A, R, G, B
    }
  }
  auto* result = AsPicture(CallBlur(host, picture, 1.0));
  ASSERT_NE(result, nullptr);
  ASSERT_EQ(result->layout, 5);
  // Vertical pass: R, G, B = 10, 20, 30 stored as 10 20 30 255; read back as ARGB: 20, 30, 255.
  for (int32_t y = 0; y < 3; ++y) {
    for (int32_t x = 0; x < 4; ++x) {
      const uint8_t* p = result->Row(y) + 4 * x;
      EXPECT_THAT(std::vector<int>(p, p + 4), ::testing::ElementsAre(20, 30, 255, 255));
    }
  }
  host.Unlock(result);
  host.Unlock(picture);
}

TEST_F(BlurTest, OnePixelWidePictureKeepsItsVerticalBlur) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* column = Grey(host, 1, 7, {0, 30, 60, 90, 120, 150, 180});
    auto* small = AsPicture(CallBlur(host, column, 1.0));
    auto* wide = AsPicture(CallBlur(host, column, 10.0));  // wider than the picture is tall
    ASSERT_TRUE(small && wide);
    EXPECT_THAT(Reds(*small), ::testing::ElementsAre(10, 30, 60, 90, 120, 150, 170));
    EXPECT_THAT(Reds(*wide), ::testing::ElementsAre(64, 72, 81, 90, 98, 107, 115));
    host.Unlock(small);
    host.Unlock(wide);
    host.Unlock(column);
  });
}

TEST_F(BlurTest, OnePixelHighPictureBlursAlongItsRow) {
  Host& host = Boot(AppHost(AppKind::Console));
  HostPicture* row = Grey(host, 7, 1, {0, 30, 60, 90, 120, 150, 180});
  auto* result = AsPicture(CallBlur(host, row, 1.0));
  ASSERT_NE(result, nullptr);
  EXPECT_THAT(Reds(*result), ::testing::ElementsAre(10, 30, 60, 90, 120, 150, 170));
  host.Unlock(result);
  host.Unlock(row);
}

// 255 / 3 = 85 after the vertical pass, 85 / 3 = 28 after the horizontal one. With the edges
// repeated, every window of the 3 x 3 picture holds the centre exactly once.
TEST_F(BlurTest, SingleBrightPixelInBlackThreeByThree) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* centre = Grey(host, 3, 3, {0, 0, 0, 0, 255, 0, 0, 0, 0});
    auto* result = AsPicture(CallBlur(host, centre, 1.0));
    ASSERT_NE(result, nullptr);
    EXPECT_THAT(Reds(*result), ::testing::Each(28));
    host.Unlock(result);

    // In a corner the repeated edge counts it up to four times: vertical sums 510, 255, 0 in
    // the left column (170, 85, 0), then 340 / 3, 170 / 3, 85 / 3 across.
    HostPicture* corner = Grey(host, 3, 3, {255, 0, 0, 0, 0, 0, 0, 0, 0});
    result = AsPicture(CallBlur(host, corner, 1.0));
    ASSERT_NE(result, nullptr);
    EXPECT_THAT(Reds(*result), ::testing::ElementsAre(113, 56, 0, 56, 28, 0, 0, 0, 0));
    host.Unlock(result);
    host.Unlock(centre);
    host.Unlock(corner);
  });
}

TEST_F(BlurTest, SingleBrightPixelSpreadsOverItsBox) {
  Host& host = Boot(DesktopHost(3));
  std::vector<int> values(25, 0);
  values[12] = 255;
  HostPicture* picture = Grey(host, 5, 5, values);
  auto* result = AsPicture(CallBlur(host, picture, 1.0));
  ASSERT_NE(result, nullptr);
  EXPECT_THAT(Reds(*result), ::testing::ElementsAre(0, 0, 0, 0, 0,     //
                                                    0, 28, 28, 28, 0,  //
                                                    0, 28, 28, 28, 0,  //
                                                    0, 28, 28, 28, 0,  //
                                                    0, 0, 0, 0, 0));
  host.Unlock(result);
  host.Unlock(picture);
}

TEST_F(BlurTest, ChannelsStayApart) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* picture = qpxhost::NewHostPicture(host, 3, 3);
    picture->Set(1, 1, {255, 90, 0, 255});
    auto* result = AsPicture(CallBlur(host, picture, 1.0));
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->Get(0, 0), (RGBA{28, 10, 0, 255}));
    EXPECT_EQ(result->Get(2, 1), (RGBA{28, 10, 0, 255}));
    host.Unlock(result);
    host.Unlock(picture);
  });
}

TEST_F(BlurTest, NilReceiverGivesNil) {
  Host& host = Boot(AppHost(AppKind::Console));
  for (double radius : {1.0, 1.5, 5.0, 1e9, 0.99, 0.0, -3.0, kNaN}) {
    SCOPED_TRACE(radius);
    EXPECT_EQ(CallBlur(host, nullptr, radius, kYieldEveryCall), nullptr);
  }
  EXPECT_EQ(host.yieldCount, 0);
  EXPECT_EQ(host.LiveObjectCount(), 0u);
}

TEST_F(BlurTest, ReceiverWiderOrTallerThan32767GivesNil) {
  for (const HostConfig& config : {DesktopHost(5), AppHost(AppKind::Console)}) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    for (auto [width, height] : {std::pair{32768, 1}, std::pair{1, 32768}}) {
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
      HostPicture* picture = qpxhost::NewHostPicture(host, width, height);
      CheckPictureCall(host, picture, "BlurQPX", {1.0, kYieldEveryCall}, ExpectedPicture::Nil());
    }
    EXPECT_EQ(host.yieldCount, 0);
  }
}

TEST_F(BlurTest, Receiver32767WideIsBlurred) {
  Host& host = Boot(AppHost(AppKind::Console));
  HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(32767, 1, 3));
  const ExpectedPicture expected = ExpectedBlur(ReadRaw(*picture), 8, 2.0);
  CheckPictureCall(host, picture, "BlurQPX", {2.0, int32_t{0}}, expected);
}

// The division table needs (2r + 2) * 1024 bytes; from r = 1048575 on that passes 2^31 - 1,
// and the caller gets the new picture as the host made it (zeroed in this host). For
// r = 2097152 the size would wrap to 2048 bytes in 32 bits.
TEST_F(BlurTest, RadiusTooLargeForTheTableGivesTheNewPictureUnblurred) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    for (double radius : {1e9, 1048575.0, 2097152.0, 2147483647.0}) {
      SCOPED_TRACE(radius);
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(6, 5));
      const int yieldsBefore = host.yieldCount;
      CheckPictureCall(host, picture, "BlurQPX", {radius, kYieldEveryCall},
                       ExpectedPicture::New(RawPicture(6, 5, qpxtest::NewPictureFormat(config))));
      // Only the yield at the end remains.
      EXPECT_EQ(host.yieldCount - yieldsBefore, 1);
    }
  });
}

TEST_F(BlurTest, YieldsOnceBeforeOncePerRowOfEachPassAndOnceAtTheEnd) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (auto [width, height] : {std::pair{5, 7}, std::pair{1, 1}, std::pair{40, 3}}) {
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(width, height));
      const int before = host.yieldCount;
      HostObject* result = CallBlur(host, picture, 2.0, kYieldEveryCall);
      ASSERT_NE(result, nullptr);
      EXPECT_EQ(host.yieldCount - before, 1 + height + height + 1);
      host.Unlock(result);
      host.Unlock(picture);
    }
  });
}

TEST_F(BlurTest, YieldZeroNeverYields) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(8, 9));
    HostObject* result = CallBlur(host, picture, 3.0, 0);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(host.yieldCount, 0);
    host.Unlock(result);
    host.Unlock(picture);
  });
}

// The call's own yield state starts at 0, so a first yield comes at once.
TEST_F(BlurTest, TickAndMillisecondIntervalsYieldAtOnce) {
  Host& host = Boot(AppHost(AppKind::Console));
  HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(8, 9));
  for (int32_t yield : {1, -1, 2, -2}) {
    SCOPED_TRACE(yield);
    const int before = host.yieldCount;
    HostObject* result = CallBlur(host, picture, 3.0, yield);
    ASSERT_NE(result, nullptr);
    EXPECT_GE(host.yieldCount - before, 1);
    EXPECT_LE(host.yieldCount - before, 2 * 9 + 2);
    host.Unlock(result);
  }
  host.Unlock(picture);
}

// The host may run another blur while this one yields; each keeps its own yield state and
// buffers.
TEST_F(BlurTest, BlurRunDuringAYieldLeavesTheOuterOneIntact) {
  Host& host = Boot(AppHost(AppKind::Web));
  HostPicture* outer = qpxtest::MakePicture(host, NoiseRecipe(12, 10, 1));
  HostPicture* inner = qpxtest::MakePicture(host, NoiseRecipe(7, 5, 2));
  const RawPicture outerPixels = ReadRaw(*outer), innerPixels = ReadRaw(*inner);
  HostObject* innerResult = nullptr;
  int yields = 0;
  host.onYield = [&] {
    if (++yields == 4) innerResult = CallBlur(host, inner, 2.0, kYieldEveryCall);
  };
  auto* result = AsPicture(CallBlur(host, outer, 3.0, kYieldEveryCall));
  host.onYield = nullptr;
  ASSERT_NE(result, nullptr);
  ASSERT_NE(innerResult, nullptr);
  EXPECT_EQ(host.yieldCount, (1 + 10 + 10 + 1) + (1 + 5 + 5 + 1));
  EXPECT_TRUE(SamePixels(qpxtest::ReferenceBlur(outerPixels, 8, 3), ReadRaw(*result)));
  EXPECT_TRUE(
      SamePixels(qpxtest::ReferenceBlur(innerPixels, 8, 2), ReadRaw(*AsPicture(innerResult))));
  for (HostObject* object : {static_cast<HostObject*>(result), innerResult,
                             static_cast<HostObject*>(outer), static_cast<HostObject*>(inner)}) {
    host.Unlock(object);
  }
}

TEST_F(BlurTest, UnopenableReceiverGivesNil) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    CheckPictureCall(host, qpxhost::NewHostPicture(host, 0, 0), "BlurQPX", {2.0, kYieldEveryCall},
                     ExpectedPicture::Nil());
    PictureOptions depth16;
    depth16.depth = 16;
    CheckPictureCall(host, qpxhost::NewHostPicture(host, 4, 4, depth16), "BlurQPX",
                     {2.0, kYieldEveryCall}, ExpectedPicture::Nil());
    EXPECT_EQ(host.yieldCount, 0);
  });
}

// A desktop picture whose pixels do not lock is read through a 32-bit copy.
TEST_F(BlurTest, ReceiverThatDoesNotLockIsReadThroughACopy) {
  Host& host = Boot(DesktopHost(6, 4));
  PictureOptions options;
  options.lockable = false;
  HostPicture* picture = qpxhost::NewHostPicture(host, 9, 6, options);
  std::mt19937 rng(11);
  for (int32_t y = 0; y < 6; ++y) {
    for (int32_t x = 0; x < 9; ++x) {
      picture->Set(x, y, {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), 255});
    }
  }
  const ExpectedPicture expected = ExpectedBlur(ReadRaw(*picture), 6, 2.0);
  CheckPictureCall(host, picture, "BlurQPX", {2.0, int32_t{0}}, expected);
}

TEST_F(BlurTest, NewPictureUnavailableGivesNil) {
  for (HostConfig config : qpxtest::EveryKindOfHost()) {
    SCOPED_TRACE(HostName(config));
    config.unavailable = {"newPicture"};
    Host& host = Reboot(config);
    CheckPictureCall(host, qpxtest::MakePicture(host, NoiseRecipe(5, 5)), "BlurQPX",
                     {2.0, kYieldEveryCall}, ExpectedPicture::Nil());
    EXPECT_EQ(host.yieldCount, 0);
    EXPECT_GE(host.LookupCount("newPicture"), 1);
  }
}

}  // namespace
