// Where qpx writes: standard output, links, devices, pipes, and nothing half-written.
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

}  // namespace
}  // namespace qpx
