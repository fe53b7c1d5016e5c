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

// Every failure to read or write an image or another file; what() is a single line naming the
// file.
class ImageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

constexpr int32_t kMaxImageSide = 32767;

// A path in quotes for a message, control characters replaced so that it stays on one line.
std::string QuotePath(const std::string& path);

// Reads a PNG or JPEG file, chosen by the file's signature bytes, not its name.
Image ReadImage(const std::string& path);

// How a PNG file stores an image: its red channel as gray, its colours, or colours and alpha.
enum class PngColour { Gray, Rgb, Rgba };

struct PngFile {
  std::string path;
  const Image& image;
  PngColour colour;
};

// Writes 8-bit PNG files, all of them or none. The data goes to temporary files in the same
// directories that are renamed over the paths only once all are complete, so a path never holds a
// partial file, and when anything fails every existing file there is kept and no new one is left.
void WritePngFiles(const std::vector<PngFile>& files);
// Writes `image` as an 8-bit RGB (withAlpha false) or RGBA PNG, in the same way.
void WritePng(const std::string& path, const Image& image, bool withAlpha);
// Writes the red channel of `image` as an 8-bit gray PNG, in the same way.
void WriteGrayPng(const std::string& path, const Image& image);

}  // namespace qpx
