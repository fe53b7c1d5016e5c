// qpx draw.
#include "cli_support.h"

namespace qpx {
namespace {

// --- draw -------------------------------------------------------------------------------------
// These need the module's DrawPictureFQPX.

class CliDrawTest : public CliTest {
 protected:
  // Runs "qpx draw dest.png pic.png out.png" with `more` in every kind of host and reads each
  // out.png back, expecting a quiet success.
  std::vector<Image> DrawInEveryHost(const std::vector<std::string>& more) {
    std::vector<Image> outputs;
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(host);
      std::vector<std::string> args = {"draw", "dest.png", "pic.png", "out.png", "--host", host};
      args.insert(args.end(), more.begin(), more.end());
      const QpxRun run = Qpx(args);
      EXPECT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.out, "");
      if (run.exitCode == 0) outputs.push_back(ReadImage(Path("out.png")));
    }
    EXPECT_EQ(outputs.size(), std::size(kHostKinds));
    return outputs;
  }
};

TEST_F(CliDrawTest, AtWholeCoordinatesCopiesThePictureIntoItsRectangle) {
  const Image destination = RandomImage(9, 7, false, 11);
  const Image picture = RandomImage(4, 3, false, 12);
  WritePng(Path("dest.png"), destination, false);
  WritePng(Path("pic.png"), picture, false);
  for (const Image& output : DrawInEveryHost({"--x", "3", "--y", "2"})) {
    EXPECT_FALSE(output.hasAlpha);
    EXPECT_TRUE(output.rgba == Pasted(destination, picture, 3, 2).rgba);
  }
  // Opacity 1 is the default.
  for (const Image& output : DrawInEveryHost({"--x", "5", "--y", "4", "--opacity", "1"})) {
    EXPECT_TRUE(output.rgba == Pasted(destination, picture, 5, 4).rgba);
  }
}

TEST_F(CliDrawTest, AtHalfOpacityAddsTheTruncatedHalves) {
  // trunc(0.5 x 255) + trunc(0.5 x 255) = 127 + 127, and trunc(0.5 x 201) + trunc(0.5 x 99) =
  // 100 + 49; outside the picture's rectangle the destination is kept.
  WritePng(Path("dest.png"), GrayImage(3, 1, {255, 255, 99}), false);
  WritePng(Path("pic.png"), GrayImage(2, 1, {255, 201}), false);
  for (const Image& output : DrawInEveryHost({"--x", "1", "--y", "0", "--opacity", "0.5"})) {
    ExpectGray(output, {255, 254, 149});
  }
}

TEST_F(CliDrawTest, NegativeFractionalCoordinatesInBothForms) {
  // x = -3.25: ix = -4 and fx = 0.75, so destination column X takes 0.75 of picture column
  // X + 3 and 0.25 of column X + 4, and whatever weight lies outside the picture from its own
  // colour. y = -1: row 0 shows the picture's row 1.
  WritePng(Path("dest.png"), GrayImage(4, 1, {10, 10, 100, 77}), false);
  WritePng(Path("pic.png"), GrayImage(6, 2, {1, 2, 3, 4, 5, 6, 40, 200, 100, 60, 20, 80}), false);
  // 0.75 x 60 + 0.25 x 20 = 45 + 5; 0.75 x 20 + 0.25 x 80 = 15 + 20; 0.75 x 80 + 0.25 x 100 =
  // 60 + 25; the last column is out of the picture's reach.
  const std::vector<uint8_t> expected = {50, 35, 85, 77};
  for (const Image& output : DrawInEveryHost({"--x", "-3.25", "--y", "-1"})) {
    ExpectGray(output, expected);
  }
  for (const Image& output : DrawInEveryHost({"--x=-3.25", "--y=-1"})) {
    ExpectGray(output, expected);
  }
}

TEST_F(CliDrawTest, FullyTransparentPixelsOfThePictureLetTheDestinationShow) {
  const Image destination = RandomImage(5, 4, false, 21);
  const Image picture = RandomImage(3, 2, false, 22);
  WritePng(Path("dest.png"), destination, false);
  // Alpha 0 is mask 255: no weight for that pixel, all of it to the destination's colour.
  WritePng(Path("pic.png"), WithAlpha(picture, {255, 0, 255, 0, 255, 255}), true);
  WritePng(Path("mask.png"), GrayImage(3, 2, {0, 255, 0, 255, 0, 0}), false);
  Image expected = Pasted(destination, picture, 1, 1);
  for (const auto& [x, y] : {std::pair{1, 0}, {0, 1}}) {
    std::copy_n(PixelAt(destination, 1 + x, 1 + y), 3,
                &expected.rgba[(size_t(1 + y) * 5 + size_t(1 + x)) * 4]);
  }
  for (const Image& output : DrawInEveryHost({"--x", "1", "--y", "1"})) {
    EXPECT_FALSE(output.hasAlpha);
    EXPECT_TRUE(output.rgba == expected.rgba);
  }
  // The same through --mask, which gives the drawn picture its mask.
  WritePng(Path("pic.png"), picture, false);
  for (const Image& output : DrawInEveryHost({"--x", "1", "--y", "1", "--mask", "mask.png"})) {
    EXPECT_TRUE(output.rgba == expected.rgba);
  }
}

TEST_F(CliDrawTest, DestinationTransparencyIsWrittenBack) {
  // The destination's mask comes from its file and goes back into the output; the method
  // changes its colours only.
  const Image destination = RandomImage(6, 5, true, 31);
  const Image picture = RandomImage(2, 2, false, 32);
  WritePng(Path("dest.png"), destination, true);
  WritePng(Path("pic.png"), picture, false);
  for (const Image& output : DrawInEveryHost({"--x", "2", "--y", "3", "--mask-out", "m.png"})) {
    EXPECT_TRUE(output.hasAlpha);
    EXPECT_TRUE(output.rgba == Pasted(destination, picture, 2, 3).rgba);
    ExpectGrayFile(Path("m.png"), MaskOfAlpha(destination));
  }
}

TEST_F(CliDrawTest, FalseResultIsOneErrorLineAndNoOutput) {
  // Coordinates whose floor is outside the 32-bit range give false.
  WritePng(Path("dest.png"), RandomImage(4, 3, false), false);
  WritePng(Path("pic.png"), RandomImage(2, 2, false), false);
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"--x", "1e300", "--y", "0"}, "dest.DrawPictureFQPX(pic, 1e+300, 0.0, 1.0)"},
      {{"--x", "0", "--y", "nan"}, "dest.DrawPictureFQPX(pic, 0.0, nan, 1.0)"},
      {{"--x=-2147483649", "--y", "0"}, "dest.DrawPictureFQPX(pic, -2147483649.0, 0.0, 1.0)"},
      {{"--x", "2147483648", "--y", "0"}, "dest.DrawPictureFQPX(pic, 2147483648.0, 0.0, 1.0)"},
  };
  WriteBytes(Path("out.png"), "precious");
  for (const auto& [more, call] : cases) {
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(std::string(call) + " " + host);
      std::vector<std::string> args = {"draw", "dest.png", "pic.png", "out.png", "--host", host};
      args.insert(args.end(), more.begin(), more.end());
      const QpxRun run = Qpx(args);
      ExpectOneErrorLine(run);
      EXPECT_EQ(run.err, std::string("qpx: ") + call + " answered False\n");
      EXPECT_EQ(ReadAll(Path("out.png")), "precious");
    }
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("dest.png", "out.png", "pic.png"));
}

TEST_F(CliDrawTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("dest.png"), RandomImage(20, 15, false, 41), false);
  WritePng(Path("pic.png"), RandomImage(7, 6, true, 42), true);
  const std::vector<std::string> args = {"--x", "3.4", "--y", "-1.7", "--opacity", "0.8"};
  const std::vector<Image> once = DrawInEveryHost(args);
  for (const char* yield : {"1", "-1", "-2147483648"}) {
    std::vector<std::string> withYield = args;
    withYield.insert(withYield.end(), {"--yield", yield});
    const std::vector<Image> again = DrawInEveryHost(withYield);
    ASSERT_EQ(again.size(), once.size());
    for (size_t i = 0; i < once.size(); ++i) EXPECT_TRUE(again[i].rgba == once[i].rgba) << yield;
  }
}

}  // namespace
}  // namespace qpx
