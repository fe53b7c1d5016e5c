// qpx's image files: writing and reading back, and every PNG colour type and bit depth and
// JPEG that is read.
#include "image_file_support.h"

namespace qpx {
namespace {

// ---------------------------------------------------------------------------------------------
// Writing and reading back.

TEST_F(ImageFileTest, RoundTripRgb) {
  const Image image = SampleImage(5, 3, false);
  WritePng(Path("out.png"), image, false);
  const Image back = ReadOk(Path("out.png"));
  EXPECT_EQ(back.width, 5);
  EXPECT_EQ(back.height, 3);
  EXPECT_FALSE(back.hasAlpha);
  EXPECT_EQ(back.rgba, image.rgba);
  EXPECT_EQ(Entries(), Names{"out.png"});
}

TEST_F(ImageFileTest, RoundTripRgba) {
  const Image image = SampleImage(4, 6, true);
  WritePng(Path("out.png"), image, true);
  const Image back = ReadOk(Path("out.png"));
  EXPECT_EQ(back.width, 4);
  EXPECT_EQ(back.height, 6);
  EXPECT_TRUE(back.hasAlpha);
  EXPECT_EQ(back.rgba, image.rgba);
  EXPECT_EQ(Entries(), Names{"out.png"});
}

TEST_F(ImageFileTest, WriteWithoutAlphaDropsIt) {
  Image image;
  image.width = 2;
  image.height = 1;
  image.rgba = {10, 20, 30, 7, 40, 50, 60, 0};
  WritePng(Path("out.png"), image, false);
  const Image back = ReadOk(Path("out.png"));
  EXPECT_FALSE(back.hasAlpha);
  EXPECT_EQ(back.rgba, (Bytes{10, 20, 30, 255, 40, 50, 60, 255}));
}

TEST_F(ImageFileTest, GrayWriteKeepsTheRedChannel) {
  const Image image = SampleImage(5, 4, true);
  WriteGrayPng(Path("gray.png"), image);
  EXPECT_EQ(ReadBytes(Path("gray.png"))[25], PNG_COLOR_TYPE_GRAY);
  const Image back = ReadOk(Path("gray.png"));
  EXPECT_EQ(back.width, 5);
  EXPECT_EQ(back.height, 4);
  EXPECT_FALSE(back.hasAlpha);
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    const uint8_t red = image.rgba[i];
    EXPECT_EQ(Bytes(&back.rgba[i], &back.rgba[i] + 4), (Bytes{red, red, red, 255})) << i / 4;
  }
  EXPECT_EQ(Entries(), Names{"gray.png"});
}

TEST_F(ImageFileTest, GrayWriteFailureKeepsExistingFile) {
  const Bytes old = {'o', 'l', 'd'};
  WriteBytes(Path("gray.png"), old);
  Image image = SampleImage(2, 2, false);
  image.height = 3;
  try {
    WriteGrayPng(Path("gray.png"), image);
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()),
              "cannot write '" + Path("gray.png") +
                  "': pixel buffer holds 16 bytes instead of width * height * 4");
  }
  EXPECT_EQ(ReadBytes(Path("gray.png")), old);
  EXPECT_EQ(Entries(), Names{"gray.png"});
}

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0);
  return st.st_mode & 0777;
}

TEST_F(ImageFileTest, NewFileGetsUsualPermissionsAndReplacedOneKeepsItsOwn) {
  WriteBytes(Path("old.png"), {'o', 'l', 'd'});
  ASSERT_EQ(chmod(Path("old.png").c_str(), 0600), 0);
  const mode_t oldMask = umask(022);
  WritePng(Path("new.png"), SampleImage(3, 3, false), false);
  WritePng(Path("old.png"), SampleImage(3, 3, false), false);
  umask(oldMask);
  EXPECT_EQ(ReadOk(Path("old.png")).rgba, SampleImage(3, 3, false).rgba);
  EXPECT_EQ(ModeOf(Path("new.png")), 0644u);
  EXPECT_EQ(ModeOf(Path("old.png")), 0600u);
  EXPECT_EQ(Entries(), (Names{"new.png", "old.png"}));
}

TEST_F(ImageFileTest, WriteFollowsSymbolicLinksAndKeepsThem) {
  std::filesystem::create_directory(Path("sub"));
  std::filesystem::create_symlink("sub/a.png", Path("link.png"));         // dangling at first
  std::filesystem::create_symlink("../link.png", Path("sub/chain.png"));  // a link to the link
  WritePng(Path("sub/chain.png"), SampleImage(2, 2, false), false);
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link.png")));
  EXPECT_TRUE(std::filesystem::is_symlink(Path("sub/chain.png")));
  EXPECT_EQ(ReadOk(Path("sub/a.png")).rgba, SampleImage(2, 2, false).rgba);
  EXPECT_EQ(Entries(), (Names{"link.png", "sub"}));
}

TEST_F(ImageFileTest, DeviceIsWrittenThroughNotReplaced) {
  WritePng("/dev/null", SampleImage(2, 2, false), false);
  struct stat st {};
  ASSERT_EQ(stat("/dev/null", &st), 0);
  EXPECT_TRUE(S_ISCHR(st.st_mode));
  // A stream and a file together: the file is written as well.
  WriteImageFiles({{"/dev/null", SampleImage(2, 2, false), FileColour::Rgb},
                   {Path("b.png"), SampleImage(2, 2, false), FileColour::Gray}});
  EXPECT_EQ(ReadOk(Path("b.png")).width, 2);
  EXPECT_EQ(Entries(), Names{"b.png"});
}

TEST_F(ImageFileTest, OnlyRegularFilesAreRead) {
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);  // opening it would wait for a writer
  EXPECT_EQ(ErrorOf(Path("fifo")), "cannot read '" + Path("fifo") + "': not a regular file");
  EXPECT_EQ(ErrorOf("/dev/zero"), "cannot read '/dev/zero': not a regular file");
}

TEST_F(ImageFileTest, FormatIsChosenBySignatureNotName) {
  WritePng(Path("really_png.jpg"), SampleImage(2, 2, false), false);
  EXPECT_EQ(ReadOk(Path("really_png.jpg")).rgba, SampleImage(2, 2, false).rgba);
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("really_jpeg.png"), 8, 8, 1, {100, 0, 0}));
  EXPECT_EQ(ReadOk(Path("really_jpeg.png")).width, 8);
}

// ---------------------------------------------------------------------------------------------
// PNG colour types and bit depths.

TEST_F(ImageFileTest, PngGray1Bit) {
  ASSERT_NO_FATAL_FAILURE(
      WriteRawPng(Path("g.png"), {8, 1, 1, PNG_COLOR_TYPE_GRAY, false, {{0b10110010}}, {}, {}}));
  const Image image = ReadOk(Path("g.png"));
  EXPECT_EQ(image.width, 8);
  EXPECT_FALSE(image.hasAlpha);
  EXPECT_EQ(image.rgba, Gray({255, 0, 255, 255, 0, 0, 255, 0}));
}

TEST_F(ImageFileTest, PngGray2Bit) {
  // Levels 0..3 scale by 255 / 3 = 85.
  ASSERT_NO_FATAL_FAILURE(
      WriteRawPng(Path("g.png"), {4, 1, 2, PNG_COLOR_TYPE_GRAY, false, {{0b00011011}}, {}, {}}));
  EXPECT_EQ(ReadOk(Path("g.png")).rgba, Gray({0, 85, 170, 255}));
}

TEST_F(ImageFileTest, PngGray4Bit) {
  // Levels 0..15 scale by 255 / 15 = 17; width 3 leaves the last nibble as padding.
  ASSERT_NO_FATAL_FAILURE(
      WriteRawPng(Path("g.png"), {3, 1, 4, PNG_COLOR_TYPE_GRAY, false, {{0x0F, 0x70}}, {}, {}}));
  EXPECT_EQ(ReadOk(Path("g.png")).rgba, Gray({0, 255, 119}));
}

TEST_F(ImageFileTest, PngGray8BitRowOrder) {
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(
      Path("g.png"), {3, 2, 8, PNG_COLOR_TYPE_GRAY, false, {{0, 128, 255}, {1, 2, 3}}, {}, {}}));
  const Image image = ReadOk(Path("g.png"));
  EXPECT_EQ(image.width, 3);
  EXPECT_EQ(image.height, 2);
  EXPECT_EQ(image.rgba, Gray({0, 128, 255, 1, 2, 3}));
}

TEST_F(ImageFileTest, PngGray16BitRounds) {
  ASSERT_NO_FATAL_FAILURE(
      WriteRawPng(Path("g.png"), {6,
                                  1,
                                  16,
                                  PNG_COLOR_TYPE_GRAY,
                                  false,
                                  {Be16({0x0000, 0x0080, 0x0081, 0x1234, 0x12FF, 0xFFFF})},
                                  {},
                                  {}}));
  const Image image = ReadOk(Path("g.png"));
  EXPECT_FALSE(image.hasAlpha);
  EXPECT_EQ(image.rgba, Gray({0, 0, 1, 18, 19, 255}));
}

TEST_F(ImageFileTest, PngGrayAlpha8Bit) {
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(
      Path("ga.png"), {2, 1, 8, PNG_COLOR_TYPE_GRAY_ALPHA, false, {{10, 20, 200, 0}}, {}, {}}));
  const Image image = ReadOk(Path("ga.png"));
  EXPECT_TRUE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{10, 10, 10, 20, 200, 200, 200, 0}));
}

TEST_F(ImageFileTest, PngGrayAlpha16Bit) {
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("ga.png"), {2,
                                                       1,
                                                       16,
                                                       PNG_COLOR_TYPE_GRAY_ALPHA,
                                                       false,
                                                       {Be16({0x12FF, 0x0081, 0xFFFF, 0x1234})},
                                                       {},
                                                       {}}));
  const Image image = ReadOk(Path("ga.png"));
  EXPECT_TRUE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{19, 19, 19, 1, 255, 255, 255, 18}));
}

TEST_F(ImageFileTest, PngRgb8Bit) {
  ASSERT_NO_FATAL_FAILURE(
      WriteRawPng(Path("rgb.png"), {2,
                                    2,
                                    8,
                                    PNG_COLOR_TYPE_RGB,
                                    false,
                                    {{1, 2, 3, 250, 251, 252}, {0, 128, 255, 9, 8, 7}},
                                    {},
                                    {}}));
  const Image image = ReadOk(Path("rgb.png"));
  EXPECT_FALSE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{1, 2, 3, 255, 250, 251, 252, 255, 0, 128, 255, 255, 9, 8, 7, 255}));
}

TEST_F(ImageFileTest, PngRgb16Bit) {
  ASSERT_NO_FATAL_FAILURE(
      WriteRawPng(Path("rgb.png"), {2,
                                    1,
                                    16,
                                    PNG_COLOR_TYPE_RGB,
                                    false,
                                    {Be16({0x12FF, 0x0081, 0xFFFF, 0x1234, 0x0080, 0x0000})},
                                    {},
                                    {}}));
  const Image image = ReadOk(Path("rgb.png"));
  EXPECT_FALSE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{19, 1, 255, 255, 18, 0, 0, 255}));
}

TEST_F(ImageFileTest, PngRgba8Bit) {
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(
      Path("rgba.png"),
      {2, 1, 8, PNG_COLOR_TYPE_RGB_ALPHA, false, {{1, 2, 3, 4, 200, 150, 100, 0}}, {}, {}}));
  const Image image = ReadOk(Path("rgba.png"));
  EXPECT_TRUE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{1, 2, 3, 4, 200, 150, 100, 0}));
}

TEST_F(ImageFileTest, PngRgba16Bit) {
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("rgba.png"), {1,
                                                         1,
                                                         16,
                                                         PNG_COLOR_TYPE_RGB_ALPHA,
                                                         false,
                                                         {Be16({0x1234, 0x12FF, 0x0080, 0x0081})},
                                                         {},
                                                         {}}));
  const Image image = ReadOk(Path("rgba.png"));
  EXPECT_TRUE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{18, 19, 0, 1}));
}

TEST_F(ImageFileTest, PngPalette2BitWithoutTransparency) {
  const std::vector<png_color> palette = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {10, 20, 30}};
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(
      Path("p.png"), {4, 1, 2, PNG_COLOR_TYPE_PALETTE, false, {{0b11100100}}, palette, {}}));
  const Image image = ReadOk(Path("p.png"));
  EXPECT_FALSE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{10, 20, 30, 255, 0, 255, 0, 255, 255, 0, 0, 255, 0, 0, 0, 255}));
}

TEST_F(ImageFileTest, PngPalette8BitWithTransparency) {
  // tRNS lists alpha for the first two entries only; entry 2 stays opaque.
  const std::vector<png_color> palette = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(
      Path("p.png"), {3, 1, 8, PNG_COLOR_TYPE_PALETTE, false, {{2, 0, 1}}, palette, {0, 128}}));
  const Image image = ReadOk(Path("p.png"));
  EXPECT_TRUE(image.hasAlpha);
  EXPECT_EQ(image.rgba, (Bytes{0, 0, 255, 255, 255, 0, 0, 0, 0, 255, 0, 128}));
}

TEST_F(ImageFileTest, PngInterlaced) {
  // 9 x 9 so that every Adam7 pass holds pixels; pixel (x, y) = (20x, 20y, x + y).
  RawPng raw{9, 9, 8, PNG_COLOR_TYPE_RGB, true, {}, {}, {}};
  Bytes expected;
  for (int y = 0; y < 9; ++y) {
    raw.rows.emplace_back();
    for (int x = 0; x < 9; ++x) {
      raw.rows.back().insert(raw.rows.back().end(),
                             {uint8_t(20 * x), uint8_t(20 * y), uint8_t(x + y)});
      expected.insert(expected.end(), {uint8_t(20 * x), uint8_t(20 * y), uint8_t(x + y), 255});
    }
  }
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("i.png"), raw));
  ASSERT_EQ(ReadBytes(Path("i.png")).at(28), 1);  // IHDR interlace method: Adam7
  EXPECT_EQ(ReadOk(Path("i.png")).rgba, expected);
}

// ---------------------------------------------------------------------------------------------
// JPEG.

TEST_F(ImageFileTest, JpegColour) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("c.jpg"), 16, 16, 3, {200, 100, 50}));
  const Image image = ReadOk(Path("c.jpg"));
  EXPECT_EQ(image.width, 16);
  EXPECT_EQ(image.height, 16);
  EXPECT_FALSE(image.hasAlpha);
  ASSERT_EQ(image.rgba.size(), 16u * 16 * 4);
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    EXPECT_NEAR(image.rgba[i], 200, 2);
    EXPECT_NEAR(image.rgba[i + 1], 100, 2);
    EXPECT_NEAR(image.rgba[i + 2], 50, 2);
    EXPECT_EQ(image.rgba[i + 3], 255);
  }
}

TEST_F(ImageFileTest, JpegGray) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("g.jpg"), 8, 5, 1, {77, 0, 0}));
  const Image image = ReadOk(Path("g.jpg"));
  EXPECT_EQ(image.width, 8);
  EXPECT_EQ(image.height, 5);
  EXPECT_FALSE(image.hasAlpha);
  ASSERT_EQ(image.rgba.size(), 8u * 5 * 4);
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    EXPECT_NEAR(image.rgba[i], 77, 2);
    EXPECT_EQ(image.rgba[i + 1], image.rgba[i]);
    EXPECT_EQ(image.rgba[i + 2], image.rgba[i]);
    EXPECT_EQ(image.rgba[i + 3], 255);
  }
}

}  // namespace
}  // namespace qpx
