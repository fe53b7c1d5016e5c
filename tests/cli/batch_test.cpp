// Many inputs through one command: -o FOLDER or PATTERN, -j workers, failures by name.
#include "batch.h"

#include "cli_support.h"

namespace qpx {
namespace {

const std::vector<std::string> kResample = {"resample", "--mode",   "lanczos3", "--width",
                                            "9",        "--height", "7"};

std::vector<std::string> With(std::vector<std::string> args, const std::vector<std::string>& more) {
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

TEST(BatchPlan, ResultsGoIntoAFolderUnderTheInputsNamesOrToAPattern) {
  EXPECT_EQ(BatchOutputPath("out", "photos/a.jpg", std::nullopt), "out/a.jpg");
  EXPECT_EQ(BatchOutputPath("out/", "/abs/b.PNG", std::nullopt), "out/b.PNG");
  EXPECT_EQ(BatchOutputPath("out", "c", std::nullopt), "out/c");
  EXPECT_EQ(BatchOutputPath("out", "photos/a.jpg", FileFormat::Png), "out/a.png");
  EXPECT_EQ(BatchOutputPath("out/", "photos/a.png", FileFormat::Jpeg), "out/a.jpg");
  EXPECT_EQ(BatchOutputPath("t/{name}.webp.{ext}", "p/a.b.jpg", std::nullopt), "t/a.b.webp.jpg");
  EXPECT_EQ(BatchOutputPath("{name}-small.jpg", "p/x.png", FileFormat::Png), "x-small.jpg");
  EXPECT_EQ(BatchOutputPath("t/{name}{ext}", "p/noext", std::nullopt), "t/noext");
  EXPECT_THROW(BatchOutputPath("out", "-", std::nullopt), std::invalid_argument);
  EXPECT_THROW(BatchOutputPath("out", "photos/", std::nullopt), std::invalid_argument);
  EXPECT_GE(ProcessorCount(), 1u);
}

TEST_F(CliTest, SeveralInputsGiveWhatEachGivesAlone) {
  const std::vector<std::string> names = {"a.png", "b.png", "c.png", "d.png", "e.png"};
  for (size_t i = 0; i < names.size(); ++i) {
    WritePng(Path(names[i]), RandomImage(30 + int32_t(i), 20 + int32_t(i), i % 2 == 1, uint32_t(i)),
             i % 2 == 1);
  }
  for (const char* jobs : {"1", "3"}) {
    SCOPED_TRACE(std::string("-j ") + jobs);
    const QpxRun run = Qpx(
        With(kResample, {"-j", jobs, "-o", "out/", "a.png", "b.png", "c.png", "d.png", "e.png"}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
    for (const std::string& name : names) {
      SCOPED_TRACE(name);
      ASSERT_EQ(Qpx(With(kResample, {name, "alone.png"})).exitCode, 0);
      EXPECT_EQ(ReadAll(Path("out/" + name)), ReadAll(Path("alone.png")));
    }
    fs::remove_all(Path("out"));
  }
}

TEST_F(CliTest, PatternsAndFormatNameTheResults) {
  WritePng(Path("a.png"), RandomImage(30, 20, false), false);
  WritePng(Path("b.png"), RandomImage(20, 30, false, 2), false);
  ASSERT_EQ(Qpx(With(kResample, {"-o", "thumbs/{name}-small.jpg", "a.png", "b.png"})).exitCode, 0);
  EXPECT_TRUE(ReadAll(Path("thumbs/a-small.jpg")).rfind("\xFF\xD8\xFF", 0) == 0);
  EXPECT_TRUE(ReadAll(Path("thumbs/b-small.jpg")).rfind("\xFF\xD8\xFF", 0) == 0);
  ASSERT_EQ(Qpx({"convert", "--format", "jpeg", "-o", "out", "a.png"}).exitCode, 0);
  EXPECT_TRUE(fs::exists(Path("out/a.jpg")));
  EXPECT_EQ(ReadImage(Path("out/a.jpg")).width, 30);
}

TEST_F(CliTest, AFailedFileIsNamedAndTheOthersAreStillDone) {
  WritePng(Path("good.png"), RandomImage(30, 20, false), false);
  WriteBytes(Path("bad.png"), "not a picture");
  WritePng(Path("fine.png"), RandomImage(25, 20, false), false);
  const QpxRun run = Qpx(
      With(kResample, {"-j", "2", "-o", "out", "good.png", "bad.png", "missing.png", "fine.png"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  const std::vector<std::string> lines = Lines(run.err);
  ASSERT_EQ(lines.size(), 3u) << run.err;
  EXPECT_THAT(lines, ::testing::Contains(::testing::StartsWith("qpx: 'bad.png': ")));
  EXPECT_THAT(lines, ::testing::Contains(::testing::StartsWith("qpx: 'missing.png': ")));
  EXPECT_EQ(lines.back(), "qpx: 2 of 4 files failed");
  EXPECT_TRUE(fs::exists(Path("out/good.png")));
  EXPECT_TRUE(fs::exists(Path("out/fine.png")));
  EXPECT_FALSE(fs::exists(Path("out/bad.png")));
  EXPECT_EQ(std::distance(fs::directory_iterator(Path("out")), fs::directory_iterator()), 2);
}

TEST_F(CliTest, TwoResultsForOneFileAreRefusedBeforeAnythingRuns) {
  fs::create_directories(Path("x"));
  fs::create_directories(Path("y"));
  WritePng(Path("x/p.png"), RandomImage(10, 10, false), false);
  WritePng(Path("y/p.png"), RandomImage(10, 10, false), false);
  const QpxRun run = Qpx({"convert", "-o", "out", "x/p.png", "y/p.png"});
  ExpectOneErrorLine(run);
  EXPECT_EQ(run.err,
            "qpx: the results of 'x/p.png' and 'y/p.png' would both be written to 'out/p.png'\n");
  EXPECT_FALSE(fs::exists(Path("out")));
  const QpxRun dash = Qpx({"convert", "-o", "out", "-"});
  ExpectOneErrorLine(dash);
  EXPECT_EQ(dash.err, "qpx: '-' names no file to take a result's name from\n");
}

TEST_F(CliTest, WithoutOutputOptionTheFilesAreInAndOut) {
  WritePng(Path("a.png"), RandomImage(10, 10, false), false);
  for (const std::vector<std::string>& files :
       {std::vector<std::string>{"a.png"}, std::vector<std::string>{"a.png", "b.png", "c.png"}}) {
    std::vector<std::string> args = {"convert"};
    args.insert(args.end(), files.begin(), files.end());
    const QpxRun run = Qpx(args);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err,
              "qpx: files: expected IN OUT, or -o DIR|PATTERN and one or more inputs, "
              "not " +
                  std::to_string(files.size()) + " files (see 'qpx convert --help')\n");
  }
  const QpxRun jobs = Qpx({"convert", "-j", "0", "-o", "out", "a.png"});
  EXPECT_EQ(jobs.exitCode, 2);
  EXPECT_EQ(jobs.err, "qpx: --jobs: Value 0 not in range 1 to 1024 (see 'qpx convert --help')\n");
  EXPECT_EQ(Files(), std::vector<std::string>({"a.png"}));
}

}  // namespace
}  // namespace qpx
