// Shared by the image file tests: files made with libpng and libjpeg directly, and the
// fixture's temporary directory.
#pragma once

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

#include "image_file.h"

// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>
#include <png.h>

namespace qpx {

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
inline bool EncodePng(FILE* file, png_structp png, png_infop info, const RawPng* raw,
                      png_bytepp rows) {
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

inline void WriteRawPng(const std::string& path, const RawPng& raw) {
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
inline void WriteJpeg(const std::string& path, int width, int height, int components,
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

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// RGBA pixels for gray levels, opaque.
inline std::vector<uint8_t> Gray(std::initializer_list<int> levels) {
  std::vector<uint8_t> out;
  for (int v : levels) out.insert(out.end(), {uint8_t(v), uint8_t(v), uint8_t(v), 255});
  return out;
}

// 16-bit samples as the big-endian bytes a PNG row holds.
inline std::vector<uint8_t> Be16(std::initializer_list<int> samples) {
  std::vector<uint8_t> out;
  for (int v : samples) out.insert(out.end(), {uint8_t(v >> 8), uint8_t(v & 0xff)});
  return out;
}

// Expected 16 -> 8 bit values, round(v * 255 / 65535) = round(v / 257):
//   0x0080 = 128 -> 0.498 -> 0      0x0081 = 129 -> 0.502 -> 1
//   0x1234 = 4660 -> 18.13 -> 18     0x12FF = 4863 -> 18.92 -> 19 (plain truncation would give 18)
//   0xFFFF -> 255

inline Image ReadOk(const std::string& path) {
  try {
    return ReadImage(path);
  } catch (const ImageError& e) {
    ADD_FAILURE() << e.what();
    return {};
  }
}

// "'path'" built by appending: g++ 12 gives a false -Wrestrict for "'" + std::string.
inline std::string Quoted(const std::string& path) {
  std::string out(1, '\'');
  return out.append(path).append(1, '\'');
}

inline std::string ErrorOf(const std::string& path) {
  try {
    ReadImage(path);
  } catch (const ImageError& e) {
    return e.what();
  }
  return "(no error)";
}

inline std::string WriteErrorOf(const std::string& path, const Image& image, bool withAlpha) {
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

// A small picture whose pixels all differ; with `varyAlpha`, its alpha too.
inline Image SampleImage(int width, int height, bool varyAlpha) {
  Image image;
  image.width = width;
  image.height = height;
  image.hasAlpha = varyAlpha;
  image.rgba.resize(size_t(width) * size_t(height) * 4);
  for (int i = 0; i < width * height; ++i) {
    uint8_t* p = &image.rgba[size_t(i) * 4];
    p[0] = uint8_t(i * 37);
    p[1] = uint8_t(255 - i * 11);
    p[2] = uint8_t(i * i);
    p[3] = uint8_t(varyAlpha ? i * 29 + 3 : 255);
  }
  return image;
}

}  // namespace qpx
