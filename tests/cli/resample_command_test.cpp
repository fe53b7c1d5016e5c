// qpx resample.
#include "cli_support.h"

namespace qpx {
namespace {

// --- resample ---------------------------------------------------------------------------------
// These need the module's ScalingQPX.

TEST_F(CliResampleTest, ModesByNameAndByNumberGiveTheSameResult) {
  WritePng(Path("in.png"), RandomImage(9, 7, false), false);
  std::vector<std::vector<uint8_t>> results;
  for (const auto& [number, name] : kModes) {
    SCOPED_TRACE(name);
    const QpxRun byNumber = Qpx(ResampleArgs("a.png", number, 13, 5));
    const QpxRun byName = Qpx(ResampleArgs("b.png", name, 13, 5));
    ASSERT_EQ(byNumber.exitCode, 0) << byNumber.err;
    ASSERT_EQ(byName.exitCode, 0) << byName.err;
    results.push_back(ReadImage(Path("a.png")).rgba);
    EXPECT_TRUE(results.back() == ReadImage(Path("b.png")).rgba);
  }
  // Each mode has a kernel of its own.
  for (size_t i = 0; i < results.size(); ++i) {
    for (size_t j = 0; j < i; ++j) EXPECT_FALSE(results[i] == results[j]) << j + 1 << " " << i + 1;
  }
  // Names in any case.
  ASSERT_EQ(Qpx(ResampleArgs("b.png", "Lanczos8", 13, 5)).exitCode, 0);
  EXPECT_TRUE(ReadImage(Path("b.png")).rgba == results[3]);
}

TEST_F(CliResampleTest, ToTheSameSizeTheExactKernelsGiveThePictureBack) {
  // At scale 1 the distances to the neighbours are whole numbers: there the triangle is not
  // applied, the box and the cubic convolution are 0 and the six-point cubic all but 0.
  const Image input = RandomImage(7, 5, false);
  WritePng(Path("in.png"), input, false);
  for (const char* mode : {"triangle", "box", "cubic", "cubic6"}) {
    SCOPED_TRACE(mode);
    for (const Image& output : ResampleInEveryHost(mode, 7, 5)) {
      EXPECT_TRUE(output.rgba == input.rgba);
    }
  }
}

TEST_F(CliResampleTest, MitchellSoftensAtTheSameSize) {
  // Weights 16/18 at distance 0 and 1/18 at 1, renormalised where the edge cuts them off:
  // 90 * (1/18) / (17/18) = 5.29 at the ends, 90 * (16/18) / 1 = 80 in the middle.
  WritePng(Path("in.png"), GrayImage(3, 1, {0, 90, 0}), false);
  for (const Image& output : ResampleInEveryHost("5", 3, 1)) ExpectGray(output, {5, 80, 5});
}

TEST_F(CliResampleTest, TriangleEnlargementInterpolatesLinearly) {
  // Doubling: output centres fall a quarter of a pixel from the source centres, weights 3/4 and
  // 1/4; at the edges the single neighbour in reach is renormalised to weight 1. Rows first,
  // then columns, each rounded half up.
  WritePng(Path("in.png"), GrayImage(2, 2, {0, 100, 200, 40}), false);
  for (const Image& output : ResampleInEveryHost("triangle", 4, 4)) {
    ExpectGray(output, {0, 25, 75, 100,    //
                        50, 59, 76, 85,    // 58.75, 76.25
                        150, 126, 79, 55,  // 126.25, 78.75
                        200, 160, 80, 40});
  }
}

TEST_F(CliResampleTest, BoxShrinkRoundsAfterEachPass) {
  // Halving: each output pixel has weight 1 for the two source pixels whose centres lie within
  // a quarter of an output pixel. Across: (10 + 13) / 2 = 11.5 and (200 + 101) / 2 = 150.5
  // round up to 12 and 151, (0 + 1) / 2 to 1 and (60 + 61) / 2 to 61; down, (12 + 1) / 2 = 6.5
  // rounds to 7 where the mean of all four, 6, would not.
  WritePng(Path("in.png"), GrayImage(4, 2, {10, 13, 200, 101, 0, 1, 60, 61}), false);
  for (const Image& output : ResampleInEveryHost("box", 2, 2)) ExpectGray(output, {12, 151, 1, 61});
  for (const Image& output : ResampleInEveryHost("box", 2, 1)) ExpectGray(output, {7, 106});
}

TEST_F(CliResampleTest, UniformPictureStaysUniformWithEveryMode) {
  // The weights are renormalised by their sum, so a single colour comes through whatever their
  // signs.
  WritePng(Path("in.png"), UniformImage(9, 7, 200, 120, 40), false);
  for (const auto& [number, name] : kModes) {
    for (const auto& [width, height] : {std::pair{4, 3}, {20, 17}, {20, 3}}) {
      SCOPED_TRACE(std::string(name) + " to " + std::to_string(width) + " x " +
                   std::to_string(height));
      for (const Image& output : ResampleInEveryHost(number, width, height)) {
        EXPECT_TRUE(output.rgba == UniformImage(width, height, 200, 120, 40).rgba);
      }
    }
  }
}

TEST_F(CliResampleTest, PictureWithAlphaComesBackOpaque) {
  WritePng(Path("in.png"), RandomImage(6, 4, true), true);
  for (const char* layout : {"1", "2"}) {
    SCOPED_TRACE(layout);
    const QpxRun run = Qpx(ResampleArgs("out.png", "lanczos3", 9, 5,
                                        {"--host", "desktop", "--alpha", "--layout", layout}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Image output = ReadImage(Path("out.png"));
    EXPECT_EQ(output.width, 9);
    for (size_t i = 3; i < output.rgba.size(); i += 4) EXPECT_EQ(output.rgba[i], 255) << i / 4;
  }
}

TEST_F(CliResampleTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(20, 15, false), false);
  ASSERT_EQ(Qpx(ResampleArgs("a.png", "mitchell", 45, 11)).exitCode, 0);
  for (const char* yield : {"1", "-1", "-2147483648"}) {
    const QpxRun run = Qpx(ResampleArgs("b.png", "mitchell", 45, 11, {"--yield", yield}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(ReadImage(Path("a.png")).rgba == ReadImage(Path("b.png")).rgba) << yield;
  }
}

TEST_F(CliResampleTest, NilResultIsOneErrorLineAndNoOutput) {
  // Mode numbers outside 1 to 7 reach the method, which answers nil, as it does for no pixels.
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {ResampleArgs("out.png", "0", 4, 4), "pic.ScalingQPX(0, 4, 4)"},
      {ResampleArgs("out.png", "8", 4, 4), "pic.ScalingQPX(8, 4, 4)"},
      {ResampleArgs("out.png", "-1", 4, 4), "pic.ScalingQPX(-1, 4, 4)"},
      {ResampleArgs("out.png", "box", 0, 4), "pic.ScalingQPX(2, 0, 4)"},
      {ResampleArgs("out.png", "cubic", 5, -3), "pic.ScalingQPX(6, 5, -3)"},
  };
  for (const auto& [args, call] : cases) {
    SCOPED_TRACE(call);
    const QpxRun run = Qpx(args);
    ExpectOneErrorLine(run);
    EXPECT_EQ(run.err, std::string("qpx: ") + call + " returned nil\n");
    EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
  }
  WriteBytes(Path("out.png"), "precious");
  for (const char* host : kHostKinds) {
    SCOPED_TRACE(host);
    for (const auto& [args, call] : cases) {
      std::vector<std::string> withHost = args;
      withHost.insert(withHost.end(), {"--host", host});
      ExpectOneErrorLine(Qpx(withHost));
      EXPECT_EQ(ReadAll(Path("out.png")), "precious") << call;
    }
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "out.png"));
}

TEST_F(CliTest, UnknownModeNameIsAUsageErrorListingTheNames) {
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const QpxRun run = Qpx(ResampleArgs("out.png", "sharp", 4, 4));
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err,
            "qpx: --mode: unknown mode 'sharp': expected a 32-bit integer or one of triangle, "
            "box, lanczos3, lanczos8, mitchell, cubic, cubic6 (see 'qpx resample --help')\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
}

TEST_F(CliTest, ResampleHelpListsTheModes) {
  const QpxRun run = Qpx({"resample", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.out, HasSubstr("--mode"));
  for (const auto& [number, name] : kModes) {
    EXPECT_THAT(run.out, HasSubstr("\n  " + std::string(number) + "  " + name + " "));
  }
}

}  // namespace
}  // namespace qpx
