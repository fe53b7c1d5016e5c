// qpx convert, and the transparency rule every picture command follows.
#include "cli_support.h"

namespace qpx {
namespace {

// --- convert ----------------------------------------------------------------------------------

TEST_F(CliTest, ConvertRoundTripIsLosslessForEveryHostAndLayout) {
  // A transparent file goes through a picture with a mask of 255 - alpha, which --mask-out
  // writes out as the host holds it.
  for (bool transparent : {false, true}) {
    const Image input = RandomImage(29, 17, transparent);
    WritePng(Path("in.png"), input, transparent);
    for (const char* host : kHostKinds) {
      for (int layout = 1; layout <= 6; ++layout) {
        SCOPED_TRACE(std::string(host) + " layout " + std::to_string(layout) +
                     (transparent ? " transparent" : ""));
        std::vector<std::string> args = {
            "convert", "in.png", "out.png", "--host", host, "--layout", std::to_string(layout)};
        if (transparent) args.insert(args.end(), {"--mask-out", "mask.png"});
        const QpxRun run = Qpx(args);
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, "");
        const Image output = ReadImage(Path("out.png"));
        EXPECT_EQ(output.hasAlpha, transparent);
        EXPECT_EQ(output.width, input.width);
        EXPECT_EQ(output.height, input.height);
        EXPECT_TRUE(output.rgba == input.rgba);  // colours under alpha 0 too
        if (transparent) ExpectGrayFile(Path("mask.png"), MaskOfAlpha(input));
        fs::remove(Path("out.png"));
      }
    }
  }
}

TEST_F(CliTest, ConvertWithAlphaKeepsAlphaWithinPremultiplicationRounding) {
  const Image input = RandomImage(31, 19, true);
  WritePng(Path("in.png"), input, true);
  for (const char* host : kHostKinds) {
    for (int layout : {1, 2}) {
      SCOPED_TRACE(std::string(host) + " layout " + std::to_string(layout));
      const QpxRun run = Qpx({"convert", "in.png", "out.png", "--alpha", "--host", host, "--layout",
                              std::to_string(layout)});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");
      const Image output = ReadImage(Path("out.png"));
      ASSERT_TRUE(output.hasAlpha);
      ASSERT_EQ(output.rgba.size(), input.rgba.size());
      int inexact = 0;
      for (size_t i = 0; i < input.rgba.size(); i += 4) {
        const int a = input.rgba[i + 3];
        ASSERT_EQ(output.rgba[i + 3], a) << "pixel " << i / 4;
        if (a == 0) continue;  // no colour survives full transparency
        for (size_t c = 0; c < 3; ++c) {
          const int error = std::abs(int(output.rgba[i + c]) - int(input.rgba[i + c]));
          if (a == 255) {
            ASSERT_EQ(error, 0) << "pixel " << i / 4;
          } else {
            // Premultiplying rounds to half a step of c * a / 255; dividing back magnifies it.
            ASSERT_LE(error, 127.5 / a + 0.5) << "pixel " << i / 4 << " alpha " << a;
          }
          inexact += error != 0;
        }
      }
      if (std::string(host) != "desktop") {
        EXPECT_EQ(inexact, 0);  // stored unpremultiplied
      }
      fs::remove(Path("out.png"));
    }
  }
}

TEST_F(CliTest, ConvertWithAlphaOfAnOpaqueFileGivesAnOpaqueAlphaChannel) {
  const Image input = RandomImage(8, 5, false);
  WritePng(Path("in.png"), input, false);
  const QpxRun run =
      Qpx({"convert", "in.png", "out.png", "--host", "desktop", "--alpha", "--layout", "2"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const Image output = ReadImage(Path("out.png"));
  EXPECT_TRUE(output.hasAlpha);
  EXPECT_TRUE(output.rgba == input.rgba);
}

TEST_F(CliTest, ConvertReadsJpeg) {
  // A tiny JPEG is not worth a libjpeg dependency here: a PNG under a .jpg name shows that
  // files are told apart by content, and JPEG decoding has tests of its own.
  const Image input = RandomImage(4, 4, false);
  WritePng(Path("in.jpg"), input, false);
  const QpxRun run = Qpx({"convert", "in.jpg", "out.png"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
}

// --- transparency -----------------------------------------------------------------------------

TEST_F(CliTest, AlphaOptionGivesAnAlphaChannelAndNoMask) {
  WritePng(Path("in.png"), RandomImage(6, 5, true), true);
  const QpxRun run = Qpx({"convert", "in.png", "out.png", "--host", "desktop", "--alpha",
                          "--layout", "1", "--mask-out", "mask.png"});
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: the picture has no mask to write to 'mask.png'\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
}

TEST_F(CliTest, FileWithoutTransparencyGivesAPictureWithoutMask) {
  WritePng(Path("in.png"), RandomImage(6, 5, false), false);
  for (const char* host : kHostKinds) {
    SCOPED_TRACE(host);
    ExpectOneErrorLine(
        Qpx({"convert", "in.png", "out.png", "--host", host, "--mask-out", "mask.png"}));
    EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
  }
}

TEST_F(CliTest, MaskFileGivesThePictureItsRedChannelAsMask) {
  const Image input = RandomImage(7, 6, false, 5);
  const Image mask = RandomImage(7, 6, false, 6);  // colour: only red counts
  WritePng(Path("opaque.png"), input, false);
  WritePng(Path("transparent.png"), WithAlpha(input, std::vector<uint8_t>(42, 9)), true);
  WritePng(Path("m.png"), mask, false);
  for (const char* file : {"opaque.png", "transparent.png"}) {
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(std::string(file) + " " + host);
      const QpxRun run = Qpx({"convert", file, "out.png", "--host", host, "--mask", "m.png",
                              "--mask-out", "mask.png"});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      const std::vector<uint8_t> red = RedChannel(mask);
      const Image output = ReadImage(Path("out.png"));
      ASSERT_TRUE(output.hasAlpha);
      for (size_t i = 0; i < red.size(); ++i) {
        EXPECT_EQ(output.rgba[i * 4 + 3], 255 - red[i]) << i;
        EXPECT_EQ(std::memcmp(&output.rgba[i * 4], &input.rgba[i * 4], 3), 0) << i;
      }
      ExpectGrayFile(Path("mask.png"), red);
    }
  }
}

TEST_F(CliTest, MaskOfAnotherSizeIsOneErrorLineAndNoOutput) {
  WritePng(Path("in.png"), RandomImage(7, 6, false), false);
  WritePng(Path("m.png"), RandomImage(6, 7, false), false);
  WriteBytes(Path("out.png"), "precious");
  const QpxRun run = Qpx({"convert", "in.png", "out.png", "--mask", "m.png"});
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: the mask 'm.png' is 6 x 7 pixels, the picture 'in.png' 7 x 6\n");
  EXPECT_EQ(ReadAll(Path("out.png")), "precious");
  ExpectOneErrorLine(Qpx({"blur", "in.png", "new.png", "--radius", "1", "--mask", "missing.png"}));
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "m.png", "out.png"));
}

TEST_F(CliTest, NewResultsOfTheMethodsHaveNoMask) {
  WritePng(Path("in.png"), RandomImage(8, 6, true), true);
  const std::vector<std::vector<std::string>> calls = {
      {"blur", "in.png", "out.png", "--radius", "2"},
      {"scale", "in.png", "out.png", "--width", "4", "--height", "3"},
      {"resample", "in.png", "out.png", "--mode", "box", "--width", "16", "--height", "12"}};
  for (const auto& args : calls) {
    SCOPED_TRACE(args[0]);
    const QpxRun run = Qpx(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(PngColourType(Path("out.png")), 2);  // opaque RGB
    std::vector<std::string> withMaskOut = args;
    withMaskOut.insert(withMaskOut.end(), {"--mask-out", "mask.png"});
    const QpxRun refused = Qpx(withMaskOut);
    ExpectOneErrorLine(refused);
    EXPECT_THAT(refused.err, HasSubstr("has no mask to write to 'mask.png'"));
    EXPECT_FALSE(fs::exists(Path("mask.png")));
  }
}

TEST_F(CliTest, ReceiverHandedBackKeepsItsMask) {
  const Image input = RandomImage(8, 6, true);
  WritePng(Path("in.png"), input, true);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"blur", "in.png", "out.png", "--radius", "0"},
        {"scale", "in.png", "out.png", "--width", "8", "--height", "6"}}) {
    SCOPED_TRACE(args[0]);
    ASSERT_EQ(Qpx(args).exitCode, 0);
    EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
  }
}

}  // namespace
}  // namespace qpx
