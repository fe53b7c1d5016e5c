#include "jpeg_writer.h"

#include <cerrno>
#include <csetjmp>
#include <cstdint>
#include <vector>

#include "file_replacement.h"

// clang-format off
#include <jerror.h>
#include <jpeglib.h>
// clang-format on

namespace qpx {
namespace {

// libjpeg reports errors through error_exit, which must not return: it longjmps back into
// Compress, which holds no C++ objects.
struct JpegOut {
  jpeg_compress_struct cinfo;
  jpeg_error_mgr err;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  int sysErrno;
};

[[noreturn]] void OnError(j_common_ptr cinfo) {
  auto* io = static_cast<JpegOut*>(cinfo->client_data);
  if (cinfo->err->msg_code == JERR_FILE_WRITE) io->sysErrno = errno;
  cinfo->err->format_message(cinfo, io->message);
  std::longjmp(io->jump, 1);
}

void Quiet(j_common_ptr) {}

// `row` holds one row of samples: width x 1 (gray) or x 3 bytes.
bool Compress(JpegOut* io, FILE* out, const Image* image, bool gray, int quality,
              const std::vector<uint8_t>* icc, uint8_t* row) {
  if (setjmp(io->jump)) return false;
  jpeg_create_compress(&io->cinfo);
  jpeg_stdio_dest(&io->cinfo, out);
  io->cinfo.image_width = JDIMENSION(image->width);
  io->cinfo.image_height = JDIMENSION(image->height);
  io->cinfo.input_components = gray ? 1 : 3;
  io->cinfo.in_color_space = gray ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&io->cinfo);
  jpeg_set_quality(&io->cinfo, quality, TRUE);
  jpeg_start_compress(&io->cinfo, TRUE);
  if (!icc->empty()) jpeg_write_icc_profile(&io->cinfo, icc->data(), unsigned(icc->size()));
  const size_t width = size_t(image->width);
  while (io->cinfo.next_scanline < io->cinfo.image_height) {
    const uint8_t* rgba = image->rgba.data() + width * 4 * io->cinfo.next_scanline;
    if (gray) {
      for (size_t x = 0; x < width; ++x) row[x] = rgba[4 * x];
    } else {
      for (size_t x = 0; x < width; ++x) {
        row[3 * x] = rgba[4 * x];
        row[3 * x + 1] = rgba[4 * x + 1];
        row[3 * x + 2] = rgba[4 * x + 2];
      }
    }
    JSAMPROW samples = row;
    jpeg_write_scanlines(&io->cinfo, &samples, 1);
  }
  jpeg_finish_compress(&io->cinfo);
  return true;
}

}  // namespace

bool WriteJpeg(FILE* out, const Image& image, bool gray, int quality,
               const std::vector<uint8_t>& icc, std::string& error) {
  JpegOut io{};
  io.cinfo.err = jpeg_std_error(&io.err);
  io.err.error_exit = OnError;
  io.err.output_message = Quiet;
  io.cinfo.client_data = &io;
  std::vector<uint8_t> row(size_t(image.width) * (gray ? 1 : 3));
  const bool written = Compress(&io, out, &image, gray, quality, &icc, row.data());
  jpeg_destroy_compress(&io.cinfo);  // safe after a failed creation too: its memory is null
  if (!written) error = io.sysErrno != 0 ? ErrnoText(io.sysErrno) : std::string(io.message);
  return written;
}

}  // namespace qpx
