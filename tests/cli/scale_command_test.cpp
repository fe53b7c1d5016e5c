// qpx scale.
#include "cli_support.h"

namespace qpx {
namespace {

TEST_F(CliScaleTest, EnlargesWithoutAntialiasByRepeatingPixels) {
  const Image input = RandomImage(2, 2, false);
  WritePng(Path("in.png"), input, false);
  for (const Image& output : ScaleInEveryHost(4, 4, false)) {
    EXPECT_EQ(RepeatedPixels(output, input, 2, 2), 16);  // every pixel as a 2 x 2 block
  }
}

TEST_F(CliScaleTest, ShrinkAveragesAcrossFromTheTopRowOfEachBox) {
  // Halving each side: boxes of 2 x 2, of which only the top row is read, so rows 1 and 3 do
  // not count. Each value is (0.5 + 2 * (a + b)) / 4 truncated: the mean of a and b, plus 1/8.
  WritePng(Path("in.png"),
           GrayImage(4, 4,
                     {10, 13, 200, 101,    //
                      255, 255, 255, 255,  //
                      0, 1, 60, 61,        //
                      255, 255, 255, 255}),
           false);
  for (const Image& output : ScaleInEveryHost(2, 2, false)) {
    ExpectGray(output, {11, 150, 0, 60});  // 11.5, 150.5, 0.5 and 60.5, each plus 1/8
  }
}

TEST_F(CliScaleTest, WithAntialiasBlendsNeighbours) {
  // 2 x 2 to 4 x 4: output rows and columns sit at source positions 0, 0.5, 1 and 1.5; the
  // smoothstep weights at 0.5 are 0.5 and 0.5, and beyond the last source pixel it repeats.
  // Each value is rounded half up.
  WritePng(Path("in.png"), GrayImage(2, 2, {0, 100, 200, 41}), false);
  for (const Image& output : ScaleInEveryHost(4, 4, true)) {
    ExpectGray(output, {0, 50, 100, 100,  //
                        100, 85, 71, 71,  // (0 + 100 + 200 + 41) / 4 = 85.25; (100 + 41) / 2 = 70.5
                        200, 121, 41, 41,  //
                        200, 121, 41, 41});
  }
}

TEST_F(CliScaleTest, WithAntialiasGrowingOneWayOnlyRepeatsPixels) {
  const Image input = RandomImage(2, 2, false);
  WritePng(Path("in.png"), input, false);
  for (const Image& output : ScaleInEveryHost(4, 2, true)) {
    EXPECT_EQ(RepeatedPixels(output, input, 2, 1), 8);  // the box resizer, not the smooth one
  }
}

TEST_F(CliScaleTest, ToTheSameSizeGivesThePictureBack) {
  const Image input = RandomImage(7, 5, false);
  WritePng(Path("in.png"), input, false);
  for (const char* host : kHostKinds) {
    for (bool antialias : {false, true}) {
      SCOPED_TRACE(std::string(host) + (antialias ? " antialias" : ""));
      const QpxRun run = Qpx(ScaleArgs("out.png", 7, 5, antialias, {"--host", host}));
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
    }
  }
}

TEST_F(CliScaleTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(20, 15, false), false);
  ExpectYieldingChangesNothing("scale");
}

TEST_F(CliScaleTest, ToNoPixelsIsOneErrorLineAndNoOutput) {
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const QpxRun run = Qpx(ScaleArgs("out.png", 0, 4, false));
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: pic.ScaleQPX(0, 4, False) returned nil\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));

  WriteBytes(Path("out.png"), "precious");
  for (const char* host : kHostKinds) {
    SCOPED_TRACE(host);
    ExpectOneErrorLine(Qpx(ScaleArgs("out.png", 8, -3, true, {"--host", host})));
    EXPECT_EQ(ReadAll(Path("out.png")), "precious");
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "out.png"));
}

}  // namespace
}  // namespace qpx
