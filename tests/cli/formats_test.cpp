// The formats qpx writes: chosen by the output's name or --format, and their settings.
#include "cli_support.h"

namespace qpx {
namespace {

constexpr char kJpegStart[] = "\xFF\xD8\xFF";
constexpr char kPngStart[] = "\x89PNG";

bool StartsWith(const std::string& bytes, const char* start) {
  return bytes.rfind(start, 0) == 0;
}

// A smooth picture, which JPEG keeps closely: gradients in each channel, with alpha when asked.
Image GradientImage(int32_t width, int32_t height, bool alpha) {
  Image image;
  image.width = width;
  image.height = height;
  image.hasAlpha = alpha;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      image.rgba.insert(image.rgba.end(),
                        {uint8_t(x * 255 / width), uint8_t(y * 255 / height),
                         uint8_t((x + y) * 127 / (width + height)), uint8_t(alpha ? x : 255)});
    }
  }
  return image;
}

// The largest difference of any colour byte between two images of one size.
int LargestColourError(const Image& a, const Image& b) {
  int largest = 0;
  for (size_t i = 0; i < a.rgba.size(); ++i) {
    if (i % 4 != 3) largest = std::max(largest, std::abs(int(a.rgba[i]) - int(b.rgba[i])));
  }
  return largest;
}

TEST_F(CliTest, OutputFormatFollowsTheNameUnlessFormatSaysOtherwise) {
  const Image input = GradientImage(64, 48, false);
  WritePng(Path("in.png"), input, false);
  const struct {
    std::string output;
    std::vector<std::string> format;
    const char* start;
  } cases[] = {{"a.jpg", {}, kJpegStart},
               {"b.JPEG", {}, kJpegStart},
               {"c.jpe", {}, kJpegStart},
               {"d.png", {}, kPngStart},
               {"e.unknown", {}, kPngStart},
               {"f", {}, kPngStart},
               {"g.png", {"--format", "jpeg"}, kJpegStart},
               {"h.jpg", {"--format", "PNG"}, kPngStart},
               {"i.out", {"--format", "jpg"}, kJpegStart}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.output);
    std::vector<std::string> args = {"convert", "in.png", c.output};
    args.insert(args.end(), c.format.begin(), c.format.end());
    const QpxRun run = Qpx(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const std::string bytes = ReadAll(Path(c.output));
    EXPECT_TRUE(StartsWith(bytes, c.start));
    const Image output = ReadImage(Path(c.output));
    ASSERT_EQ(output.width, input.width);
    ASSERT_EQ(output.height, input.height);
    EXPECT_FALSE(output.hasAlpha);
    if (c.start == kPngStart) {
      EXPECT_TRUE(output.rgba == input.rgba);
    } else {
      EXPECT_LE(LargestColourError(output, input), 12);
    }
  }
  // Standard output is PNG unless --format says JPEG.
  const QpxRun png = Qpx({"convert", "in.png", "-"});
  ASSERT_EQ(png.exitCode, 0) << png.err;
  EXPECT_TRUE(StartsWith(png.out, kPngStart));
  const QpxRun jpeg = Qpx({"convert", "in.png", "-", "--format", "jpeg"});
  ASSERT_EQ(jpeg.exitCode, 0) << jpeg.err;
  EXPECT_TRUE(StartsWith(jpeg.out, kJpegStart));

  const QpxRun bad = Qpx({"convert", "in.png", "z.png", "--format", "gif"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_THAT(bad.err, ::testing::StartsWith("qpx: --format: Check gif value in {"));
  EXPECT_FALSE(fs::exists(Path("z.png")));
}

TEST_F(CliTest, QualitySetsTheJpegQualityWithinOneToAHundred) {
  const Image input = RandomImage(96, 64, false);
  WritePng(Path("in.png"), input, false);
  std::vector<size_t> sizes;
  std::vector<int> errors;
  for (const char* quality : {"10", "85", "100"}) {
    SCOPED_TRACE(quality);
    const QpxRun run = Qpx({"convert", "in.png", "out.jpg", "--quality", quality});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    sizes.push_back(ReadAll(Path("out.jpg")).size());
    errors.push_back(LargestColourError(ReadImage(Path("out.jpg")), input));
  }
  EXPECT_LT(sizes[0], sizes[1]);
  EXPECT_LT(sizes[1], sizes[2]);
  EXPECT_GT(errors[0], errors[2]);
  // The default is 85.
  ASSERT_EQ(Qpx({"convert", "in.png", "default.jpg"}).exitCode, 0);
  EXPECT_EQ(ReadAll(Path("default.jpg")).size(), sizes[1]);

  for (const char* quality : {"0", "101"}) {
    const QpxRun bad = Qpx({"convert", "in.png", "bad.jpg", "--quality", quality});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_EQ(bad.err, std::string("qpx: --quality: Value ") + quality +
                           " not in range 1 to 100 (see 'qpx convert --help')\n");
    EXPECT_FALSE(fs::exists(Path("bad.jpg")));
  }
}

TEST_F(CliTest, JpegOutputLeavesTransparencyOutAndWritesMasksAsGray) {
  const Image input = GradientImage(64, 48, true);
  WritePng(Path("in.png"), input, true);
  const QpxRun run =
      Qpx({"convert", "in.png", "out.jpg", "--mask-out", "mask.jpg", "--quality", "100"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const Image output = ReadImage(Path("out.jpg"));
  EXPECT_FALSE(output.hasAlpha);
  EXPECT_LE(LargestColourError(output, input), 4);
  // The mask, 255 - alpha, as a one-channel JPEG, which reads back as equal colours.
  const Image mask = ReadImage(Path("mask.jpg"));
  ASSERT_EQ(mask.width, input.width);
  int largest = 0;
  for (size_t i = 0; i < mask.rgba.size(); i += 4) {
    EXPECT_EQ(mask.rgba[i], mask.rgba[i + 1]);
    EXPECT_EQ(mask.rgba[i], mask.rgba[i + 2]);
    largest = std::max(largest, std::abs(int(mask.rgba[i]) - (255 - int(input.rgba[i + 3]))));
  }
  EXPECT_LE(largest, 4);
}

TEST_F(CliTest, MethodResultsAreWrittenAsJpeg) {
  WritePng(Path("in.png"), GradientImage(80, 60, false), false);
  const QpxRun run = Qpx(
      {"resample", "in.png", "small.jpg", "--mode", "lanczos3", "--width", "40", "--height", "30"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(StartsWith(ReadAll(Path("small.jpg")), kJpegStart));
  const Image small = ReadImage(Path("small.jpg"));
  EXPECT_EQ(small.width, 40);
  EXPECT_EQ(small.height, 30);
}

}  // namespace
}  // namespace qpx
