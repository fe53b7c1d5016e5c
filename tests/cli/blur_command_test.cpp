// qpx blur.
#include "cli_support.h"

namespace qpx {
namespace {

// --- blur -------------------------------------------------------------------------------------
// These need the module's BlurQPX.

TEST_F(CliTest, BlurOfAUniformPictureKeepsItsColour) {
  const Image input = UniformImage(23, 14, 200, 120, 40);
  WritePng(Path("in.png"), input, false);
  for (const char* host : kHostKinds) {
    for (const char* radius : {"1", "2.5", "8", "40"}) {
      SCOPED_TRACE(std::string(host) + " radius " + radius);
      const QpxRun run = Qpx({"blur", "in.png", "out.png", "--radius", radius, "--host", host});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");  // no terminal: no progress bar
      EXPECT_EQ(run.out, "");
      const Image output = ReadImage(Path("out.png"));
      EXPECT_FALSE(output.hasAlpha);
      EXPECT_TRUE(output.rgba == input.rgba);
    }
  }
}

TEST_F(CliTest, BlurWithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(40, 30, false), false);
  ASSERT_EQ(Qpx({"blur", "in.png", "a.png", "--radius", "3"}).exitCode, 0);
  for (const char* yield : {"1", "-1", "-2147483648"}) {
    const QpxRun run = Qpx({"blur", "in.png", "b.png", "--radius", "3", "--yield", yield});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(ReadImage(Path("a.png")).rgba == ReadImage(Path("b.png")).rgba) << yield;
  }
}

TEST_F(CliTest, BlurWithRadiusBelowOneGivesThePictureBack) {
  const Image input = RandomImage(13, 11, false);
  WritePng(Path("in.png"), input, false);
  for (const char* host : kHostKinds) {
    for (const char* radius : {"0", "0.99", "-5"}) {
      SCOPED_TRACE(std::string(host) + " radius " + radius);
      const QpxRun run = Qpx({"blur", "in.png", "out.png", "--host", host, "--radius", radius});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
    }
  }
}

TEST_F(CliTest, BlurSmoothsAnEdge) {
  Image input = UniformImage(12, 3, 0, 0, 0);
  for (int32_t y = 0; y < 3; ++y) {
    for (int32_t x = 6; x < 12; ++x) {
      for (size_t c = 0; c < 3; ++c) input.rgba[(size_t(y) * 12 + size_t(x)) * 4 + c] = 255;
    }
  }
  WritePng(Path("in.png"), input, false);
  const QpxRun run = Qpx({"blur", "in.png", "out.png", "--radius", "1", "--host", "desktop"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const Image output = ReadImage(Path("out.png"));
  // Columns 5 and 6 see one and two white columns of three.
  EXPECT_EQ(output.rgba[(12 + 4) * 4], 0);
  EXPECT_EQ(output.rgba[(12 + 5) * 4], 85);
  EXPECT_EQ(output.rgba[(12 + 6) * 4], 170);
  EXPECT_EQ(output.rgba[(12 + 7) * 4], 255);
}

}  // namespace
}  // namespace qpx
