// The qpx tool: its commands run as a separate process, and its picture plumbing in-process.
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
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const char* const kHostKinds[] = {"console", "web", "desktop"};

struct QpxRun {
  int exitCode = -1;
  std::string out, err;
};

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> Lines(const std::string& text) {
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
Image RandomImage(int32_t width, int32_t height, bool alpha, uint32_t seed = 1) {
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

Image UniformImage(int32_t width, int32_t height, uint8_t r, uint8_t g, uint8_t b) {
  Image image;
  image.width = width;
  image.height = height;
  for (int32_t i = 0; i < width * height; ++i) image.rgba.insert(image.rgba.end(), {r, g, b, 255});
  return image;
}

// The R, G, B, A bytes of pixel (x, y).
const uint8_t* PixelAt(const Image& image, int32_t x, int32_t y) {
  return &image.rgba[(size_t(y) * size_t(image.width) + size_t(x)) * 4];
}

// Gray pixels, row after row, opaque.
Image GrayImage(int32_t width, int32_t height, const std::vector<uint8_t>& values) {
  Image image;
  image.width = width;
  image.height = height;
  image.rgba.resize(values.size() * 4, 255);
  for (size_t i = 0; i < values.size(); ++i) std::fill_n(&image.rgba[i * 4], 3, values[i]);
  return image;
}

// `image` with the given alpha values, row after row.
Image WithAlpha(Image image, const std::vector<uint8_t>& alphas) {
  image.hasAlpha = true;
  for (size_t i = 0; i < alphas.size(); ++i) image.rgba[i * 4 + 3] = alphas[i];
  return image;
}

// `destination` with `picture` copied into it at (x, y): drawing at whole coordinates with
// opacity 1 and no mask.
Image Pasted(Image destination, const Image& picture, int32_t x, int32_t y) {
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
Image RunToImage(qpxhost::Host& host, qpxhost::HostPicture* picture, const MethodCall& call,
                 int32_t yield) {
  return PictureToImage(*RunMethod(host, picture, call, yield).get());
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

// `value` as big-endian bytes.
std::string BigEndian(uint32_t value, int bytes) {
  std::string out;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out += char(value >> shift & 0xff);
  return out;
}

// `rows` rows of `rowBytes` zero bytes after their filter byte (none), deflated a row at a time
// so that huge pictures need no huge buffer.
std::string DeflatedZeroRows(uint32_t rows, uint32_t rowBytes) {
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
std::string PngWithData(uint32_t width, uint32_t height, int bitDepth, const std::string& idat) {
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
std::string GrayPng(uint32_t width, uint32_t height, int bitDepth = 8) {
  return PngWithData(width, height, bitDepth,
                     DeflatedZeroRows(height, (width * uint32_t(bitDepth) + 7) / 8));
}

// JPEG scan data for `blocks` blocks of the tables GrayJpeg writes: two 0 bits each (DC
// difference 0, end of block), padded with 1 bits.
std::string JpegScan(size_t blocks) {
  std::string scan((2 * blocks + 7) / 8, '\0');
  if (const size_t used = 2 * blocks % 8; used != 0) scan.back() = char((1 << (8 - used)) - 1);
  return scan;
}

// A baseline JPEG assembled by hand: `width` x `height` pixels in `components` components (1:
// gray, 4: CMYK), one quantisation table of ones and Huffman tables with a single one-bit code
// each (DC difference 0; end of block), so that every pixel is mid gray; `scan` is the entropy
// coded data, by default all of it.
std::string HandMadeJpeg(uint16_t width, uint16_t height, int components = 1,
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

void ExpectOneErrorLine(const QpxRun& run) {
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(run.out.empty()) << run.out;
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err.back(), '\n');
  EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
  EXPECT_THAT(run.err, StartsWith("qpx: "));
}

// The colour type in a PNG file's header: 0 gray, 2 RGB, 6 RGBA.
int PngColourType(const std::string& path) {
  const std::string bytes = ReadAll(path);
  return bytes.size() > 25 ? bytes[25] : -1;
}

// Expects gray pixels of `values`, row after row, in a gray PNG file.
void ExpectGrayFile(const std::string& path, const std::vector<uint8_t>& values) {
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
std::vector<uint8_t> MaskOfAlpha(const Image& image) {
  std::vector<uint8_t> mask;
  for (size_t i = 3; i < image.rgba.size(); i += 4) mask.push_back(uint8_t(255 - image.rgba[i]));
  return mask;
}

// The red channel of each pixel: the mask a mask file gives.
std::vector<uint8_t> RedChannel(const Image& image) {
  std::vector<uint8_t> red;
  for (size_t i = 0; i < image.rgba.size(); i += 4) red.push_back(image.rgba[i]);
  return red;
}

// --- convert ----------------------------------------------------------------------------------

TEST_F(CliTest, ConvertRoundTripIsLosslessForEveryHostAndLayout) {
  // A transparent file goes through a picture with a mask of 255 - alpha, which --mask-out
  // writes out as the host holds it.
  for (bool transparent : {false, true}) {
    const Image input = RandomImage(29, 17, transparent);
    WritePng(Path("in.png"), input, transparent);
    for (const char* host : kHostKinds) {
      for (int layout = 1; layout <= 6; ++layout) {
        SCOPED_TRACE(std::string(host) + " layout " + std::to_string(layout) +
                     (transparent ? " transparent" : ""));
        std::vector<std::string> args = {
            "convert", "in.png", "out.png", "--host", host, "--layout", std::to_string(layout)};
        if (transparent) args.insert(args.end(), {"--mask-out", "mask.png"});
        const QpxRun run = Qpx(args);
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, "");
        const Image output = ReadImage(Path("out.png"));
        EXPECT_EQ(output.hasAlpha, transparent);
        EXPECT_EQ(output.width, input.width);
        EXPECT_EQ(output.height, input.height);
        EXPECT_TRUE(output.rgba == input.rgba);  // colours under alpha 0 too
        if (transparent) ExpectGrayFile(Path("mask.png"), MaskOfAlpha(input));
        fs::remove(Path("out.png"));
      }
    }
  }
}

TEST_F(CliTest, ConvertWithAlphaKeepsAlphaWithinPremultiplicationRounding) {
  const Image input = RandomImage(31, 19, true);
  WritePng(Path("in.png"), input, true);
  for (const char* host : kHostKinds) {
    for (int layout : {1, 2}) {
      SCOPED_TRACE(std::string(host) + " layout " + std::to_string(layout));
      const QpxRun run = Qpx({"convert", "in.png", "out.png", "--alpha", "--host", host, "--layout",
                              std::to_string(layout)});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");
      const Image output = ReadImage(Path("out.png"));
      ASSERT_TRUE(output.hasAlpha);
      ASSERT_EQ(output.rgba.size(), input.rgba.size());
      int inexact = 0;
      for (size_t i = 0; i < input.rgba.size(); i += 4) {
        const int a = input.rgba[i + 3];
        ASSERT_EQ(output.rgba[i + 3], a) << "pixel " << i / 4;
        if (a == 0) continue;  // no colour survives full transparency
        for (size_t c = 0; c < 3; ++c) {
          const int error = std::abs(int(output.rgba[i + c]) - int(input.rgba[i + c]));
          if (a == 255) {
            ASSERT_EQ(error, 0) << "pixel " << i / 4;
          } else {
            // Premultiplying rounds to half a step of c * a / 255; dividing back magnifies it.
            ASSERT_LE(error, 127.5 / a + 0.5) << "pixel " << i / 4 << " alpha " << a;
          }
          inexact += error != 0;
        }
      }
      if (std::string(host) != "desktop") {
        EXPECT_EQ(inexact, 0);  // stored unpremultiplied
      }
      fs::remove(Path("out.png"));
    }
  }
}

TEST_F(CliTest, ConvertWithAlphaOfAnOpaqueFileGivesAnOpaqueAlphaChannel) {
  const Image input = RandomImage(8, 5, false);
  WritePng(Path("in.png"), input, false);
  const QpxRun run =
      Qpx({"convert", "in.png", "out.png", "--host", "desktop", "--alpha", "--layout", "2"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const Image output = ReadImage(Path("out.png"));
  EXPECT_TRUE(output.hasAlpha);
  EXPECT_TRUE(output.rgba == input.rgba);
}

TEST_F(CliTest, ConvertReadsJpeg) {
  // A tiny JPEG is not worth a libjpeg dependency here: a PNG under a .jpg name shows that
  // files are told apart by content, and JPEG decoding has tests of its own.
  const Image input = RandomImage(4, 4, false);
  WritePng(Path("in.jpg"), input, false);
  const QpxRun run = Qpx({"convert", "in.jpg", "out.png"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
}

// --- transparency -----------------------------------------------------------------------------

TEST_F(CliTest, AlphaOptionGivesAnAlphaChannelAndNoMask) {
  WritePng(Path("in.png"), RandomImage(6, 5, true), true);
  const QpxRun run = Qpx({"convert", "in.png", "out.png", "--host", "desktop", "--alpha",
                          "--layout", "1", "--mask-out", "mask.png"});
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: the picture has no mask to write to 'mask.png'\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
}

TEST_F(CliTest, FileWithoutTransparencyGivesAPictureWithoutMask) {
  WritePng(Path("in.png"), RandomImage(6, 5, false), false);
  for (const char* host : kHostKinds) {
    SCOPED_TRACE(host);
    ExpectOneErrorLine(
        Qpx({"convert", "in.png", "out.png", "--host", host, "--mask-out", "mask.png"}));
    EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
  }
}

TEST_F(CliTest, MaskFileGivesThePictureItsRedChannelAsMask) {
  const Image input = RandomImage(7, 6, false, 5);
  const Image mask = RandomImage(7, 6, false, 6);  // colour: only red counts
  WritePng(Path("opaque.png"), input, false);
  WritePng(Path("transparent.png"), WithAlpha(input, std::vector<uint8_t>(42, 9)), true);
  WritePng(Path("m.png"), mask, false);
  for (const char* file : {"opaque.png", "transparent.png"}) {
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(std::string(file) + " " + host);
      const QpxRun run = Qpx({"convert", file, "out.png", "--host", host, "--mask", "m.png",
                              "--mask-out", "mask.png"});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      const std::vector<uint8_t> red = RedChannel(mask);
      const Image output = ReadImage(Path("out.png"));
      ASSERT_TRUE(output.hasAlpha);
      for (size_t i = 0; i < red.size(); ++i) {
        EXPECT_EQ(output.rgba[i * 4 + 3], 255 - red[i]) << i;
        EXPECT_EQ(std::memcmp(&output.rgba[i * 4], &input.rgba[i * 4], 3), 0) << i;
      }
      ExpectGrayFile(Path("mask.png"), red);
    }
  }
}

TEST_F(CliTest, MaskOfAnotherSizeIsOneErrorLineAndNoOutput) {
  WritePng(Path("in.png"), RandomImage(7, 6, false), false);
  WritePng(Path("m.png"), RandomImage(6, 7, false), false);
  WriteBytes(Path("out.png"), "precious");
  const QpxRun run = Qpx({"convert", "in.png", "out.png", "--mask", "m.png"});
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: the mask 'm.png' is 6 x 7 pixels, the picture 'in.png' 7 x 6\n");
  EXPECT_EQ(ReadAll(Path("out.png")), "precious");
  ExpectOneErrorLine(Qpx({"blur", "in.png", "new.png", "--radius", "1", "--mask", "missing.png"}));
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "m.png", "out.png"));
}

TEST_F(CliTest, NewResultsOfTheMethodsHaveNoMask) {
  WritePng(Path("in.png"), RandomImage(8, 6, true), true);
  const std::vector<std::vector<std::string>> calls = {
      {"blur", "in.png", "out.png", "--radius", "2"},
      {"scale", "in.png", "out.png", "--width", "4", "--height", "3"},
      {"resample", "in.png", "out.png", "--mode", "box", "--width", "16", "--height", "12"}};
  for (const auto& args : calls) {
    SCOPED_TRACE(args[0]);
    const QpxRun run = Qpx(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(PngColourType(Path("out.png")), 2);  // opaque RGB
    std::vector<std::string> withMaskOut = args;
    withMaskOut.insert(withMaskOut.end(), {"--mask-out", "mask.png"});
    const QpxRun refused = Qpx(withMaskOut);
    ExpectOneErrorLine(refused);
    EXPECT_THAT(refused.err, HasSubstr("has no mask to write to 'mask.png'"));
    EXPECT_FALSE(fs::exists(Path("mask.png")));
  }
}

TEST_F(CliTest, ReceiverHandedBackKeepsItsMask) {
  const Image input = RandomImage(8, 6, true);
  WritePng(Path("in.png"), input, true);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"blur", "in.png", "out.png", "--radius", "0"},
        {"scale", "in.png", "out.png", "--width", "8", "--height", "6"}}) {
    SCOPED_TRACE(args[0]);
    ASSERT_EQ(Qpx(args).exitCode, 0);
    EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
  }
}

// --- failures ---------------------------------------------------------------------------------

TEST_F(CliTest, MissingInputIsOneErrorLineAndNoOutput) {
  const QpxRun run = Qpx({"convert", "missing.png", "out.png"});
  ExpectOneErrorLine(run);
  EXPECT_THAT(run.err, HasSubstr("missing.png"));
  EXPECT_TRUE(Files().empty());
}

TEST_F(CliTest, TruncatedPngIsOneErrorLineAndNoOutput) {
  WritePng(Path("whole.png"), RandomImage(40, 30, false), false);
  const std::string bytes = ReadAll(Path("whole.png"));
  WriteBytes(Path("cut.png"), bytes.substr(0, bytes.size() / 2));
  for (const char* command : {"convert", "blur"}) {
    SCOPED_TRACE(command);
    std::vector<std::string> args = {command, "cut.png", "out.png"};
    if (std::string(command) == "blur") args.insert(args.end(), {"--radius", "2"});
    ExpectOneErrorLine(Qpx(args));
    EXPECT_THAT(Files(), ::testing::ElementsAre("cut.png", "whole.png"));
  }
}

TEST_F(CliTest, FileThatIsNoImageIsOneErrorLine) {
  WriteBytes(Path("text.png"), "hello\n");
  ExpectOneErrorLine(Qpx({"convert", "text.png", "out.png"}));
  EXPECT_FALSE(fs::exists(Path("out.png")));
}

TEST_F(CliTest, PictureWiderThanTheLargestSideIsOneErrorLineAndNoOutput) {
  WriteBytes(Path("wide.png"), GrayPng(32768, 1));
  const QpxRun run = Qpx({"blur", "wide.png", "out.png", "--radius", "1"});
  ExpectOneErrorLine(run);
  EXPECT_THAT(run.err, HasSubstr("32767"));
  EXPECT_THAT(Files(), ::testing::ElementsAre("wide.png"));
}

TEST_F(CliTest, LargestSideIsAccepted) {
  WriteBytes(Path("wide.png"), GrayPng(32767, 1));
  const QpxRun run = Qpx({"convert", "wide.png", "out.png"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(ReadImage(Path("out.png")).width, 32767);
}

TEST_F(CliTest, ExistingOutputIsLeftIntactWhenTheInputIsBad) {
  WriteBytes(Path("out.png"), "precious");
  WritePng(Path("whole.png"), RandomImage(40, 30, false), false);
  const std::string bytes = ReadAll(Path("whole.png"));
  WriteBytes(Path("cut.png"), bytes.substr(0, bytes.size() - 20));
  for (const char* input : {"missing.png", "cut.png"}) {
    SCOPED_TRACE(input);
    ExpectOneErrorLine(Qpx({"convert", input, "out.png"}));
    ExpectOneErrorLine(Qpx({"blur", input, "out.png", "--radius", "3"}));
    EXPECT_EQ(ReadAll(Path("out.png")), "precious");
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("cut.png", "out.png", "whole.png"));
}

TEST_F(CliTest, BadArgumentsAreUsageErrors) {
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const std::vector<std::vector<std::string>> cases = {
      {"convert", "in.png", "out.png", "--layout", "7"},
      {"convert", "in.png", "out.png", "--layout", "0"},
      {"convert", "in.png", "out.png", "--alpha", "--layout", "5"},
      {"convert", "in.png", "out.png", "--alpha"},  // the default layout has no alpha
      {"convert", "in.png", "out.png", "--host", "mainframe"},
      {"convert", "in.png", "out.png", "--host-version", "soon"},
      {"convert", "in.png", "out.png", "--yield", "often"},
      {"convert", "in.png"},
      {"blur", "in.png", "out.png"},
      {"blur", "in.png", "out.png", "--radius", "wide"},
      {"blur", "in.png", "out.png", "--radius", "2", "--alpha", "--layout", "3"},
      {"scale", "in.png", "out.png", "--height", "4"},
      {"scale", "in.png", "out.png", "--width", "4"},
      {"scale", "in.png", "out.png", "--width", "wide", "--height", "4"},
      {"scale", "in.png", "out.png", "--width", "2.5", "--height", "4"},
      {"scale", "in.png", "out.png", "--width", "4", "--height", "3000000000"},
      {"scale", "in.png", "out.png", "--width", "4", "--height", "4", "--antialias", "yes"},
      {"scale-mask", "in.png", "out.png", "--height", "4"},
      {"scale-mask", "in.png", "out.png", "--width", "4"},
      {"scale-mask", "in.png", "out.png", "--width", "4", "--height", "four"},
      {"scale-mask", "in.png", "out.png", "--width", "-4.5", "--height", "4"},
      {"scale-mask", "in.png", "out.png", "--width", "4", "--height", "-3000000000"},
      {"scale-mask", "in.png", "--width", "4", "--height", "4"},
      {"scale-mask", "in.png", "out.png", "--width", "4", "--height", "4", "--alpha"},
      {"scale-mask", "in.png", "out.png", "--width", "4", "--height", "4", "--mask-out"},
      {"scale-mask", "in.png", "out.png", "--width", "4", "--height", "4", "--radius", "2"},
      {"resample", "in.png", "out.png", "--width", "4", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "2", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "2", "--width", "4"},
      {"resample", "in.png", "out.png", "--mode", "sharp", "--width", "4", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "", "--width", "4", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "2.5", "--width", "4", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "3000000000", "--width", "4", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "box", "--width", "wide", "--height", "4"},
      {"resample", "in.png", "out.png", "--mode", "box", "--width", "4", "--height", "1.5"},
      {"resample", "in.png", "out.png", "--mode", "box", "--width", "4", "--height", "4",
       "--layout", "8"},
      {"draw", "in.png", "in.png", "out.png", "--y", "1"},
      {"draw", "in.png", "in.png", "out.png", "--x", "1"},
      {"draw", "in.png", "in.png", "out.png", "--x", "left", "--y", "1"},
      {"draw", "in.png", "in.png", "out.png", "--x", "1", "--y", ""},
      {"draw", "in.png", "in.png", "out.png", "--x", "1", "--y", "1", "--opacity", "half"},
      {"draw", "in.png", "in.png", "out.png", "--x", "1", "--y", "1", "--x", "2"},
      {"draw", "in.png", "out.png", "--x", "1", "--y", "1"},
      {"draw", "in.png", "in.png", "out.png", "--x", "1", "--y", "1", "--mask"},
      {"convert", "in.png", "out.png", "--mask-out"},
      {"demo", "--layout", "9"},
      {"paint", "in.png"},
      {},
  };
  for (const auto& args : cases) {
    std::string line;
    for (const auto& arg : args) line += arg + " ";
    SCOPED_TRACE(line);
    const QpxRun run = Qpx(args);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.out.empty()) << run.out;
    EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
    EXPECT_THAT(run.err, StartsWith("qpx: "));
    EXPECT_THAT(run.err, ::testing::EndsWith(" --help')\n"));
    EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
  }
}

TEST_F(CliTest, EveryCommandHasHelp) {
  for (const char* command :
       {"info", "convert", "blur", "scale", "scale-mask", "resample", "draw", "demo"}) {
    SCOPED_TRACE(command);
    const QpxRun run = Qpx({command, "--help"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.out, HasSubstr("Usage"));
  }
  const QpxRun run = Qpx({"--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* command :
       {"info", "convert", "blur", "scale", "scale-mask", "resample", "draw", "demo"}) {
    EXPECT_THAT(run.out, HasSubstr(command));
  }
}

TEST_F(CliTest, CommonOptionsAndTheTransparencyRuleAreOnEveryPictureCommand) {
  for (const char* command : {"convert", "blur", "scale", "scale-mask", "resample", "draw"}) {
    const QpxRun run = Qpx({command, "--help"});
    for (const char* option :
         {"--host ", "--layout", "--alpha", "--host-version", "--plugin", "--yield", "--mask ",
          "--mask-out", "Transparency:", "mask of 255 - alpha", "alpha = 255 - mask"}) {
      EXPECT_THAT(run.out, HasSubstr(option)) << command;
    }
  }
}

TEST_F(CliTest, MissingModuleIsOneErrorLine) {
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  ExpectOneErrorLine(Qpx({"blur", "in.png", "out.png", "--radius", "1", "--plugin", "none.so"}));
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
}

// --- hostile input ----------------------------------------------------------------------------

// One bad input: the files it takes (written into the test's directory), the arguments after
// the command and the answer. Each is also a row of the README's table.
struct BadInput {
  std::string what;
  std::vector<std::pair<std::string, std::string>> files;  // name, bytes
  std::vector<std::string> args;
  int exitCode;
  std::string message;
};

std::string PngOfRandomRows() {
  // Random pixels do not compress, so the file is long enough to cut in its image data.
  std::string raw;
  std::mt19937 random(7);
  for (int y = 0; y < 32; ++y) {
    raw += '\0';
    for (int x = 0; x < 32; ++x) raw += char(random());
  }
  std::string packed(compressBound(uLong(raw.size())), '\0');
  uLongf size = uLongf(packed.size());
  compress(reinterpret_cast<Bytef*>(packed.data()), &size,
           reinterpret_cast<const Bytef*>(raw.data()), uLong(raw.size()));
  packed.resize(size);
  return PngWithData(32, 32, 8, packed);
}

// A file `name` holding `bytes`, converted with `options`, refused with exit code 1.
BadInput BadFile(const std::string& what, const std::string& name, const std::string& bytes,
                 const std::string& message, const std::vector<std::string>& options = {}) {
  std::vector<std::string> args = {name, "out.png"};
  args.insert(args.end(), options.begin(), options.end());
  return {what, {{name, bytes}}, args, 1, message};
}

// A module that cannot be loaded, `module`, with a good input.
BadInput BadModule(const std::string& what, const std::string& module, const std::string& message) {
  BadInput bad = BadFile(what, "in.png", GrayPng(2, 2), message, {"--plugin", module});
  if (module == "fifo") bad.files.push_back({"fifo", ""});
  return bad;
}

std::vector<BadInput> BadInputs() {
  const std::string png = PngOfRandomRows();
  std::string changed = png;
  changed[changed.size() - 20] ^= 1;  // in the image data, before its CRC and IEND
  const std::string jpeg = HandMadeJpeg(32, 32);
  const std::string scan = JpegScan(16);
  std::string mangled = scan;
  std::fill(mangled.begin() + 1, mangled.begin() + 3, '\x5a');      // 1 bits: no code starts so
  const std::string noData("\x78\x9c\x03\x00\x00\x00\x00\x01", 8);  // zlib data of nothing
  const std::string tooLarge = "pixels, more than the 2^31 bytes a host picture holds";
  const std::vector<std::string> largestLimit = {"--max-pixels", "536870912"};
  return {
      {"missing file",
       {},
       {"missing.png", "out.png"},
       1,
       "cannot read 'missing.png': no such file"},
      {"directory", {}, {".", "out.png"}, 1, "cannot read '.': is a directory"},
      {"device", {}, {"/dev/zero", "out.png"}, 1, "cannot read '/dev/zero': not a regular file"},
      BadFile("FIFO as input", "fifo", "", "cannot read 'fifo': not a regular file"),
      BadFile("empty file", "in.png", "", "is not a PNG or JPEG file"),
      BadFile("text file", "in.png", "hello\n", "is not a PNG or JPEG file"),
      BadFile("PNG cut in its image data", "in.png", png.substr(0, png.size() / 2),
              "corrupt PNG data (unexpected end of file)"),
      BadFile("PNG with a byte of its image data changed", "in.png", changed,
              "corrupt PNG data (IDAT: incorrect data check)"),
      BadFile("PNG 0 pixels wide", "in.png", GrayPng(0, 1),
              "is 0 x 1 pixels; each side must be at least 1 pixel"),
      BadFile("PNG 32768 pixels wide", "in.png", GrayPng(32768, 1),
              "is 32768 x 1 pixels; the largest side allowed is 32767"),
      BadFile("JPEG cut short", "in.jpg", jpeg.substr(0, jpeg.size() - 4),
              "corrupt JPEG data (Premature end of JPEG file)"),
      BadFile("JPEG whose scan is cut and followed by its end marker", "in.jpg",
              HandMadeJpeg(32, 32, 1, scan.substr(0, 1)),
              "corrupt JPEG data (premature end of data segment)"),
      BadFile("JPEG with mangled scan data", "in.jpg", HandMadeJpeg(32, 32, 1, mangled),
              "corrupt JPEG data (bad Huffman code)"),
      BadFile("CMYK JPEG", "in.jpg", HandMadeJpeg(8, 8, 4),
              "is a CMYK JPEG file, which is not supported"),
      BadFile("1-bit PNG of 32767 x 32767 zeros (130 KB)", "in.png", GrayPng(32767, 32767, 1),
              "is 32767 x 32767 " + tooLarge, largestLimit),
      BadFile("JPEG whose frame claims 32767 x 32767", "in.jpg",
              HandMadeJpeg(32767, 32767, 1, scan), "is 32767 x 32767 " + tooLarge),
      BadFile("PNG claiming 30000 x 30000 in 65 bytes", "in.png",
              PngWithData(30000, 30000, 8, noData), "is 30000 x 30000 " + tooLarge),
      BadFile("PNG claiming 12000 x 12000 (144 megapixels)", "in.png",
              PngWithData(12000, 12000, 8, noData),
              "is 12000 x 12000 pixels, more than the 100000000 allowed (--max-pixels raises "
              "the limit)"),
      BadFile("PNG of 4 x 3 pixels with --max-pixels 11", "in.png", GrayPng(4, 3),
              "is 4 x 3 pixels, more than the 11 allowed", {"--max-pixels", "11"}),
      BadFile("PNG claiming 23000 x 23000 in 65 bytes, with --max-pixels 536870912", "in.png",
              PngWithData(23000, 23000, 8, noData), "corrupt PNG data (Not enough image data)",
              largestLimit),
      BadModule("FIFO as module", "fifo", "cannot load plug-in 'fifo': not a regular file"),
      BadModule("directory as module", ".", "cannot load plug-in '.': is a directory"),
      BadModule("file that is no module", "in.png",
                "cannot load plug-in 'in.png': invalid ELF header"),
      {"--max-pixels 0",
       {{"in.png", GrayPng(2, 2)}},
       {"in.png", "out.png", "--max-pixels", "0"},
       2,
       "--max-pixels: Value 0 not in range 1 to 536870912"},
  };
}

TEST_F(CliTest, BadInputsGetOneLineAndLeaveNothingBehind) {
  for (const BadInput& bad : BadInputs()) {
    SCOPED_TRACE(bad.what);
    WriteBytes(Path("out.png"), "precious");
    for (const auto& [name, bytes] : bad.files) {
      if (name == "fifo") {
        ASSERT_EQ(mkfifo(Path(name).c_str(), 0600), 0);
      } else {
        WriteBytes(Path(name), bytes);
      }
    }
    const std::vector<std::string> before = Files();
    std::vector<std::string> args = {"convert"};
    args.insert(args.end(), bad.args.begin(), bad.args.end());
    const auto start = std::chrono::steady_clock::now();
    long maxRssKb = 0;
    const QpxRun run = FinishQpx(StartQpx(args), &maxRssKb);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(run.exitCode, bad.exitCode);
    EXPECT_TRUE(run.out.empty()) << run.out;
    EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
    EXPECT_THAT(run.err, HasSubstr(bad.message));
    EXPECT_THAT(run.err, StartsWith("qpx: "));
    EXPECT_EQ(ReadAll(Path("out.png")), "precious");
    EXPECT_EQ(Files(), before);
    // Refused from the header or failing on the first rows: no picture's worth of memory or time.
    EXPECT_LT(seconds, 10.0);
    EXPECT_LT(maxRssKb, 300 * 1024);
    for (const std::string& name : Files()) fs::remove(Path(name));
  }
}

TEST_F(CliTest, TheReadmeListsEveryBadInput) {
  const std::string readme = ReadAll(fs::path(__FILE__).parent_path().parent_path() / "README.md");
  for (const BadInput& bad : BadInputs()) {
    EXPECT_NE(readme.find("| " + bad.what + " |"), std::string::npos) << bad.what;
    EXPECT_NE(readme.find(bad.message), std::string::npos) << bad.message;
  }
}

// --- where output goes --------------------------------------------------------------------------

TEST_F(CliTest, DashReadsStandardInputAndWritesStandardOutput) {
  const Image input = RandomImage(300, 200, true);  // more than a pipe holds at once
  WritePng(Path("in.png"), input, true);
  const QpxRun run = QpxWithInput({"convert", "-", "-"}, ReadAll(Path("in.png")));
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  WriteBytes(Path("copy.png"), run.out);
  EXPECT_TRUE(ReadImage(Path("copy.png")).rgba == input.rgba);
  EXPECT_THAT(Files(), ::testing::ElementsAre("copy.png", "in.png"));

  const QpxRun text = QpxWithInput({"convert", "-", "out.png"}, "hello");
  ExpectOneErrorLine(text);
  EXPECT_THAT(text.err, HasSubstr("standard input is not a PNG or JPEG file"));
}

TEST_F(CliTest, OutputThroughASymbolicLinkGoesIntoTheFileItPointsTo) {
  WritePng(Path("in.png"), RandomImage(5, 4, false), false);
  fs::create_directory(Path("sub"));
  fs::create_symlink("sub/target.png", Path("link.png"));
  const QpxRun run = Qpx({"convert", "in.png", "link.png"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(fs::is_symlink(Path("link.png")));
  EXPECT_EQ(ReadAll(Path("sub/target.png")), ReadAll(Path("in.png")));
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "link.png", "sub"));
}

TEST_F(CliTest, OutputKeepsTheModeOfTheFileItReplaces) {
  WritePng(Path("in.png"), RandomImage(5, 4, false), false);
  WriteBytes(Path("out.png"), "old");
  ASSERT_EQ(chmod(Path("out.png").c_str(), 0600), 0);
  ASSERT_EQ(Qpx({"convert", "in.png", "out.png"}).exitCode, 0);
  struct stat info {};
  ASSERT_EQ(stat(Path("out.png").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_EQ(ReadAll(Path("out.png")), ReadAll(Path("in.png")));
}

TEST_F(CliTest, OutputToADeviceIsWrittenThrough) {
  WritePng(Path("in.png"), RandomImage(5, 4, false), false);
  const QpxRun run = Qpx({"convert", "in.png", "/dev/null"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  struct stat info {};
  ASSERT_EQ(stat("/dev/null", &info), 0);
  EXPECT_TRUE(S_ISCHR(info.st_mode));
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
}

TEST_F(CliTest, OutputToAFifoIsWrittenThrough) {
  const Image input = RandomImage(300, 200, false);
  WritePng(Path("in.png"), input, false);
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  const pid_t pid = StartQpx({"convert", "in.png", "fifo"});
  const int fd = open(Path("fifo").c_str(), O_RDONLY);  // waits for qpx to open it
  ASSERT_GE(fd, 0);
  std::string bytes;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) bytes.append(buffer, size_t(n));
  close(fd);
  const QpxRun run = FinishQpx(pid);
  ASSERT_EQ(run.exitCode, 0) << run.err;
  WriteBytes(Path("copy.png"), bytes);
  EXPECT_TRUE(ReadImage(Path("copy.png")).rgba == input.rgba);
  EXPECT_THAT(Files(), ::testing::ElementsAre("copy.png", "fifo", "in.png"));
}

// The mask goes to a FIFO nobody reads yet, so qpx waits with the picture complete in its
// temporary file; the signal must take that file away.
TEST_F(CliTest, SignalWhileWritingRemovesTheTemporaryFile) {
  WritePng(Path("in.png"), RandomImage(40, 30, true), true);
  ASSERT_EQ(mkfifo(Path("mask.fifo").c_str(), 0600), 0);
  for (const int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    const pid_t pid = StartQpx({"convert", "in.png", "out.png", "--mask-out", "mask.fifo"});
    bool waiting = false;
    for (int i = 0; i < 1000 && !waiting; ++i) {
      for (const std::string& name : Files()) waiting |= name.rfind("out.png.tmp-", 0) == 0;
      if (!waiting) usleep(10000);
    }
    EXPECT_TRUE(waiting) << "no temporary file showed up";
    kill(pid, signal);
    const QpxRun run = FinishQpx(pid);
    EXPECT_EQ(run.exitCode, 128 + signal);
    EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "mask.fifo"));
  }
}

// --- messages -----------------------------------------------------------------------------------

TEST_F(CliTest, UsageErrorsNameWhatWasTyped) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"paint", "in.png"}, "qpx: unknown command 'paint' (see 'qpx --help')\n"},
      {{"--colour"}, "qpx: unknown option '--colour' (see 'qpx --help')\n"},
      {{}, "qpx: a command is required (see 'qpx --help')\n"},
      {{"convert", "in.png", "out.png", "--host", "a\rb\nc"},
       "qpx: --host: a?b c not in {desktop,console,web} (see 'qpx convert --help')\n"},
  };
  for (const auto& [args, message] : cases) {
    const QpxRun run = Qpx(args);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, message);
  }
}

TEST_F(CliTest, DemoWithAModuleThatCannotLoadWritesNothing) {
  WriteBytes(Path("fake.so"), "not a module");
  const QpxRun run = Qpx({"demo", "out", "--plugin", "fake.so"});
  ExpectOneErrorLine(run);
  EXPECT_THAT(run.err, HasSubstr("cannot load plug-in 'fake.so'"));
  EXPECT_THAT(Files(), ::testing::ElementsAre("fake.so"));
}

// --- blur -------------------------------------------------------------------------------------
// These need the module's BlurQPX.

TEST_F(CliTest, BlurOfAUniformPictureKeepsItsColour) {
  const Image input = UniformImage(23, 14, 200, 120, 40);
  WritePng(Path("in.png"), input, false);
  for (const char* host : kHostKinds) {
    for (const char* radius : {"1", "2.5", "8", "40"}) {
      SCOPED_TRACE(std::string(host) + " radius " + radius);
      const QpxRun run = Qpx({"blur", "in.png", "out.png", "--radius", radius, "--host", host});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");  // no terminal: no progress bar
      EXPECT_EQ(run.out, "");
      const Image output = ReadImage(Path("out.png"));
      EXPECT_FALSE(output.hasAlpha);
      EXPECT_TRUE(output.rgba == input.rgba);
    }
  }
}

TEST_F(CliTest, BlurWithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(40, 30, false), false);
  ASSERT_EQ(Qpx({"blur", "in.png", "a.png", "--radius", "3"}).exitCode, 0);
  for (const char* yield : {"1", "-1", "-2147483648"}) {
    const QpxRun run = Qpx({"blur", "in.png", "b.png", "--radius", "3", "--yield", yield});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(ReadImage(Path("a.png")).rgba == ReadImage(Path("b.png")).rgba) << yield;
  }
}

TEST_F(CliTest, BlurWithRadiusBelowOneGivesThePictureBack) {
  const Image input = RandomImage(13, 11, false);
  WritePng(Path("in.png"), input, false);
  for (const char* host : kHostKinds) {
    for (const char* radius : {"0", "0.99", "-5"}) {
      SCOPED_TRACE(std::string(host) + " radius " + radius);
      const QpxRun run = Qpx({"blur", "in.png", "out.png", "--host", host, "--radius", radius});
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
    }
  }
}

TEST_F(CliTest, BlurSmoothsAnEdge) {
  Image input = UniformImage(12, 3, 0, 0, 0);
  for (int32_t y = 0; y < 3; ++y) {
    for (int32_t x = 6; x < 12; ++x) {
      for (size_t c = 0; c < 3; ++c) input.rgba[(size_t(y) * 12 + size_t(x)) * 4 + c] = 255;
    }
  }
  WritePng(Path("in.png"), input, false);
  const QpxRun run = Qpx({"blur", "in.png", "out.png", "--radius", "1", "--host", "desktop"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const Image output = ReadImage(Path("out.png"));
  // Columns 5 and 6 see one and two white columns of three.
  EXPECT_EQ(output.rgba[(12 + 4) * 4], 0);
  EXPECT_EQ(output.rgba[(12 + 5) * 4], 85);
  EXPECT_EQ(output.rgba[(12 + 6) * 4], 170);
  EXPECT_EQ(output.rgba[(12 + 7) * 4], 255);
}

// --- scale ------------------------------------------------------------------------------------
// These need the module's ScaleQPX.

// "qpx COMMAND in.png OUTPUT --width W --height H", with --antialias when asked, then `more`.
std::vector<std::string> ResizeArgs(const std::string& command, const std::string& output,
                                    int32_t width, int32_t height, bool antialias,
                                    const std::vector<std::string>& more = {}) {
  std::vector<std::string> args = {command, "in.png", output};
  args.insert(args.end(), {"--width", std::to_string(width), "--height", std::to_string(height)});
  if (antialias) args.push_back("--antialias");
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

std::vector<std::string> ScaleArgs(const std::string& output, int32_t width, int32_t height,
                                   bool antialias, const std::vector<std::string>& more = {}) {
  return ResizeArgs("scale", output, width, height, antialias, more);
}

// Pixels of `big` equal to pixel (x / xFactor, y / yFactor) of `small`.
int64_t RepeatedPixels(const Image& big, const Image& small, int32_t xFactor, int32_t yFactor) {
  int64_t count = 0;
  for (int32_t y = 0; y < big.height; ++y) {
    for (int32_t x = 0; x < big.width; ++x) {
      count += std::memcmp(PixelAt(big, x, y), PixelAt(small, x / xFactor, y / yFactor), 4) == 0;
    }
  }
  return count;
}

// Opaque gray pixels of the given values, row after row.
void ExpectGray(const Image& image, const std::vector<uint8_t>& values) {
  ASSERT_EQ(size_t(image.width) * size_t(image.height), values.size());
  for (size_t i = 0; i < values.size(); ++i) {
    const uint8_t* pixel = &image.rgba[i * 4];
    const uint8_t v = values[i];
    EXPECT_THAT(std::vector<uint8_t>(pixel, pixel + 4), ::testing::ElementsAre(v, v, v, 255))
        << "pixel " << i % size_t(image.width) << ", " << i / size_t(image.width);
  }
}

// "qpx resample in.png OUTPUT --mode MODE --width W --height H", then `more`.
std::vector<std::string> ResampleArgs(const std::string& output, const std::string& mode,
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

TEST_F(CliScaleTest, EnlargesWithoutAntialiasByRepeatingPixels) {
  const Image input = RandomImage(2, 2, false);
  WritePng(Path("in.png"), input, false);
  for (const Image& output : ScaleInEveryHost(4, 4, false)) {
    EXPECT_EQ(RepeatedPixels(output, input, 2, 2), 16);  // every pixel as a 2 x 2 block
  }
}

TEST_F(CliScaleTest, ShrinkAveragesAcrossFromTheTopRowOfEachBox) {
  // Halving each side: boxes of 2 x 2, of which only the top row is read, so rows 1 and 3 do
  // not count. Each value is (0.5 + 2 * (a + b)) / 4 truncated: the mean of a and b, plus 1/8.
  WritePng(Path("in.png"),
           GrayImage(4, 4,
                     {10, 13, 200, 101,    //
                      255, 255, 255, 255,  //
                      0, 1, 60, 61,        //
                      255, 255, 255, 255}),
           false);
  for (const Image& output : ScaleInEveryHost(2, 2, false)) {
    ExpectGray(output, {11, 150, 0, 60});  // 11.5, 150.5, 0.5 and 60.5, each plus 1/8
  }
}

TEST_F(CliScaleTest, WithAntialiasBlendsNeighbours) {
  // 2 x 2 to 4 x 4: output rows and columns sit at source positions 0, 0.5, 1 and 1.5; the
  // smoothstep weights at 0.5 are 0.5 and 0.5, and beyond the last source pixel it repeats.
  // Each value is rounded half up.
  WritePng(Path("in.png"), GrayImage(2, 2, {0, 100, 200, 41}), false);
  for (const Image& output : ScaleInEveryHost(4, 4, true)) {
    ExpectGray(output, {0, 50, 100, 100,  //
                        100, 85, 71, 71,  // (0 + 100 + 200 + 41) / 4 = 85.25; (100 + 41) / 2 = 70.5
                        200, 121, 41, 41,  //
                        200, 121, 41, 41});
  }
}

TEST_F(CliScaleTest, WithAntialiasGrowingOneWayOnlyRepeatsPixels) {
  const Image input = RandomImage(2, 2, false);
  WritePng(Path("in.png"), input, false);
  for (const Image& output : ScaleInEveryHost(4, 2, true)) {
    EXPECT_EQ(RepeatedPixels(output, input, 2, 1), 8);  // the box resizer, not the smooth one
  }
}

TEST_F(CliScaleTest, ToTheSameSizeGivesThePictureBack) {
  const Image input = RandomImage(7, 5, false);
  WritePng(Path("in.png"), input, false);
  for (const char* host : kHostKinds) {
    for (bool antialias : {false, true}) {
      SCOPED_TRACE(std::string(host) + (antialias ? " antialias" : ""));
      const QpxRun run = Qpx(ScaleArgs("out.png", 7, 5, antialias, {"--host", host}));
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
    }
  }
}

TEST_F(CliScaleTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(20, 15, false), false);
  ExpectYieldingChangesNothing("scale");
}

TEST_F(CliScaleTest, ToNoPixelsIsOneErrorLineAndNoOutput) {
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const QpxRun run = Qpx(ScaleArgs("out.png", 0, 4, false));
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: pic.ScaleQPX(0, 4, False) returned nil\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));

  WriteBytes(Path("out.png"), "precious");
  for (const char* host : kHostKinds) {
    SCOPED_TRACE(host);
    ExpectOneErrorLine(Qpx(ScaleArgs("out.png", 8, -3, true, {"--host", host})));
    EXPECT_EQ(ReadAll(Path("out.png")), "precious");
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "out.png"));
}

// --- scale-mask -------------------------------------------------------------------------------
// These need the module's ScaleImageAndMaskQPX.

std::vector<std::string> ScaleMaskArgs(const std::string& output, int32_t width, int32_t height,
                                       bool antialias, const std::vector<std::string>& more = {}) {
  return ResizeArgs("scale-mask", output, width, height, antialias, more);
}

// The R, G, B, A bytes of every pixel, row after row.
std::vector<std::vector<uint8_t>> Pixels(const Image& image) {
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

TEST_F(CliScaleMaskTest, ShrinkAveragesColoursAndMaskAlike) {
  // 2 x 1 to 1 x 1: one box of 2 x 1, so each channel is (0.5 + S) / 2 truncated, S the sum of
  // the two pixels' values; the mask (255 - alpha: 0 and 255) likewise, written as 255 - mask.
  WritePng(Path("in.png"), WithAlpha(GrayImage(2, 1, {0, 0}), {255, 0}), true);
  Image input = ReadImage(Path("in.png"));
  const uint8_t colours[] = {10, 20, 30, 41, 60, 91};
  for (size_t i = 0; i < 6; ++i) input.rgba[i / 3 * 4 + i % 3] = colours[i];
  WritePng(Path("in.png"), input, true);
  for (const auto& [output, mask] : InEveryHost(ScaleMaskArgs("out.png", 1, 1, false))) {
    // (0.5 + 51) / 2 = 25.75, (0.5 + 80) / 2 = 40.25, (0.5 + 121) / 2 = 60.75; mask
    // (0.5 + 255) / 2 = 127.75.
    EXPECT_THAT(Pixels(output), ::testing::ElementsAre(Rgba{25, 40, 60, 128}));
    EXPECT_THAT(mask, ::testing::ElementsAre(127));
  }
}

TEST_F(CliScaleMaskTest, AntialiasedEnlargementBlendsTheMaskFromAMaskFile) {
  // 2 x 2 to 4 x 4 with a mask file of the same values as the gray image: both are resized by
  // the smooth enlargement, whose values for these four pixels are worked out in
  // CliScaleTest.WithAntialiasBlendsNeighbours.
  const std::vector<uint8_t> values = {0, 100, 200, 41};
  WritePng(Path("in.png"), GrayImage(2, 2, values), false);
  WritePng(Path("m.png"), GrayImage(2, 2, values), false);
  const std::vector<uint8_t> blended = {0,   50,  100, 100, 100, 85,  71, 71,
                                        200, 121, 41,  41,  200, 121, 41, 41};
  for (const auto& [output, mask] :
       InEveryHost(ScaleMaskArgs("out.png", 4, 4, true, {"--mask", "m.png"}))) {
    EXPECT_EQ(mask, blended);
    ASSERT_TRUE(output.hasAlpha);
    for (size_t i = 0; i < blended.size(); ++i) {
      const uint8_t v = blended[i];
      EXPECT_EQ(Rgba(&output.rgba[i * 4], &output.rgba[i * 4] + 4),
                (Rgba{v, v, v, uint8_t(255 - v)}))
          << "pixel " << i;
    }
  }
}

TEST_F(CliScaleMaskTest, WithoutTransparencyGivesWhatScaleGivesAndNoMask) {
  WritePng(Path("in.png"), RandomImage(9, 7, false), false);
  for (const char* host : kHostKinds) {
    for (const auto& [width, height, antialias] :
         {std::tuple{4, 3, false}, {20, 15, true}, {20, 15, false}}) {
      SCOPED_TRACE(std::string(host) + " " + std::to_string(width) + (antialias ? " smooth" : ""));
      const QpxRun scaled = Qpx(ScaleArgs("scale.png", width, height, antialias, {"--host", host}));
      ASSERT_EQ(scaled.exitCode, 0) << scaled.err;
      const QpxRun run = Qpx(ScaleMaskArgs("out.png", width, height, antialias, {"--host", host}));
      ASSERT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(PngColourType(Path("out.png")), 2);  // opaque RGB
      EXPECT_TRUE(ReadImage(Path("out.png")).rgba == ReadImage(Path("scale.png")).rgba);

      const QpxRun refused = Qpx(ScaleMaskArgs("new.png", width, height, antialias,
                                               {"--host", host, "--mask-out", "mask.png"}));
      ExpectOneErrorLine(refused);
      EXPECT_EQ(refused.err, "qpx: the result of pic.ScaleImageAndMaskQPX(" +
                                 std::to_string(width) + ", " + std::to_string(height) + ", " +
                                 (antialias ? "True" : "False") +
                                 ") has no mask to write to 'mask.png'\n");
      EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "out.png", "scale.png"));
    }
  }
}

// A 4 x 2 picture whose top-left 2 x 1 pixels are opaque; the rest of row 0 has alpha 128 and 0
// (mask 127 and 255), row 1 alpha 255, 64, 255, 255 (mask 0, 191, 0, 0).
Image PictureForTheAlphaPath() {
  return WithAlpha(RandomImage(4, 2, false, 21), {255, 255, 128, 0, 255, 64, 255, 255});
}

TEST_F(CliScaleMaskTest, WithAnAlphaChannelGivesTheTopLeftRegionUnderTheResizedMask) {
  const Image input = PictureForTheAlphaPath();
  WritePng(Path("in.png"), input, true);
  for (const char* layout : {"1", "2"}) {
    SCOPED_TRACE(std::string("layout ") + layout);
    // Shrinking 4 x 2 to 2 x 1: boxes of 2 x 2 read from row 0. The image is not resized but
    // cut: pixels (0, 0) and (1, 0) as they are. The mask is resized: (0.5 + 2 * (0 + 0)) / 4
    // gives 0, (0.5 + 2 * (127 + 255)) / 4 = 191.125 gives 191.
    const auto shrunk = InEveryHost(
        ScaleMaskArgs("out.png", 2, 1, false, {"--alpha", "--layout", layout}), {"desktop"});
    for (const auto& [output, mask] : shrunk) {
      EXPECT_THAT(mask, ::testing::ElementsAre(0, 191));
      const uint8_t* a = PixelAt(input, 0, 0);
      const uint8_t* b = PixelAt(input, 1, 0);
      EXPECT_THAT(Pixels(output),
                  ::testing::ElementsAre(Rgba{a[0], a[1], a[2], 255}, Rgba{b[0], b[1], b[2], 64}));
    }
    // Enlarging to 5 x 3: the picture covers columns 0 to 3 of rows 0 and 1, with its colours
    // as the host holds them (what convert gives back); the rest is black. The mask is repeated:
    // columns from columns 0, 0, 1, 2, 3 (i * 4 / 5), rows from rows 0, 0, 1 (j * 2 / 3).
    ASSERT_EQ(
        Qpx({"convert", "in.png", "held.png", "--host", "desktop", "--alpha", "--layout", layout})
            .exitCode,
        0);
    const Image held = ReadImage(Path("held.png"));
    const auto enlarged = InEveryHost(
        ScaleMaskArgs("out.png", 5, 3, false, {"--alpha", "--layout", layout}), {"desktop"});
    for (const auto& [output, mask] : enlarged) {
      EXPECT_EQ(mask, (std::vector<uint8_t>{0, 0, 0, 127, 255,  //
                                            0, 0, 0, 127, 255,  //
                                            0, 0, 191, 0, 0}));
      for (int32_t y = 0; y < 3; ++y) {
        for (int32_t x = 0; x < 5; ++x) {
          const uint8_t* p = PixelAt(output, x, y);
          const Rgba colour =
              x < 4 && y < 2 ? Rgba(PixelAt(held, x, y), PixelAt(held, x, y) + 3) : Rgba{0, 0, 0};
          EXPECT_EQ(Rgba(p, p + 3), colour) << x << ", " << y;
          EXPECT_EQ(p[3], 255 - mask[size_t(y * 5 + x)]) << x << ", " << y;
        }
      }
    }
  }
}

TEST_F(CliScaleMaskTest, WithAnAlphaChannelOnAConsoleOrWebHostTheImageStaysBlack) {
  // Their pictures cannot be drawn into, so not even the region reaches the result; the mask
  // is resized as on a desktop host.
  WritePng(Path("in.png"), PictureForTheAlphaPath(), true);
  for (const auto& [output, mask] :
       InEveryHost(ScaleMaskArgs("out.png", 2, 1, false, {"--alpha", "--layout", "1"}),
                   {"console", "web"})) {
    EXPECT_THAT(mask, ::testing::ElementsAre(0, 191));
    EXPECT_THAT(Pixels(output), ::testing::ElementsAre(Rgba{0, 0, 0, 255}, Rgba{0, 0, 0, 64}));
  }
}

TEST_F(CliScaleMaskTest, ToTheSameSizeGivesThePictureBack) {
  const Image input = RandomImage(7, 5, true);
  WritePng(Path("in.png"), input, true);
  for (bool antialias : {false, true}) {
    SCOPED_TRACE(antialias ? "antialias" : "");
    for (const auto& [output, mask] : InEveryHost(ScaleMaskArgs("out.png", 7, 5, antialias))) {
      EXPECT_TRUE(output.rgba == input.rgba);
      EXPECT_EQ(mask, MaskOfAlpha(input));
    }
    // With an alpha channel: the picture itself, written with its alpha and without a mask.
    const QpxRun run = Qpx(ScaleMaskArgs("out.png", 7, 5, antialias,
                                         {"--host", "desktop", "--alpha", "--layout", "2"}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Image output = ReadImage(Path("out.png"));
    ASSERT_TRUE(output.hasAlpha);
    EXPECT_EQ(MaskOfAlpha(output), MaskOfAlpha(input));
  }
}

TEST_F(CliScaleMaskTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(20, 15, true), true);
  ExpectYieldingChangesNothing("scale-mask");
}

TEST_F(CliScaleMaskTest, ToNoPixelsIsOneErrorLineAndNoOutput) {
  WritePng(Path("in.png"), RandomImage(4, 4, true), true);
  const QpxRun run = Qpx(ScaleMaskArgs("out.png", 0, 4, false, {"--mask-out", "mask.png"}));
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err, "qpx: pic.ScaleImageAndMaskQPX(0, 4, False) returned nil\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));

  WriteBytes(Path("out.png"), "precious");
  WriteBytes(Path("mask.png"), "kept");
  for (const char* host : kHostKinds) {
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"--host", host},
          {"--host", host, "--alpha", "--layout", "2", "--antialias"}}) {
      SCOPED_TRACE(more.back());
      std::vector<std::string> options = more;
      options.insert(options.end(), {"--mask-out", "mask.png"});
      ExpectOneErrorLine(Qpx(ScaleMaskArgs("out.png", 8, -3, true, options)));
      EXPECT_EQ(ReadAll(Path("out.png")), "precious");
      EXPECT_EQ(ReadAll(Path("mask.png")), "kept");
    }
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "mask.png", "out.png"));
}

TEST_F(CliScaleMaskTest, AnUnwritableMaskFileLeavesTheOutputAsItWas) {
  // The mask goes to a directory, which fails only when it is renamed into place, after the
  // output's rename: the output gets its old contents back, or goes when it had none.
  WritePng(Path("in.png"), RandomImage(6, 4, true), true);
  fs::create_directory(Path("dir.png"));
  for (bool existing : {true, false}) {
    SCOPED_TRACE(existing ? "existing output" : "new output");
    if (existing) WriteBytes(Path("out.png"), "precious");
    const QpxRun run = Qpx(ScaleMaskArgs("out.png", 3, 2, false, {"--mask-out", "dir.png"}));
    ExpectOneErrorLine(run);
    EXPECT_THAT(run.err, StartsWith("qpx: cannot write 'dir.png': "));
    if (existing) {
      EXPECT_EQ(ReadAll(Path("out.png")), "precious");
      fs::remove(Path("out.png"));
    }
    EXPECT_THAT(Files(), ::testing::ElementsAre("dir.png", "in.png"));
  }
  // The other way round: an output that cannot be written leaves no mask file.
  ExpectOneErrorLine(Qpx(ScaleMaskArgs("dir.png", 3, 2, false, {"--mask-out", "mask.png"})));
  EXPECT_THAT(Files(), ::testing::ElementsAre("dir.png", "in.png"));
}

TEST_F(CliTest, ScaleMaskHelpTellsOfTheAlphaChannelPath) {
  const QpxRun run = Qpx({"scale-mask", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* text : {"ScaleImageAndMaskQPX", "--antialias", "top-left W x H region",
                           "NOT resized", "console or web", "Masks:", "Transparency:"}) {
    EXPECT_THAT(run.out, HasSubstr(text));
  }
}

// --- resample ---------------------------------------------------------------------------------
// These need the module's ScalingQPX.

// The modes by number and name, as users may give them.
const std::pair<const char*, const char*> kModes[] = {
    {"1", "triangle"}, {"2", "box"},   {"3", "lanczos3"}, {"4", "lanczos8"},
    {"5", "mitchell"}, {"6", "cubic"}, {"7", "cubic6"}};

TEST_F(CliResampleTest, ModesByNameAndByNumberGiveTheSameResult) {
  WritePng(Path("in.png"), RandomImage(9, 7, false), false);
  std::vector<std::vector<uint8_t>> results;
  for (const auto& [number, name] : kModes) {
    SCOPED_TRACE(name);
    const QpxRun byNumber = Qpx(ResampleArgs("a.png", number, 13, 5));
    const QpxRun byName = Qpx(ResampleArgs("b.png", name, 13, 5));
    ASSERT_EQ(byNumber.exitCode, 0) << byNumber.err;
    ASSERT_EQ(byName.exitCode, 0) << byName.err;
    results.push_back(ReadImage(Path("a.png")).rgba);
    EXPECT_TRUE(results.back() == ReadImage(Path("b.png")).rgba);
  }
  // Each mode has a kernel of its own.
  for (size_t i = 0; i < results.size(); ++i) {
    for (size_t j = 0; j < i; ++j) EXPECT_FALSE(results[i] == results[j]) << j + 1 << " " << i + 1;
  }
  // Names in any case.
  ASSERT_EQ(Qpx(ResampleArgs("b.png", "Lanczos8", 13, 5)).exitCode, 0);
  EXPECT_TRUE(ReadImage(Path("b.png")).rgba == results[3]);
}

TEST_F(CliResampleTest, ToTheSameSizeTheExactKernelsGiveThePictureBack) {
  // At scale 1 the distances to the neighbours are whole numbers: there the triangle is not
  // applied, the box and the cubic convolution are 0 and the six-point cubic all but 0.
  const Image input = RandomImage(7, 5, false);
  WritePng(Path("in.png"), input, false);
  for (const char* mode : {"triangle", "box", "cubic", "cubic6"}) {
    SCOPED_TRACE(mode);
    for (const Image& output : ResampleInEveryHost(mode, 7, 5)) {
      EXPECT_TRUE(output.rgba == input.rgba);
    }
  }
}

TEST_F(CliResampleTest, MitchellSoftensAtTheSameSize) {
  // Weights 16/18 at distance 0 and 1/18 at 1, renormalised where the edge cuts them off:
  // 90 * (1/18) / (17/18) = 5.29 at the ends, 90 * (16/18) / 1 = 80 in the middle.
  WritePng(Path("in.png"), GrayImage(3, 1, {0, 90, 0}), false);
  for (const Image& output : ResampleInEveryHost("5", 3, 1)) ExpectGray(output, {5, 80, 5});
}

TEST_F(CliResampleTest, TriangleEnlargementInterpolatesLinearly) {
  // Doubling: output centres fall a quarter of a pixel from the source centres, weights 3/4 and
  // 1/4; at the edges the single neighbour in reach is renormalised to weight 1. Rows first,
  // then columns, each rounded half up.
  WritePng(Path("in.png"), GrayImage(2, 2, {0, 100, 200, 40}), false);
  for (const Image& output : ResampleInEveryHost("triangle", 4, 4)) {
    ExpectGray(output, {0, 25, 75, 100,    //
                        50, 59, 76, 85,    // 58.75, 76.25
                        150, 126, 79, 55,  // 126.25, 78.75
                        200, 160, 80, 40});
  }
}

TEST_F(CliResampleTest, BoxShrinkRoundsAfterEachPass) {
  // Halving: each output pixel has weight 1 for the two source pixels whose centres lie within
  // a quarter of an output pixel. Across: (10 + 13) / 2 = 11.5 and (200 + 101) / 2 = 150.5
  // round up to 12 and 151, (0 + 1) / 2 to 1 and (60 + 61) / 2 to 61; down, (12 + 1) / 2 = 6.5
  // rounds to 7 where the mean of all four, 6, would not.
  WritePng(Path("in.png"), GrayImage(4, 2, {10, 13, 200, 101, 0, 1, 60, 61}), false);
  for (const Image& output : ResampleInEveryHost("box", 2, 2)) ExpectGray(output, {12, 151, 1, 61});
  for (const Image& output : ResampleInEveryHost("box", 2, 1)) ExpectGray(output, {7, 106});
}

TEST_F(CliResampleTest, UniformPictureStaysUniformWithEveryMode) {
  // The weights are renormalised by their sum, so a single colour comes through whatever their
  // signs.
  WritePng(Path("in.png"), UniformImage(9, 7, 200, 120, 40), false);
  for (const auto& [number, name] : kModes) {
    for (const auto& [width, height] : {std::pair{4, 3}, {20, 17}, {20, 3}}) {
      SCOPED_TRACE(std::string(name) + " to " + std::to_string(width) + " x " +
                   std::to_string(height));
      for (const Image& output : ResampleInEveryHost(number, width, height)) {
        EXPECT_TRUE(output.rgba == UniformImage(width, height, 200, 120, 40).rgba);
      }
    }
  }
}

TEST_F(CliResampleTest, PictureWithAlphaComesBackOpaque) {
  WritePng(Path("in.png"), RandomImage(6, 4, true), true);
  for (const char* layout : {"1", "2"}) {
    SCOPED_TRACE(layout);
    const QpxRun run = Qpx(ResampleArgs("out.png", "lanczos3", 9, 5,
                                        {"--host", "desktop", "--alpha", "--layout", layout}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Image output = ReadImage(Path("out.png"));
    EXPECT_EQ(output.width, 9);
    for (size_t i = 3; i < output.rgba.size(); i += 4) EXPECT_EQ(output.rgba[i], 255) << i / 4;
  }
}

TEST_F(CliResampleTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("in.png"), RandomImage(20, 15, false), false);
  ASSERT_EQ(Qpx(ResampleArgs("a.png", "mitchell", 45, 11)).exitCode, 0);
  for (const char* yield : {"1", "-1", "-2147483648"}) {
    const QpxRun run = Qpx(ResampleArgs("b.png", "mitchell", 45, 11, {"--yield", yield}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(ReadImage(Path("a.png")).rgba == ReadImage(Path("b.png")).rgba) << yield;
  }
}

TEST_F(CliResampleTest, NilResultIsOneErrorLineAndNoOutput) {
  // Mode numbers outside 1 to 7 reach the method, which answers nil, as it does for no pixels.
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {ResampleArgs("out.png", "0", 4, 4), "pic.ScalingQPX(0, 4, 4)"},
      {ResampleArgs("out.png", "8", 4, 4), "pic.ScalingQPX(8, 4, 4)"},
      {ResampleArgs("out.png", "-1", 4, 4), "pic.ScalingQPX(-1, 4, 4)"},
      {ResampleArgs("out.png", "box", 0, 4), "pic.ScalingQPX(2, 0, 4)"},
      {ResampleArgs("out.png", "cubic", 5, -3), "pic.ScalingQPX(6, 5, -3)"},
  };
  for (const auto& [args, call] : cases) {
    SCOPED_TRACE(call);
    const QpxRun run = Qpx(args);
    ExpectOneErrorLine(run);
    EXPECT_EQ(run.err, std::string("qpx: ") + call + " returned nil\n");
    EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
  }
  WriteBytes(Path("out.png"), "precious");
  for (const char* host : kHostKinds) {
    SCOPED_TRACE(host);
    for (const auto& [args, call] : cases) {
      std::vector<std::string> withHost = args;
      withHost.insert(withHost.end(), {"--host", host});
      ExpectOneErrorLine(Qpx(withHost));
      EXPECT_EQ(ReadAll(Path("out.png")), "precious") << call;
    }
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png", "out.png"));
}

TEST_F(CliTest, UnknownModeNameIsAUsageErrorListingTheNames) {
  WritePng(Path("in.png"), RandomImage(4, 4, false), false);
  const QpxRun run = Qpx(ResampleArgs("out.png", "sharp", 4, 4));
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err,
            "qpx: --mode: unknown mode 'sharp': expected a 32-bit integer or one of triangle, "
            "box, lanczos3, lanczos8, mitchell, cubic, cubic6 (see 'qpx resample --help')\n");
  EXPECT_THAT(Files(), ::testing::ElementsAre("in.png"));
}

TEST_F(CliTest, ResampleHelpListsTheModes) {
  const QpxRun run = Qpx({"resample", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.out, HasSubstr("--mode"));
  for (const auto& [number, name] : kModes) {
    EXPECT_THAT(run.out, HasSubstr("\n  " + std::string(number) + "  " + name + " "));
  }
}

// --- draw -------------------------------------------------------------------------------------
// These need the module's DrawPictureFQPX.

class CliDrawTest : public CliTest {
 protected:
  // Runs "qpx draw dest.png pic.png out.png" with `more` in every kind of host and reads each
  // out.png back, expecting a quiet success.
  std::vector<Image> DrawInEveryHost(const std::vector<std::string>& more) {
    std::vector<Image> outputs;
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(host);
      std::vector<std::string> args = {"draw", "dest.png", "pic.png", "out.png", "--host", host};
      args.insert(args.end(), more.begin(), more.end());
      const QpxRun run = Qpx(args);
      EXPECT_EQ(run.exitCode, 0) << run.err;
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.out, "");
      if (run.exitCode == 0) outputs.push_back(ReadImage(Path("out.png")));
    }
    EXPECT_EQ(outputs.size(), std::size(kHostKinds));
    return outputs;
  }
};

TEST_F(CliDrawTest, AtWholeCoordinatesCopiesThePictureIntoItsRectangle) {
  const Image destination = RandomImage(9, 7, false, 11);
  const Image picture = RandomImage(4, 3, false, 12);
  WritePng(Path("dest.png"), destination, false);
  WritePng(Path("pic.png"), picture, false);
  for (const Image& output : DrawInEveryHost({"--x", "3", "--y", "2"})) {
    EXPECT_FALSE(output.hasAlpha);
    EXPECT_TRUE(output.rgba == Pasted(destination, picture, 3, 2).rgba);
  }
  // Opacity 1 is the default.
  for (const Image& output : DrawInEveryHost({"--x", "5", "--y", "4", "--opacity", "1"})) {
    EXPECT_TRUE(output.rgba == Pasted(destination, picture, 5, 4).rgba);
  }
}

TEST_F(CliDrawTest, AtHalfOpacityAddsTheTruncatedHalves) {
  // trunc(0.5 x 255) + trunc(0.5 x 255) = 127 + 127, and trunc(0.5 x 201) + trunc(0.5 x 99) =
  // 100 + 49; outside the picture's rectangle the destination is kept.
  WritePng(Path("dest.png"), GrayImage(3, 1, {255, 255, 99}), false);
  WritePng(Path("pic.png"), GrayImage(2, 1, {255, 201}), false);
  for (const Image& output : DrawInEveryHost({"--x", "1", "--y", "0", "--opacity", "0.5"})) {
    ExpectGray(output, {255, 254, 149});
  }
}

TEST_F(CliDrawTest, NegativeFractionalCoordinatesInBothForms) {
  // x = -3.25: ix = -4 and fx = 0.75, so destination column X takes 0.75 of picture column
  // X + 3 and 0.25 of column X + 4, and whatever weight lies outside the picture from its own
  // colour. y = -1: row 0 shows the picture's row 1.
  WritePng(Path("dest.png"), GrayImage(4, 1, {10, 10, 100, 77}), false);
  WritePng(Path("pic.png"), GrayImage(6, 2, {1, 2, 3, 4, 5, 6, 40, 200, 100, 60, 20, 80}), false);
  // 0.75 x 60 + 0.25 x 20 = 45 + 5; 0.75 x 20 + 0.25 x 80 = 15 + 20; 0.75 x 80 + 0.25 x 100 =
  // 60 + 25; the last column is out of the picture's reach.
  const std::vector<uint8_t> expected = {50, 35, 85, 77};
  for (const Image& output : DrawInEveryHost({"--x", "-3.25", "--y", "-1"})) {
    ExpectGray(output, expected);
  }
  for (const Image& output : DrawInEveryHost({"--x=-3.25", "--y=-1"})) {
    ExpectGray(output, expected);
  }
}

TEST_F(CliDrawTest, FullyTransparentPixelsOfThePictureLetTheDestinationShow) {
  const Image destination = RandomImage(5, 4, false, 21);
  const Image picture = RandomImage(3, 2, false, 22);
  WritePng(Path("dest.png"), destination, false);
  // Alpha 0 is mask 255: no weight for that pixel, all of it to the destination's colour.
  WritePng(Path("pic.png"), WithAlpha(picture, {255, 0, 255, 0, 255, 255}), true);
  WritePng(Path("mask.png"), GrayImage(3, 2, {0, 255, 0, 255, 0, 0}), false);
  Image expected = Pasted(destination, picture, 1, 1);
  for (const auto& [x, y] : {std::pair{1, 0}, {0, 1}}) {
    std::copy_n(PixelAt(destination, 1 + x, 1 + y), 3,
                &expected.rgba[(size_t(1 + y) * 5 + size_t(1 + x)) * 4]);
  }
  for (const Image& output : DrawInEveryHost({"--x", "1", "--y", "1"})) {
    EXPECT_FALSE(output.hasAlpha);
    EXPECT_TRUE(output.rgba == expected.rgba);
  }
  // The same through --mask, which gives the drawn picture its mask.
  WritePng(Path("pic.png"), picture, false);
  for (const Image& output : DrawInEveryHost({"--x", "1", "--y", "1", "--mask", "mask.png"})) {
    EXPECT_TRUE(output.rgba == expected.rgba);
  }
}

TEST_F(CliDrawTest, DestinationTransparencyIsWrittenBack) {
  // The destination's mask comes from its file and goes back into the output; the method
  // changes its colours only.
  const Image destination = RandomImage(6, 5, true, 31);
  const Image picture = RandomImage(2, 2, false, 32);
  WritePng(Path("dest.png"), destination, true);
  WritePng(Path("pic.png"), picture, false);
  for (const Image& output : DrawInEveryHost({"--x", "2", "--y", "3", "--mask-out", "m.png"})) {
    EXPECT_TRUE(output.hasAlpha);
    EXPECT_TRUE(output.rgba == Pasted(destination, picture, 2, 3).rgba);
    ExpectGrayFile(Path("m.png"), MaskOfAlpha(destination));
  }
}

TEST_F(CliDrawTest, FalseResultIsOneErrorLineAndNoOutput) {
  // Coordinates whose floor is outside the 32-bit range give false.
  WritePng(Path("dest.png"), RandomImage(4, 3, false), false);
  WritePng(Path("pic.png"), RandomImage(2, 2, false), false);
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"--x", "1e300", "--y", "0"}, "dest.DrawPictureFQPX(pic, 1e+300, 0.0, 1.0)"},
      {{"--x", "0", "--y", "nan"}, "dest.DrawPictureFQPX(pic, 0.0, nan, 1.0)"},
      {{"--x=-2147483649", "--y", "0"}, "dest.DrawPictureFQPX(pic, -2147483649.0, 0.0, 1.0)"},
      {{"--x", "2147483648", "--y", "0"}, "dest.DrawPictureFQPX(pic, 2147483648.0, 0.0, 1.0)"},
  };
  WriteBytes(Path("out.png"), "precious");
  for (const auto& [more, call] : cases) {
    for (const char* host : kHostKinds) {
      SCOPED_TRACE(std::string(call) + " " + host);
      std::vector<std::string> args = {"draw", "dest.png", "pic.png", "out.png", "--host", host};
      args.insert(args.end(), more.begin(), more.end());
      const QpxRun run = Qpx(args);
      ExpectOneErrorLine(run);
      EXPECT_EQ(run.err, std::string("qpx: ") + call + " answered False\n");
      EXPECT_EQ(ReadAll(Path("out.png")), "precious");
    }
  }
  EXPECT_THAT(Files(), ::testing::ElementsAre("dest.png", "out.png", "pic.png"));
}

TEST_F(CliDrawTest, WithYieldingGivesTheSameResult) {
  WritePng(Path("dest.png"), RandomImage(20, 15, false, 41), false);
  WritePng(Path("pic.png"), RandomImage(7, 6, true, 42), true);
  const std::vector<std::string> args = {"--x", "3.4", "--y", "-1.7", "--opacity", "0.8"};
  const std::vector<Image> once = DrawInEveryHost(args);
  for (const char* yield : {"1", "-1", "-2147483648"}) {
    std::vector<std::string> withYield = args;
    withYield.insert(withYield.end(), {"--yield", yield});
    const std::vector<Image> again = DrawInEveryHost(withYield);
    ASSERT_EQ(again.size(), once.size());
    for (size_t i = 0; i < once.size(); ++i) EXPECT_TRUE(again[i].rgba == once[i].rgba) << yield;
  }
}

// --- demo -------------------------------------------------------------------------------------

TEST_F(CliTest, DemoWritesTheContactSheetAndEveryPictureItLists) {
  const QpxRun run = Qpx({"demo", "out"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const std::string page = ReadAll(Path("out/index.html"));
  ASSERT_FALSE(page.empty());
  std::vector<std::string> sources;
  for (size_t at = page.find("src=\""); at != std::string::npos; at = page.find("src=\"", at)) {
    at += 5;
    sources.push_back(page.substr(at, page.find('"', at) - at));
  }
  EXPECT_EQ(sources.size(), kDemoImageCount + 2 * DemoCalls().size());
  for (const char* input :
       {"input.png", "detail.png", "sky.png", "tile.png", "ball.png", "badge.png"}) {
    EXPECT_THAT(sources, ::testing::Contains(input));
  }
  // Sizes: the blurs keep the sample's, the shrinks are a quarter of each side, the detail and
  // its enlargements are 80 x 60 and 4 times that, the drawings the size of sky.
  const std::pair<const char*, std::pair<int32_t, int32_t>> sizes[] = {
      {"input", {640, 480}},
      {"blur-", {640, 480}},
      {"scale-quarter-", {160, 120}},
      {"resample-quarter-", {160, 120}},
      {"detail.", {80, 60}},
      {"detail-nearest-", {320, 240}},
      {"detail-antialias-", {320, 240}},
      {"detail-resample-", {320, 240}},
      {"sky.", {40, 30}},
      {"tile.", {16, 16}},
      {"ball.", {20, 20}},
      {"draw-", {40, 30}},
      {"badge.", {40, 30}},
      {"badge-mask-half", {20, 15}},
      {"badge-mask-nearest-", {160, 120}},
      {"badge-mask-antialias-", {160, 120}}};
  for (const std::string& file : sources) {
    SCOPED_TRACE(file);
    const Image image = ReadImage(Path("out/" + file));
    const auto* size = std::find_if(std::begin(sizes), std::end(sizes), [&](const auto& entry) {
      return file.starts_with(entry.first);
    });
    ASSERT_NE(size, std::end(sizes));
    EXPECT_EQ(image.width, size->second.first);
    EXPECT_EQ(image.height, size->second.second);
  }
  for (const char* text : {"pic.BlurQPX(1.0)",
                           "pic.BlurQPX(3.0)",
                           "pic.BlurQPX(8.0)",
                           "pic.ScaleQPX(160, 120, False)",
                           "detail.ScaleQPX(320, 240, False)",
                           "detail.ScaleQPX(320, 240, True)",
                           "console host",
                           "desktop host",
                           "sky.DrawPictureFQPX(tile, 12.0, 7.0, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.25, 7.25, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.5, 7.5, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.75, 7.75, 1.0)",
                           "sky.DrawPictureFQPX(tile, 12.0, 7.0, 0.5)",
                           "sky.DrawPictureFQPX(tile, 12.0, 7.0, 0.25)",
                           "sky.DrawPictureFQPX(ball, 10.0, 5.0, 1.0)",
                           "sky.DrawPictureFQPX(ball, 10.5, 5.5, 1.0)",
                           "sky.DrawPictureFQPX(ball, 10.0, 5.0, 0.5)",
                           "badge.ScaleImageAndMaskQPX(20, 15, False)",
                           "badge.ScaleImageAndMaskQPX(20, 15, True)",
                           "badge.ScaleImageAndMaskQPX(160, 120, False)",
                           "badge.ScaleImageAndMaskQPX(160, 120, True)"}) {
    EXPECT_THAT(page, HasSubstr(text));
  }
  // Pictures with transparency are shown over a checkerboard, all of them as wide as badge.
  for (const std::string& file : sources) {
    SCOPED_TRACE(file);
    const bool transparent = ReadImage(Path("out/" + file)).hasAlpha;
    EXPECT_EQ(transparent, file.starts_with("ball") || file.starts_with("badge"));
    const std::string image = "<img src=\"" + file + "\" alt=\"" + file + "\"";
    EXPECT_EQ(page.find(image + " class=\"pixels checker\"") != std::string::npos, transparent);
    if (file.starts_with("badge")) {
      EXPECT_THAT(page, HasSubstr(image + " class=\"pixels checker\" width=\"320\">"));
    }
  }
  // Every kernel on both receivers, labelled with its name.
  for (const auto& [number, name] : kModes) {
    EXPECT_THAT(page, HasSubstr(std::string("<b>") + name + "</b> <code>pic.ScalingQPX(" + number +
                                ", 160, 120)</code>"));
    EXPECT_THAT(page, HasSubstr(std::string("<b>") + name + "</b> <code>detail.ScalingQPX(" +
                                number + ", 320, 240)</code>"));
    for (const char* host : {"console", "desktop"}) {
      for (const char* stem : {"resample-quarter-", "detail-resample-"}) {
        EXPECT_THAT(sources, ::testing::Contains(stem + std::string(name) + "-" + host + ".png"));
      }
    }
  }
  // The detail is cut from the sample picture, and its plain enlargement repeats its pixels.
  const Image input = ReadImage(Path("out/input.png"));
  const Image detail = ReadImage(Path("out/detail.png"));
  EXPECT_TRUE(detail.rgba == CropImage(input, kDemoDetail).rgba);
  for (const char* host : {"console", "desktop"}) {
    const Image nearest = ReadImage(Path(std::string("out/detail-nearest-") + host + ".png"));
    const Image smooth = ReadImage(Path(std::string("out/detail-antialias-") + host + ".png"));
    EXPECT_EQ(RepeatedPixels(nearest, detail, 4, 4), 320 * 240) << host;
    // The smooth one passes through the detail's pixels at every 4th row and column, and blends
    // in between.
    int64_t onSource = 0;
    for (int32_t y = 0; y < detail.height; ++y) {
      for (int32_t x = 0; x < detail.width; ++x) {
        onSource += std::memcmp(PixelAt(smooth, 4 * x, 4 * y), PixelAt(detail, x, y), 4) == 0;
      }
    }
    EXPECT_EQ(onSource, 80 * 60) << host;
    EXPECT_LT(RepeatedPixels(smooth, detail, 4, 4), 320 * 240) << host;
  }
  // Every file written is on the sheet.
  for (const auto& entry : fs::directory_iterator(Path("out"))) {
    const std::string name = entry.path().filename();
    if (name != "index.html") {
      EXPECT_THAT(sources, ::testing::Contains(name));
    }
  }
}

// A box shrink to a quarter of each side as ScalingQPX's box kernel makes it: weight 1 for the
// 4 source pixels within half a box of the centre, each pass rounding its mean half up.
Image BoxKernelQuarter(const Image& image) {
  Image out = UniformImage(image.width / 4, image.height / 4, 0, 0, 0);
  for (int32_t y = 0; y < out.height; ++y) {
    for (int32_t x = 0; x < out.width; ++x) {
      for (int c = 0; c < 3; ++c) {
        int rows = 0;
        for (int32_t k = 4 * y; k < 4 * y + 4; ++k) {
          int across = 0;
          for (int32_t i = 4 * x; i < 4 * x + 4; ++i) across += PixelAt(image, i, k)[c];
          rows += (across + 2) / 4;
        }
        out.rgba[(size_t(y) * size_t(out.width) + size_t(x)) * 4 + size_t(c)] =
            static_cast<uint8_t>((rows + 2) / 4);
      }
    }
  }
  return out;
}

TEST_F(CliTest, DemoResultsOfTheBoxKernelFollowFromTheirWeights) {
  ASSERT_EQ(Qpx({"demo", "out"}).exitCode, 0);
  const Image input = ReadImage(Path("out/input.png"));
  const Image detail = ReadImage(Path("out/detail.png"));
  for (const char* host : {"console", "desktop"}) {
    SCOPED_TRACE(host);
    const std::string suffix = std::string("-box-") + host + ".png";
    EXPECT_TRUE(ReadImage(Path("out/resample-quarter" + suffix)).rgba ==
                BoxKernelQuarter(input).rgba);
    // Enlarging 4 times, each output centre is within half a pixel of exactly one source centre.
    EXPECT_EQ(RepeatedPixels(ReadImage(Path("out/detail-resample" + suffix)), detail, 4, 4),
              320 * 240);
  }
}

TEST_F(CliTest, DemoDrawingsFollowFromTheRules) {
  ASSERT_EQ(Qpx({"demo", "out"}).exitCode, 0);
  const Image sky = ReadImage(Path("out/sky.png"));
  const Image tile = ReadImage(Path("out/tile.png"));
  const Image ball = ReadImage(Path("out/ball.png"));
  ASSERT_TRUE(ball.hasAlpha);
  // The ball's alpha is solid in the middle and falls to nothing before the corners.
  EXPECT_EQ(PixelAt(ball, 10, 10)[3], 255);
  EXPECT_EQ(PixelAt(ball, 0, 0)[3], 0);
  for (const char* host : {"console", "desktop"}) {
    SCOPED_TRACE(host);
    const auto result = [&](const std::string& stem) {
      return ReadImage(Path("out/" + stem + "-" + host + ".png"));
    };
    // Whole coordinates at opacity 1 copy tile into sky at (12, 7).
    const Image copied = Pasted(sky, tile, 12, 7);
    EXPECT_TRUE(result("draw-offset-0").rgba == copied.rgba);
    EXPECT_TRUE(result("draw-opacity-100").rgba == copied.rgba);
    // Opacity 0.5: trunc(0.5 x tile) + trunc(0.5 x sky) in tile's rectangle.
    const Image half = result("draw-opacity-50");
    for (int32_t y = 0; y < sky.height; ++y) {
      for (int32_t x = 0; x < sky.width; ++x) {
        const bool inside = x >= 12 && x < 12 + tile.width && y >= 7 && y < 7 + tile.height;
        for (size_t c = 0; c < 3; ++c) {
          const int old = PixelAt(sky, x, y)[c];
          const int expected = inside ? PixelAt(tile, x - 12, y - 7)[c] / 2 + old / 2 : old;
          ASSERT_EQ(PixelAt(half, x, y)[c], expected) << x << ", " << y;
        }
      }
    }
    // Through the mask at (10, 5): where ball is fully transparent sky stays, where it is
    // opaque ball's colour replaces it.
    const Image masked = result("draw-mask-0");
    for (int32_t y = 0; y < ball.height; ++y) {
      for (int32_t x = 0; x < ball.width; ++x) {
        const uint8_t alpha = PixelAt(ball, x, y)[3];
        if (alpha != 0 && alpha != 255) continue;
        const uint8_t* expected = alpha == 0 ? PixelAt(sky, x + 10, y + 5) : PixelAt(ball, x, y);
        ASSERT_EQ(std::memcmp(PixelAt(masked, x + 10, y + 5), expected, 3), 0) << x << ", " << y;
      }
    }
    // Each quarter-pixel step gives another picture.
    const Image quarter = result("draw-offset-25");
    EXPECT_FALSE(quarter.rgba == copied.rgba);
    EXPECT_FALSE(quarter.rgba == result("draw-offset-50").rgba);
    EXPECT_FALSE(result("draw-offset-50").rgba == result("draw-offset-75").rgba);
  }
}

TEST_F(CliTest, DemoMaskedResizesFollowFromTheRules) {
  ASSERT_EQ(Qpx({"demo", "out"}).exitCode, 0);
  const Image badge = ReadImage(Path("out/badge.png"));
  ASSERT_TRUE(badge.hasAlpha);
  // Transparent corners, an opaque middle and a rim that fades in between.
  EXPECT_EQ(PixelAt(badge, 0, 0)[3], 0);
  EXPECT_EQ(PixelAt(badge, 20, 15)[3], 255);
  std::set<uint8_t> alphas;
  for (size_t i = 3; i < badge.rgba.size(); i += 4) alphas.insert(badge.rgba[i]);
  EXPECT_GT(alphas.size(), 8u);
  for (const char* host : {"console", "desktop"}) {
    SCOPED_TRACE(host);
    const auto result = [&](const std::string& stem) {
      return ReadImage(Path("out/" + stem + "-" + host + ".png"));
    };
    // Halving: boxes of 2 x 2 read from their top row, each colour (0.5 + 2 (a + b)) / 4
    // truncated; the mask, 255 - alpha, likewise.
    const Image half = result("badge-mask-half");
    ASSERT_TRUE(half.hasAlpha);
    for (int32_t y = 0; y < half.height; ++y) {
      for (int32_t x = 0; x < half.width; ++x) {
        const uint8_t* a = PixelAt(badge, 2 * x, 2 * y);
        const uint8_t* b = PixelAt(badge, 2 * x + 1, 2 * y);
        const uint8_t* p = PixelAt(half, x, y);
        for (size_t c = 0; c < 3; ++c) {
          ASSERT_EQ(p[c], int((0.5 + 2 * (a[c] + b[c])) / 4)) << x << ", " << y;
        }
        ASSERT_EQ(255 - p[3], int((0.5 + 2 * (510 - a[3] - b[3])) / 4)) << x << ", " << y;
      }
    }
    // AntiAlias does not count when shrinking.
    EXPECT_TRUE(result("badge-mask-half-antialias").rgba == half.rgba);
    // Enlarging 4 times: without AntiAlias every pixel and its alpha repeated as a 4 x 4 block;
    // with it, badge's pixels at every 4th row and column and blends between them.
    const Image nearest = result("badge-mask-nearest");
    const Image smooth = result("badge-mask-antialias");
    EXPECT_EQ(RepeatedPixels(nearest, badge, 4, 4), 160 * 120);
    int64_t onSource = 0;
    for (int32_t y = 0; y < badge.height; ++y) {
      for (int32_t x = 0; x < badge.width; ++x) {
        onSource += std::memcmp(PixelAt(smooth, 4 * x, 4 * y), PixelAt(badge, x, y), 4) == 0;
      }
    }
    EXPECT_EQ(onSource, 40 * 30);
    EXPECT_LT(RepeatedPixels(smooth, badge, 4, 4), 160 * 120);
  }
}

TEST_F(CliTest, DemoWritesIntoQpxDemoByDefault) {
  const QpxRun run = Qpx({"demo"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(fs::exists(Path("qpx-demo/index.html")));
  EXPECT_TRUE(fs::exists(Path("qpx-demo/input.png")));
}

// Every layout boots a desktop host, its alpha layout following in the same byte order.
TEST_F(CliTest, DemoRunsInAFirstByteLayout) {
  const QpxRun run = Qpx({"demo", "--layout", "2", "d2"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(fs::exists(Path("d2/index.html")));
}

TEST_F(CliTest, DemoIntoAnUnwritablePlaceIsOneErrorLine) {
  WriteBytes(Path("file"), "x");
  ExpectOneErrorLine(Qpx({"demo", "file/sub"}));
}

TEST(CliDemoPictureTest, IsOpaqueDetailedAndTheSameEveryTime) {
  const Image a = MakeDemoPicture();
  EXPECT_EQ(a.width, 640);
  EXPECT_EQ(a.height, 480);
  EXPECT_TRUE(a.rgba == MakeDemoPicture().rgba);
  std::set<uint32_t> colours;
  for (size_t i = 0; i < a.rgba.size(); i += 4) {
    EXPECT_EQ(a.rgba[i + 3], 255);
    colours.insert(uint32_t(a.rgba[i]) << 16 | uint32_t(a.rgba[i + 1]) << 8 | a.rgba[i + 2]);
  }
  EXPECT_GT(colours.size(), 10000u);
}

TEST(CliDemoPictureTest, CropTakesTheRegionsPixels) {
  const Image image = RandomImage(9, 7, false);
  const Image crop = CropImage(image, {2, 3, 5, 4});
  EXPECT_EQ(crop.width, 5);
  EXPECT_EQ(crop.height, 4);
  for (int32_t y = 0; y < 4; ++y) {
    for (int32_t x = 0; x < 5; ++x) {
      EXPECT_EQ(std::memcmp(PixelAt(crop, x, y), PixelAt(image, x + 2, y + 3), 4), 0);
    }
  }
  EXPECT_TRUE(CropImage(image, {0, 0, 9, 7}).rgba == image.rgba);
  EXPECT_THROW(CropImage(image, {5, 0, 5, 1}), std::out_of_range);
  EXPECT_THROW(CropImage(image, {0, -1, 1, 1}), std::out_of_range);
  EXPECT_THROW(CropImage(image, {0, 0, 0, 1}), std::out_of_range);
  // The demo's detail lies within the sample picture.
  EXPECT_NO_THROW(CropImage(MakeDemoPicture(), kDemoDetail));
}

TEST(CliDemoPictureTest, TextIsDrawnWithTheBuiltInFont) {
  Image image = UniformImage(12, 7, 0, 0, 0);
  DrawText(image, 0, 0, "l-", 1, 255, 255, 255);
  auto lit = [&](int x, int y) { return image.rgba[(size_t(y) * 12 + size_t(x)) * 4] == 255; };
  for (int y = 0; y < 7; ++y) EXPECT_TRUE(lit(0, y)) << y;   // L's stem
  for (int x = 0; x < 5; ++x) EXPECT_TRUE(lit(x, 6)) << x;   // L's foot
  for (int x = 6; x < 11; ++x) EXPECT_TRUE(lit(x, 3)) << x;  // the dash
  EXPECT_FALSE(lit(6, 2));
  EXPECT_FALSE(lit(11, 3));  // the space between glyphs
}

// --- in-process plumbing ----------------------------------------------------------------------

qpxhost::HostConfig ConfigFor(const std::string& host, int32_t layout, bool alpha) {
  PictureCommandOptions options;
  options.host.host = host;
  options.layout = layout;
  options.alpha = alpha;
  return MakePictureHostConfig(options);
}

TEST(CliPlumbingTest, ConversionsLeaveNoHostObjects) {
  const Image opaque = RandomImage(9, 7, false, 3);
  const Image transparent = RandomImage(9, 7, true, 4);
  for (const char* kind : kHostKinds) {
    for (int32_t layout = 1; layout <= 6; ++layout) {
      for (bool alpha : {false, true}) {
        if (alpha && layout > 2) continue;
        SCOPED_TRACE(std::string(kind) + " layout " + std::to_string(layout) +
                     (alpha ? " alpha" : ""));
        qpxhost::Host host(ConfigFor(kind, layout, alpha));
        host.LoadPlugin(QPX_PLUGIN_PATH);
        qpxhost::PictureOptions pictureKind;
        pictureKind.hasAlpha = alpha;
        pictureKind.layout = layout;
        const Image& input = alpha ? transparent : opaque;
        Image output;
        {
          PictureRef picture = ImageToPicture(host, input, pictureKind);
          EXPECT_EQ(picture->hasAlpha, alpha);
          if (std::string(kind) == "desktop") {
            EXPECT_EQ(picture->layout, layout);
          }
          output = PictureToImage(*picture.get());
          EXPECT_EQ(host.LiveObjectCount(), 1u);
        }
        EXPECT_EQ(host.LiveObjectCount(), 0u);
        EXPECT_TRUE(host.problems().empty());
        EXPECT_EQ(output.hasAlpha, alpha);
        if (!alpha) {
          EXPECT_TRUE(output.rgba == input.rgba);
        }
      }
    }
  }
}

TEST(CliPlumbingTest, TransparencyBecomesAMaskUnlessAnAlphaChannelIsAsked) {
  const Image transparent = RandomImage(9, 7, true, 7);
  const Image opaque = RandomImage(9, 7, false, 8);
  const Image maskFile = RandomImage(9, 7, false, 9);
  for (const char* kind : kHostKinds) {
    SCOPED_TRACE(kind);
    qpxhost::Host host(ConfigFor(kind, 1, false));
    host.LoadPlugin(QPX_PLUGIN_PATH);
    {
      const PictureRef masked = ImageToPicture(host, transparent, {});
      ASSERT_NE(masked->mask, nullptr);
      EXPECT_FALSE(masked->hasAlpha);
      EXPECT_EQ(host.RefCount(masked->mask), 1);
      EXPECT_EQ(masked->mask->width, 9);
      EXPECT_EQ(masked->mask->height, 7);
      for (int32_t y = 0; y < 7; ++y) {
        for (int32_t x = 0; x < 9; ++x) {
          const uint8_t* p = PixelAt(transparent, x, y);
          const uint8_t m = uint8_t(255 - p[3]);
          ASSERT_EQ(masked->mask->Get(x, y), (qpxhost::RGBA{m, m, m, 255}));
          ASSERT_EQ(masked->Get(x, y), (qpxhost::RGBA{p[0], p[1], p[2], 255}));
        }
      }
      EXPECT_TRUE(PictureToImage(*masked.get()).rgba == transparent.rgba);
      ASSERT_TRUE(MaskToImage(*masked.get()).has_value());
      EXPECT_EQ(RedChannel(*MaskToImage(*masked.get())), MaskOfAlpha(transparent));

      qpxhost::PictureOptions withAlpha;
      withAlpha.hasAlpha = true;
      const PictureRef alpha = ImageToPicture(host, transparent, withAlpha);
      EXPECT_TRUE(alpha->hasAlpha);
      EXPECT_EQ(alpha->mask, nullptr);
      EXPECT_FALSE(MaskToImage(*alpha.get()).has_value());

      const PictureRef plain = ImageToPicture(host, opaque, {});
      EXPECT_EQ(plain->mask, nullptr);
      EXPECT_FALSE(PictureToImage(*plain.get()).hasAlpha);

      // An explicit mask wins over the file's alpha.
      const PictureRef given = ImageToPicture(host, transparent, {}, &maskFile);
      ASSERT_NE(given->mask, nullptr);
      EXPECT_EQ(RedChannel(*MaskToImage(*given.get())), RedChannel(maskFile));
      const Image small = RandomImage(3, 2, false);
      EXPECT_THROW(ImageToPicture(host, opaque, {}, &small), std::invalid_argument);
      EXPECT_EQ(host.LiveObjectCount(), 6u);  // four pictures, two masks
    }
    EXPECT_EQ(host.LiveObjectCount(), 0u);
    EXPECT_TRUE(host.problems().empty());
  }
}

TEST(CliPlumbingTest, HostConfigFollowsLayoutAndAlpha) {
  const qpxhost::HostConfig plain = ConfigFor("desktop", 6, false);
  EXPECT_EQ(plain.app, qpxhost::AppKind::Desktop);
  EXPECT_EQ(plain.desktopLayout, 6);
  EXPECT_EQ(plain.desktopAlphaLayout, 2);  // alpha first, as the skipped byte
  EXPECT_EQ(ConfigFor("desktop", 3, false).desktopAlphaLayout, 1);
  const qpxhost::HostConfig alpha = ConfigFor("web", 2, true);
  EXPECT_EQ(alpha.app, qpxhost::AppKind::Web);
  EXPECT_EQ(alpha.desktopAlphaLayout, 2);
  EXPECT_EQ(alpha.desktopLayout, 6);
  EXPECT_EQ(ConfigFor("desktop", 1, true).desktopLayout, 5);
  EXPECT_THROW(ConfigFor("console", 4, true), CLI::ValidationError);
}

TEST(CliPlumbingTest, PictureJobChecksTheLedgerAndWritesTheFile) {
  const fs::path dir = fs::temp_directory_path() / ("qpx-plumbing-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const Image input = RandomImage(10, 6, false);
  WritePng((dir / "in.png").string(), input, false);
  PictureCommandOptions options;
  options.host.plugin = QPX_PLUGIN_PATH;
  options.host.host = "desktop";
  options.layout = 4;
  const PictureJob job{{(dir / "in.png").string()},
                       (dir / "out.png").string(),
                       [](const std::vector<qpxhost::HostObject*>&) { return std::nullopt; }};
  EXPECT_NO_THROW(RunPictureJob(options, job));
  EXPECT_TRUE(ReadImage((dir / "out.png").string()).rgba == input.rgba);
  fs::remove_all(dir);
}

TEST(CliPlumbingTest, CallTextReadsLikeTheHostLanguage) {
  EXPECT_EQ((MethodCall{"BlurQPX", {3.0}}).Text(), "pic.BlurQPX(3.0)");
  EXPECT_EQ((MethodCall{"BlurQPX", {2.5}}).Text(), "pic.BlurQPX(2.5)");
  EXPECT_EQ((MethodCall{"ScaleQPX", {int32_t{320}, int32_t{240}, true}}).Text(),
            "pic.ScaleQPX(320, 240, True)");
  EXPECT_EQ((MethodCall{"ScaleQPX", {int32_t{8}, int32_t{6}, false}, "detail"}).Text(),
            "detail.ScaleQPX(8, 6, False)");
  EXPECT_EQ((MethodCall{"ScalingQPX", {int32_t{3}, int32_t{160}, int32_t{120}}}).Text(),
            "pic.ScalingQPX(3, 160, 120)");
}

TEST(CliPlumbingTest, RowYieldsOfBlur) {
  EXPECT_EQ(RowYields({"BlurQPX", {3.0}}, 640, 480), 962);
  EXPECT_EQ(RowYields({"BlurQPX", {1.0}}, 1, 1), 4);
  EXPECT_EQ(RowYields({"BlurQPX", {0.99}}, 640, 480), 0);
  EXPECT_EQ(RowYields({"BlurQPX", {std::nan("")}}, 640, 480), 0);
  EXPECT_EQ(RowYields({"NoSuchQPX", {}}, 640, 480), 0);
}

TEST(CliPlumbingTest, RowYieldsOfScale) {
  auto scale = [](int32_t width, int32_t height, bool antiAlias) {
    return MethodCall{"ScaleQPX", {width, height, antiAlias}};
  };
  // The box resizer: a check per row and one after.
  EXPECT_EQ(RowYields(scale(160, 120, false), 640, 480), 121);
  EXPECT_EQ(RowYields(scale(320, 240, false), 80, 60), 241);
  // Anti-aliasing only where the picture grows both ways: three checks, then one per row
  // for each of the 4 pixel bytes.
  EXPECT_EQ(RowYields(scale(320, 240, true), 80, 60), 963);
  EXPECT_EQ(RowYields(scale(800, 480, true), 640, 480), 481);
  EXPECT_EQ(RowYields(scale(640, 600, true), 640, 480), 601);
  EXPECT_EQ(RowYields(scale(320, 240, true), 640, 480), 241);
  // The receiver itself, and nil.
  EXPECT_EQ(RowYields(scale(640, 480, true), 640, 480), 0);
  EXPECT_EQ(RowYields(scale(640, 480, false), 640, 480), 0);
  EXPECT_EQ(RowYields(scale(0, 10, true), 640, 480), 0);
  EXPECT_EQ(RowYields(scale(10, -1, false), 640, 480), 0);
}

TEST(CliPlumbingTest, RowYieldsOfScaleWithMask) {
  auto scale = [](int32_t width, int32_t height, bool antiAlias) {
    return MethodCall{"ScaleImageAndMaskQPX", {width, height, antiAlias}};
  };
  // Without a mask as ScaleQPX: the box resizer checks once per row and once after.
  EXPECT_EQ(RowYields(scale(160, 120, false), 640, 480), 121);
  // With a mask (or an alpha channel) the same resizer runs again, on the mask: 2 x 121.
  EXPECT_EQ(RowYields(scale(160, 120, false), 640, 480, true), 242);
  // The anti-aliased enlargement: 3 + 4 x 240 for the image, as many again for the mask.
  EXPECT_EQ(RowYields(scale(320, 240, true), 80, 60), 963);
  EXPECT_EQ(RowYields(scale(320, 240, true), 80, 60, true), 1926);
  // Growing one way only takes the box resizer: 2 x (60 + 1).
  EXPECT_EQ(RowYields(scale(320, 60, true), 80, 60, true), 122);
  // The same size gives the receiver back; a size below 1 gives nil.
  EXPECT_EQ(RowYields(scale(80, 60, true), 80, 60, true), 0);
  EXPECT_EQ(RowYields(scale(0, 60, false), 80, 60, true), 0);
  // Only this method resizes the mask.
  EXPECT_EQ(RowYields({"ScaleQPX", {int32_t{160}, int32_t{120}, false}}, 640, 480, true), 121);
}

TEST(CliPlumbingTest, RowYieldsOfScaling) {
  auto scaling = [](int32_t mode, int32_t width, int32_t height) {
    return MethodCall{"ScalingQPX", {mode, width, height}};
  };
  // Four checks before the rows, one per row and three after.
  EXPECT_EQ(RowYields(scaling(3, 160, 120), 640, 480), 127);
  EXPECT_EQ(RowYields(scaling(1, 320, 240), 80, 60), 247);
  EXPECT_EQ(RowYields(scaling(7, 640, 480), 640, 480), 487);
  EXPECT_EQ(RowYields(scaling(4, 1, 1), 1, 1), 8);
  EXPECT_EQ(RowYields(scaling(2, 10, 32767), 5, 5), 32774);
  // Nil before any work: a mode outside 1 to 7, no pixels, or an intermediate picture of new
  // width x source height words above 2^31 - 1 bytes (32767 x 16384 x 4 is 2^31 - 65536).
  for (int32_t mode : {0, 8, -1, INT32_MIN}) EXPECT_EQ(RowYields(scaling(mode, 8, 8), 4, 4), 0);
  EXPECT_EQ(RowYields(scaling(1, 0, 8), 4, 4), 0);
  EXPECT_EQ(RowYields(scaling(1, 8, -2), 4, 4), 0);
  EXPECT_EQ(RowYields(scaling(5, 32767, 10), 5, 16384), 17);
  EXPECT_EQ(RowYields(scaling(5, 32767, 10), 5, 16385), 0);
  // Nil after five checks, when the new picture cannot be made: not counted.
  EXPECT_EQ(RowYields(scaling(2, 32768, 10), 5, 5), 0);
  EXPECT_EQ(RowYields(scaling(2, 10, 32768), 5, 5), 0);
}

TEST(CliPlumbingTest, RowYieldsOfDrawing) {
  auto draw = [](double x, double y) {
    return MethodCall{"DrawPictureFQPX", {static_cast<qpxhost::HostObject*>(nullptr), x, y, 1.0}};
  };
  // A check before the rows, one per row of the receiver and one after, wherever the picture
  // lands.
  EXPECT_EQ(RowYields(draw(10.5, -3.25), 640, 480), 482);
  EXPECT_EQ(RowYields(draw(-5000, 9000), 1, 1), 3);
  EXPECT_EQ(RowYields(draw(2147483647.5, -2147483648.0), 4, 3), 5);
  // False before any check when a coordinate's floor is outside the 32-bit range.
  for (const MethodCall& call :
       {draw(std::nan(""), 0), draw(0, std::nan("")), draw(1e300, 0), draw(2147483648.0, 0),
        draw(0, -2147483648.5), draw(-INFINITY, 0)}) {
    EXPECT_EQ(RowYields(call, 640, 480), 0) << call.Text();
  }
}

TEST(CliPlumbingTest, ResamplingModesByNumberAndName) {
  for (const auto& [number, name] : kModes) {
    EXPECT_EQ(ParseResamplingMode(number), std::stoi(number));
    EXPECT_EQ(ParseResamplingMode(name), std::stoi(number));
    ASSERT_NE(FindResamplingMode(std::stoi(number)), nullptr);
    EXPECT_STREQ(FindResamplingMode(std::stoi(number))->name, name);
  }
  EXPECT_EQ(ParseResamplingMode("MITCHELL"), 5);
  // Other numbers are taken as they are, for the method to refuse.
  EXPECT_EQ(ParseResamplingMode("0"), 0);
  EXPECT_EQ(ParseResamplingMode("8"), 8);
  EXPECT_EQ(ParseResamplingMode("-2147483648"), INT32_MIN);
  for (const char* bad : {"", "sharp", "2.5", " 3", "3 ", "0x3", "2147483648", "lanczos"}) {
    EXPECT_EQ(ParseResamplingMode(bad), std::nullopt) << bad;
  }
  EXPECT_EQ(FindResamplingMode(0), nullptr);
  EXPECT_EQ(FindResamplingMode(8), nullptr);
  EXPECT_EQ(ResamplingModeNames(), "triangle, box, lanczos3, lanczos8, mitchell, cubic, cubic6");
}

TEST(CliPlumbingTest, YieldPlan) {
  EXPECT_EQ(PlanYield(std::nullopt, false).argument, 0);
  EXPECT_FALSE(PlanYield(std::nullopt, false).everyRow);
  EXPECT_EQ(PlanYield(std::nullopt, true).argument, kYieldEveryRow);
  EXPECT_TRUE(PlanYield(std::nullopt, true).everyRow);
  EXPECT_EQ(PlanYield(-50, true).argument, -50);
  EXPECT_FALSE(PlanYield(-50, true).everyRow);
  EXPECT_EQ(PlanYield(0, true).argument, 0);
}

class CliMethodTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    qpxhost::HostConfig config;
    config.app = *qpxhost::ParseAppKind(GetParam());
    host_ = std::make_unique<qpxhost::Host>(config);
    host_->LoadPlugin(QPX_PLUGIN_PATH);
  }
  void TearDown() override {
    EXPECT_EQ(host_->LiveObjectCount(), 0u);
    EXPECT_THAT(host_->problems(), ::testing::IsEmpty());
    host_.reset();
  }
  std::unique_ptr<qpxhost::Host> host_;
};

INSTANTIATE_TEST_SUITE_P(Hosts, CliMethodTest, ::testing::ValuesIn(kHostKinds));

// Needs the module's BlurQPX.
TEST_P(CliMethodTest, BlurYieldsOncePerRowAndPassWhenAskedTo) {
  const Image input = RandomImage(21, 13, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  const MethodCall call{"BlurQPX", {2.0}};
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  RunMethod(*host_, picture.get(), call, kYieldEveryRow);
  EXPECT_EQ(yields, RowYields(call, input.width, input.height));
  yields = 0;
  RunMethod(*host_, picture.get(), call, 0);
  EXPECT_EQ(yields, 0);
}

// Needs the module's BlurQPX.
TEST_P(CliMethodTest, BlurWithRadiusZeroHandsBackTheReceiver) {
  const Image input = RandomImage(5, 4, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  const qpxhost::CallResult result = host_->Call("BlurQPX", picture.get(), {0.0});
  EXPECT_EQ(result.picture, picture.get());
  if (result.picture != nullptr) host_->Unlock(result.picture);
  const Image output = RunToImage(*host_, picture.get(), {"BlurQPX", {0.0}}, 0);
  EXPECT_TRUE(output.rgba == input.rgba);
  EXPECT_EQ(host_->RefCount(picture.get()), 1);
}

// Needs the module's ScaleQPX.
TEST_P(CliMethodTest, ScaleYieldsAsTheProgressBarCounts) {
  const Image input = RandomImage(7, 5, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  for (const MethodCall& call : {
           MethodCall{"ScaleQPX", {int32_t{3}, int32_t{2}, false}},
           MethodCall{"ScaleQPX", {int32_t{14}, int32_t{10}, false}},
           MethodCall{"ScaleQPX", {int32_t{14}, int32_t{10}, true}},
           MethodCall{"ScaleQPX", {int32_t{14}, int32_t{5}, true}},
           MethodCall{"ScaleQPX", {int32_t{7}, int32_t{5}, true}},
       }) {
    SCOPED_TRACE(call.Text());
    int yields = 0;
    host_->onYield = [&] { ++yields; };
    const Image output = RunToImage(*host_, picture.get(), call, kYieldEveryRow);
    EXPECT_EQ(yields, RowYields(call, input.width, input.height));
    EXPECT_EQ(output.width, std::get<int32_t>(call.arguments[0]));
    EXPECT_EQ(output.height, std::get<int32_t>(call.arguments[1]));
    yields = 0;
    RunMethod(*host_, picture.get(), call, 0);
    EXPECT_EQ(yields, 0);
  }
  host_->onYield = nullptr;
}

// Needs the module's ScaleImageAndMaskQPX.
TEST_P(CliMethodTest, ScaleWithMaskYieldsAsTheProgressBarCounts) {
  const Image opaque = RandomImage(7, 5, false, 61);
  const Image transparent = RandomImage(7, 5, true, 62);
  qpxhost::PictureOptions alphaChannel;
  alphaChannel.hasAlpha = true;
  struct Receiver {
    const char* name;
    PictureRef picture;
    bool masked;
  } receivers[] = {{"no mask", ImageToPicture(*host_, opaque, {}), false},
                   {"mask", ImageToPicture(*host_, transparent, {}), true},
                   {"alpha channel", ImageToPicture(*host_, transparent, alphaChannel), true}};
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  for (const Receiver& receiver : receivers) {
    for (const auto& [width, height, antiAlias] :
         {std::tuple{3, 2, false}, {14, 10, false}, {14, 10, true}, {14, 5, true}, {7, 5, true}}) {
      const MethodCall call{"ScaleImageAndMaskQPX", {int32_t{width}, int32_t{height}, antiAlias}};
      SCOPED_TRACE(std::string(receiver.name) + " " + call.Text());
      yields = 0;
      const PictureRef result = RunMethod(*host_, receiver.picture.get(), call, kYieldEveryRow);
      EXPECT_EQ(yields, RowYields(call, 7, 5, receiver.masked));
      EXPECT_EQ(result->width, width);
      EXPECT_EQ(result->height, height);
      if (result.get() == receiver.picture.get()) {
        EXPECT_TRUE(width == 7 && height == 5);  // only at the same size
      } else {
        EXPECT_EQ(result->mask != nullptr, receiver.masked);
      }
      yields = 0;
      RunMethod(*host_, receiver.picture.get(), call, 0);
      EXPECT_EQ(yields, 0);
    }
  }
  host_->onYield = nullptr;
}

// Needs the module's ScalingQPX.
TEST_P(CliMethodTest, ScalingYieldsAsTheProgressBarCounts) {
  const Image input = RandomImage(7, 5, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  for (int32_t mode = 1; mode <= 7; ++mode) {
    for (const auto& [width, height] : {std::pair{3, 2}, {14, 10}, {7, 5}, {14, 3}, {2, 11}}) {
      const MethodCall call{"ScalingQPX", {mode, width, height}};
      SCOPED_TRACE(call.Text());
      yields = 0;
      const Image output = RunToImage(*host_, picture.get(), call, kYieldEveryRow);
      EXPECT_EQ(yields, RowYields(call, input.width, input.height));
      EXPECT_EQ(output.width, width);
      EXPECT_EQ(output.height, height);
      yields = 0;
      RunMethod(*host_, picture.get(), call, 0);
      EXPECT_EQ(yields, 0);
    }
  }
  // Nil before any work, and nil after five checks when the new picture cannot be made, which
  // the bar does not count.
  for (const auto& [call, expected] : {
           std::pair{MethodCall{"ScalingQPX", {int32_t{0}, int32_t{3}, int32_t{2}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{8}, int32_t{3}, int32_t{2}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{1}, int32_t{0}, int32_t{2}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{1}, int32_t{3}, int32_t{-1}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{1}, int32_t{32768}, int32_t{2}}}, 5},
       }) {
    SCOPED_TRACE(call.Text());
    yields = 0;
    EXPECT_THROW(RunMethod(*host_, picture.get(), call, kYieldEveryRow), std::runtime_error);
    EXPECT_EQ(yields, expected);
    EXPECT_EQ(RowYields(call, input.width, input.height), 0);
  }
  // An intermediate picture above 2^31 - 1 bytes: nil before any work.
  PictureRef tall = ImageToPicture(*host_, UniformImage(1, 16385, 0, 0, 0), {});
  const MethodCall wide{"ScalingQPX", {int32_t{1}, int32_t{32767}, int32_t{2}}};
  yields = 0;
  EXPECT_THROW(RunMethod(*host_, tall.get(), wide, kYieldEveryRow), std::runtime_error);
  EXPECT_EQ(yields, 0);
  EXPECT_EQ(RowYields(wide, 1, 16385), 0);
  host_->onYield = nullptr;
}

// Needs the module's DrawPictureFQPX.
TEST_P(CliMethodTest, DrawYieldsAsTheProgressBarCounts) {
  const Image destinationImage = RandomImage(7, 5, false, 51);
  PictureRef picture = ImageToPicture(*host_, RandomImage(3, 2, true, 52), {});
  ASSERT_NE(picture->mask, nullptr);
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  for (const auto& [x, y, opacity] : {std::tuple{1.0, 2.0, 1.0},
                                      {-0.5, 3.75, 0.5},
                                      {-100.0, 100.0, 2.0},
                                      {2147483647.5, -2147483648.0, 1.0}}) {
    PictureRef destination = ImageToPicture(*host_, destinationImage, {});
    const MethodCall call{"DrawPictureFQPX", {picture.get(), x, y, opacity}, "dest", "pic"};
    SCOPED_TRACE(call.Text());
    yields = 0;
    const PictureRef drawn = RunMethod(*host_, destination.get(), call, kYieldEveryRow);
    EXPECT_EQ(drawn.get(), destination.get());  // drawn in place
    EXPECT_EQ(host_->RefCount(destination.get()), 2);
    EXPECT_EQ(yields, 7);
    EXPECT_EQ(yields, RowYields(call, destinationImage.width, destinationImage.height));
    yields = 0;
    RunMethod(*host_, destination.get(), call, 0);
    EXPECT_EQ(yields, 0);
  }
  // False, before any yield, which the bar does not count.
  PictureRef destination = ImageToPicture(*host_, destinationImage, {});
  for (const double x : {std::nan(""), 1e300, 2147483648.0, -2147483648.5}) {
    const MethodCall call{"DrawPictureFQPX", {picture.get(), x, 0.0, 1.0}, "dest", "pic"};
    SCOPED_TRACE(call.Text());
    yields = 0;
    try {
      RunMethod(*host_, destination.get(), call, kYieldEveryRow);
      ADD_FAILURE() << "no error";
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(), call.Text() + " answered False");
    }
    EXPECT_EQ(yields, 0);
    EXPECT_EQ(RowYields(call, destinationImage.width, destinationImage.height), 0);
  }
  EXPECT_EQ(host_->RefCount(destination.get()), 1);
  EXPECT_EQ(host_->RefCount(picture.get()), 1);
  EXPECT_EQ(host_->RefCount(picture->mask), 1);
  host_->onYield = nullptr;
}

// Needs the module's DrawPictureFQPX.
TEST_P(CliMethodTest, RaisedExceptionIsAnErrorNamingIt) {
  PictureRef destination = ImageToPicture(*host_, RandomImage(4, 3, false), {});
  const MethodCall call{
      "DrawPictureFQPX", {static_cast<qpxhost::HostObject*>(nullptr), 1.0, 2.0}, "dest"};
  try {
    RunMethod(*host_, destination.get(), call, 0);
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "dest.DrawPictureFQPX(Nil, 1.0, 2.0) raised NilObjectException: picture "
                 "is nil");
  }
  EXPECT_EQ(host_->RefCount(destination.get()), 1);
}

TEST(CliPlumbingTest, NilResultIsAnErrorNamingTheCall) {
  // The module reads only 32-bit console and web pictures; a 16-bit one makes it give nil.
  for (const char* kind : {"console", "web"}) {
    SCOPED_TRACE(kind);
    qpxhost::HostConfig config;
    config.app = *qpxhost::ParseAppKind(kind);
    qpxhost::Host host(config);
    host.LoadPlugin(QPX_PLUGIN_PATH);
    qpxhost::PictureOptions sixteenBits;
    sixteenBits.depth = 16;
    {
      PictureRef picture(host, qpxhost::NewHostPicture(host, 4, 4, sixteenBits));
      try {
        RunMethod(host, picture.get(), {"BlurQPX", {2.0}}, 0);
        ADD_FAILURE() << "no error";
      } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "pic.BlurQPX(2.0) returned nil");
      }
    }
    EXPECT_EQ(host.LiveObjectCount(), 0u);
  }
}

TEST_P(CliMethodTest, UnknownMethodIsAnError) {
  PictureRef picture = ImageToPicture(*host_, RandomImage(2, 2, false), {});
  EXPECT_THROW(RunMethod(*host_, picture.get(), {"PaintQPX", {}}, 0), std::runtime_error);
}

// --- progress bar -----------------------------------------------------------------------------

TEST(CliProgressBarTest, RendersWithinTheTerminalWidth) {
  const std::string half = ProgressBar::Render("blur", 50, 100, 1.25, 80);
  EXPECT_THAT(half, StartsWith("blur ["));
  EXPECT_THAT(half, HasSubstr(" 50%"));
  EXPECT_THAT(half, HasSubstr("1.2 s"));
  EXPECT_LT(half.size(), 80u);
  EXPECT_EQ(std::count(half.begin(), half.end(), '#'), 25);
  const std::string full = ProgressBar::Render("blur", 140, 100, 0, 80);
  EXPECT_THAT(full, HasSubstr("100%"));
  EXPECT_EQ(full.find(' ', full.find('[')), full.find(']') + 1);  // no gap inside the bar
  EXPECT_LT(ProgressBar::Render("a long label", 1, 2, 0, 10).size(), 10u);
  const std::string unknown = ProgressBar::Render("demo", 7, 0, 3, 60);
  EXPECT_THAT(unknown, HasSubstr("==="));
  EXPECT_THAT(unknown, ::testing::Not(HasSubstr("%")));
}

TEST(CliProgressBarTest, SilentWithoutATerminal) {
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  {
    ProgressBar bar("blur", 10, {pipeFds[1], {}, {}});
    EXPECT_FALSE(bar.enabled());
    for (int i = 0; i < 10; ++i) bar.Advance();
    EXPECT_EQ(bar.done(), 10);
  }
  close(pipeFds[1]);
  char buffer[16];
  EXPECT_EQ(read(pipeFds[0], buffer, sizeof buffer), 0);
  close(pipeFds[0]);
}

// A pseudo-terminal: what the bar writes to `terminal` can be read from `master`.
void OpenPseudoTerminal(int& master, int& terminal) {
  master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
}

TEST(CliProgressBarTest, DrawsOnATerminalAndWipesItselfAtTheEnd) {
  int master = -1, terminal = -1;
  ASSERT_NO_FATAL_FAILURE(OpenPseudoTerminal(master, terminal));
  {
    ProgressBar bar("blur", 4, {terminal, {}, {}});
    EXPECT_TRUE(bar.enabled());
    bar.Advance(2);
  }
  close(terminal);
  std::string seen;
  char buffer[512];
  for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) seen.append(buffer, size_t(n));
  close(master);
  EXPECT_THAT(seen, HasSubstr("blur ["));
  EXPECT_THAT(seen, HasSubstr(" 50%"));
  EXPECT_THAT(seen, ::testing::EndsWith("\r\033[K"));
}

TEST(CliProgressBarTest, WaitsBeforeShowingUp) {
  int master = -1, terminal = -1;
  ASSERT_NO_FATAL_FAILURE(OpenPseudoTerminal(master, terminal));
  {
    ProgressBar bar("blur", 4, {terminal, std::chrono::hours(1), {}});
    bar.Advance(4);
  }
  close(terminal);
  char buffer[64];
  EXPECT_LE(read(master, buffer, sizeof buffer), 0);  // nothing, then EIO once the pty is shut
  close(master);
}

}  // namespace
}  // namespace qpx
