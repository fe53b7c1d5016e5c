// Reading PNG/JPEG files into 8-bit RGBA and writing PNG and JPEG files atomically.
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
  int orientation = 1;        // the EXIF orientation the file gives (orientation.h), 1 as stored
  std::vector<uint8_t> icc;   // the file's ICC colour profile (PNG iCCP, JPEG APP2); empty: none
};

// Every failure to read or write an image or another file; what() is a single line naming the
// file.
class ImageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

constexpr int32_t kMaxImageSide = 32767;
// The largest picture a host makes: 2^31 bytes of pixels, 4 bytes a pixel.
constexpr uint64_t kMaxPictureBytes = uint64_t{1} << 31;
// How many pixels a file may hold unless the caller allows more: about what common image
// libraries accept before they suspect a decompression bomb.
constexpr uint64_t kDefaultMaxPixels = 100'000'000;

// The image libraries qpx reads and writes files with, and their versions, as the libraries
// loaded at run time report them where they can: "libpng 1.6.39, zlib 1.2.13, ...".
std::string ImageLibraryVersions();

// Whether a host can make a picture of `width` x `height` pixels.
bool FitsHostPicture(uint64_t width, uint64_t height);

// A path in quotes for a message, control characters replaced so that it stays on one line.
std::string QuotePath(const std::string& path);

// Reads a PNG or JPEG file, chosen by the file's signature bytes, not its name; "-" reads
// standard input. Anything but a regular file or "-" is refused before it is opened, and so is a
// picture whose header claims more than `maxPixels` pixels or more than a host picture holds.
// Pixel memory is taken as rows are decoded, so a file that claims a large picture but holds
// little data fails before much memory is touched. Every sign of corrupt data is an error.
Image ReadImage(const std::string& path, uint64_t maxPixels = kDefaultMaxPixels);

// How a file stores an image: its red channel as gray, its colours, or colours and alpha.
// JPEG files have no alpha: Rgba is written as Rgb there.
enum class FileColour { Gray, Rgb, Rgba };

enum class FileFormat { Png, Jpeg };

// The format an output's name asks for: JPEG for the extensions .jpg, .jpeg and .jpe in any
// case, PNG for anything else ("-" included).
FileFormat FormatOfPath(const std::string& path);

// zlib's effort for PNG data, 0 (stored) to 9; rows are written unfiltered, which with the
// default of 6 writes several times faster than trying every filter, for files a little larger,
// and compressed on every processor (png_deflate.h).
constexpr int kDefaultPngCompression = 6;
// libjpeg's quality for JPEG data, 1 to 100.
constexpr int kDefaultJpegQuality = 85;

struct OutputFile {
  std::string path;
  const Image& image;
  FileColour colour;
  FileFormat format = FileFormat::Png;
  int compression = kDefaultPngCompression;  // PNG only
  int quality = kDefaultJpegQuality;         // JPEG only
  // An ICC profile to embed: written into colour files when it is a well-formed RGB profile,
  // never into gray ones. Empty: none.
  std::vector<uint8_t> icc = {};
};

// Whether `profile` is an ICC profile a colour file can carry: its header whole and saying so
// (the size it gives, the 'acsp' signature, RGB data).
bool IsRgbIccProfile(const std::vector<uint8_t>& profile);

// Writes 8-bit PNG or JPEG files, all of them or none, as FileReplacement does: a path that
// names a regular file or nothing gets a temporary file renamed over it once all are complete
// (an existing file's permissions kept, symbolic links followed), "-" and other files such as
// devices and pipes get the data written straight through at the end.
void WriteImageFiles(const std::vector<OutputFile>& files);
// Writes `image` as an 8-bit RGB (withAlpha false) or RGBA PNG, in the same way.
void WritePng(const std::string& path, const Image& image, bool withAlpha);
// Writes the red channel of `image` as an 8-bit gray PNG, in the same way.
void WriteGrayPng(const std::string& path, const Image& image);

}  // namespace qpx
