// Where qpx writes: standard output, links, devices, pipes, and nothing half-written.
#include <png.h>

#include <CLI/Version.hpp>

#include "cli_support.h"

namespace qpx {
namespace {

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

// --- PNG settings and the version ---------------------------------------------------------------

// The zlib stream of a PNG file's IDAT chunks, and its header's level field (0 for zlib levels
// 0 and 1, 1 for 2 to 5, 2 for 6, 3 for 7 to 9).
struct PngData {
  std::string zlib;
  int levelField = -1;
};

PngData PngDataOf(const std::string& file) {
  PngData data;
  for (size_t at = 8; at + 12 <= file.size();) {
    const auto byte = [&](size_t i) { return uint32_t(uint8_t(file[i])); };
    const uint32_t length = byte(at) << 24 | byte(at + 1) << 16 | byte(at + 2) << 8 | byte(at + 3);
    if (file.compare(at + 4, 4, "IDAT") == 0) data.zlib += file.substr(at + 8, length);
    at += 12 + size_t(length);
  }
  if (data.zlib.size() >= 2) data.levelField = uint8_t(data.zlib[1]) >> 6;
  return data;
}

// The filter byte of each row of an 8-bit, non-interlaced PNG of `rowBytes` bytes a row.
std::vector<int> RowFilters(const PngData& data, size_t rowBytes, size_t rows) {
  std::string raw((rowBytes + 1) * rows, '\0');
  uLongf size = raw.size();
  EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(raw.data()), &size,
                       reinterpret_cast<const Bytef*>(data.zlib.data()), data.zlib.size()),
            Z_OK);
  EXPECT_EQ(size, raw.size());
  std::vector<int> filters;
  for (size_t row = 0; row < rows; ++row) filters.push_back(uint8_t(raw[row * (rowBytes + 1)]));
  return filters;
}

TEST_F(CliTest, CompressionSetsTheEffortOfEveryPngWrittenAndRowsAreUnfiltered) {
  const Image input = RandomImage(64, 48, true);
  WritePng(Path("in.png"), input, true);
  const struct {
    std::vector<std::string> option;
    int levelField;
  } cases[] = {{{}, 2},
               {{"--compression", "0"}, 0},
               {{"--compression", "1"}, 0},
               {{"--compression", "4"}, 1},
               {{"--compression", "6"}, 2},
               {{"--compression", "9"}, 3}};
  std::vector<size_t> sizes;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.option.empty() ? "default" : c.option[1]);
    std::vector<std::string> args = {"convert", "in.png", "out.png", "--mask-out", "mask.png"};
    args.insert(args.end(), c.option.begin(), c.option.end());
    const QpxRun run = Qpx(args);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(ReadImage(Path("out.png")).rgba == input.rgba);
    const PngData out = PngDataOf(ReadAll(Path("out.png")));
    const PngData mask = PngDataOf(ReadAll(Path("mask.png")));
    EXPECT_EQ(out.levelField, c.levelField);
    EXPECT_EQ(mask.levelField, c.levelField);
    EXPECT_THAT(RowFilters(out, 4 * size_t(input.width), size_t(input.height)), ::testing::Each(0));
    EXPECT_THAT(RowFilters(mask, size_t(input.width), size_t(input.height)), ::testing::Each(0));
    sizes.push_back(ReadAll(Path("out.png")).size());
  }
  EXPECT_GT(sizes[1], sizes[5]);  // stored is larger than the most effort

  const QpxRun bad = Qpx({"convert", "in.png", "out2.png", "--compression", "10"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.err,
            "qpx: --compression: Value 10 not in range 0 to 9 (see 'qpx convert --help')\n");
  EXPECT_FALSE(fs::exists(Path("out2.png")));
}

TEST_F(CliTest, VersionNamesTheProductAndTheLibrariesItReadsAndWritesWith) {
  const QpxRun run = Qpx({"--version"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const std::string first = run.out.substr(0, run.out.find('\n'));
  EXPECT_EQ(first, "qpx " QPX_VERSION);
  EXPECT_THAT(run.out, ::testing::HasSubstr(std::string("libpng ") + png_get_libpng_ver(nullptr)));
  EXPECT_THAT(run.out, ::testing::HasSubstr(std::string("zlib ") + zlibVersion()));
  EXPECT_THAT(run.out, ::testing::HasSubstr("(libjpeg API "));
  EXPECT_THAT(run.out, ::testing::HasSubstr("CLI11 " CLI11_VERSION));
}

}  // namespace
}  // namespace qpx
