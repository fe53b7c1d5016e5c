// qpx scale-mask.
#include "cli_support.h"

namespace qpx {
namespace {

TEST_F(CliScaleMaskTest, ShrinkAveragesColoursAndMaskAlike) {
  // 2 x 1 to 1 x 1: one box of 2 x 1, so each channel is (0.5 + S) / 2 truncated, S the sum of
  // the two pixels' values; the mask (255 - alpha: 0 and 255) likewise, written as 255 - mask.
  WritePng(Path("in.png"), WithAlpha(GrayImage(2, 1, {0, 0}), {255, 0}), true);
  Image input = ReadImage(Path("in.png"));
  const uint8_t colours[] = {10, 20, 30, 41, 60, 91};
  for (size_t i = 0; i < 6; ++i) input.rgba[i / 3 * 4 + i % 3] = colours[i];
  WritePng(Path("in.png"), input, true);
  for (const auto& [output, mask] : InEveryHost(ScaleMaskArgs("out.png", 1, 1, false))) {
    // (0.5 + 51) / 2 = 25.75, (0.5 + 80) / 2 = 40.25, (0.5 + 121) / 2 = 60.75; mask
    // (0.5 + 255) / 2 = 127.75.
    EXPECT_THAT(Pixels(output), ::testing::ElementsAre(Rgba{25, 40, 60, 128}));
    EXPECT_THAT(mask, ::testing::ElementsAre(127));
  }
}

TEST_F(CliScaleMaskTest, AntialiasedEnlargementBlendsTheMaskFromAMaskFile) {
  // 2 x 2 to 4 x 4 with a mask file of the same values as the gray image: both are resized by
  // the smooth enlargement, whose values for these four pixels are worked out in
  // CliScaleTest.WithAntialiasBlendsNeighbours.
  const std::vector<uint8_t> values = {0, 100, 200, 41};
  WritePng(Path("in.png"), GrayImage(2, 2, values), false);
  WritePng(Path("m.png"), GrayImage(2, 2, values), false);
  const std::vector<uint8_t> blended = {0,   50,  100, 100, 100, 85,  71, 71,
                                        200, 121, 41,  41,  200, 121, 41, 41};
  for (const auto& [output, mask] :
       InEveryHost(ScaleMaskArgs("out.png", 4, 4, true, {"--mask", "m.png"}))) {
    EXPECT_EQ(mask, blended);
    ASSERT_TRUE(output.hasAlpha);
    for (size_t i = 0; i < blended.size(); ++i) {
      const uint8_t v = blended[i];
      EXPECT_EQ(Rgba(&output.rgba[i * 4], &output.rgba[i * 4] + 4),
                (Rgba{v, v, v, uint8_t(255 - v)}))
          << "pixel " << i;
    }
  }
}

TEST_F(CliScaleMaskTest, WithoutTransparencyGivesWhatScaleGivesAndNoMask) {
  WritePng(Path("in.png"), RandomImage(9, 7, false), false);
  for (const char* host : kHostKinds) {
    for (const auto& [width, height, antialias] :
         {std::tuple{4, 3, false}, {20, 15, true}, {20, 15, false}}) {
      SCOPED_TRACE(std::string(host) + " " + std::to_string(width) + (antialias ? " smooth" : ""));
      const QpxRun scaled = Qpx(ScaleArgs("scale.png", width, height, antialias, {"--host", host}));
      ASSERT_EQ(scaled.exitCode, 0) << scaled.err;
      const QpxRun run = Qpx(ScaleMaskArgs("out.png", width, height, antialias, {"--host", host}));
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(PngColourType(Path("out.png")), 2);  // opaque RGB
      EXPECT_TRUE(ReadImage(Path("out.png")).rgba == ReadImage(Path("scale.png")).rgba);

      const QpxRun refused = Qpx(ScaleMaskArgs("new.png", width, height, antialias,
                                               {"--host", host, "--mask-out", "mask.png"}));
      ExpectOneErrorLine(refused);
      EXPECT_EQ(refused.err, "qpx: the result of pic.ScaleImageAndMaskQPX(" +
                                 std::to_string(width) + ", " + std::to_string(height) + ", " +
                                 (antialias ? "True" : "False") +
                                 ") has no mask to write to 'mask.png'\n");
      EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "out.png", "scale.png"));
    }
  }
}

// A 4 x 2 picture whose top-left 2 x 1 pixels are opaque; the rest of row 0 has alpha 128 and 0
// (mask 127 and 255), row 1 alpha 255, 64, 255, 255 (mask 0, 191, 0, 0).
Image PictureForTheAlphaPath() {
  return WithAlpha(RandomImage(4, 2, false, 21), {255, 255, 128, 0, 255, 64, 255, 255});
}

TEST_F(CliScaleMaskTest, WithAnAlphaChannelGivesTheTopLeftRegionUnderTheResizedMask) {
  const Image input = PictureForTheAlphaPath();
  WritePng(Path("in.png"), input, true);
  for (const char* layout : {"1", "2"}) {
    SCOPED_TRACE(std::string("layout ") + layout);
    // Shrinking 4 x 2 to 2 x 1: boxes of 2 x 2 read from row 0. The image is not resized but
    // cut: pixels (0, 0) and (1, 0) as they are. The mask is resized: (0.5 + 2 * (0 + 0)) / 4
    // gives 0, (0.5 + 2 * (127 + 255)) / 4 = 191.125 gives 191.
    const auto shrunk = InEveryHost(
        ScaleMaskArgs("out.png", 2, 1, false, {"--alpha", "--layout", layout}), {"desktop"});
    for (const auto& [output, mask] : shrunk) {
      EXPECT_THAT(mask, ::testing::ElementsAre(0, 191));
      const uint8_t* a = PixelAt(input, 0, 0);
      const uint8_t* b = PixelAt(input, 1, 0);
      EXPECT_THAT(Pixels(output),
                  ::testing::ElementsAre(Rgba{a[0], a[1], a[2], 255}, Rgba{b[0], b[1], b[2], 64}));
    }
    // Enlarging to 5 x 3: the picture covers columns 0 to 3 of rows 0 and 1, with its colours
    // as the host holds them (what convert gives back); the rest is black. The mask is repeated:
    // columns from columns 0, 0, 1, 2, 3 (i * 4 / 5), rows from rows 0, 0, 1 (j * 2 / 3).
    ASSERT_EQ(
        Qpx({"convert", "in.png", "held.png", "--host", "desktop", "--alpha", "--layout", layout})
            .exitCode,
        0);
    const Image held = ReadImage(Path("held.png"));
    const auto enlarged = InEveryHost(
        ScaleMaskArgs("out.png", 5, 3, false, {"--alpha", "--layout", layout}), {"desktop"});
    for (const auto& [output, mask] : enlarged) {
      EXPECT_EQ(mask, (std::vector<uint8_t>{0, 0, 0, 127, 255,  //
                                            0, 0, 0, 127, 255,  //
                                            0, 0, 191, 0, 0}));
      for (int32_t y = 0; y < 3; ++y) {
        for (int32_t x = 0; x < 5; ++x) {
          const uint8_t* p = PixelAt(output, x, y);
          const Rgba colour =
              x < 4 && y < 2 ? Rgba(PixelAt(held, x, y), PixelAt(held, x, y) + 3) : Rgba{0, 0, 0};
          EXPECT_EQ(Rgba(p, p + 3), colour) << x << ", " << y;
          EXPECT_EQ(p[3], 255 - mask[size_t(y * 5 + x)]) << x << ", " << y;
        }
      }
    }
  }
}

TEST_F(CliScaleMaskTest, WithAnAlphaChannelOnAConsoleOrWebHostTheImageStaysBlack) {
  // Their pictures cannot be drawn into, so not even the region reaches the result; the mask
  // is resized as on a desktop host.
  WritePng(Path("in.png"), PictureForTheAlphaPath(), true);
  for (const auto& [output, mask] :
       InEveryHost(ScaleMaskArgs("out.png", 2, 1, false, {"--alpha", "--layout", "1"}),
                   {"console", "web"})) {
    EXPECT_THAT(mask, ::testing::ElementsAre(0, 191));
    EXPECT_THAT(Pixels(output), ::testing::ElementsAre(Rgba{0, 0, 0, 255}, Rgba{0, 0, 0, 64}));
  }
}

TEST_F(CliScaleMaskTest, ToTheSameSizeGivesThePictureBack) {
  const Image input = RandomImage(7, 5, true);
  WritePng(Path("in.png"), input, true);
  for (bool antialias : {false, true}) {
    SCOPED_TRACE(antialias ? "antialias" : "");
    for (const auto& [output, mask] : InEveryHost(ScaleMaskArgs("out.png", 7, 5, antialias))) {
      EXPECT_TRUE(output.rgba == input.rgba);
      EXPECT_EQ(mask, MaskOfAlpha(input));
    }
    // With an alpha channel: the picture itself, written with its alpha and without a mask.
    const QpxRun run = Qpx(ScaleMaskArgs("out.png", 7, 5, antialias,
                                         {"--host", "desktop", "--alpha", "--layout", "2"}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Image output = ReadImage(Path("out.png"));
    ASSERT_TRUE(output.hasAlpha);
    EXPECT_EQ(MaskOfAlpha(output), MaskOfAlpha(input));
  }
}

TEST_F(CliScaleMaskTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(20, 15, true), true);
  ExpectYieldingChangesNothing("scale-mask");
}

TEST_F(CliScaleMaskTest, ToNoPixelsIsOneErrorLineAndNoOutput) {
  WritePng(Path("in.png"), RandomImage(4, 4, true), true);
  const QpxRun run = Qpx(ScaleMaskArgs("out.png", 0, 4, false, {"--mask-out", "mask.png"}));
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: pic.ScaleImageAndMaskQPX(0, 4, False) returned nil\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));

  WriteBytes(Path("out.png"), "precious");
  WriteBytes(Path("mask.png"), "kept");
  for (const char* host : kHostKinds) {
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"--host", host},
          {"--host", host, "--alpha", "--layout", "2", "--antialias"}}) {
      SCOPED_TRACE(more.back());
      std::vector<std::string> options = more;
      options.insert(options.end(), {"--mask-out", "mask.png"});
      ExpectOneErrorLine(Qpx(ScaleMaskArgs("out.png", 8, -3, true, options)));
      EXPECT_EQ(ReadAll(Path("out.png")), "precious");
      EXPECT_EQ(ReadAll(Path("mask.png")), "kept");
    }
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "mask.png", "out.png"));
}

TEST_F(CliScaleMaskTest, AnUnwritableMaskFileLeavesTheOutputAsItWas) {
  // The mask goes to a directory, which fails only when it is renamed into place, after the
  // output's rename: the output gets its old contents back, or goes when it had none.
  WritePng(Path("in.png"), RandomImage(6, 4, true), true);
  fs::create_directory(Path("dir.png"));
  for (bool existing : {true, false}) {
    SCOPED_TRACE(existing ? "existing output" : "new output");
    if (existing) WriteBytes(Path("out.png"), "precious");
    const QpxRun run = Qpx(ScaleMaskArgs("out.png", 3, 2, false, {"--mask-out", "dir.png"}));
    ExpectOneErrorLine(run);
    EXPECT_THAT(run.err, StartsWith("qpx: cannot write 'dir.png': "));
    if (existing) {
      EXPECT_EQ(ReadAll(Path("out.png")), "precious");
      fs::remove(Path("out.png"));
    }
    EXPECT_THAT(Files(), ::testing::ElementsAre("dir.png", "in.png"));
  }
  // The other way round: an output that cannot be written leaves no mask file.
  ExpectOneErrorLine(Qpx(ScaleMaskArgs("dir.png", 3, 2, false, {"--mask-out", "mask.png"})));
  EXPECT_THAT(Files(), ::testing::ElementsAre("dir.png", "in.png"));
}

TEST_F(CliTest, ScaleMaskHelpTellsOfTheAlphaChannelPath) {
  const QpxRun run = Qpx({"scale-mask", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* text : {"ScaleImageAndMaskQPX", "--antialias", "top-left W x H region",
                           "NOT resized", "console or web", "Masks:", "Transparency:"}) {
    EXPECT_THAT(run.out, HasSubstr(text));
  }
}

}  // namespace
}  // namespace qpx
