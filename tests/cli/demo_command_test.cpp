// qpx demo: the contact sheet and the pictures it shows.
#include "cli_support.h"

namespace qpx {
namespace {

// --- demo -------------------------------------------------------------------------------------

TEST_F(CliTest, DemoWritesTheContactSheetAndEveryPictureItLists) {
  const QpxRun run = Qpx({"demo", "out"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const std::string page = ReadAll(Path("out/index.html"));
  ASSERT_FALSE(page.empty());
  std::vector<std::string> sources;
  for (size_t at = page.find("src=\""); at != std::string::npos; at = page.find("src=\"", at)) {
    at += 5;
    sources.push_back(page.substr(at, page.find('"', at) - at));
  }
  EXPECT_EQ(sources.size(), kDemoImageCount + 2 * DemoCalls().size());
  for (const char* input :
       {"input.png", "detail.png", "sky.png", "tile.png", "ball.png", "badge.png"}) {
    EXPECT_THAT(sources, ::testing::Contains(input));
  }
  // Sizes: the blurs keep the sample's, the shrinks are a quarter of each side, the detail and
  // its enlargements are 80 x 60 and 4 times that, the drawings the size of sky.
  const std::pair<const char*, std::pair<int32_t, int32_t>> sizes[] = {
      {"input", {640, 480}},
      {"blur-", {640, 480}},
      {"scale-quarter-", {160, 120}},
      {"resample-quarter-", {160, 120}},
      {"detail.", {80, 60}},
      {"detail-nearest-", {320, 240}},
      {"detail-antialias-", {320, 240}},
      {"detail-resample-", {320, 240}},
      {"sky.", {40, 30}},
      {"tile.", {16, 16}},
      {"ball.", {20, 20}},
      {"draw-", {40, 30}},
      {"badge.", {40, 30}},
      {"badge-mask-half", {20, 15}},
      {"badge-mask-nearest-", {160, 120}},
      {"badge-mask-antialias-", {160, 120}}};
  for (const std::string& file : sources) {
    SCOPED_TRACE(file);
    const Image image = ReadImage(Path("out/" + file));
    const auto* size = std::find_if(std::begin(sizes), std::end(sizes), [&](const auto& entry) {
      return file.starts_with(entry.first);
    });
    ASSERT_NE(size, std::end(sizes));
    EXPECT_EQ(image.width, size->second.first);
    EXPECT_EQ(image.height, size->second.second);
  }
  for (const char* text : {"pic.BlurQPX(1.0)",
                           "pic.BlurQPX(3.0)",
                           "pic.BlurQPX(8.0)",
                           "pic.ScaleQPX(160, 120, False)",
                           "detail.ScaleQPX(320, 240, False)",
                           "detail.ScaleQPX(320, 240, True)",
                           "console host",
                           "desktop host",
                           "sky.DrawPictureFQPX(tile, 12.0, 7.0, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.25, 7.25, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.5, 7.5, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.75, 7.75, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.0, 7.0, 0.5)",
                           "sky.DrawPictureFQPX(tile, 12.0, 7.0, 0.25)",
                           "sky.DrawPictureFQPX(ball, 10.0, 5.0, 1.0)",
                           "sky.DrawPictureFQPX(ball, 10.5, 5.5, 1.0)",
                           "sky.DrawPictureFQPX(ball, 10.0, 5.0, 0.5)",
                           "badge.ScaleImageAndMaskQPX(20, 15, False)",
                           "badge.ScaleImageAndMaskQPX(20, 15, True)",
                           "badge.ScaleImageAndMaskQPX(160, 120, False)",
                           "badge.ScaleImageAndMaskQPX(160, 120, True)"}) {
    EXPECT_THAT(page, HasSubstr(text));
  }
  // Pictures with transparency are shown over a checkerboard, all of them as wide as badge.
  for (const std::string& file : sources) {
    SCOPED_TRACE(file);
    const bool transparent = ReadImage(Path("out/" + file)).hasAlpha;
    EXPECT_EQ(transparent, file.starts_with("ball") || file.starts_with("badge"));
    const std::string image = "<img src=\"" + file + "\" alt=\"" + file + "\"";
    EXPECT_EQ(page.find(image + " class=\"pixels checker\"") != std::string::npos, transparent);
    if (file.starts_with("badge")) {
      EXPECT_THAT(page, HasSubstr(image + " class=\"pixels checker\" width=\"320\">"));
    }
  }
  // Every kernel on both receivers, labelled with its name.
  for (const auto& [number, name] : kModes) {
    EXPECT_THAT(page, HasSubstr(std::string("<b>") + name + "</b> <code>pic.ScalingQPX(" + number +
                                ", 160, 120)</code>"));
    EXPECT_THAT(page, HasSubstr(std::string("<b>") + name + "</b> <code>detail.ScalingQPX(" +
                                number + ", 320, 240)</code>"));
    for (const char* host : {"console", "desktop"}) {
      for (const char* stem : {"resample-quarter-", "detail-resample-"}) {
        EXPECT_THAT(sources, ::testing::Contains(stem + std::string(name) + "-" + host + ".png"));
      }
    }
  }
  // The detail is cut from the sample picture, and its plain enlargement repeats its pixels.
  const Image input = ReadImage(Path("out/input.png"));
  const Image detail = ReadImage(Path("out/detail.png"));
  EXPECT_TRUE(detail.rgba == CropImage(input, kDemoDetail).rgba);
  for (const char* host : {"console", "desktop"}) {
    const Image nearest = ReadImage(Path(std::string("out/detail-nearest-") + host + ".png"));
    const Image smooth = ReadImage(Path(std::string("out/detail-antialias-") + host + ".png"));
    EXPECT_EQ(RepeatedPixels(nearest, detail, 4, 4), 320 * 240) << host;
    // The smooth one passes through the detail's pixels at every 4th row and column, and blends
    // in between.
    int64_t onSource = 0;
    for (int32_t y = 0; y < detail.height; ++y) {
      for (int32_t x = 0; x < detail.width; ++x) {
        onSource += std::memcmp(PixelAt(smooth, 4 * x, 4 * y), PixelAt(detail, x, y), 4) == 0;
      }
    }
    EXPECT_EQ(onSource, 80 * 60) << host;
    EXPECT_LT(RepeatedPixels(smooth, detail, 4, 4), 320 * 240) << host;
  }
  // Every file written is on the sheet.
  for (const auto& entry : fs::directory_iterator(Path("out"))) {
    const std::string name = entry.path().filename();
    if (name != "index.html") {
      EXPECT_THAT(sources, ::testing::Contains(name));
    }
  }
}

// A box shrink to a quarter of each side as ScalingQPX's box kernel makes it: weight 1 for the
// 4 source pixels within half a box of the centre, each pass rounding its mean half up.
Image BoxKernelQuarter(const Image& image) {
  Image out = UniformImage(image.width / 4, image.height / 4, 0, 0, 0);
  for (int32_t y = 0; y < out.height; ++y) {
    for (int32_t x = 0; x < out.width; ++x) {
      for (int c = 0; c < 3; ++c) {
        int rows = 0;
        for (int32_t k = 4 * y; k < 4 * y + 4; ++k) {
          int across = 0;
          for (int32_t i = 4 * x; i < 4 * x + 4; ++i) across += PixelAt(image, i, k)[c];
          rows += (across + 2) / 4;
        }
        out.rgba[(size_t(y) * size_t(out.width) + size_t(x)) * 4 + size_t(c)] =
            static_cast<uint8_t>((rows + 2) / 4);
      }
    }
  }
  return out;
}

TEST_F(CliTest, DemoResultsOfTheBoxKernelFollowFromTheirWeights) {
  ASSERT_EQ(Qpx({"demo", "out"}).exitCode, 0);
  const Image input = ReadImage(Path("out/input.png"));
  const Image detail = ReadImage(Path("out/detail.png"));
  for (const char* host : {"console", "desktop"}) {
    SCOPED_TRACE(host);
    const std::string suffix = std::string("-box-") + host + ".png";
    EXPECT_TRUE(ReadImage(Path("out/resample-quarter" + suffix)).rgba ==
                BoxKernelQuarter(input).rgba);
    // Enlarging 4 times, each output centre is within half a pixel of exactly one source centre.
    EXPECT_EQ(RepeatedPixels(ReadImage(Path("out/detail-resample" + suffix)), detail, 4, 4),
              320 * 240);
  }
}

TEST_F(CliTest, DemoDrawingsFollowFromTheRules) {
  ASSERT_EQ(Qpx({"demo", "out"}).exitCode, 0);
  const Image sky = ReadImage(Path("out/sky.png"));
  const Image tile = ReadImage(Path("out/tile.png"));
  const Image ball = ReadImage(Path("out/ball.png"));
  ASSERT_TRUE(ball.hasAlpha);
  // The ball's alpha is solid in the middle and falls to nothing before the corners.
  EXPECT_EQ(PixelAt(ball, 10, 10)[3], 255);
  EXPECT_EQ(PixelAt(ball, 0, 0)[3], 0);
  for (const char* host : {"console", "desktop"}) {
    SCOPED_TRACE(host);
    const auto result = [&](const std::string& stem) {
      return ReadImage(Path("out/" + stem + "-" + host + ".png"));
    };
    // Whole coordinates at opacity 1 copy tile into sky at (12, 7).
    const Image copied = Pasted(sky, tile, 12, 7);
    EXPECT_TRUE(result("draw-offset-0").rgba == copied.rgba);
    EXPECT_TRUE(result("draw-opacity-100").rgba == copied.rgba);
    // Opacity 0.5: trunc(0.5 x tile) + trunc(0.5 x sky) in tile's rectangle.
    const Image half = result("draw-opacity-50");
    for (int32_t y = 0; y < sky.height; ++y) {
      for (int32_t x = 0; x < sky.width; ++x) {
        const bool inside = x >= 12 && x < 12 + tile.width && y >= 7 && y < 7 + tile.height;
        for (size_t c = 0; c < 3; ++c) {
          const int old = PixelAt(sky, x, y)[c];
          const int expected = inside ? PixelAt(tile, x - 12, y - 7)[c] / 2 + old / 2 : old;
          ASSERT_EQ(PixelAt(half, x, y)[c], expected) << x << ", " << y;
        }
      }
    }
    // Through the mask at (10, 5): where ball is fully transparent sky stays, where it is
    // opaque ball's colour replaces it.
    const Image masked = result("draw-mask-0");
    for (int32_t y = 0; y < ball.height; ++y) {
      for (int32_t x = 0; x < ball.width; ++x) {
        const uint8_t alpha = PixelAt(ball, x, y)[3];
        if (alpha != 0 && alpha != 255) continue;
        const uint8_t* expected = alpha == 0 ? PixelAt(sky, x + 10, y + 5) : PixelAt(ball, x, y);
        ASSERT_EQ(std::memcmp(PixelAt(masked, x + 10, y + 5), expected, 3), 0) << x << ", " << y;
      }
    }
    // Each quarter-pixel step gives another picture.
    const Image quarter = result("draw-offset-25");
    EXPECT_FALSE(quarter.rgba == copied.rgba);
    EXPECT_FALSE(quarter.rgba == result("draw-offset-50").rgba);
    EXPECT_FALSE(result("draw-offset-50").rgba == result("draw-offset-75").rgba);
  }
}

TEST_F(CliTest, DemoMaskedResizesFollowFromTheRules) {
  ASSERT_EQ(Qpx({"demo", "out"}).exitCode, 0);
  const Image badge = ReadImage(Path("out/badge.png"));
  ASSERT_TRUE(badge.hasAlpha);
  // Transparent corners, an opaque middle and a rim that fades in between.
  EXPECT_EQ(PixelAt(badge, 0, 0)[3], 0);
  EXPECT_EQ(PixelAt(badge, 20, 15)[3], 255);
  std::set<uint8_t> alphas;
  for (size_t i = 3; i < badge.rgba.size(); i += 4) alphas.insert(badge.rgba[i]);
  EXPECT_GT(alphas.size(), 8u);
  for (const char* host : {"console", "desktop"}) {
    SCOPED_TRACE(host);
    const auto result = [&](const std::string& stem) {
      return ReadImage(Path("out/" + stem + "-" + host + ".png"));
    };
    // Halving: boxes of 2 x 2 read from their top row, each colour (0.5 + 2 (a + b)) / 4
    // truncated; the mask, 255 - alpha, likewise.
    const Image half = result("badge-mask-half");
    ASSERT_TRUE(half.hasAlpha);
    for (int32_t y = 0; y < half.height; ++y) {
      for (int32_t x = 0; x < half.width; ++x) {
        const uint8_t* a = PixelAt(badge, 2 * x, 2 * y);
        const uint8_t* b = PixelAt(badge, 2 * x + 1, 2 * y);
        const uint8_t* p = PixelAt(half, x, y);
        for (size_t c = 0; c < 3; ++c) {
          ASSERT_EQ(p[c], int((0.5 + 2 * (a[c] + b[c])) / 4)) << x << ", " << y;
        }
        ASSERT_EQ(255 - p[3], int((0.5 + 2 * (510 - a[3] - b[3])) / 4)) << x << ", " << y;
      }
    }
    // AntiAlias does not count when shrinking.
    EXPECT_TRUE(result("badge-mask-half-antialias").rgba == half.rgba);
    // Enlarging 4 times: without AntiAlias every pixel and its alpha repeated as a 4 x 4 block;
    // with it, badge's pixels at every 4th row and column and blends between them.
    const Image nearest = result("badge-mask-nearest");
    const Image smooth = result("badge-mask-antialias");
    EXPECT_EQ(RepeatedPixels(nearest, badge, 4, 4), 160 * 120);
    int64_t onSource = 0;
    for (int32_t y = 0; y < badge.height; ++y) {
      for (int32_t x = 0; x < badge.width; ++x) {
        onSource += std::memcmp(PixelAt(smooth, 4 * x, 4 * y), PixelAt(badge, x, y), 4) == 0;
      }
    }
    EXPECT_EQ(onSource, 40 * 30);
    EXPECT_LT(RepeatedPixels(smooth, badge, 4, 4), 160 * 120);
  }
}

TEST_F(CliTest, DemoWritesIntoQpxDemoByDefault) {
  const QpxRun run = Qpx({"demo"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(fs::exists(Path("qpx-demo/index.html")));
  EXPECT_TRUE(fs::exists(Path("qpx-demo/input.png")));
}

// Every layout boots a desktop host, its alpha layout following in the same byte order.
TEST_F(CliTest, DemoRunsInAFirstByteLayout) {
  const QpxRun run = Qpx({"demo", "--layout", "2", "d2"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(fs::exists(Path("d2/index.html")));
}

TEST_F(CliTest, DemoIntoAnUnwritablePlaceIsOneErrorLine) {
  WriteBytes(Path("file"), "x");
  ExpectOneErrorLine(Qpx({"demo", "file/sub"}));
}

TEST(CliDemoPictureTest, IsOpaqueDetailedAndTheSameEveryTime) {
  const Image a = MakeDemoPicture();
  EXPECT_EQ(a.width, 640);
  EXPECT_EQ(a.height, 480);
  EXPECT_TRUE(a.rgba == MakeDemoPicture().rgba);
  std::set<uint32_t> colours;
  for (size_t i = 0; i < a.rgba.size(); i += 4) {
    EXPECT_EQ(a.rgba[i + 3], 255);
    colours.insert(uint32_t(a.rgba[i]) << 16 | uint32_t(a.rgba[i + 1]) << 8 | a.rgba[i + 2]);
  }
  EXPECT_GT(colours.size(), 10000u);
}

TEST(CliDemoPictureTest, CropTakesTheRegionsPixels) {
  const Image image = RandomImage(9, 7, false);
  const Image crop = CropImage(image, {2, 3, 5, 4});
  EXPECT_EQ(crop.width, 5);
  EXPECT_EQ(crop.height, 4);
  for (int32_t y = 0; y < 4; ++y) {
    for (int32_t x = 0; x < 5; ++x) {
      EXPECT_EQ(std::memcmp(PixelAt(crop, x, y), PixelAt(image, x + 2, y + 3), 4), 0);
    }
  }
  EXPECT_TRUE(CropImage(image, {0, 0, 9, 7}).rgba == image.rgba);
  EXPECT_THROW(CropImage(image, {5, 0, 5, 1}), std::out_of_range);
  EXPECT_THROW(CropImage(image, {0, -1, 1, 1}), std::out_of_range);
  EXPECT_THROW(CropImage(image, {0, 0, 0, 1}), std::out_of_range);
  // The demo's detail lies within the sample picture.
  EXPECT_NO_THROW(CropImage(MakeDemoPicture(), kDemoDetail));
}

TEST(CliDemoPictureTest, TextIsDrawnWithTheBuiltInFont) {
  Image image = UniformImage(12, 7, 0, 0, 0);
  DrawText(image, 0, 0, "l-", 1, 255, 255, 255);
  auto lit = [&](int x, int y) { return image.rgba[(size_t(y) * 12 + size_t(x)) * 4] == 255; };
  for (int y = 0; y < 7; ++y) EXPECT_TRUE(lit(0, y)) << y;   // L's stem
  for (int x = 0; x < 5; ++x) EXPECT_TRUE(lit(x, 6)) << x;   // L's foot
  for (int x = 6; x < 11; ++x) EXPECT_TRUE(lit(x, 3)) << x;  // the dash
  EXPECT_FALSE(lit(6, 2));
  EXPECT_FALSE(lit(11, 3));  // the space between glyphs
}

}  // namespace
}  // namespace qpx
