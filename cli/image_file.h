// Reading PNG/JPEG files into 8-bit RGBA and writing PNG files atomically.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace qpx {

struct Image {
  int32_t width = 0, height = 0;
  bool hasAlpha = false;  // the file had an alpha channel (PNG gray+alpha, RGBA, palette with tRNS)
  std::vector<uint8_t> rgba;  // width*height*4 bytes, R,G,B,A per pixel, rows top to bottom,
                              // A=255 where the file has no alpha
};

// Every failure to read or write an image; what() is a single line naming the file.
class ImageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

constexpr int32_t kMaxImageSide = 32767;

// A path in quotes for a message, control characters replaced so that it stays on one line.
std::string QuotePath(const std::string& path);

// Reads a PNG or JPEG file, chosen by the file's signature bytes, not its name.
Image ReadImage(const std::string& path);

// Writes `image` as an 8-bit RGB (withAlpha false) or RGBA PNG. The data goes to a temporary file
// in the same directory that is renamed over `path` only once it is complete, so `path` never holds
// a partial file and an existing file there is kept if writing fails.
void WritePng(const std::string& path, const Image& image, bool withAlpha);
// Writes the red channel of `image` as an 8-bit gray PNG, in the same way.
void WriteGrayPng(const std::string& path, const Image& image);

}  // namespace qpx
