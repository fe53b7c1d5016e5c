// Shared by the tests of the qpx tool: running qpx as a process in a temporary directory,
// pictures and files to hand it, and the checks its answers get.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "demo_command.h"
#include "demo_picture.h"
#include "host.h"
#include "image_file.h"
#include "picture_commands.h"
#include "picture_io.h"
#include "picture_options.h"
#include "progress_bar.h"
#include "resampling_modes.h"

namespace qpx {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

inline const char* const kHostKinds[] = {"console", "web", "desktop"};

// The resampling modes by number and name, as users may give them.
inline const std::pair<const char*, const char*> kModes[] = {
    {"1", "triangle"}, {"2", "box"},   {"3", "lanczos3"}, {"4", "lanczos8"},
    {"5", "mitchell"}, {"6", "cubic"}, {"7", "cubic6"}};

struct QpxRun {
  int exitCode = -1;
  std::string out, err;
};

inline std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "qpx-cli-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs qpx with `args` in the temporary directory, stdout and stderr to files.
  QpxRun Qpx(const std::vector<std::string>& args) { return FinishQpx(StartQpx(args)); }

  // The same with `input` on standard input, through a pipe, which cannot seek.
  QpxRun QpxWithInput(const std::vector<std::string>& args, const std::string& input) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return {};
    const pid_t pid = StartQpx(args, fds[0]);
    close(fds[0]);
    const bool written = write(fds[1], input.data(), input.size()) == ssize_t(input.size());
    close(fds[1]);
    EXPECT_TRUE(written);
    return FinishQpx(pid);
  }

  // Starts qpx with `args` in the temporary directory, standard input from `in` (else
  // /dev/null), stdout and stderr to files, and returns its process id. In a cross build qpx is
  // the target's program, which starts under the emulator that runs this test (QPX_EMULATOR).
  pid_t StartQpx(const std::vector<std::string>& args, int in = -1) {
    std::vector<char*> argv;
#ifdef QPX_EMULATOR
    std::string emulator = QPX_EMULATOR;
    argv.push_back(emulator.data());
#endif
    std::string program = QPX_BINARY;
    argv.push_back(program.data());
    std::vector<std::string> copies = args;
    for (std::string& arg : copies) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const std::string outPath = Path(".stdout"), errPath = Path(".stderr");
    const pid_t pid = fork();
    if (pid == 0) {
      if (in < 0) in = open("/dev/null", O_RDONLY);
      const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (in < 0 || out < 0 || err < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 ||
          chdir(dir_.c_str()) != 0) {
        _exit(127);
      }
#ifdef QPX_EMULATOR
      // The emulator's script hands a program's own name to the copies of it that the program
      // starts (QPX_QEMU_PROGRAM, which this test inherited); qpx is another program.
      unsetenv("QPX_QEMU_PROGRAM");
#endif
      execv(argv[0], argv.data());
      _exit(127);
    }
    return pid;
  }

  // Waits for the qpx of StartQpx; `maxRssKb` gets the most memory it held.
  QpxRun FinishQpx(pid_t pid, long* maxRssKb = nullptr) {
    QpxRun run;
    int status = 0;
    struct rusage usage {};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid) return run;
    if (maxRssKb != nullptr) *maxRssKb = usage.ru_maxrss;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.out = ReadAll(Path(".stdout"));
    run.err = ReadAll(Path(".stderr"));
    fs::remove(Path(".stdout"));
    fs::remove(Path(".stderr"));
    return run;
  }

  // Files in the temporary directory, so a test can see that a run left nothing behind.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  fs::path dir_;
};

// Random pixels; with `alpha`, alpha values that include 0 and 255 often.
inline Image RandomImage(int32_t width, int32_t height, bool alpha, uint32_t seed = 1) {
  std::mt19937 random(seed);
  Image image;
  image.width = width;
  image.height = height;
  image.hasAlpha = alpha;
  image.rgba.resize(size_t(width) * size_t(height) * 4);
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    for (size_t c = 0; c < 3; ++c) image.rgba[i + c] = static_cast<uint8_t>(random());
    const uint32_t a = random() % 300;
    image.rgba[i + 3] = !alpha ? 255 : a < 256 ? static_cast<uint8_t>(a) : a < 280 ? 255 : 0;
  }
  return image;
}

inline Image UniformImage(int32_t width, int32_t height, uint8_t r, uint8_t g, uint8_t b) {
  Image image;
  image.width = width;
  image.height = height;
  for (int32_t i = 0; i < width * height; ++i) image.rgba.insert(image.rgba.end(), {r, g, b, 255});
  return image;
}

// The R, G, B, A bytes of pixel (x, y).
inline const uint8_t* PixelAt(const Image& image, int32_t x, int32_t y) {
  return &image.rgba[(size_t(y) * size_t(image.width) + size_t(x)) * 4];
}

// Gray pixels, row after row, opaque.
inline Image GrayImage(int32_t width, int32_t height, const std::vector<uint8_t>& values) {
  Image image;
  image.width = width;
  image.height = height;
  image.rgba.resize(values.size() * 4, 255);
  for (size_t i = 0; i < values.size(); ++i) std::fill_n(&image.rgba[i * 4], 3, values[i]);
  return image;
}

// `image` with the given alpha values, row after row.
inline Image WithAlpha(Image image, const std::vector<uint8_t>& alphas) {
  image.hasAlpha = true;
  for (size_t i = 0; i < alphas.size(); ++i) image.rgba[i * 4 + 3] = alphas[i];
  return image;
}

// `destination` with `picture` copied into it at (x, y): drawing at whole coordinates with
// opacity 1 and no mask.
inline Image Pasted(Image destination, const Image& picture, int32_t x, int32_t y) {
  for (int32_t j = 0; j < picture.height; ++j) {
    for (int32_t i = 0; i < picture.width; ++i) {
      std::copy_n(
          PixelAt(picture, i, j), 3,
          &destination.rgba[(size_t(y + j) * size_t(destination.width) + size_t(x + i)) * 4]);
    }
  }
  return destination;
}

// The picture a method call gives, as shown.
inline Image RunToImage(qpxhost::Host& host, qpxhost::HostPicture* picture, const MethodCall& call,
                        int32_t yield) {
  return PictureToImage(*RunMethod(host, picture, call, yield).get());
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

// `value` as big-endian bytes.
inline std::string BigEndian(uint32_t value, int bytes) {
  std::string out;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out += char(value >> shift & 0xff);
  return out;
}

// `rows` rows of `rowBytes` zero bytes after their filter byte (none), deflated a row at a time
// so that huge pictures need no huge buffer.
inline std::string DeflatedZeroRows(uint32_t rows, uint32_t rowBytes) {
  z_stream stream{};
  deflateInit(&stream, Z_BEST_COMPRESSION);
  std::string row(rowBytes + 1, '\0'), out;
  std::vector<char> buffer(65536);
  for (uint32_t y = 0; y <= rows; ++y) {
    stream.next_in = reinterpret_cast<Bytef*>(row.data());
    stream.avail_in = y < rows ? uInt(row.size()) : 0;
    const int flush = y < rows ? Z_NO_FLUSH : Z_FINISH;
    do {
      stream.next_out = reinterpret_cast<Bytef*>(buffer.data());
      stream.avail_out = uInt(buffer.size());
      deflate(&stream, flush);
      out.append(buffer.data(), buffer.size() - stream.avail_out);
    } while (stream.avail_out == 0);
  }
  deflateEnd(&stream);
  return out;
}

// A gray PNG of the given size and bit depth holding `idat` as its image data, assembled by hand
// so that sizes WritePng refuses, and lies, can be made too.
inline std::string PngWithData(uint32_t width, uint32_t height, int bitDepth,
                               const std::string& idat) {
  auto chunk = [](const char* type, const std::string& data) {
    const std::string body = std::string(type, 4) + data;
    const uLong crc = crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size()));
    return BigEndian(uint32_t(data.size()), 4) + body + BigEndian(uint32_t(crc), 4);
  };
  // Gray, no interlace.
  const std::string header = BigEndian(width, 4) + BigEndian(height, 4) + char(bitDepth) +
                             std::string("\x00\x00\x00\x00", 4);
  return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", idat) +
         chunk("IEND", "");
}

// A valid all-black gray PNG of the given size and bit depth.
inline std::string GrayPng(uint32_t width, uint32_t height, int bitDepth = 8) {
  return PngWithData(width, height, bitDepth,
                     DeflatedZeroRows(height, (width * uint32_t(bitDepth) + 7) / 8));
}

// JPEG scan data for `blocks` blocks of the tables GrayJpeg writes: two 0 bits each (DC
// difference 0, end of block), padded with 1 bits.
inline std::string JpegScan(size_t blocks) {
  std::string scan((2 * blocks + 7) / 8, '\0');
  if (const size_t used = 2 * blocks % 8; used != 0) scan.back() = char((1 << (8 - used)) - 1);
  return scan;
}

// A baseline JPEG assembled by hand: `width` x `height` pixels in `components` components (1:
// gray, 4: CMYK), one quantisation table of ones and Huffman tables with a single one-bit code
// each (DC difference 0; end of block), so that every pixel is mid gray; `scan` is the entropy
// coded data, by default all of it.
inline std::string HandMadeJpeg(uint16_t width, uint16_t height, int components = 1,
                                std::optional<std::string> scan = std::nullopt) {
  auto segment = [](uint8_t marker, const std::string& body) {
    return std::string{char(0xff), char(marker)} + BigEndian(uint32_t(body.size() + 2), 2) + body;
  };
  const std::string oneCode = std::string(1, '\x01') + std::string(15, '\0') + '\0';
  std::string frame = '\x08' + BigEndian(height, 2) + BigEndian(width, 2) + char(components);
  std::string scanHeader(1, char(components));
  for (int c = 1; c <= components; ++c) {
    frame += std::string{char(c), '\x11', '\0'};
    scanHeader += std::string{char(c), '\0'};
  }
  scanHeader += std::string("\x00\x3f\x00", 3);
  const size_t blocks = size_t((width + 7) / 8) * size_t((height + 7) / 8) * size_t(components);
  return std::string("\xff\xd8", 2) + segment(0xdb, '\0' + std::string(64, '\x01')) +
         segment(0xc0, frame) + segment(0xc4, '\x00' + oneCode) + segment(0xc4, '\x10' + oneCode) +
         segment(0xda, scanHeader) + scan.value_or(JpegScan(blocks)) + std::string("\xff\xd9", 2);
}

inline void ExpectOneErrorLine(const QpxRun& run) {
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.out.empty()) << run.out;
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err.back(), '\n');
  EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
  EXPECT_THAT(run.err, StartsWith("qpx: "));
}

// The colour type in a PNG file's header: 0 gray, 2 RGB, 6 RGBA.
inline int PngColourType(const std::string& path) {
  const std::string bytes = ReadAll(path);
  return bytes.size() > 25 ? bytes[25] : -1;
}

// Expects gray pixels of `values`, row after row, in a gray PNG file.
inline void ExpectGrayFile(const std::string& path, const std::vector<uint8_t>& values) {
  EXPECT_EQ(PngColourType(path), 0);
  const Image image = ReadImage(path);
  ASSERT_EQ(image.rgba.size(), values.size() * 4);
  for (size_t i = 0; i < values.size(); ++i) {
    ASSERT_THAT(std::vector<uint8_t>(&image.rgba[i * 4], &image.rgba[i * 4] + 3),
                ::testing::Each(values[i]))
        << "pixel " << i;
  }
}

// 255 minus the alpha of each pixel: the mask a file's transparency gives.
inline std::vector<uint8_t> MaskOfAlpha(const Image& image) {
  std::vector<uint8_t> mask;
  for (size_t i = 3; i < image.rgba.size(); i += 4) mask.push_back(uint8_t(255 - image.rgba[i]));
  return mask;
}

// The red channel of each pixel: the mask a mask file gives.
inline std::vector<uint8_t> RedChannel(const Image& image) {
  std::vector<uint8_t> red;
  for (size_t i = 0; i < image.rgba.size(); i += 4) red.push_back(image.rgba[i]);
  return red;
}

// --- scale ------------------------------------------------------------------------------------
// These need the module's ScaleQPX.

// "qpx COMMAND in.png OUTPUT --width W --height H", with --antialias when asked, then `more`.
inline std::vector<std::string> ResizeArgs(const std::string& command, const std::string& output,
                                           int32_t width, int32_t height, bool antialias,
                                           const std::vector<std::string>& more = {}) {
  std::vector<std::string> args = {command, "in.png", output};
  args.insert(args.end(), {"--width", std::to_string(width), "--height", std::to_string(height)});
  if (antialias) args.push_back("--antialias");
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

inline std::vector<std::string> ScaleArgs(const std::string& output, int32_t width, int32_t height,
                                          bool antialias,
                                          const std::vector<std::string>& more = {}) {
  return ResizeArgs("scale", output, width, height, antialias, more);
}

// Pixels of `big` equal to pixel (x / xFactor, y / yFactor) of `small`.
inline int64_t RepeatedPixels(const Image& big, const Image& small, int32_t xFactor,
                              int32_t yFactor) {
  int64_t count = 0;
  for (int32_t y = 0; y < big.height; ++y) {
    for (int32_t x = 0; x < big.width; ++x) {
      count += std::memcmp(PixelAt(big, x, y), PixelAt(small, x / xFactor, y / yFactor), 4) == 0;
    }
  }
  return count;
}

// Opaque gray pixels of the given values, row after row.
inline void ExpectGray(const Image& image, const std::vector<uint8_t>& values) {
  ASSERT_EQ(size_t(image.width) * size_t(image.height), values.size());
  for (size_t i = 0; i < values.size(); ++i) {
    const uint8_t* pixel = &image.rgba[i * 4];
    const uint8_t v = values[i];
    EXPECT_THAT(std::vector<uint8_t>(pixel, pixel + 4), ::testing::ElementsAre(v, v, v, 255))
        << "pixel " << i % size_t(image.width) << ", " << i / size_t(image.width);
  }
}

// "qpx resample in.png OUTPUT --mode MODE --width W --height H", then `more`.
inline std::vector<std::string> ResampleArgs(const std::string& output, const std::string& mode,
                                             int32_t width, int32_t height,
                                             const std::vector<std::string>& more = {}) {
  std::vector<std::string> args = {"resample", "in.png", output, "--mode", mode};
  args.insert(args.end(), {"--width", std::to_string(width), "--height", std::to_string(height)});
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

class CliResizeTest : public CliTest {
 protected:
  // Runs qpx with `args`, which write out.png, in every kind of host and reads each out.png
  // back, expecting a quiet success and an opaque picture of `width` x `height`.
  std::vector<Image> OutputsInEveryHost(const std::vector<std::string>& args, int32_t width,
                                        int32_t height) {
    std::vector<Image> outputs;
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(host);
      std::vector<std::string> withHost = args;
      withHost.insert(withHost.end(), {"--host", host});
      const QpxRun run = Qpx(withHost);
      EXPECT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");  // no terminal: no progress bar
      EXPECT_EQ(run.out, "");
      if (run.exitCode != 0) continue;
      Image output = ReadImage(Path("out.png"));
      EXPECT_FALSE(output.hasAlpha);
      EXPECT_EQ(output.width, width);
      EXPECT_EQ(output.height, height);
      if (output.width == width && output.height == height) outputs.push_back(std::move(output));
    }
    EXPECT_EQ(outputs.size(), std::size(kHostKinds));
    return outputs;
  }
  std::vector<Image> ScaleInEveryHost(int32_t width, int32_t height, bool antialias) {
    return OutputsInEveryHost(ScaleArgs("out.png", width, height, antialias), width, height);
  }
  std::vector<Image> ResampleInEveryHost(const std::string& mode, int32_t width, int32_t height) {
    return OutputsInEveryHost(ResampleArgs("out.png", mode, width, height), width, height);
  }
  // Expects "qpx COMMAND in.png" to 45 x 31, with and without --antialias, to give the same
  // pixels with each kind of --yield as without.
  void ExpectYieldingChangesNothing(const std::string& command) {
    for (bool antialias : {false, true}) {
      SCOPED_TRACE(antialias ? "antialias" : "");
      ASSERT_EQ(Qpx(ResizeArgs(command, "a.png", 45, 31, antialias)).exitCode, 0);
      for (const char* yield : {"1", "-1", "-2147483648"}) {
        const QpxRun run = Qpx(ResizeArgs(command, "b.png", 45, 31, antialias, {"--yield", yield}));
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_TRUE(ReadImage(Path("a.png")).rgba == ReadImage(Path("b.png")).rgba) << yield;
      }
    }
  }
};

class CliScaleTest : public CliResizeTest {};
class CliResampleTest : public CliResizeTest {};

// --- scale-mask -------------------------------------------------------------------------------
// These need the module's ScaleImageAndMaskQPX.

inline std::vector<std::string> ScaleMaskArgs(const std::string& output, int32_t width,
                                              int32_t height, bool antialias,
                                              const std::vector<std::string>& more = {}) {
  return ResizeArgs("scale-mask", output, width, height, antialias, more);
}

// The R, G, B, A bytes of every pixel, row after row.
inline std::vector<std::vector<uint8_t>> Pixels(const Image& image) {
  std::vector<std::vector<uint8_t>> pixels;
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    pixels.emplace_back(&image.rgba[i], &image.rgba[i] + 4);
  }
  return pixels;
}

using Rgba = std::vector<uint8_t>;

class CliScaleMaskTest : public CliResizeTest {
 protected:
  // Runs `args` (writing out.png and mask.png) in every kind of host, or in `hosts`, expecting a
  // quiet success, and gives each output with its mask file's values.
  std::vector<std::pair<Image, std::vector<uint8_t>>> InEveryHost(
      const std::vector<std::string>& args,
      const std::vector<std::string>& hosts = {std::begin(kHostKinds), std::end(kHostKinds)}) {
    std::vector<std::pair<Image, std::vector<uint8_t>>> outputs;
    for (const std::string& host : hosts) {
      SCOPED_TRACE(host);
      std::vector<std::string> withHost = args;
      withHost.insert(withHost.end(), {"--host", host, "--mask-out", "mask.png"});
      const QpxRun run = Qpx(withHost);
      EXPECT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.out, "");
      if (run.exitCode != 0) continue;
      EXPECT_EQ(PngColourType(Path("mask.png")), 0);
      outputs.emplace_back(ReadImage(Path("out.png")), RedChannel(ReadImage(Path("mask.png"))));
    }
    EXPECT_EQ(outputs.size(), hosts.size());
    return outputs;
  }
};

}  // namespace qpx
