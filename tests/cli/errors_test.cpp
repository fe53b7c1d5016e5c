// What qpx answers to missing and bad files, bad arguments and hostile input: one line, a
// non-zero exit and nothing left behind.
#include "cli_support.h"

namespace qpx {
namespace {

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
// the command and the answer. Each is also a row of the table in docs/qpx.md.
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

TEST_F(CliTest, TheDocumentationListsEveryBadInput) {
  const std::string readme = ReadAll(fs::path(QPX_SOURCE_DIR) / "docs" / "qpx.md");
  for (const BadInput& bad : BadInputs()) {
    EXPECT_NE(readme.find("| " + bad.what + " |"), std::string::npos) << bad.what;
    EXPECT_NE(readme.find(bad.message), std::string::npos) << bad.message;
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

}  // namespace
}  // namespace qpx
