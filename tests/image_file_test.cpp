#include "image_file.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csetjmp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>
#include <png.h>

namespace qpx {
namespace {

// ---------------------------------------------------------------------------------------------
// Helpers that make input files with libpng and libjpeg directly.

struct RawPng {
  uint32_t width = 0, height = 0;
  int bitDepth = 8;
  int colorType = PNG_COLOR_TYPE_GRAY;
  bool interlaced = false;
  std::vector<std::vector<uint8_t>> rows;  // packed as in the file; 16-bit samples big-endian
  std::vector<png_color> palette;
  std::vector<uint8_t> paletteAlpha;  // tRNS entries, if any
};

// C-style so that libpng's longjmp skips no destructors.
bool EncodePng(FILE* file, png_structp png, png_infop info, const RawPng* raw, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, raw->width, raw->height, raw->bitDepth, raw->colorType,
               raw->interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!raw->palette.empty()) {
    png_set_PLTE(png, info, raw->palette.data(), static_cast<int>(raw->palette.size()));
  }
  if (!raw->paletteAlpha.empty()) {
    png_set_tRNS(png, info, raw->paletteAlpha.data(), static_cast<int>(raw->paletteAlpha.size()),
                 nullptr);
  }
  png_write_info(png, info);
  png_write_image(png, rows);  // does the Adam7 passes itself
  png_write_end(png, nullptr);
  return true;
}

void WriteRawPng(const std::string& path, const RawPng& raw) {
  ASSERT_EQ(raw.rows.size(), raw.height);
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::vector<png_bytep> rows;
  for (const auto& row : raw.rows) rows.push_back(const_cast<png_bytep>(row.data()));
  const bool ok = EncodePng(file, png, info, &raw, rows.data());
  png_destroy_write_struct(&png, &info);
  EXPECT_EQ(std::fclose(file), 0);
  ASSERT_TRUE(ok);
}

// Flat or noisy JPEG at quality 100; components 1 (gray, uses `colour[0]`), 3 (RGB) or 4 (CMYK).
void WriteJpeg(const std::string& path, int width, int height, int components,
               std::array<uint8_t, 4> colour, bool noise = false) {
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  jpeg_compress_struct cinfo{};
  jpeg_error_mgr err{};
  cinfo.err = jpeg_std_error(&err);  // default error_exit: exit(), fine for valid input
  jpeg_create_compress(&cinfo);
  jpeg_stdio_dest(&cinfo, file);
  cinfo.image_width = static_cast<JDIMENSION>(width);
  cinfo.image_height = static_cast<JDIMENSION>(height);
  cinfo.input_components = components;
  cinfo.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 3 ? JCS_RGB : JCS_CMYK;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, 100, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  std::vector<uint8_t> row(size_t(width) * components);
  uint32_t seed = 12345;
  while (cinfo.next_scanline < cinfo.image_height) {
    for (size_t i = 0; i < row.size(); ++i) {
      seed = seed * 1103515245u + 12345u;
      row[i] = noise ? uint8_t(seed >> 24) : colour[i % components];
    }
    JSAMPROW rowPointer = row.data();
    jpeg_write_scanlines(&cinfo, &rowPointer, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  ASSERT_EQ(std::fclose(file), 0);
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// RGBA pixels for gray levels, opaque.
std::vector<uint8_t> Gray(std::initializer_list<int> levels) {
  std::vector<uint8_t> out;
  for (int v : levels) out.insert(out.end(), {uint8_t(v), uint8_t(v), uint8_t(v), 255});
  return out;
}

// 16-bit samples as the big-endian bytes a PNG row holds.
std::vector<uint8_t> Be16(std::initializer_list<int> samples) {
  std::vector<uint8_t> out;
  for (int v : samples) out.insert(out.end(), {uint8_t(v >> 8), uint8_t(v & 0xff)});
  return out;
}

// Expected 16 -> 8 bit values, round(v * 255 / 65535) = round(v / 257):
//   0x0080 = 128 -> 0.498 -> 0      0x0081 = 129 -> 0.502 -> 1
//   0x1234 = 4660 -> 18.13 -> 18     0x12FF = 4863 -> 18.92 -> 19 (plain truncation would give 18)
//   0xFFFF -> 255

Image ReadOk(const std::string& path) {
  try {
    return ReadImage(path);
  } catch (const ImageError& e) {
    ADD_FAILURE() << e.what();
    return {};
  }
}

// "'path'" built by appending: g++ 12 gives a false -Wrestrict for "'" + std::string.
std::string Quoted(const std::string& path) {
  std::string out(1, '\'');
  return out.append(path).append(1, '\'');
}

std::string ErrorOf(const std::string& path) {
  try {
    ReadImage(path);
  } catch (const ImageError& e) {
    return e.what();
  }
  return "(no error)";
}

std::string WriteErrorOf(const std::string& path, const Image& image, bool withAlpha) {
  try {
    WritePng(path, image, withAlpha);
  } catch (const ImageError& e) {
    return e.what();
  }
  return "(no error)";
}

class ImageFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string base = ::testing::TempDir();
    if (base.empty() || base.back() != '/') base += '/';
    std::string name = base + "qpx_image_XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    dir_ = name;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string dir_;
};

using Names = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

// ---------------------------------------------------------------------------------------------
// Writing and reading back.

Image SampleImage(int width, int height, bool varyAlpha) {
  Image image;
  image.width = width;
  image.height = height;
  image.hasAlpha = varyAlpha;
  for (int i = 0; i < width * height; ++i) {
    image.rgba.insert(image.rgba.end(), {uint8_t(i * 37), uint8_t(255 - i * 11), uint8_t(i * i),
                                         uint8_t(varyAlpha ? i * 29 + 3 : 255)});
  }
  return image;
}

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
  WritePngFiles({{"/dev/null", SampleImage(2, 2, false), PngColour::Rgb},
                 {Path("b.png"), SampleImage(2, 2, false), PngColour::Gray}});
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

// ---------------------------------------------------------------------------------------------
// Read errors: one-line messages, nothing printed by the libraries.

TEST_F(ImageFileTest, MissingFile) {
  EXPECT_EQ(ErrorOf(Path("none.png")), "cannot read '" + Path("none.png") + "': no such file");
}

TEST_F(ImageFileTest, Directory) {
  EXPECT_EQ(ErrorOf(dir_), "cannot read '" + dir_ + "': is a directory");
}

TEST_F(ImageFileTest, TextAndEmptyFiles) {
  WriteBytes(Path("a.txt"), {'h', 'e', 'l', 'l', 'o', '\n'});
  WriteBytes(Path("empty.png"), {});
  EXPECT_EQ(ErrorOf(Path("a.txt")), Quoted(Path("a.txt")) + " is not a PNG or JPEG file");
  EXPECT_EQ(ErrorOf(Path("empty.png")), Quoted(Path("empty.png")) + " is not a PNG or JPEG file");
}

TEST_F(ImageFileTest, ControlCharactersInPathStayOnOneLine) {
  const std::string message = ErrorOf(Path("a\nb.png"));
  EXPECT_EQ(message, "cannot read '" + Path("a?b.png") + "': no such file");
}

TEST_F(ImageFileTest, TruncatedPng) {
  RawPng raw{64, 64, 8, PNG_COLOR_TYPE_RGB, false, {}, {}, {}};
  uint32_t seed = 1;
  for (int y = 0; y < 64; ++y) {
    raw.rows.emplace_back();
    for (int i = 0; i < 64 * 3; ++i)
      raw.rows.back().push_back(uint8_t((seed = seed * 69069 + 1) >> 24));
  }
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("full.png"), raw));
  const Bytes bytes = ReadBytes(Path("full.png"));
  ASSERT_GT(bytes.size(), 10000u);
  WriteBytes(Path("cut.png"), Bytes(bytes.begin(), bytes.begin() + bytes.size() / 2));
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("cut.png"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message, Quoted(Path("cut.png")) + ": corrupt PNG data (unexpected end of file)");
  EXPECT_EQ(message.find('\n'), std::string::npos);
}

TEST_F(ImageFileTest, CorruptPngCrc) {
  WritePng(Path("ok.png"), SampleImage(4, 4, false), false);
  Bytes bytes = ReadBytes(Path("ok.png"));
  // Before IEND (12 bytes) and the IDAT CRC (4 bytes): IDAT data, whose CRC no longer matches.
  bytes[bytes.size() - 20] ^= 0x01;
  WriteBytes(Path("bad.png"), bytes);
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("bad.png"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message.rfind(Quoted(Path("bad.png")) + ": corrupt PNG data (", 0), 0u) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos);
}

TEST_F(ImageFileTest, TruncatedJpeg) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("full.jpg"), 64, 64, 3, {}, true));
  const Bytes bytes = ReadBytes(Path("full.jpg"));
  ASSERT_GT(bytes.size(), 5000u);
  WriteBytes(Path("cut.jpg"), Bytes(bytes.begin(), bytes.begin() + bytes.size() / 2));
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("cut.jpg"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message, Quoted(Path("cut.jpg")) + ": corrupt JPEG data (Premature end of JPEG file)");
}

// A JPEG of noise whose scan data is changed by `change`, which gets the bytes between the
// start-of-scan header and the end marker.
std::vector<uint8_t> ChangedJpeg(const std::string& path,
                                 const std::function<void(Bytes& scan)>& change) {
  WriteJpeg(path, 64, 64, 3, {}, true);
  Bytes bytes = ReadBytes(path);
  size_t sos = 2;
  while (sos + 4 < bytes.size() && !(bytes[sos] == 0xff && bytes[sos + 1] == 0xda)) {
    sos += 2 + size_t(bytes[sos + 2] << 8 | bytes[sos + 3]);
  }
  const size_t start = sos + 2 + size_t(bytes[sos + 2] << 8 | bytes[sos + 3]);
  Bytes scan(bytes.begin() + std::ptrdiff_t(start), bytes.end() - 2);
  change(scan);
  bytes.resize(start);
  bytes.insert(bytes.end(), scan.begin(), scan.end());
  bytes.insert(bytes.end(), {0xff, 0xd9});
  return bytes;
}

TEST_F(ImageFileTest, JpegScanCutBeforeItsEndMarkerIsCorrupt) {
  WriteBytes(Path("cut.jpg"),
             ChangedJpeg(Path("full.jpg"), [](Bytes& scan) { scan.resize(scan.size() / 2); }));
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("cut.jpg"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message,
            Quoted(Path("cut.jpg")) + ": corrupt JPEG data (premature end of data segment)");
}

TEST_F(ImageFileTest, JpegWithMangledScanDataIsCorrupt) {
  WriteBytes(Path("bad.jpg"), ChangedJpeg(Path("full.jpg"), [](Bytes& scan) {
               for (size_t i = scan.size() / 3; i < scan.size() / 2; ++i) {
                 scan[i] = uint8_t(scan[i] * 7 + 1);
                 if (scan[i] == 0xff) scan[i] = 0;  // no markers inside the scan
               }
             }));
  const std::string message = ErrorOf(Path("bad.jpg"));
  EXPECT_EQ(message.rfind(Quoted(Path("bad.jpg")) + ": corrupt JPEG data (", 0), 0u) << message;
}

// `bytes` of a JPEG with the size in its frame header replaced.
Bytes WithFrameSize(Bytes bytes, uint16_t width, uint16_t height) {
  for (size_t i = 2; i + 9 < bytes.size(); ++i) {
    if (bytes[i] == 0xff && bytes[i + 1] == 0xc0) {
      bytes[i + 5] = uint8_t(height >> 8);
      bytes[i + 6] = uint8_t(height);
      bytes[i + 7] = uint8_t(width >> 8);
      bytes[i + 8] = uint8_t(width);
      return bytes;
    }
  }
  ADD_FAILURE() << "no frame header";
  return bytes;
}

TEST_F(ImageFileTest, SizesClaimedByHeadersAreCheckedBeforeDecoding) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("small.jpg"), 16, 16, 3, {}, true));
  const Bytes jpeg = ReadBytes(Path("small.jpg"));
  WriteBytes(Path("huge.jpg"), WithFrameSize(jpeg, 32767, 32767));
  EXPECT_EQ(ErrorOf(Path("huge.jpg")),
            Quoted(Path("huge.jpg")) +
                " is 32767 x 32767 pixels, more than the 2^31 bytes a host picture holds");
  WriteBytes(Path("big.jpg"), WithFrameSize(jpeg, 10001, 10000));
  EXPECT_EQ(ErrorOf(Path("big.jpg")), Quoted(Path("big.jpg")) +
                                          " is 10001 x 10000 pixels, more than the 100000000 "
                                          "allowed (--max-pixels raises the limit)");
  // Allowed, it fails on its data, having taken memory for the rows it decoded only.
  const auto start = std::chrono::steady_clock::now();
  try {
    ReadImage(Path("big.jpg"), 200'000'000);
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()).rfind(Quoted(Path("big.jpg")) + ": corrupt JPEG data", 0), 0u)
        << e.what();
  }
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5);

  WritePng(Path("ok.png"), SampleImage(4, 3, false), false);
  try {
    ReadImage(Path("ok.png"), 11);
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()),
              Quoted(Path("ok.png")) +
                  " is 4 x 3 pixels, more than the 11 allowed (--max-pixels raises the limit)");
  }
  EXPECT_EQ(ReadImage(Path("ok.png"), 12).width, 4);
}

TEST_F(ImageFileTest, CmykJpegIsRejected) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("cmyk.jpg"), 8, 8, 4, {0, 50, 100, 0}));
  EXPECT_EQ(ErrorOf(Path("cmyk.jpg")),
            Quoted(Path("cmyk.jpg")) + " is a CMYK JPEG file, which is not supported");
}

TEST_F(ImageFileTest, JpegCutInsideHeader) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("full.jpg"), 8, 8, 3, {1, 2, 3}));
  const Bytes bytes = ReadBytes(Path("full.jpg"));
  WriteBytes(Path("cut.jpg"), Bytes(bytes.begin(), bytes.begin() + 40));
  const std::string message = ErrorOf(Path("cut.jpg"));
  EXPECT_EQ(message, Quoted(Path("cut.jpg")) + ": corrupt JPEG data (Premature end of JPEG file)");
}

TEST_F(ImageFileTest, PngLargestSideLimits) {
  RawPng wide{32768, 1, 8, PNG_COLOR_TYPE_GRAY, false, {Bytes(32768, 7)}, {}, {}};
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("wide.png"), wide));
  EXPECT_EQ(ErrorOf(Path("wide.png")),
            Quoted(Path("wide.png")) + " is 32768 x 1 pixels; the largest side allowed is 32767");

  RawPng tall{1, 32768, 8, PNG_COLOR_TYPE_GRAY, false, {}, {}, {}};
  tall.rows.assign(32768, Bytes{7});
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("tall.png"), tall));
  EXPECT_EQ(ErrorOf(Path("tall.png")),
            Quoted(Path("tall.png")) + " is 1 x 32768 pixels; the largest side allowed is 32767");

  RawPng widest{32767, 1, 8, PNG_COLOR_TYPE_GRAY, false, {Bytes(32767, 7)}, {}, {}};
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("widest.png"), widest));
  const Image image = ReadOk(Path("widest.png"));
  EXPECT_EQ(image.width, 32767);
  EXPECT_EQ(image.rgba.size(), 32767u * 4);
  EXPECT_EQ(image.rgba[4 * 32766], 7);
}

uint32_t Crc32(const uint8_t* data, size_t size) {
  uint32_t crc = 0xffffffffu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
  }
  return ~crc;
}

TEST_F(ImageFileTest, PngZeroWidthHeader) {
  // Signature and a well-formed IHDR chunk (valid CRC) declaring 0 x 1 pixels, then IEND.
  Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0, 0, 13};
  const Bytes ihdr = {'I', 'H', 'D', 'R', 0, 0, 0, 0, 0, 0, 0, 1, 8, 0, 0, 0, 0};
  png.insert(png.end(), ihdr.begin(), ihdr.end());
  const uint32_t crc = Crc32(ihdr.data(), ihdr.size());
  png.insert(png.end(), {uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)});
  png.insert(png.end(), {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xae, 0x42, 0x60, 0x82});
  WriteBytes(Path("zero.png"), png);
  EXPECT_EQ(ErrorOf(Path("zero.png")),
            Quoted(Path("zero.png")) + " is 0 x 1 pixels; each side must be at least 1 pixel");
}

// ---------------------------------------------------------------------------------------------
// Write errors leave nothing behind and keep existing files.

TEST_F(ImageFileTest, WriteIntoMissingDirectory) {
  const std::string path = Path("missing/out.png");
  const std::string message = WriteErrorOf(path, SampleImage(2, 2, false), false);
  EXPECT_EQ(message, "cannot write '" + path + "': no such directory");
  EXPECT_FALSE(std::filesystem::exists(Path("missing")));
  EXPECT_EQ(Entries(), Names{});
}

TEST_F(ImageFileTest, InvalidImageKeepsExistingFile) {
  const Bytes old = {'o', 'l', 'd', 0, 1, 2};
  WriteBytes(Path("out.png"), old);
  Image image = SampleImage(2, 2, false);
  image.rgba.pop_back();
  EXPECT_EQ(WriteErrorOf(Path("out.png"), image, false),
            "cannot write '" + Path("out.png") +
                "': pixel buffer holds 15 bytes instead of width * height * 4");
  image = SampleImage(1, 1, false);
  image.width = 0;
  EXPECT_EQ(WriteErrorOf(Path("out.png"), image, true),
            "cannot write '" + Path("out.png") + "': invalid image size 0 x 1");
  image.width = 32768;
  image.rgba.resize(32768 * 4);
  EXPECT_EQ(WriteErrorOf(Path("out.png"), image, true),
            "cannot write '" + Path("out.png") + "': invalid image size 32768 x 1");
  EXPECT_EQ(ReadBytes(Path("out.png")), old);
  EXPECT_EQ(Entries(), Names{"out.png"});
}

TEST_F(ImageFileTest, FailedRenameRemovesTemporaryFile) {
  // The PNG data is written completely, then renaming it over a non-empty directory fails.
  std::filesystem::create_directory(Path("out.png"));
  WriteBytes(Path("out.png/keep"), {'k'});
  const std::string message = WriteErrorOf(Path("out.png"), SampleImage(3, 3, true), true);
  EXPECT_EQ(message.rfind("cannot write '" + Path("out.png") + "': ", 0), 0u) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_directory(Path("out.png")));
  EXPECT_EQ(ReadBytes(Path("out.png/keep")), Bytes{'k'});
  EXPECT_EQ(Entries(), Names{"out.png"});
}

// ---------------------------------------------------------------------------------------------
// Several files at once: all of them or none.

TEST_F(ImageFileTest, WritePngFilesWritesEachInItsColourType) {
  WriteBytes(Path("b.png"), {'o', 'l', 'd'});
  const Image colour = SampleImage(4, 3, true);
  WritePngFiles(
      {{Path("a.png"), colour, PngColour::Rgba}, {Path("b.png"), colour, PngColour::Gray}});
  EXPECT_EQ(ReadBytes(Path("a.png"))[25], PNG_COLOR_TYPE_RGB_ALPHA);
  EXPECT_EQ(ReadOk(Path("a.png")).rgba, colour.rgba);
  EXPECT_EQ(ReadBytes(Path("b.png"))[25], PNG_COLOR_TYPE_GRAY);
  EXPECT_EQ(ReadOk(Path("b.png")).width, 4);
  EXPECT_EQ(Entries(), (Names{"a.png", "b.png"}));
}

TEST_F(ImageFileTest, WritePngFilesFailingLateKeepsEveryOldFile) {
  // Both files are written completely; the second rename fails on a directory, after the first
  // has replaced its file, which then gets its old contents back.
  const Bytes old = {'o', 'l', 'd'};
  WriteBytes(Path("a.png"), old);
  std::filesystem::create_directory(Path("dir.png"));
  const Image image = SampleImage(3, 2, false);
  try {
    WritePngFiles(
        {{Path("a.png"), image, PngColour::Rgb}, {Path("dir.png"), image, PngColour::Gray}});
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("cannot write " + Quoted(Path("dir.png")) + ": ", 0), 0u)
        << e.what();
  }
  EXPECT_EQ(ReadBytes(Path("a.png")), old);
  EXPECT_EQ(Entries(), (Names{"a.png", "dir.png"}));

  // A file that did not exist before is not left behind.
  std::filesystem::remove(Path("a.png"));
  EXPECT_THROW(WritePngFiles({{Path("new.png"), image, PngColour::Rgb},
                              {Path("dir.png"), image, PngColour::Rgb}}),
               ImageError);
  EXPECT_EQ(Entries(), Names{"dir.png"});
}

TEST_F(ImageFileTest, WritePngFilesFailingEarlyWritesNothing) {
  const Bytes old = {'o', 'l', 'd'};
  WriteBytes(Path("b.png"), old);
  Image broken = SampleImage(2, 2, false);
  broken.rgba.pop_back();
  const Image image = SampleImage(3, 2, false);
  for (const auto& files : {std::vector<PngFile>{{Path("a.png"), image, PngColour::Rgb},
                                                 {Path("b.png"), broken, PngColour::Gray}},
                            std::vector<PngFile>{{Path("b.png"), broken, PngColour::Gray},
                                                 {Path("a.png"), image, PngColour::Rgb}},
                            std::vector<PngFile>{{Path("a.png"), image, PngColour::Rgb},
                                                 {Path("missing/b.png"), image, PngColour::Rgb}}}) {
    EXPECT_THROW(WritePngFiles(files), ImageError);
    EXPECT_EQ(ReadBytes(Path("b.png")), old);
    EXPECT_EQ(Entries(), Names{"b.png"});
  }
}

}  // namespace
}  // namespace qpx
