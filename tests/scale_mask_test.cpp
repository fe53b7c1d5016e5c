// ScaleImageAndMaskQPX through the emulated host: the module loaded fresh, pictures, masks and
// alpha channels made in the host, every byte of the result and of its mask compared with the
// plain reference of scale_mask_reference.h or with values worked out by hand, references and
// yields counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "differential.h"
#include "host_fixture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"
#include "scale_mask_reference.h"
#include "scale_reference.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxtest::Channels;
using qpxtest::ExpectedResult;
using qpxtest::ScaleCall;

constexpr const char* kMethod = "ScaleImageAndMaskQPX";

std::vector<qpxhost::Value> MethodArguments(const ScaleCall& call) {
  return {call.width, call.height, call.antiAlias, call.yieldTicks};
}

// One call on `receiver` (its reference taken over) checked by CheckPictureCall, and the number
// of yields it made.
void CheckScaleMask(Host& host, HostPicture* receiver, const ScaleCall& call,
                    const ExpectedPicture& expected, int yields) {
  qpxtest::CheckPictureCallAndYields(host, receiver, kMethod, MethodArguments(call), expected,
                                     yields);
}

// The same against what the reference makes of the receiver, its mask and alpha channel.
void CheckAgainstReference(Host& host, HostPicture* receiver, const ScaleCall& call) {
  const qpxtest::MaskedSource source = qpxtest::ReadMaskedSource(*receiver, host.config());
  const ExpectedResult expected = qpxtest::ExpectedScaleImageAndMask(&source, host.config(), call);
  CheckScaleMask(host, receiver, call, expected.picture, expected.yields);
}

std::string Describe(const ScaleCall& call) {
  std::ostringstream out;
  out << call.width << "x" << call.height << (call.antiAlias ? " anti-aliased" : "") << ", yield "
      << call.yieldTicks;
  return out.str();
}

PictureOptions WithAlpha() {
  PictureOptions options;
  options.hasAlpha = true;
  return options;
}

std::vector<Channels> Grey(const std::vector<int>& values) {
  std::vector<Channels> colours;
  for (int v : values) colours.push_back({v, v, v});
  return colours;
}

// Pixels of these colours (row by row) stored opaque in layout `format`.
RawPicture Opaque(int32_t width, int32_t height, const std::vector<Channels>& colours,
                  int32_t format) {
  RawPicture raw(width, height, format);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      qpxtest::WriteOpaque(raw.Pixel(x, y), format, colours[size_t(y) * width + x]);
    }
  }
  return raw;
}

RawPicture Greys(int32_t width, int32_t height, const std::vector<int>& values, int32_t format) {
  return Opaque(width, height, Grey(values), format);
}

// A picture without alpha channel of these grey values, stored as the host stores them.
HostPicture* GreyPicture(Host& host, int32_t width, int32_t height,
                         const std::vector<int>& values) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height);
  qpxtest::WriteRaw(*picture, Greys(width, height, values, picture->layout));
  return picture;
}

// Gives `picture` a grey mask of these values (0 opaque, 255 transparent); the picture takes
// the mask's one reference.
void GiveGreyMask(Host& host, HostPicture* picture, int32_t width, int32_t height,
                  const std::vector<int>& values) {
  picture->mask = GreyPicture(host, width, height, values);
}

// A picture with an alpha channel of these colours and alphas, set through the host (which
// premultiplies in desktop layouts 1 and 2).
HostPicture* AlphaPicture(Host& host, int32_t width, int32_t height,
                          const std::vector<RGBA>& pixels) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height, WithAlpha());
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) picture->Set(x, y, pixels[size_t(y) * width + x]);
  }
  return picture;
}

bool IsDesktop(const HostConfig& config) {
  return config.app == AppKind::Desktop;
}

// --- Differential run over random pictures, masks, targets and hosts ---------------------------

// How each side of a target relates to the receiver's: '=' kept, '<' smaller (at least 1), '>'
// larger, '2' twice as long, '0' zero, '-' negative.
constexpr std::array<const char*, 11> kTargets = {"==", "<<", ">>", "22", "><", "<>",
                                                  "=>", "<=", "2<", "0>", "-="};

int32_t TargetSide(char how, int32_t side, std::mt19937& rng) {
  auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, std::max(lo, hi))(rng);
  };
  switch (how) {
    case '<':
      return pick(1, side - 1);
    case '>':
      return side + pick(1, side + 7);
    case '2':
      return 2 * side;
    case '0':
      return 0;
    case '-':
      return -pick(1, 9);
    default:
      return side;
  }
}

// A random mask for `picture`: none, one of its size, or one of another size (now and then
// 0 x 0); every byte drawn from a pattern (values 0 and 255 among them), in a desktop host
// sometimes in a layout of its own.
void GiveRandomMask(Host& host, HostPicture* picture, std::mt19937& rng) {
  const uint32_t kind = rng() % 6;
  if (kind < 2) return;
  if (kind == 5 && rng() % 4 == 0) {
    picture->mask = qpxhost::NewHostPicture(host, 0, 0);
    return;
  }
  qpxtest::PictureRecipe recipe;
  recipe.width = picture->width, recipe.height = picture->height;
  if (kind >= 4) {
    recipe.width = 1 + int32_t(rng() % uint32_t(2 * picture->width + 2));
    recipe.height = 1 + int32_t(rng() % uint32_t(2 * picture->height + 2));
  }
  recipe.pattern = static_cast<qpxtest::Pattern>(rng() % qpxtest::kPatternCount);
  recipe.seed = static_cast<uint32_t>(rng());
  if (IsDesktop(host.config()) && rng() % 3 == 0) recipe.layout = 1 + int32_t(rng() % 6);
  picture->mask = qpxtest::MakePicture(host, recipe);
}

class ScaleMaskDifferential : public qpxtest::HostVariantTest {};

TEST_P(ScaleMaskDifferential, ImageAndMaskMatchTheReferenceByteForByte) {
  Host& host = BootVariant();
  const uint32_t seed = qpxtest::SeedOf("ScaleImageAndMaskQPX " + GetParam().name);
  std::mt19937 rng(seed);
  std::vector<qpxtest::PictureRecipe> recipes =
      qpxtest::RandomPictureRecipes(seed, 14, 48, /*alpha=*/true);
  qpxtest::MixDesktopLayouts(recipes, GetParam().config, rng);
  int caseNumber = 0;
  for (const qpxtest::PictureRecipe& recipe : recipes) {
    for (const char* target : kTargets) {
      ScaleCall call;
      call.width = TargetSide(target[0], recipe.width, rng);
      call.height = TargetSide(target[1], recipe.height, rng);
      const bool growsBothWays = call.width > recipe.width && call.height > recipe.height;
      call.antiAlias = growsBothWays ? caseNumber % 4 != 0 : rng() % 2 == 0;
      call.yieldTicks = caseNumber++ % 3 == 0 ? kYieldEveryCall : 0;
      HostPicture* picture = qpxtest::MakePicture(host, recipe);
      GiveRandomMask(host, picture, rng);
      // Now and then pixels that do not lock, which are read through a copy the host draws.
      if (caseNumber % 7 == 3) picture->lockable = false;
      if (picture->mask != nullptr && caseNumber % 5 == 2) picture->mask->lockable = false;
      std::ostringstream trace;
      trace << "seed " << seed << ", case " << caseNumber << ": " << recipe.Describe()
            << (picture->lockable ? "" : ", does not lock");
      if (const HostPicture* mask = picture->mask) {
        trace << ", mask " << mask->width << "x" << mask->height << " layout " << mask->layout
              << (mask->lockable ? "" : ", does not lock");
      }
      trace << " to " << Describe(call);
      SCOPED_TRACE(trace.str());

      CheckAgainstReference(host, picture, call);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(ScaleMaskInEveryHost, ScaleMaskDifferential,
                         ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

// --- Named cases ------------------------------------------------------------------------------

class ScaleMaskTest : public qpxtest::MultiHostTest {};

// A 2 x 2 picture of greys 0, 100 / 200, 40 and its enlargement to 4 x 4 at output positions 0,
// 0.5, 1 and 1.5 of each source direction: at t = 0 the weights are (0, 0, 1, 0), the source
// byte itself; at t = 0.5 they are w1 = w2 = 0.5, half of each neighbour, 0.5 added before
// truncating (0 and 100 give 50.5, so 50); the last position mixes the last pixel with its
// clamped copy. Between the rows the columns are 100 and 70, between those 85.5.
const std::vector<int> kImage = {0, 100, 200, 40};
const std::vector<int> kImageEnlarged = {0,   50,  100, 100,  //
                                         100, 85,  70,  70,   //
                                         200, 120, 40,  40,   //
                                         200, 120, 40,  40};
// The same for a mask of 0, 255 / 100, 40: 127.5 + 0.5 gives 128; between the rows the columns
// are 50 and 147.5, so 50, 25 + 73.75 + 0.5 = 99.25 and 148.
const std::vector<int> kMask = {0, 255, 100, 40};
const std::vector<int> kMaskEnlarged = {0,   128, 255, 255,  //
                                        50,  99,  148, 148,  //
                                        100, 70,  40,  40,   //
                                        100, 70,  40,  40};
// Enlarging one 2 x 2 picture to 4 x 4 yields three times before the rows and once a row for
// each of the four bytes; a masked picture's call does that for the image and again for the mask.
constexpr int kEnlargeYields = 3 + 4 * 4;

TEST_F(ScaleMaskTest, SameSizeReturnsTheReceiverWithItsMaskUntouched) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (bool antiAlias : {false, true}) {
      for (const PictureOptions& options : {PictureOptions{}, WithAlpha()}) {
        // Without a mask none is made; a mask of the picture's size or another is left alone.
        for (int32_t maskWidth : {0, 5, 2}) {
          SCOPED_TRACE("mask width " + std::to_string(maskWidth));
          HostPicture* picture = qpxhost::NewHostPicture(host, 5, 3, options);
          if (maskWidth != 0)
            GiveGreyMask(host, picture, maskWidth, 3, std::vector<int>(size_t(maskWidth) * 3, 7));
          CheckScaleMask(host, picture, {5, 3, antiAlias, kYieldEveryCall},
                         ExpectedPicture::Receiver(), 0);
        }
      }
      CheckScaleMask(host, qpxhost::NewHostPicture(host, 0, 0), {0, 0, antiAlias, kYieldEveryCall},
                     ExpectedPicture::Receiver(), 0);
    }
  });
}

// ScaleQPX's own result and yields on the same picture, whichever resizer runs and also when
// there is no result; ScaleImageAndMaskQPX then makes no mask.
TEST_F(ScaleMaskTest, WithoutMaskOrAlphaChannelGivesWhatScaleQPXGives) {
  struct Case {
    ScaleCall call;
    bool made;
  };
  const std::vector<Case> cases = {{{3, 2, false, kYieldEveryCall}, true},
                                   {{13, 9, true, kYieldEveryCall}, true},
                                   {{13, 9, false, 0}, true},
                                   {{14, 3, true, kYieldEveryCall}, true},
                                   {{1, 11, true, 0}, true},
                                   {{0, 4, false, kYieldEveryCall}, false},
                                   {{-3, 9, true, kYieldEveryCall}, false},
                                   {{32768, 9, true, kYieldEveryCall}, false}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const Case& c : cases) {
      SCOPED_TRACE(Describe(c.call));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(7, 5, 3));
      const int before = host.yieldCount;
      HostObject* scaled = host.Call("ScaleQPX", picture, MethodArguments(c.call)).picture;
      const int yields = host.yieldCount - before;
      ExpectedPicture expected;
      if (auto* result = dynamic_cast<HostPicture*>(scaled)) {
        expected = ExpectedPicture::New(ReadRaw(*result)).WithoutMask();
      }
      EXPECT_EQ(scaled != nullptr, c.made);
      if (scaled != nullptr) host.Unlock(scaled);
      CheckScaleMask(host, picture, c.call, expected, yields);
    }
  });
}

// The 2 x 2 picture of kImage with a grey mask of `maskWidth` x `maskHeight` of these values.
HostPicture* MaskedImage(Host& host, int32_t maskWidth, int32_t maskHeight,
                         const std::vector<int>& mask) {
  HostPicture* picture = GreyPicture(host, 2, 2, kImage);
  GiveGreyMask(host, picture, maskWidth, maskHeight, mask);
  return picture;
}

// A new picture of these greys whose mask holds those greys, both in the new-picture layout.
ExpectedPicture GreysWithMask(const HostConfig& config, int32_t width, int32_t height,
                              const std::vector<int>& image, const std::vector<int>& mask) {
  const int32_t format = qpxtest::NewPictureFormat(config);
  return ExpectedPicture::New(Greys(width, height, image, format))
      .WithMask(Greys(width, height, mask, format));
}

TEST_F(ScaleMaskTest, MaskedPictureEnlargedBothWaysWithAntiAliasIsSmoothInImageAndMask) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    CheckScaleMask(host, MaskedImage(host, 2, 2, kMask), {4, 4, true, kYieldEveryCall},
                   GreysWithMask(config, 4, 4, kImageEnlarged, kMaskEnlarged), 2 * kEnlargeYields);
  });
}

// Growing one way only, or keeping one side, takes the box resizer for both, which repeats
// pixels (boxes of 1, sx = trunc(i * 2 / 4), sy = trunc(j * 2 / 5) = 0, 0, 0, 1, 1) and yields
// once a row and once at its end, for each.
TEST_F(ScaleMaskTest, MaskedPictureEnlargedOneWayWithAntiAliasUsesTheBoxResizerForBoth) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    CheckScaleMask(host, MaskedImage(host, 2, 2, kMask), {4, 2, true, kYieldEveryCall},
                   GreysWithMask(config, 4, 2, {0, 0, 100, 100, 200, 200, 40, 40},
                                 {0, 0, 255, 255, 100, 100, 40, 40}),
                   2 * (2 + 1));
    CheckScaleMask(host, MaskedImage(host, 2, 2, kMask), {2, 5, true, kYieldEveryCall},
                   GreysWithMask(config, 2, 5, {0, 100, 0, 100, 0, 100, 200, 40, 200, 40},
                                 {0, 255, 0, 255, 0, 255, 100, 40, 100, 40}),
                   2 * (5 + 1));
  });
}

// The mask is resized whole, from its own size to the target. Box resizer: a 4 x 1 mask to
// 4 x 4 has xScale 1 and sy = 0 for every row. Enlargement, across (a 1-row mask gives every
// row alike): a 3 x 1 mask sits at positions 0, 0.75, 1.5, 2.25: 0; 100 * 0.84375 + 0.5 =
// 84.875; 150.5; 200 * (0.84375 + 0.15625) + 0.5. A 6 x 1 mask, wider than the target, at 0,
// 1.5, 3, 4.5: 0; (10 + 30) / 2 + 0.5; 90; (200 + 255) / 2 + 0.5.
TEST_F(ScaleMaskTest, MaskOfAnotherSizeIsResizedWholeToTheTarget) {
  struct Case {
    std::vector<int> mask;
    bool antiAlias;
    std::vector<int> row;
  };
  const std::vector<Case> cases = {{{0, 60, 120, 255}, false, {0, 60, 120, 255}},
                                   {{0, 100, 200}, true, {0, 84, 150, 200}},
                                   {{0, 10, 30, 90, 200, 255}, true, {0, 20, 90, 228}}};
  const std::vector<int> imageBlocks = {0,   0,   100, 100, 0,   0,   100, 100,
                                        200, 200, 40,  40,  200, 200, 40,  40};
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::to_string(c.mask.size()) + " x 1 mask");
      std::vector<int> mask;
      for (int j = 0; j < 4; ++j) mask.insert(mask.end(), c.row.begin(), c.row.end());
      CheckScaleMask(host, MaskedImage(host, int32_t(c.mask.size()), 1, c.mask),
                     {4, 4, c.antiAlias, kYieldEveryCall},
                     GreysWithMask(config, 4, 4, c.antiAlias ? kImageEnlarged : imageBlocks, mask),
                     c.antiAlias ? 2 * kEnlargeYields : 2 * (4 + 1));
    }
  });
}

// A picture with an alpha channel is drawn at its own scale into a new picture of the target's
// size (on a desktop host; console and web pictures have no graphics and the rows of pictures
// of different sizes are not copied, so there the new picture stays black). Here the target is
// smaller: the image is the top-left 2 x 2 region, as the host shows it (alpha 0 shows black),
// through the box resizer at ratio 1. The mask is 255 - alpha of the whole 4 x 3 receiver,
// resized by the box resizer: xScale 2 and yScale 1.5, boxes of 2 x 2 from columns 0, 2 of rows
// 0 and 1: (0.5 + 2 * (0 + 255)) / 4 = 127.6, (0.5 + 2 * (204 + 51)) / 4 = 127.6, 0.5 / 4 and
// (0.5 + 2 * (255 + 153)) / 4 = 204.1. Each resize yields once a row and once at its end.
TEST_F(ScaleMaskTest, AlphaChannelPictureLargerThanTheTargetGivesItsTopLeftRegion) {
  const std::vector<RGBA> pixels = {{10, 20, 30, 255}, {90, 90, 90, 0},     {255, 255, 255, 51},
                                    {0, 0, 0, 204},    {200, 100, 50, 255}, {1, 2, 3, 255},
                                    {7, 7, 7, 0},      {255, 0, 0, 102},    {9, 9, 9, 0},
                                    {9, 9, 9, 17},     {9, 9, 9, 34},       {9, 9, 9, 255}};
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    const int32_t format = qpxtest::NewPictureFormat(config);
    const std::vector<Channels> region =
        IsDesktop(config)
            ? std::vector<Channels>{{10, 20, 30}, {0, 0, 0}, {200, 100, 50}, {1, 2, 3}}
            : Grey({0, 0, 0, 0});
    for (bool antiAlias : {false, true}) {
      CheckScaleMask(host, AlphaPicture(host, 4, 3, pixels), {2, 2, antiAlias, kYieldEveryCall},
                     ExpectedPicture::New(Opaque(2, 2, region, format))
                         .WithMask(Greys(2, 2, {127, 127, 0, 204}, format)),
                     2 * (2 + 1));
    }
  });
}

// A 2 x 2 picture with an alpha channel (alphas 255, 0 / 102, 255, colours that premultiply
// and divide back exactly) in a larger new picture: the rest of it stays as a new picture
// comes, every byte 0. Its mask, 0, 255 / 153, 0, is resized whole.
const std::vector<RGBA> kAlphaPixels = {
    {10, 20, 30, 255}, {90, 90, 90, 0}, {255, 0, 255, 102}, {200, 100, 50, 255}};

// The new picture as the host drew the receiver into it, of `width` x `height`.
RawPicture DrawnAlphaPixels(const HostConfig& config, int32_t width, int32_t height) {
  RawPicture drawn(width, height, qpxtest::NewPictureFormat(config));
  if (!IsDesktop(config)) return drawn;
  const std::vector<Channels> shown = {{10, 20, 30}, {0, 0, 0}, {255, 0, 255}, {200, 100, 50}};
  for (int32_t i = 0; i < 4; ++i) {
    qpxtest::WriteOpaque(drawn.Pixel(i % 2, i / 2), drawn.format, shown[size_t(i)]);
  }
  return drawn;
}

// The box resizer at ratio 1 stores every pixel's colour opaque. The mask to 3 x 3: boxes of 1
// at sx, sy = trunc(k * 2 / 3) = 0, 0, 1.
TEST_F(ScaleMaskTest, AlphaChannelPictureSmallerThanTheTargetThroughTheBoxResizer) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    const int32_t format = qpxtest::NewPictureFormat(config);
    CheckScaleMask(
        host, AlphaPicture(host, 2, 2, kAlphaPixels), {3, 3, false, kYieldEveryCall},
        ExpectedPicture::New(qpxtest::OpaqueInLayout(DrawnAlphaPixels(config, 3, 3), format))
            .WithMask(Greys(3, 3, {0, 0, 255, 0, 0, 255, 153, 153, 0}, format)),
        2 * (3 + 1));
  });
}

// The enlargement, chosen on the receiver's size (2 x 2 to 4 x 4), copies the 4 x 4 new picture
// byte for byte (t = 0 everywhere), the untouched zero bytes included; the mask is enlarged
// from 2 x 2: 127.5 + 0.5; between the rows 76.5 + 0.5, 38.25 + 63.75 + 0.5, 127.5 + 0.5; then
// 153, 76.5 + 0.5, 0.
TEST_F(ScaleMaskTest, AlphaChannelPictureSmallerThanTheTargetThroughTheEnlargement) {
  ForEachKindOfHost([](Host& host, const HostConfig& config) {
    const int32_t format = qpxtest::NewPictureFormat(config);
    CheckScaleMask(host, AlphaPicture(host, 2, 2, kAlphaPixels), {4, 4, true, kYieldEveryCall},
                   ExpectedPicture::New(DrawnAlphaPixels(config, 4, 4))
                       .WithMask(Greys(4, 4,
                                       {0, 128, 255, 255, 77, 102, 128, 128,  //
                                        153, 77, 0, 0, 153, 77, 0, 0},
                                       format)),
                   2 * kEnlargeYields);
  });
}

TEST_F(ScaleMaskTest, NilReceiverGivesNilWithoutYielding) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (bool antiAlias : {false, true}) {
      for (auto [width, height] : {std::pair{5, 5}, std::pair{0, 0}, std::pair{-2, 3}}) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        CheckScaleMask(host, nullptr, {width, height, antiAlias, kYieldEveryCall},
                       ExpectedPicture::Nil(), 0);
      }
    }
  });
}

// The shared yield state, as a ScaleQPX call set it (every check yields), is left alone by a
// call on nil made during that call's first yield with YieldTicks 0: ScaleQPX goes on yielding
// after each of its 9 rows and at its end. The same call on a picture sets the interval to 0,
// after which ScaleQPX yields no more.
TEST_F(ScaleMaskTest, NilReceiverLeavesTheSharedYieldStateAsItWas) {
  for (bool nilReceiver : {true, false}) {
    SCOPED_TRACE(nilReceiver ? "nil" : "a picture");
    Host& host = Reboot(AppHost(AppKind::Console));
    bool innerCallMade = false;
    host.onYield = [&] {
      if (std::exchange(innerCallMade, true)) return;
      HostPicture* inner = nilReceiver ? nullptr : qpxtest::MakePicture(host, NoiseRecipe(2, 2));
      HostObject* result = host.Call(kMethod, inner, MethodArguments({3, 3, false, 0})).picture;
      EXPECT_EQ(result == nullptr, nilReceiver);
      if (result != nullptr) host.Unlock(result);
      if (inner != nullptr) host.Unlock(inner);
    };
    const ScaleCall outer{11, 9, false, kYieldEveryCall};
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(6, 5, 9));
    const RawPicture pixels = ReadRaw(*picture);
    qpxtest::CheckPictureCallAndYields(
        host, picture, "ScaleQPX", MethodArguments(outer),
        qpxtest::ExpectedScale(&pixels, false, host.config(), outer).picture,
        nilReceiver ? 9 + 1 : 1);
    host.onYield = nullptr;
  }
}

// Box resizer: a yield after each row and one at the end, for the image and again for the
// mask; a mask that does not open still gets its resizer's final yield. Enlargement: 3 + 4 x
// height for each. The alpha path's mask from the alpha channel counts as a mask.
TEST_F(ScaleMaskTest, BoxResizerYieldsAfterTheImageAndAgainAfterTheMask) {
  enum class Mask { None, Same, Empty, FromAlpha };
  struct Case {
    int32_t width, height;
    Mask mask;
    ScaleCall call;
    int yields;
  };
  const std::vector<Case> cases = {
      {5, 7, Mask::None, {3, 2, false, kYieldEveryCall}, 2 + 1},
      {5, 7, Mask::Same, {3, 2, false, kYieldEveryCall}, (2 + 1) + (2 + 1)},
      {5, 7, Mask::Empty, {3, 2, false, kYieldEveryCall}, (2 + 1) + 1},
      {4, 3, Mask::Same, {9, 2, true, kYieldEveryCall}, (2 + 1) + (2 + 1)},
      {4, 3, Mask::FromAlpha, {2, 5, true, kYieldEveryCall}, (5 + 1) + (5 + 1)},
      {3, 2, Mask::Same, {7, 5, true, kYieldEveryCall}, (3 + 20) + (3 + 20)},
      {3, 2, Mask::FromAlpha, {7, 5, true, kYieldEveryCall}, (3 + 20) + (3 + 20)},
      {3, 2, Mask::Same, {7, 5, true, 0}, 0}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height) + " to " +
                   Describe(c.call));
      qpxtest::PictureRecipe recipe = NoiseRecipe(c.width, c.height, 4);
      recipe.hasAlpha = c.mask == Mask::FromAlpha;
      HostPicture* picture = qpxtest::MakePicture(host, recipe);
      if (c.mask == Mask::Same) {
        picture->mask = qpxtest::MakePicture(host, NoiseRecipe(c.width, c.height, 5));
      } else if (c.mask == Mask::Empty) {
        picture->mask = qpxhost::NewHostPicture(host, 0, 0);
      }
      const qpxtest::MaskedSource source = qpxtest::ReadMaskedSource(*picture, host.config());
      const ExpectedResult expected =
          qpxtest::ExpectedScaleImageAndMask(&source, host.config(), c.call);
      EXPECT_EQ(expected.picture.maskCheck, c.mask == Mask::None || c.mask == Mask::Empty
                                                ? ExpectedPicture::MaskCheck::Absent
                                                : ExpectedPicture::MaskCheck::Present);
      CheckScaleMask(host, picture, c.call, expected.picture, c.yields);
    }
  });
}

// "newPicture" refuses a negative side: nil before any resizer runs, so no yield. A side of 0
// makes a picture, which the box resizer cannot open (one yield at its end), as it is for a
// picture without alpha channel, whose box resizer cannot make its result.
TEST_F(ScaleMaskTest, NewPictureThatCannotBeMadeOnTheAlphaPathGivesNil) {
  const std::vector<std::pair<int32_t, int32_t>> negative = {
      {-1, 3}, {3, -2}, {-5, -5}, {std::numeric_limits<int32_t>::min(), 5}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (bool antiAlias : {false, true}) {
      for (auto [width, height] : negative) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        const ScaleCall call{width, height, antiAlias, kYieldEveryCall};
        CheckScaleMask(host, qpxhost::NewHostPicture(host, 4, 4, WithAlpha()), call,
                       ExpectedPicture::Nil(), 0);
        CheckScaleMask(host, qpxhost::NewHostPicture(host, 4, 4), call, ExpectedPicture::Nil(), 1);
      }
      CheckScaleMask(host, qpxhost::NewHostPicture(host, 4, 4, WithAlpha()),
                     {0, 3, antiAlias, kYieldEveryCall}, ExpectedPicture::Nil(), 1);
    }
  });
}

// The image is resized (2 x 2 to 4 x 2: pixels repeated across); the mask, 0 x 0 or 16 bits
// deep, does not open, and its resizer only yields at its end. On the alpha path the receiver's
// own 0 x 0 mask is what the new picture gets a copy of.
TEST_F(ScaleMaskTest, MaskThatCannotBeOpenedLeavesTheResultWithoutMask) {
  PictureOptions depth16;
  depth16.depth = 16;
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    const int32_t format = qpxtest::NewPictureFormat(config);
    const ExpectedPicture repeated =
        ExpectedPicture::New(Greys(4, 2, {0, 0, 100, 100, 200, 200, 40, 40}, format)).WithoutMask();
    for (bool empty : {true, false}) {
      HostPicture* picture = GreyPicture(host, 2, 2, kImage);
      picture->mask = empty ? qpxhost::NewHostPicture(host, 0, 0)
                            : qpxhost::NewHostPicture(host, 2, 2, depth16);
      CheckScaleMask(host, picture, {4, 2, false, kYieldEveryCall}, repeated, (2 + 1) + 1);
    }
    HostPicture* withAlpha = AlphaPicture(host, 2, 2, kAlphaPixels);
    withAlpha->mask = qpxhost::NewHostPicture(host, 0, 0);
    CheckScaleMask(
        host, withAlpha, {3, 3, false, kYieldEveryCall},
        ExpectedPicture::New(qpxtest::OpaqueInLayout(DrawnAlphaPixels(config, 3, 3), format))
            .WithoutMask(),
        (3 + 1) + 1);
  });
}

// When the image was enlarged and the mask's enlargement fails, the mask is not handed to the
// box resizer: the yields are the image's alone (the box resizer would add its final one).
TEST_F(ScaleMaskTest, FailedEnlargementOfTheMaskDoesNotFallBackToTheBoxResizer) {
  PictureOptions depth16;
  depth16.depth = 16;
  ForEachKindOfHost([&](Host& host, const HostConfig& config) {
    const int32_t format = qpxtest::NewPictureFormat(config);
    for (bool empty : {true, false}) {
      HostPicture* picture = GreyPicture(host, 2, 2, kImage);
      picture->mask = empty ? qpxhost::NewHostPicture(host, 0, 0)
                            : qpxhost::NewHostPicture(host, 2, 2, depth16);
      CheckScaleMask(host, picture, {4, 4, true, kYieldEveryCall},
                     ExpectedPicture::New(Greys(4, 4, kImageEnlarged, format)).WithoutMask(),
                     kEnlargeYields);
    }
    HostPicture* withAlpha = AlphaPicture(host, 2, 2, kAlphaPixels);
    withAlpha->mask = qpxhost::NewHostPicture(host, 0, 0);
    CheckScaleMask(host, withAlpha, {4, 4, true, kYieldEveryCall},
                   ExpectedPicture::New(DrawnAlphaPixels(config, 4, 4)).WithoutMask(),
                   kEnlargeYields);
  });
}

// Hosts of every kind that lack `name`.
std::vector<HostConfig> HostsLacking(const std::string& name) {
  std::vector<HostConfig> configs = qpxtest::EveryKindOfHost();
  for (HostConfig& config : configs) config.unavailable.insert(name);
  return configs;
}

// Without the service no mask is read, neither the receiver's nor the one the alpha path copied
// into its new picture; the images are resized as ever, with the yields of the image only.
TEST_F(ScaleMaskTest, WithoutGetPictureMaskTheResultHasNoMask) {
  for (const HostConfig& config : HostsLacking("REALGetPictureMask")) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    const int32_t format = qpxtest::NewPictureFormat(config);
    CheckScaleMask(host, MaskedImage(host, 2, 2, kMask), {4, 4, true, kYieldEveryCall},
                   ExpectedPicture::New(Greys(4, 4, kImageEnlarged, format)).WithoutMask(),
                   kEnlargeYields);
    CheckScaleMask(
        host, AlphaPicture(host, 2, 2, kAlphaPixels), {3, 3, false, kYieldEveryCall},
        ExpectedPicture::New(qpxtest::OpaqueInLayout(DrawnAlphaPixels(config, 3, 3), format))
            .WithoutMask(),
        3 + 1);
  }
}

// Without "CopyMask as Picture" the alpha path's new picture gets no mask, from the alpha
// channel or from the receiver's own mask.
TEST_F(ScaleMaskTest, WithoutCopyMaskTheAlphaPathGivesNoMask) {
  for (const HostConfig& config : HostsLacking("CopyMask as Picture")) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    const int32_t format = qpxtest::NewPictureFormat(config);
    for (bool ownMask : {false, true}) {
      HostPicture* picture = AlphaPicture(host, 2, 2, kAlphaPixels);
      if (ownMask) GiveGreyMask(host, picture, 2, 2, kMask);
      CheckScaleMask(
          host, picture, {3, 3, false, kYieldEveryCall},
          ExpectedPicture::New(qpxtest::OpaqueInLayout(DrawnAlphaPixels(config, 3, 3), format))
              .WithoutMask(),
          3 + 1);
    }
  }
}

// When "HasAlphaChannel" cannot be read the picture counts as one without alpha channel, for
// the method and for the resizers: its pixels are resized as stored (premultiplied colours not
// divided back; 2 x 2 to 4 x 4 repeats each as a block), the alpha channel gives no mask, and
// the picture's own mask is resized with it.
TEST_F(ScaleMaskTest, UnreadableHasAlphaChannelCountsAsNone) {
  const std::vector<std::array<uint8_t, 4>> bytes = {
      {10, 20, 30, 40}, {50, 60, 70, 0}, {200, 100, 0, 255}, {1, 2, 3, 4}};
  for (const HostConfig& config : HostsLacking("REALGetPropValueBool")) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    const int32_t format = qpxtest::NewPictureFormat(config);
    for (bool ownMask : {false, true}) {
      HostPicture* picture = qpxhost::NewHostPicture(host, 2, 2, WithAlpha());
      for (int32_t i = 0; i < 4; ++i) {
        std::copy(bytes[size_t(i)].begin(), bytes[size_t(i)].end(),
                  picture->Row(i / 2) + 4 * (i % 2));
      }
      // Output (x, y) repeats source (x / 2, y / 2), read in the picture's layout.
      std::vector<Channels> blocks;
      for (int32_t i = 0; i < 16; ++i) {
        const size_t source = size_t((i / 8) * 2 + (i % 4) / 2);
        blocks.push_back(qpxtest::ReadChannels(bytes[source].data(), picture->layout));
      }
      if (ownMask) GiveGreyMask(host, picture, 2, 2, kMask);
      const ExpectedPicture image = ExpectedPicture::New(Opaque(4, 4, blocks, format));
      CheckScaleMask(host, picture, {4, 4, false, kYieldEveryCall},
                     ownMask ? image.WithMask(Greys(4, 4,
                                                    {0, 0, 255, 255, 0, 0, 255, 255,  //
                                                     100, 100, 40, 40, 100, 100, 40, 40},
                                                    format))
                             : image.WithoutMask(),
                     ownMask ? 2 * (4 + 1) : 4 + 1);
    }
  }
}

}  // namespace
