#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <thread>

#include "file_replacement.h"
#include "jpeg_writer.h"
#include "orientation.h"
#include "png_deflate.h"

// jpeglib.h needs FILE and size_t declared first.
#include <jerror.h>
#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

namespace qpx {

std::string QuotePath(const std::string& path) {
  std::string out = "'";
  for (char c : path) {
    const auto u = static_cast<unsigned char>(c);
    out += (u < 0x20 || u == 0x7f) ? '?' : c;
  }
  return out + "'";
}

bool FitsHostPicture(uint64_t width, uint64_t height) {
  return width <= kMaxImageSide && height <= kMaxImageSide &&
         width * height * 4 <= kMaxPictureBytes;
}

namespace {

// How messages name the file read.
std::string InputName(const std::string& path) {
  return path == "-" ? "standard input" : QuotePath(path);
}

ImageError ReadFailure(const std::string& path, const std::string& reason) {
  return ImageError("cannot read " + InputName(path) + ": " + reason);
}

bool SizeOk(uint64_t width, uint64_t height) {
  return width >= 1 && height >= 1 && width <= kMaxImageSide && height <= kMaxImageSide;
}

// Refuses a size from a file's header before any pixel memory is taken.
void CheckSize(const std::string& path, uint64_t width, uint64_t height, uint64_t maxPixels) {
  const std::string claim =
      InputName(path) + " is " + std::to_string(width) + " x " + std::to_string(height) + " pixels";
  if (!SizeOk(width, height)) {
    throw ImageError(claim + "; " +
                     (width == 0 || height == 0
                          ? "each side must be at least 1 pixel"
                          : "the largest side allowed is " + std::to_string(kMaxImageSide)));
  }
  if (!FitsHostPicture(width, height)) {
    throw ImageError(claim + ", more than the 2^31 bytes a host picture holds");
  }
  if (width * height > maxPixels) {
    throw ImageError(claim + ", more than the " + std::to_string(maxPixels) +
                     " allowed (--max-pixels raises the limit)");
  }
}

// Address space for the whole picture; pages are touched only as PixelRow hands out rows.
void ReservePixels(const std::string& path, Image& image) {
  try {
    image.rgba.reserve(size_t(image.width) * size_t(image.height) * 4);
  } catch (const std::bad_alloc&) {
    throw ReadFailure(path, "not enough memory for " + std::to_string(image.width) + " x " +
                                std::to_string(image.height) + " pixels");
  }
}

// Row y of the image, the buffer grown to hold it. Within the reserved capacity, so it neither
// reallocates nor throws, and may be called between setjmp and longjmp.
uint8_t* PixelRow(Image* image, size_t y) noexcept {
  const size_t stride = size_t(image->width) * 4;
  if (image->rgba.size() < (y + 1) * stride) image->rgba.resize((y + 1) * stride);
  return image->rgba.data() + y * stride;
}

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// ---------------------------------------------------------------------------------------------
// libpng reports errors by longjmp. The functions that call setjmp below are plain C-style code
// holding no C++ objects, so a longjmp never skips a destructor; their callers own all resources.

struct PngIo {
  png_structp png;
  png_infop info;
  FILE* file;
  int sysErrno;  // set when the failure came from the OS rather than from the data
  char message[200];
};

[[noreturn]] void PngOnError(png_structp png, png_const_charp message) {
  auto* io = static_cast<PngIo*>(png_get_error_ptr(png));
  std::snprintf(io->message, sizeof io->message, "%s", message);
  png_longjmp(png, 1);
}

// Warnings concern recoverable oddities (e.g. a bad ancillary chunk); not worth stderr noise.
void PngOnWarning(png_structp, png_const_charp) {}

// Own read function so a short file is reported as such rather than as libpng's "Read Error".
void PngReadData(png_structp png, png_bytep data, size_t length) {
  auto* io = static_cast<PngIo*>(png_get_io_ptr(png));
  if (std::fread(data, 1, length, io->file) == length) return;
  if (std::ferror(io->file)) {
    io->sysErrno = errno;
    png_error(png, "read error");
  }
  png_error(png, "unexpected end of file");
}

void PngWriteData(png_structp png, png_bytep data, size_t length) {
  auto* io = static_cast<PngIo*>(png_get_io_ptr(png));
  if (std::fwrite(data, 1, length, io->file) != length) {
    io->sysErrno = errno;
    png_error(png, "write error");
  }
}

void PngFlush(png_structp) {}  // the file is flushed and synced once, when put in place

bool PngReadHeader(PngIo* io) {
  if (setjmp(png_jmpbuf(io->png))) return false;
  png_read_info(io->png, io->info);
  return true;
}

// Row by row rather than png_read_image, so that the buffer grows only as far as the data
// reaches: the first pass of an interlaced file visits every row, the later ones fill them in.
bool PngReadPixels(PngIo* io, Image* image) {
  if (setjmp(png_jmpbuf(io->png))) return false;
  png_set_expand(io->png);    // palette -> RGB, gray 1/2/4 -> 8 bit, tRNS -> alpha
  png_set_scale_16(io->png);  // 16 -> 8 bit with rounding
  png_set_gray_to_rgb(io->png);
  png_set_add_alpha(io->png, 0xff, PNG_FILLER_AFTER);  // only affects images without alpha
  const int passes = png_set_interlace_handling(io->png);
  png_read_update_info(io->png, io->info);
  if (png_get_rowbytes(io->png, io->info) != size_t(image->width) * 4) {
    png_error(io->png, "unexpected row size after conversion");
  }
  for (int pass = 0; pass < passes; ++pass) {
    for (int32_t y = 0; y < image->height; ++y) png_read_row(io->png, PixelRow(image, y), nullptr);
  }
  png_read_end(io->png, nullptr);  // checks the rest of the file, e.g. the last IDAT CRC
  return true;
}

// The rows of `image` as PNG image data before compression: each row a filter byte of 0 (no
// filter) and its samples, red only for gray.
std::vector<uint8_t> UnfilteredRows(const Image& image, FileColour colour) {
  const size_t channels = colour == FileColour::Gray ? 1 : colour == FileColour::Rgb ? 3 : 4;
  const size_t width = size_t(image.width), rowBytes = 1 + width * channels;
  std::vector<uint8_t> rows(rowBytes * size_t(image.height));
  for (size_t y = 0; y < size_t(image.height); ++y) {
    const uint8_t* from = image.rgba.data() + y * width * 4;
    uint8_t* to = rows.data() + y * rowBytes;
    *to++ = 0;
    if (channels == 4) {
      std::memcpy(to, from, width * 4);
      continue;
    }
    for (size_t x = 0; x < width; ++x, from += 4, to += channels) {
      for (size_t c = 0; c < channels; ++c) to[c] = from[c];
    }
  }
  return rows;
}

// Writes the file around image data already compressed (`data`, a zlib stream): the header
// chunks by libpng, then the data in IDAT chunks of at most a mebibyte, then IEND.
bool PngWriteFile(PngIo* io, const Image* image, FileColour colour, const std::vector<uint8_t>* icc,
                  const std::vector<uint8_t>* data) {
  if (setjmp(png_jmpbuf(io->png))) return false;
  const int colourType = colour == FileColour::Gray  ? PNG_COLOR_TYPE_GRAY
                         : colour == FileColour::Rgb ? PNG_COLOR_TYPE_RGB
                                                     : PNG_COLOR_TYPE_RGB_ALPHA;
  png_set_IHDR(io->png, io->info, static_cast<png_uint_32>(image->width),
               static_cast<png_uint_32>(image->height), 8, colourType, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!icc->empty()) {
    // A profile libpng finds fault with is left out with a warning rather than failing the file.
    png_set_benign_errors(io->png, 1);
    png_set_iCCP(io->png, io->info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, icc->data(),
                 png_uint_32(icc->size()));
  }
  png_write_info(io->png, io->info);
  constexpr size_t kChunk = size_t{1} << 20;
  for (size_t at = 0; at < data->size(); at += kChunk) {
    png_write_chunk(io->png, reinterpret_cast<png_const_bytep>("IDAT"), data->data() + at,
                    std::min(kChunk, data->size() - at));
  }
  png_write_chunk(io->png, reinterpret_cast<png_const_bytep>("IEND"), nullptr, 0);
  return true;
}

ImageError PngReadFailure(const std::string& path, const PngIo& io) {
  if (io.sysErrno != 0) return ReadFailure(path, ErrnoText(io.sysErrno));
  return ImageError(InputName(path) + ": corrupt PNG data (" + io.message + ")");
}

Image ReadPng(const std::string& path, FILE* file, const unsigned char* head, size_t headSize,
              uint64_t maxPixels) {
  // Reject bad sizes from the raw IHDR: libpng itself rejects 0 or huge sides only with a vague
  // "Invalid IHDR data".
  if (headSize >= 24 && std::memcmp(head + 12, "IHDR", 4) == 0) {
    auto be32 = [&](size_t at) {
      return uint32_t{head[at]} << 24 | uint32_t{head[at + 1]} << 16 | uint32_t{head[at + 2]} << 8 |
             uint32_t{head[at + 3]};
    };
    CheckSize(path, be32(16), be32(20), maxPixels);
  }

  PngIo io{};
  io.file = file;
  io.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &io, PngOnError, PngOnWarning);
  if (io.png != nullptr) io.info = png_create_info_struct(io.png);
  struct Destroy {
    PngIo* io;
    ~Destroy() { png_destroy_read_struct(&io->png, &io->info, nullptr); }
  } destroy{&io};
  if (io.png == nullptr || io.info == nullptr) throw ReadFailure(path, "out of memory");
  png_set_read_fn(io.png, &io, PngReadData);

  if (!PngReadHeader(&io)) throw PngReadFailure(path, io);
  const png_uint_32 width = png_get_image_width(io.png, io.info);
  const png_uint_32 height = png_get_image_height(io.png, io.info);
  CheckSize(path, width, height, maxPixels);

  Image image;
  image.width = static_cast<int32_t>(width);
  image.height = static_cast<int32_t>(height);
  image.hasAlpha = (png_get_color_type(io.png, io.info) & PNG_COLOR_MASK_ALPHA) != 0 ||
                   png_get_valid(io.png, io.info, PNG_INFO_tRNS) != 0;
  png_charp profileName = nullptr;
  int profileCompression = 0;
  png_bytep profile = nullptr;
  png_uint_32 profileSize = 0;
  if (png_get_iCCP(io.png, io.info, &profileName, &profileCompression, &profile, &profileSize) !=
          0 &&
      profile != nullptr) {
    image.icc.assign(profile, profile + profileSize);
  }
  // An eXIf chunk before the pixels says which way up they are.
  png_uint_32 exifSize = 0;
  png_bytep exif = nullptr;
  if (png_get_eXIf_1(io.png, io.info, &exifSize, &exif) != 0 && exif != nullptr) {
    image.orientation = ExifOrientation(exif, exifSize);
  }
  ReservePixels(path, image);
  if (!PngReadPixels(&io, &image)) throw PngReadFailure(path, io);
  return image;
}

// ---------------------------------------------------------------------------------------------
// libjpeg: same scheme, with error_exit longjmp-ing back into the C-style functions below.

struct JpegIo {
  jpeg_decompress_struct cinfo;
  jpeg_error_mgr err;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void JpegOnError(j_common_ptr cinfo) {
  auto* io = static_cast<JpegIo*>(cinfo->client_data);
  cinfo->err->format_message(cinfo, io->message);
  std::longjmp(io->jump, 1);
}

void JpegOnMessage(j_common_ptr cinfo, int level) {
  // libjpeg only warns about corrupt data (a truncated file, a cut or mangled scan) and goes on
  // with gray or garbage rows; each such warning is the error it is. An unknown JFIF revision
  // concerns a version number, not the data. Trace messages are dropped.
  if (level < 0 && cinfo->err->msg_code != JWRN_JFIF_MAJOR) JpegOnError(cinfo);
}

void JpegOutput(j_common_ptr) {}

bool JpegReadHeader(JpegIo* io, FILE* file) {
  if (setjmp(io->jump)) return false;
  jpeg_create_decompress(&io->cinfo);
  jpeg_stdio_src(&io->cinfo, file);
  jpeg_save_markers(&io->cinfo, JPEG_APP0 + 1, 0xFFFF);  // EXIF, for the orientation
  jpeg_save_markers(&io->cinfo, JPEG_APP0 + 2, 0xFFFF);  // the ICC profile's pieces
  jpeg_read_header(&io->cinfo, TRUE);
  return true;
}

// The ICC profile the APP2 markers hold, in malloc'ed memory; false when there is none or its
// pieces do not fit together.
bool JpegReadProfile(JpegIo* io, JOCTET** profile, unsigned int* size) {
  if (setjmp(io->jump)) return false;
  return jpeg_read_icc_profile(&io->cinfo, profile, size) != 0 && *profile != nullptr;
}

// Decodes as RGB straight into the RGBA buffer, widening each row in place from its end.
bool JpegReadPixels(JpegIo* io, Image* image) {
  if (setjmp(io->jump)) return false;
  io->cinfo.out_color_space = JCS_RGB;
  jpeg_start_decompress(&io->cinfo);
  const size_t width = io->cinfo.output_width;
  if (width != size_t(image->width) || io->cinfo.output_height != JDIMENSION(image->height) ||
      io->cinfo.output_components != 3) {
    std::snprintf(io->message, sizeof io->message, "unexpected output size");
    return false;
  }
  while (io->cinfo.output_scanline < io->cinfo.output_height) {
    JSAMPROW row = PixelRow(image, io->cinfo.output_scanline);
    jpeg_read_scanlines(&io->cinfo, &row, 1);
    for (size_t x = width; x-- > 0;) {
      row[x * 4 + 3] = 255;
      row[x * 4 + 2] = row[x * 3 + 2];
      row[x * 4 + 1] = row[x * 3 + 1];
      row[x * 4 + 0] = row[x * 3 + 0];
    }
  }
  jpeg_finish_decompress(&io->cinfo);
  return true;
}

Image ReadJpeg(const std::string& path, FILE* file, uint64_t maxPixels) {
  JpegIo io{};
  io.cinfo.err = jpeg_std_error(&io.err);
  io.err.error_exit = JpegOnError;
  io.err.emit_message = JpegOnMessage;
  io.err.output_message = JpegOutput;
  io.cinfo.client_data = &io;
  // Safe even if creation failed: jpeg_destroy does nothing while cinfo.mem is null.
  struct Destroy {
    JpegIo* io;
    ~Destroy() { jpeg_destroy_decompress(&io->cinfo); }
  } destroy{&io};
  auto corrupt = [&] {
    std::string why = io.message;
    const std::string prefix = "Corrupt JPEG data: ";  // libjpeg's, said once is enough
    if (why.rfind(prefix, 0) == 0) why.erase(0, prefix.size());
    return ImageError(InputName(path) + ": corrupt JPEG data (" + why + ")");
  };

  if (!JpegReadHeader(&io, file)) throw corrupt();
  if (io.cinfo.jpeg_color_space == JCS_CMYK || io.cinfo.jpeg_color_space == JCS_YCCK) {
    throw ImageError(InputName(path) + " is a CMYK JPEG file, which is not supported");
  }
  CheckSize(path, io.cinfo.image_width, io.cinfo.image_height, maxPixels);

  Image image;
  image.width = static_cast<int32_t>(io.cinfo.image_width);
  image.height = static_cast<int32_t>(io.cinfo.image_height);
  for (jpeg_saved_marker_ptr m = io.cinfo.marker_list; m != nullptr; m = m->next) {
    if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 &&
        std::memcmp(m->data, "Exif\0\0", 6) == 0) {
      image.orientation = ExifOrientation(m->data + 6, m->data_length - 6);
      break;
    }
  }
  JOCTET* profile = nullptr;
  unsigned int profileSize = 0;
  if (JpegReadProfile(&io, &profile, &profileSize)) {
    image.icc.assign(profile, profile + profileSize);
    std::free(profile);
  }
  ReservePixels(path, image);
  if (!JpegReadPixels(&io, &image)) throw corrupt();
  return image;
}

// Opens the file to read: standard input for "-", else a regular file. Other kinds are refused
// by their type before opening, as a FIFO would block the open and a device never end; the
// open does not block either, should the path change kind in between.
FilePtr OpenInput(const std::string& path) {
  auto adopt = [&](int fd) {
    FilePtr file(fd < 0 ? nullptr : fdopen(fd, "rb"));
    if (!file) {
      const int err = errno;
      if (fd >= 0) close(fd);
      throw ReadFailure(path, ErrnoText(err));
    }
    return file;
  };
  if (path == "-") return adopt(dup(STDIN_FILENO));
  auto checkKind = [&](const struct stat& info) {
    if (S_ISDIR(info.st_mode)) throw ReadFailure(path, "is a directory");
    if (!S_ISREG(info.st_mode)) throw ReadFailure(path, "not a regular file");
  };
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) {
    throw ReadFailure(path, errno == ENOENT ? "no such file" : ErrnoText(errno));
  }
  checkKind(info);
  FilePtr file = adopt(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (fstat(fileno(file.get()), &info) != 0) throw ReadFailure(path, ErrnoText(errno));
  checkKind(info);
  return file;
}

// The bytes a format was told by, read again before the rest of the file: lets the decoders
// read from the start of a stream that cannot seek back, such as a pipe on standard input.
struct ReplayedHead {
  const unsigned char* head;
  size_t size, used;
  FILE* rest;
};

ssize_t ReadReplayed(void* cookie, char* buffer, size_t size) {
  auto* stream = static_cast<ReplayedHead*>(cookie);
  if (stream->used < stream->size) {
    const size_t count = std::min(size, stream->size - stream->used);
    std::memcpy(buffer, stream->head + stream->used, count);
    stream->used += count;
    return static_cast<ssize_t>(count);
  }
  const size_t count = std::fread(buffer, 1, size, stream->rest);
  return count == 0 && std::ferror(stream->rest) ? -1 : static_cast<ssize_t>(count);
}

}  // namespace

Image ReadImage(const std::string& path, uint64_t maxPixels) {
  const FilePtr file = OpenInput(path);
  unsigned char head[24];
  const size_t headSize = std::fread(head, 1, sizeof head, file.get());
  if (std::ferror(file.get())) throw ReadFailure(path, ErrnoText(errno));

  ReplayedHead replayed{head, headSize, 0, file.get()};
  const FilePtr stream(fopencookie(&replayed, "rb", {ReadReplayed, nullptr, nullptr, nullptr}));
  if (!stream) throw ReadFailure(path, ErrnoText(errno));

  static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  if (headSize >= 8 && std::memcmp(head, kPngSignature, 8) == 0) {
    return ReadPng(path, stream.get(), head, headSize, maxPixels);
  }
  if (headSize >= 3 && head[0] == 0xff && head[1] == 0xd8 && head[2] == 0xff) {
    return ReadJpeg(path, stream.get(), maxPixels);
  }
  throw ImageError(InputName(path) + " is not a PNG or JPEG file");
}

// ---------------------------------------------------------------------------------------------

namespace {

// Writes `image` into a new temporary file of `files`, to replace `path`.
void StageFile(FileReplacement& files, const OutputFile& file) {
  const std::string& path = file.path;
  const Image& image = file.image;
  if (image.width < 1 || image.height < 1 ||
      !SizeOk(uint64_t(image.width), uint64_t(image.height))) {
    throw WriteFailure(path, "invalid image size " + std::to_string(image.width) + " x " +
                                 std::to_string(image.height));
  }
  if (image.rgba.size() != size_t(image.width) * size_t(image.height) * 4) {
    throw WriteFailure(path, "pixel buffer holds " + std::to_string(image.rgba.size()) +
                                 " bytes instead of width * height * 4");
  }
  static const std::vector<uint8_t> kNone;
  const std::vector<uint8_t>& icc =
      file.colour != FileColour::Gray && IsRgbIccProfile(file.icc) ? file.icc : kNone;
  if (file.format == FileFormat::Jpeg) {
    if (file.quality < 1 || file.quality > 100) {
      throw WriteFailure(
          path, "JPEG quality " + std::to_string(file.quality) + " is not within 1 to 100");
    }
    std::string error;
    if (!WriteJpeg(files.Add(path), image, file.colour == FileColour::Gray, file.quality, icc,
                   error)) {
      throw WriteFailure(path, error);
    }
    return;
  }
  if (file.compression < 0 || file.compression > 9) {
    throw WriteFailure(
        path, "PNG compression " + std::to_string(file.compression) + " is not within 0 to 9");
  }

  PngIo io{};
  io.file = files.Add(path);
  io.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &io, PngOnError, PngOnWarning);
  if (io.png != nullptr) io.info = png_create_info_struct(io.png);
  struct Destroy {
    PngIo* io;
    ~Destroy() { png_destroy_write_struct(&io->png, &io->info); }
  } destroy{&io};
  if (io.png == nullptr || io.info == nullptr) throw WriteFailure(path, "out of memory");
  png_set_write_fn(io.png, &io, PngWriteData, PngFlush);

  // Compressed on every processor, in pieces fixed by the data alone (png_deflate.h).
  const std::vector<uint8_t> rows = UnfilteredRows(image, file.colour);
  const std::vector<uint8_t> data = DeflatePieces(rows.data(), rows.size(), file.compression,
                                                  std::thread::hardware_concurrency());
  if (data.empty()) throw WriteFailure(path, "out of memory");
  if (!PngWriteFile(&io, &image, file.colour, &icc, &data)) {
    throw WriteFailure(path, io.sysErrno != 0 ? ErrnoText(io.sysErrno) : std::string(io.message));
  }
}

}  // namespace

bool IsRgbIccProfile(const std::vector<uint8_t>& profile) {
  constexpr size_t kHeaderAndTagCount = 132;
  if (profile.size() < kHeaderAndTagCount || profile.size() > 0xFFFFFFFFu) return false;
  const size_t declared = size_t(profile[0]) << 24 | size_t(profile[1]) << 16 |
                          size_t(profile[2]) << 8 | size_t(profile[3]);
  return declared == profile.size() && std::memcmp(&profile[16], "RGB ", 4) == 0 &&
         std::memcmp(&profile[36], "acsp", 4) == 0;
}

FileFormat FormatOfPath(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
  return extension == ".jpg" || extension == ".jpeg" || extension == ".jpe" ? FileFormat::Jpeg
                                                                            : FileFormat::Png;
}

void WriteImageFiles(const std::vector<OutputFile>& files) {
  FileReplacement replacement;
  for (const OutputFile& file : files) StageFile(replacement, file);
  replacement.Commit();
}

void WritePng(const std::string& path, const Image& image, bool withAlpha) {
  WriteImageFiles({{path, image, withAlpha ? FileColour::Rgba : FileColour::Rgb}});
}

void WriteGrayPng(const std::string& path, const Image& image) {
  WriteImageFiles({{path, image, FileColour::Gray}});
}

#define QPX_STRINGIFY_TOKENS(...) #__VA_ARGS__
#define QPX_STRINGIFY(...) QPX_STRINGIFY_TOKENS(__VA_ARGS__)

std::string ImageLibraryVersions() {
#ifdef LIBJPEG_TURBO_VERSION
  const std::string jpeg = "libjpeg-turbo " QPX_STRINGIFY(LIBJPEG_TURBO_VERSION) " (libjpeg API " +
                           std::to_string(JPEG_LIB_VERSION) + ")";
#else
  const std::string jpeg = "libjpeg API " + std::to_string(JPEG_LIB_VERSION);
#endif
  return std::string("libpng ") + png_get_libpng_ver(nullptr) + ", zlib " + zlibVersion() + ", " +
         jpeg;
}

}  // namespace qpx
