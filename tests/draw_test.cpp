// DrawPictureFQPX through the emulated host: the module loaded fresh, pictures and masks made in
// the host, every destination byte compared with the plain reference of draw_reference.h or
// with values worked out by hand, references, locks, cache clears and yields counted.
// This file: cases worked out by hand.
#include "draw_test_support.h"

namespace {

using namespace drawtest;

// --- Named cases ------------------------------------------------------------------------------

class DrawTest : public qpxtest::MultiHostTest {};

// With fx = fy = 0 and alpha 1 only the bottom-right neighbour weighs, with 1: each pixel of
// the rectangle takes the picture's colour exactly and nothing of the old one. The picture is
// in another layout than the destination in the desktop hosts.
TEST_F(DrawTest, WholeCoordinatesCopyThePictureIntoItsRectangle) {
  struct Case {
    int32_t width, height, left, top;
  };
  const std::vector<Case> cases = {
      {4, 3, 3, 2}, {4, 3, -2, -1}, {4, 3, 7, 5}, {12, 10, -1, -2}, {1, 1, 8, 0}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height) + " at " +
                   std::to_string(c.left) + ", " + std::to_string(c.top));
      HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(9, 7, 1));
      qpxtest::PictureRecipe recipe = NoiseRecipe(c.width, c.height, 2);
      recipe.layout = 3;
      HostPicture* picture = qpxtest::MakePicture(host, recipe);
      const RawPicture source = ReadRaw(*picture);
      const RawPicture expected =
          WithRectangle(ReadRaw(*destination), c.left, c.top, c.width, c.height,
                        [&](int32_t x, int32_t y) { return ColourAt(source, x, y); });
      CheckDrawn(host, destination, picture, {double(c.left), double(c.top)}, expected);
    }
  });
}

// x = 10.25, y = 4: ix = 10, iy = 4, fx = 0.25, fy = 0; the bottom-right neighbour weighs 0.75,
// the bottom-left 0.25, the top ones 0 (row 6 reads picture row 1 with weight 0: unchanged).
TEST_F(DrawTest, WorkedExampleAtTenAndAQuarter) {
  const Channels d = {99, 30, 250};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    HostPicture* destination = Solid(host, 16, 8, d);
    HostPicture* picture = Painted(host, 3, 2,
                                   {{200, 101, 7},
                                    {40, 255, 90},
                                    {4, 8, 12},  //
                                    {10, 20, 30},
                                    {0, 0, 0},
                                    {255, 255, 255}});
    RawPicture expected = Opaque(ReadRaw(*destination));
    // (10, 4): trunc(0.75 P(0, 0)) + trunc(0.25 D) = 150 + 24, 75 + 7, 5 + 62.
    SetColour(expected, 10, 4, {174, 82, 67});
    // (11, 4): trunc(0.75 P(1, 0)) + trunc(0.25 P(0, 0)) = 30 + 50, 191 + 25, 67 + 1.
    SetColour(expected, 11, 4, {80, 216, 68});
    // (12, 4): 0.75 P(2, 0) + 0.25 P(1, 0) = 3 + 10, 6 + 63, 9 + 22.
    SetColour(expected, 12, 4, {13, 69, 31});
    // (13, 4): 0.25 P(2, 0) + 0.75 D = 1 + 74, 2 + 22, 3 + 187.
    SetColour(expected, 13, 4, {75, 24, 190});
    // Row 5 from picture row 1 the same way: 7 + 24, 15 + 7, 22 + 62; 0 + 2, 0 + 5, 0 + 7;
    // 191 + 0 each; 63 + 74, 63 + 22, 63 + 187.
    SetColour(expected, 10, 5, {31, 22, 84});
    SetColour(expected, 11, 5, {2, 5, 7});
    SetColour(expected, 12, 5, {191, 191, 191});
    SetColour(expected, 13, 5, {137, 85, 250});
    CheckDrawn(host, destination, picture, {10.25, 4.0}, expected);
  });
}

// x = -0.5: ix = -1, fx = 0.5. Column 0 takes half of picture column 1 (bottom-right) and half
// of column 0 (bottom-left); column 1 half of picture column 1 and half of its old colour.
TEST_F(DrawTest, MinusAHalfMixesPictureColumnsZeroAndOneHalfAndHalf) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* destination = Solid(host, 4, 2, {60, 60, 60});
    HostPicture* picture = Painted(host, 2, 1, {{100, 201, 3}, {50, 99, 255}});
    RawPicture expected = Opaque(ReadRaw(*destination));
    SetColour(expected, 0, 0, {25 + 50, 49 + 100, 127 + 1});
    SetColour(expected, 1, 0, {25 + 30, 49 + 30, 127 + 30});
    CheckDrawn(host, destination, picture, {-0.5, 0.0}, expected);
  });
}

// No neighbour reaches the destination, or only with weight 0: every pixel keeps its colour and
// is stored afresh, its fourth byte 255 (layouts 1 to 6) or 0 (console and web).
TEST_F(DrawTest, PictureWhollyOutsideStillRewritesEveryPixelOpaque) {
  const std::vector<std::pair<double, double>> positions = {
      {6, 0},      {-3, 0},           {0, 5},
      {0, -3},     {-3.5, -3.5},      {6.5, 4.75},
      {1e9, -1e9}, {2147483647.5, 0}, {0, -2147483648.0}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (auto [x, y] : positions) {
      SCOPED_TRACE(std::to_string(x) + ", " + std::to_string(y));
      HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(6, 5, 3));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 3, 4));
      const RawPicture expected = Opaque(ReadRaw(*destination));
      CheckDrawn(host, destination, picture, {x, y, 0.75}, expected);
    }
  });
}

// A mask value of 255 gives its picture pixel an effective weight of 0, a value of 0 the whole
// weight (255 * w / 255).
TEST_F(DrawTest, TransparentMaskPixelLetsTheDestinationShowThrough) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    // Whole coordinates: the transparent pixel (1, 0) leaves destination pixel (2, 1) as it was.
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(5, 4, 5));
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 2, 6));
    GiveMask(host, picture, 3, 2, {0, 255, 0, 0, 0, 0});
    const RawPicture source = ReadRaw(*picture);
    const RawPicture before = ReadRaw(*destination);
    const RawPicture expected = WithRectangle(before, 1, 1, 3, 2, [&](int32_t x, int32_t y) {
      return x == 1 && y == 0 ? ColourAt(before, 2, 1) : ColourAt(source, x, y);
    });
    CheckDrawn(host, destination, picture, {1.0, 1.0}, expected);

    // x = 0.5: pixel 1 gets half of picture pixel 1 and, its other neighbour being transparent,
    // half of its old colour: 100 + 15, 50 + 30, 25 + 127. Pixel 2 the same from its two
    // halves; pixel 0 sees only the transparent pixel and keeps its colour.
    destination = Solid(host, 3, 1, {30, 61, 255});
    picture = Painted(host, 2, 1, {{9, 9, 9}, {200, 100, 51}});
    GiveMask(host, picture, 2, 1, {255, 0});
    RawPicture halves = Opaque(ReadRaw(*destination));
    SetColour(halves, 1, 0, {115, 80, 152});
    SetColour(halves, 2, 0, {115, 80, 152});
    CheckDrawn(host, destination, picture, {0.5, 0.0}, halves);
  });
}

// trunc(0.5 * 255) + trunc(0.5 * 255) = 127 + 127 = 254, not 255; each share is truncated
// on its own: 50 + 50 from two 101s, 0 + 1 from 0 and 3.
TEST_F(DrawTest, HalfOpacityOfTwoWhitesGives254) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* destination = Painted(host, 3, 3, std::vector<Channels>(9, {255, 101, 3}));
    HostPicture* picture = Solid(host, 2, 2, {255, 101, 0});
    CheckDrawn(host, destination, picture, {1.0, 1.0, 0.5},
               WithRectangle(ReadRaw(*destination), 1, 1, 2, 2, Channels{254, 100, 1}));
  });
}

// Weight 2: 2 * 128 = 256 clamps to 255, 2 * 100 = 200, 0 stays 0 over a bright destination:
// the remaining weight is -1, so the old colour is not used.
TEST_F(DrawTest, OpacityTwoOverChannelsOf128Gives255AndIgnoresTheOldColour) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* destination = Solid(host, 4, 3, {250, 250, 250});
    HostPicture* picture = Solid(host, 2, 2, {128, 100, 0});
    CheckDrawn(host, destination, picture, {2.0, 0.0, 2.0},
               WithRectangle(ReadRaw(*destination), 2, 0, 2, 2, Channels{255, 200, 0}));
  });
}

TEST_F(DrawTest, NilReceiverRaisesSourceIsNilEvenWhenPicIsNil) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    const DrawCall call{1, 1, 1, kYieldEveryCall};
    CheckNilArgument(host, nullptr, nullptr, call);
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 3));
    GiveMask(host, picture, 3, 3, std::vector<int>(9, 0));
    CheckNilArgument(host, nullptr, picture, call);
    EXPECT_EQ(host.raisedExceptions.size(), 2u);
    EXPECT_EQ(host.LookupCount("REALGetPictureMask"), 0) << "the mask was asked for";
  });
}

// The module is loaded fresh, so a mask asked for would show as a look-up of its service.
TEST_F(DrawTest, NilPicRaisesPictureIsNilBeforeTheMaskIsAskedFor) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(4, 3));
    CheckNilArgument(host, destination, nullptr, {0.5, 0.5, 1.0, kYieldEveryCall});
    EXPECT_EQ(host.LookupCount("REALGetPictureMask"), 0);
    // A call that draws does ask, and shows in the count.
    CheckDraw(host, qpxtest::MakePicture(host, NoiseRecipe(4, 3)),
              qpxtest::MakePicture(host, NoiseRecipe(2, 2)), {0.5, 0.5});
    EXPECT_EQ(host.LookupCount("REALGetPictureMask"), 1);
  });
}

TEST_F(DrawTest, WithoutNilObjectExceptionARuntimeExceptionCarriesTheMessage) {
  for (HostConfig config : qpxtest::EveryKindOfHost()) {
    config.unavailable = {"NilObjectException"};
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(4, 3));
    CheckNilArgument(host, destination, nullptr, {});
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(2, 2));
    CheckNilArgument(host, nullptr, picture, {});
    ASSERT_EQ(host.raisedExceptions.size(), 2u);
    EXPECT_EQ(host.raisedExceptions[0].className, "RuntimeException");
    EXPECT_EQ(host.raisedExceptions[0].message, "picture is nil");
    EXPECT_EQ(host.raisedExceptions[1].className, "RuntimeException");
    EXPECT_EQ(host.raisedExceptions[1].message, "source is nil");
  }
}

// The editors open in the order mask, destination, picture; the first that fails ends the call
// with false before any pixel or yield. Editors already open are released as usual, and those
// of the mask and the destination, opened to drop the host's cached rendering on release, do so
// once each. The mask and the destination get no copy attempt when they do not lock.
TEST_F(DrawTest, EditorThatCannotOpenLeavesTheDestinationUnchanged) {
  PictureOptions unlockable;
  unlockable.lockable = false;
  PictureOptions depth16;
  depth16.depth = 16;
  const PictureOptions plain;
  struct Case {
    const char* name;
    PictureOptions destination, picture;
    std::optional<PictureOptions> mask;
    int32_t destinationWidth, pictureWidth, maskWidth;
    CacheClears clears;
  };
  const std::vector<Case> cases = {
      {"destination does not lock", unlockable, plain, std::nullopt, 5, 3, 3, {0, 0}},
      {"destination 0 x 0", plain, plain, std::nullopt, 0, 3, 3, {0, 0}},
      {"destination of 16 bits", depth16, plain, plain, 5, 3, 3, {0, 1}},
      {"picture 0 x 0", plain, plain, std::nullopt, 5, 0, 3, {1, 0}},
      {"picture of 16 bits", plain, depth16, plain, 5, 3, 3, {1, 1}},
      {"mask does not lock", plain, plain, unlockable, 5, 3, 3, {0, 0}},
      {"mask 0 x 0", plain, plain, plain, 5, 3, 0, {0, 0}},
      {"mask of 16 bits", plain, plain, depth16, 5, 3, 3, {0, 0}},
  };
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      const int32_t w = c.destinationWidth, pw = c.pictureWidth, mw = c.maskWidth;
      HostPicture* destination = NoisePicture(host, w, w > 0 ? 4 : 0, c.destination, 1);
      HostPicture* picture = NoisePicture(host, pw, pw > 0 ? 2 : 0, c.picture, 2);
      if (c.mask) picture->mask = NoisePicture(host, mw, mw > 0 ? 2 : 0, *c.mask, 3);
      CheckNotDrawn(host, destination, picture, {1.5, 0.5}, c.clears);
    }
  });
}

// Coordinates that are NaN, or whose floor lies outside the 32-bit range, are not drawn at:
// false at once, without an exception, a yield, a mask or an editor (the module, loaded fresh,
// has not even looked those services up). Nil arguments are reported first.
TEST_F(DrawTest, PositionNaNOrOutside32BitsIsNotDrawnAt) {
  const std::vector<std::pair<double, double>> rejected = {
      {kNaN, 0},           {0, kNaN},          {kInfinity, 0},
      {0, -kInfinity},     {2147483648.0, 0},  {0, 2147483648.5},
      {-2147483648.25, 0}, {3, -2147483649.0}, {1e300, -1e300}};
  // Floors of -2^31 and 2^31 - 1 are drawn at (wholly outside).
  const std::vector<std::pair<double, double>> limits = {
      {-2147483648.0, 0}, {2147483647.75, -2147483647.5}, {0, 2147483647.0}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (auto [x, y] : rejected) {
      SCOPED_TRACE(std::to_string(x) + ", " + std::to_string(y));
      HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(5, 4, 1));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 3, 2));
      GiveMask(host, picture, 3, 3, std::vector<int>(9, 0));
      CheckNotDrawn(host, destination, picture, {x, y});
    }
    EXPECT_EQ(host.LookupCount("REALGetPictureMask"), 0);
    EXPECT_EQ(host.LookupCount("REALLockPictureDescription"), 0);

    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(5, 4, 1));
    CheckNilArgument(host, destination, nullptr, {kNaN, 0, 1, kYieldEveryCall});
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 3, 2));
    CheckNilArgument(host, nullptr, picture, {0, 1e300, 1, kYieldEveryCall});

    for (auto [x, y] : limits) {
      SCOPED_TRACE(std::to_string(x) + ", " + std::to_string(y));
      destination = qpxtest::MakePicture(host, NoiseRecipe(5, 4, 1));
      CheckDrawn(host, destination, qpxtest::MakePicture(host, NoiseRecipe(3, 3, 2)), {x, y},
                 Opaque(ReadRaw(*destination)));
    }
    EXPECT_EQ(host.LookupCount("REALGetPictureMask"), 1);
  });
}

// alpha NaN makes every weight NaN. Each neighbour that takes part adds trunc(v * NaN), the
// most negative integer, whatever v, and the remaining weight NaN is not above 0. One such share
// clamps to 0, two or four wrap to 0: every pixel a neighbour reaches turns black, the
// picture's rectangle and one column and one row past it.
TEST_F(DrawTest, NaNOpacityBlackensEveryPixelANeighbourReaches) {
  const Channels black = {0, 0, 0};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (auto [left, top] : {std::pair{2, 1}, std::pair{-1, -1}, std::pair{5, 4}}) {
      HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(7, 6, 1));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 2, 2));
      CheckDrawn(host, destination, picture, {double(left), double(top), kNaN},
                 WithRectangle(ReadRaw(*destination), left, top, 4, 3, black));
    }
  });
}

// alpha +-1e300 at whole coordinates: the bottom-right share v * alpha lies outside the 32-bit
// range for every v > 0 and converts to the most negative integer (0 for v = 0). With +1e300 the
// remaining weight is negative; with -1e300 it is 1e300 and the old colour's share is out of
// range too, two most negative integers wrapping to 0. Either way the rectangle turns black. The
// column and row past it meet only neighbours of weight +-0 and keep their colour.
TEST_F(DrawTest, HugeOpacitiesBlackenThePicturesRectangle) {
  const Channels black = {0, 0, 0};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (double alpha : {1e300, -1e300}) {
      SCOPED_TRACE(alpha);
      HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(7, 6, 1));
      HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 2, 2));
      CheckDrawn(host, destination, picture, {2, 1, alpha},
                 WithRectangle(ReadRaw(*destination), 2, 1, 3, 2, black));
    }
  });
}

// x = 2^-900, y = 0.5, alpha = 2^900: the left weights are 2^-900 * 0.5 * 2^900 = 0.5 exactly,
// the right ones 0.5 * 2^900 (1 - 2^-900 rounds to 1). Every right share of a channel above 0
// is the most negative integer; a pixel with both right neighbours inside gets two of them,
// which wrap to 0, plus its two left halves. Over the 3 x 3 picture of (200, 100, 1), at
// (0, 0), on a destination of (20, 40, 60):
//   columns 1 and 2, rows 1 and 2: 100 + 100, 50 + 50, 0 + 0 (the wrap shows);
//   column 3, rows 1 and 2: the two left halves only, nothing remaining: the same;
//   column 3, rows 0 and 3: one left half and half the old colour: 100 + 10, 50 + 20, 0 + 30;
//   columns 0 to 2 of rows 0 and 3, and column 0: one or two right shares, 0 after the clamp;
//   column 4 and row 4: out of reach.
TEST_F(DrawTest, ChannelSumsWrapAt32Bits) {
  const Channels w = {200, 100, 0}, h = {110, 70, 30}, k = {0, 0, 0}, d = {20, 40, 60};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    HostPicture* destination = Solid(host, 5, 5, d);
    HostPicture* picture = Solid(host, 3, 3, {200, 100, 1});
    const RawPicture expected = Recoloured(ReadRaw(*destination), {k, k, k, h, d,  //
                                                                   k, w, w, w, d,  //
                                                                   k, w, w, w, d,  //
                                                                   k, k, k, h, d,  //
                                                                   d, d, d, d, d});
    CheckDrawn(host, destination, picture, {std::ldexp(1.0, -900), 0.5, std::ldexp(1.0, 900)},
               expected);
  });
}

// A mask 2 wide and 3 high on a 4 x 4 picture drawn at (0, 0): picture row 3 reads mask row 0,
// picture columns 2 and 3 read 0 (opaque). Where the mask value is 255 the destination shows,
// elsewhere the picture: rows 0 to 2 of the mask are (255, 0), (0, 255), (255, 255).
TEST_F(DrawTest, MaskSmallerThanItsPictureReadsRowZeroAndOpaqueColumnsPastIt) {
  const std::set<std::pair<int32_t, int32_t>> transparent = {
      {0, 0}, {1, 1}, {0, 2}, {1, 2}, {0, 3}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(4, 4, 1));
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(4, 4, 2));
    GiveMask(host, picture, 2, 3, {255, 0, 0, 255, 255, 255});
    const RawPicture before = ReadRaw(*destination), source = ReadRaw(*picture);
    const RawPicture expected = WithRectangle(before, 0, 0, 4, 4, [&](int32_t x, int32_t y) {
      return transparent.count({x, y}) ? ColourAt(before, x, y) : ColourAt(source, x, y);
    });
    CheckDrawn(host, destination, picture, {0, 0}, expected);
  });
}

// Pixels are computed row by row, left to right, and a pixel written earlier is read with its
// new value. Grey 200, 101, 50, 7 drawn onto itself:
//   at x = 0.5: 100 + 100; 50 + trunc(0.5 * 200); 25 + trunc(0.5 * 150); 3 + 50;
//   at x = 1: each pixel copies its left neighbour as just written, so all take 200;
//   at x = -1: each copies its right neighbour, not yet written; the last keeps its own;
//   a column at y = 0.5 as the row at x = 0.5.
TEST_F(DrawTest, PictureDrawnOntoItselfReadsThePixelsItHasWritten) {
  struct Case {
    int32_t width, height;
    double x, y;
    std::vector<int> after;
  };
  const std::vector<Case> cases = {{4, 1, 0.5, 0, {200, 150, 100, 53}},
                                   {4, 1, 1, 0, {200, 200, 200, 200}},
                                   {4, 1, -1, 0, {101, 50, 7, 7}},
                                   {1, 4, 0, 0.5, {200, 150, 100, 53}}};
  ForEachKindOfHost([&](Host& host, const HostConfig&) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::to_string(c.x) + ", " + std::to_string(c.y));
      HostPicture* picture = Painted(host, c.width, c.height, Greys({200, 101, 50, 7}));
      CheckDrawn(host, picture, picture, {c.x, c.y}, Recoloured(ReadRaw(*picture), Greys(c.after)));
    }
  });
}

// The destination is the picture's mask: its red bytes, as drawn so far, are the mask values.
// Picture (100, 200, 50) at x = 0.5 over (0, 10, 0), (255, 20, 0), (0, 30, 0):
//   pixel 0: m = 0, e = 0.5: (50, 100, 25) + half the old (0, 5, 0);
//   pixel 1: its own m = 255 gives e = 0; pixel 0's new red 50 gives e = 205 * 0.5 / 255
//     = 0.40196: (40, 80, 20), and 0.59804 of the old: (152, 11, 0);
//   pixel 2: its own m = 0, e = 0.5: (50, 100, 25); pixel 1's new red 192, e = 63 * 0.5 / 255
//     = 0.12353: (12, 24, 6); 0.37647 of the old: (0, 11, 0).
TEST_F(DrawTest, PictureDrawnOntoItsOwnMaskReadsTheMaskAsWritten) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* destination = Painted(host, 3, 1, {{0, 10, 0}, {255, 20, 0}, {0, 30, 0}});
    HostPicture* picture = Solid(host, 3, 1, {100, 200, 50});
    host.Lock(destination);
    picture->mask = destination;
    CheckDrawn(host, destination, picture, {0.5, 0},
               Recoloured(ReadRaw(*destination), {{50, 105, 25}, {192, 91, 20}, {62, 135, 31}}));
  });
}

// A host without the mask service gives no mask: a picture whose mask is all transparent draws
// as if it had none, and the mask is not opened.
TEST_F(DrawTest, WithoutTheMaskServiceThePictureDrawsUnmasked) {
  for (HostConfig config : qpxtest::EveryKindOfHost()) {
    config.unavailable = {"REALGetPictureMask"};
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(6, 5, 1));
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 3, 2));
    GiveMask(host, picture, 3, 3, std::vector<int>(9, 255));
    const RawPicture source = ReadRaw(*picture);
    const RawPicture expected =
        WithRectangle(ReadRaw(*destination), 1, 1, 3, 3,
                      [&](int32_t x, int32_t y) { return ColourAt(source, x, y); });
    CheckDrawCall(host, destination, picture, {1, 1, 1, kYieldEveryCall},
                  {true, std::nullopt, expected, 5 + 2}, {1, 0});
  }
}

// A desktop picture whose pixels do not lock opens through a 32-bit copy made by the host's
// drawing, which holds the same colours; the copy is released with the call.
TEST_F(DrawTest, PictureThatOpensOnlyThroughACopyStillDraws) {
  for (const HostConfig& config : {DesktopHost(6, 4), DesktopHost(4)}) {
    SCOPED_TRACE(HostName(config));
    Host& host = Reboot(config);
    PictureOptions options;
    options.lockable = false;
    options.layout = 1;
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(5, 4, 1));
    const std::vector<Channels> colours = {{1, 2, 3}, {250, 128, 0},   {77, 88, 99},
                                           {0, 0, 0}, {255, 255, 255}, {12, 200, 34}};
    HostPicture* picture = Painted(host, 3, 2, colours, options);
    const RawPicture expected =
        WithRectangle(ReadRaw(*destination), 1, 1, 3, 2,
                      [&](int32_t x, int32_t y) { return colours[size_t(y) * 3 + x]; });
    CheckDrawn(host, destination, picture, {1, 1}, expected);
  }
}

// Once before the first row, once after each row and once at the end; never with 0. A tick
// or millisecond interval yields at once (the call's last yield time starts at 0) and at most
// as often.
TEST_F(DrawTest, YieldsOnceBeforeOncePerRowAndOnceAtTheEnd) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    for (int32_t height : {1, 4, 9}) {
      for (int32_t yield : {kYieldEveryCall, 0}) {
        SCOPED_TRACE(std::to_string(height) + " rows, yield " + std::to_string(yield));
        CheckDraw(host, qpxtest::MakePicture(host, NoiseRecipe(5, height, 1)),
                  qpxtest::MakePicture(host, NoiseRecipe(2, 2, 2)), {0.5, 0.5, 1.0, yield});
      }
      for (int32_t yield : {1, -1}) {
        HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(5, height, 1));
        HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(2, 2, 2));
        const int before = host.yieldCount;
        EXPECT_TRUE(
            host.Call("DrawPictureFQPX", destination, Arguments(picture, {0.5, 0.5, 1.0, yield}))
                .boolean);
        EXPECT_GE(host.yieldCount - before, 1);
        EXPECT_LE(host.yieldCount - before, height + 2);
        host.Unlock(destination);
        host.Unlock(picture);
      }
    }
  });
}

TEST_F(DrawTest, OpacityAndYieldDefaultToOneAndZero) {
  ForEachKindOfHost([](Host& host, const HostConfig&) {
    HostPicture* destination = qpxtest::MakePicture(host, NoiseRecipe(6, 5, 1));
    HostPicture* picture = qpxtest::MakePicture(host, NoiseRecipe(3, 2, 2));
    const ExpectedDraw expected =
        ExpectedDrawPictureF(SceneOf(destination, picture), {1.25, 0.5, 1.0, 0});
    EXPECT_TRUE(
        host.Call("DrawPictureFQPX", destination, {PictureValue(picture), 1.25, 0.5}).boolean);
    EXPECT_TRUE(SamePixels(*expected.destination, ReadRaw(*destination)));
    EXPECT_EQ(host.yieldCount, 0);
    host.Unlock(destination);
    host.Unlock(picture);
  });
}

}  // namespace
