// libFuzzer target: the image file reader on arbitrary bytes. An input that starts with a PNG
// or JPEG signature is read as the file it is; any other input is read twice, once behind a PNG
// signature and once behind a JPEG one, so that both decoders see every mutation. A file is
// either refused with an ImageError or gives an image of 1 to 32767 pixels a side whose buffer
// holds exactly its pixels, opaque where the file has no alpha channel; anything else (another
// exception, a crash, a leak, a sanitizer report) is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "image_file.h"

namespace {

const uint8_t kPngSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
const uint8_t kJpegSignature[] = {0xff, 0xd8, 0xff};

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "fuzz_image_file: %s\n", what);
  std::abort();
}

bool StartsWith(const uint8_t* data, size_t size, const uint8_t* prefix, size_t length) {
  return size >= length && std::memcmp(data, prefix, length) == 0;
}

// The file the reader opens: an in-memory file, named through /proc so that it is opened afresh.
int MemoryFile() {
  static const int fd = memfd_create("fuzz_image_file", MFD_CLOEXEC);
  if (fd < 0) Fail("memfd_create failed");
  return fd;
}

void ReadAsFile(const std::vector<uint8_t>& bytes) {
  const int fd = MemoryFile();
  if (ftruncate(fd, 0) != 0 ||
      pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    Fail("cannot write the input file");
  }
  qpx::Image image;
  try {
    image = qpx::ReadImage("/proc/self/fd/" + std::to_string(fd));
  } catch (const qpx::ImageError&) {
    return;
  }
  if (image.width < 1 || image.height < 1 || image.width > qpx::kMaxImageSide ||
      image.height > qpx::kMaxImageSide) {
    Fail("image size out of range");
  }
  if (image.rgba.size() != size_t(image.width) * size_t(image.height) * 4) {
    Fail("pixel buffer size is not width * height * 4");
  }
  if (!image.hasAlpha) {
    for (size_t i = 3; i < image.rgba.size(); i += 4) {
      if (image.rgba[i] != 255) Fail("transparent pixel in an image without alpha channel");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (StartsWith(data, size, kPngSignature, sizeof kPngSignature) ||
      StartsWith(data, size, kJpegSignature, sizeof kJpegSignature)) {
    ReadAsFile(std::vector<uint8_t>(data, data + size));
    return 0;
  }
  for (const auto& [signature, length] : {std::pair{kPngSignature, sizeof kPngSignature},
                                          std::pair{kJpegSignature, sizeof kJpegSignature}}) {
    std::vector<uint8_t> file(signature, signature + length);
    file.insert(file.end(), data, data + size);
    ReadAsFile(file);
  }
  return 0;
}
