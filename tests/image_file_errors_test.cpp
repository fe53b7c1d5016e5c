// qpx's image files: read errors in one line, write errors that leave nothing behind, and
// several files written all or none.
#include "image_file_support.h"

namespace qpx {
namespace {

// ---------------------------------------------------------------------------------------------
// Read errors: one-line messages, nothing printed by the libraries.

TEST_F(ImageFileTest, MissingFile) {
  EXPECT_EQ(ErrorOf(Path("none.png")), "cannot read '" + Path("none.png") + "': no such file");
}

TEST_F(ImageFileTest, Directory) {
  EXPECT_EQ(ErrorOf(dir_), "cannot read '" + dir_ + "': is a directory");
}

TEST_F(ImageFileTest, TextAndEmptyFiles) {
  WriteBytes(Path("a.txt"), {'h', 'e', 'l', 'l', 'o', '\n'});
  WriteBytes(Path("empty.png"), {});
  EXPECT_EQ(ErrorOf(Path("a.txt")), Quoted(Path("a.txt")) + " is not a PNG or JPEG file");
  EXPECT_EQ(ErrorOf(Path("empty.png")), Quoted(Path("empty.png")) + " is not a PNG or JPEG file");
}

TEST_F(ImageFileTest, ControlCharactersInPathStayOnOneLine) {
  const std::string message = ErrorOf(Path("a\nb.png"));
  EXPECT_EQ(message, "cannot read '" + Path("a?b.png") + "': no such file");
}

TEST_F(ImageFileTest, TruncatedPng) {
  RawPng raw{64, 64, 8, PNG_COLOR_TYPE_RGB, false, {}, {}, {}};
  uint32_t seed = 1;
  for (int y = 0; y < 64; ++y) {
    raw.rows.emplace_back();
    for (int i = 0; i < 64 * 3; ++i)
      raw.rows.back().push_back(uint8_t((seed = seed * 69069 + 1) >> 24));
  }
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("full.png"), raw));
  const Bytes bytes = ReadBytes(Path("full.png"));
  ASSERT_GT(bytes.size(), 10000u);
  WriteBytes(Path("cut.png"), Bytes(bytes.begin(), bytes.begin() + bytes.size() / 2));
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("cut.png"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message, Quoted(Path("cut.png")) + ": corrupt PNG data (unexpected end of file)");
  EXPECT_EQ(message.find('\n'), std::string::npos);
}

TEST_F(ImageFileTest, CorruptPngCrc) {
  WritePng(Path("ok.png"), SampleImage(4, 4, false), false);
  Bytes bytes = ReadBytes(Path("ok.png"));
  // Before IEND (12 bytes) and the IDAT CRC (4 bytes): IDAT data, whose CRC no longer matches.
  bytes[bytes.size() - 20] ^= 0x01;
  WriteBytes(Path("bad.png"), bytes);
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("bad.png"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message.rfind(Quoted(Path("bad.png")) + ": corrupt PNG data (", 0), 0u) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos);
}

TEST_F(ImageFileTest, TruncatedJpeg) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("full.jpg"), 64, 64, 3, {}, true));
  const Bytes bytes = ReadBytes(Path("full.jpg"));
  ASSERT_GT(bytes.size(), 5000u);
  WriteBytes(Path("cut.jpg"), Bytes(bytes.begin(), bytes.begin() + bytes.size() / 2));
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("cut.jpg"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message, Quoted(Path("cut.jpg")) + ": corrupt JPEG data (Premature end of JPEG file)");
}

// A JPEG of noise whose scan data is changed by `change`, which gets the bytes between the
// start-of-scan header and the end marker.
std::vector<uint8_t> ChangedJpeg(const std::string& path,
                                 const std::function<void(Bytes& scan)>& change) {
  WriteJpeg(path, 64, 64, 3, {}, true);
  Bytes bytes = ReadBytes(path);
  size_t sos = 2;
  while (sos + 4 < bytes.size() && !(bytes[sos] == 0xff && bytes[sos + 1] == 0xda)) {
    sos += 2 + size_t(bytes[sos + 2] << 8 | bytes[sos + 3]);
  }
  const size_t start = sos + 2 + size_t(bytes[sos + 2] << 8 | bytes[sos + 3]);
  Bytes scan(bytes.begin() + std::ptrdiff_t(start), bytes.end() - 2);
  change(scan);
  bytes.resize(start);
  bytes.insert(bytes.end(), scan.begin(), scan.end());
  bytes.insert(bytes.end(), {0xff, 0xd9});
  return bytes;
}

TEST_F(ImageFileTest, JpegScanCutBeforeItsEndMarkerIsCorrupt) {
  WriteBytes(Path("cut.jpg"),
             ChangedJpeg(Path("full.jpg"), [](Bytes& scan) { scan.resize(scan.size() / 2); }));
  ::testing::internal::CaptureStderr();
  const std::string message = ErrorOf(Path("cut.jpg"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(message,
            Quoted(Path("cut.jpg")) + ": corrupt JPEG data (premature end of data segment)");
}

TEST_F(ImageFileTest, JpegWithMangledScanDataIsCorrupt) {
  WriteBytes(Path("bad.jpg"), ChangedJpeg(Path("full.jpg"), [](Bytes& scan) {
               for (size_t i = scan.size() / 3; i < scan.size() / 2; ++i) {
                 scan[i] = uint8_t(scan[i] * 7 + 1);
                 if (scan[i] == 0xff) scan[i] = 0;  // no markers inside the scan
               }
             }));
  const std::string message = ErrorOf(Path("bad.jpg"));
  EXPECT_EQ(message.rfind(Quoted(Path("bad.jpg")) + ": corrupt JPEG data (", 0), 0u) << message;
}

// `bytes` of a JPEG with the size in its frame header replaced.
Bytes WithFrameSize(Bytes bytes, uint16_t width, uint16_t height) {
  for (size_t i = 2; i + 9 < bytes.size(); ++i) {
    if (bytes[i] == 0xff && bytes[i + 1] == 0xc0) {
      bytes[i + 5] = uint8_t(height >> 8);
      bytes[i + 6] = uint8_t(height);
      bytes[i + 7] = uint8_t(width >> 8);
      bytes[i + 8] = uint8_t(width);
      return bytes;
    }
  }
  ADD_FAILURE() << "no frame header";
  return bytes;
}

TEST_F(ImageFileTest, SizesClaimedByHeadersAreCheckedBeforeDecoding) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("small.jpg"), 16, 16, 3, {}, true));
  const Bytes jpeg = ReadBytes(Path("small.jpg"));
  WriteBytes(Path("huge.jpg"), WithFrameSize(jpeg, 32767, 32767));
  EXPECT_EQ(ErrorOf(Path("huge.jpg")),
            Quoted(Path("huge.jpg")) +
                " is 32767 x 32767 pixels, more than the 2^31 bytes a host picture holds");
  WriteBytes(Path("big.jpg"), WithFrameSize(jpeg, 10001, 10000));
  EXPECT_EQ(ErrorOf(Path("big.jpg")), Quoted(Path("big.jpg")) +
                                          " is 10001 x 10000 pixels, more than the 100000000 "
                                          "allowed (--max-pixels raises the limit)");
  // Allowed, it fails on its data, having taken memory for the rows it decoded only.
  const auto start = std::chrono::steady_clock::now();
  try {
    ReadImage(Path("big.jpg"), 200'000'000);
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()).rfind(Quoted(Path("big.jpg")) + ": corrupt JPEG data", 0), 0u)
        << e.what();
  }
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5);

  WritePng(Path("ok.png"), SampleImage(4, 3, false), false);
  try {
    ReadImage(Path("ok.png"), 11);
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()),
              Quoted(Path("ok.png")) +
                  " is 4 x 3 pixels, more than the 11 allowed (--max-pixels raises the limit)");
  }
  EXPECT_EQ(ReadImage(Path("ok.png"), 12).width, 4);
}

TEST_F(ImageFileTest, CmykJpegIsRejected) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("cmyk.jpg"), 8, 8, 4, {0, 50, 100, 0}));
  EXPECT_EQ(ErrorOf(Path("cmyk.jpg")),
            Quoted(Path("cmyk.jpg")) + " is a CMYK JPEG file, which is not supported");
}

TEST_F(ImageFileTest, JpegCutInsideHeader) {
  ASSERT_NO_FATAL_FAILURE(WriteJpeg(Path("full.jpg"), 8, 8, 3, {1, 2, 3}));
  const Bytes bytes = ReadBytes(Path("full.jpg"));
  WriteBytes(Path("cut.jpg"), Bytes(bytes.begin(), bytes.begin() + 40));
  const std::string message = ErrorOf(Path("cut.jpg"));
  EXPECT_EQ(message, Quoted(Path("cut.jpg")) + ": corrupt JPEG data (Premature end of JPEG file)");
}

TEST_F(ImageFileTest, PngLargestSideLimits) {
  RawPng wide{32768, 1, 8, PNG_COLOR_TYPE_GRAY, false, {Bytes(32768, 7)}, {}, {}};
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("wide.png"), wide));
  EXPECT_EQ(ErrorOf(Path("wide.png")),
            Quoted(Path("wide.png")) + " is 32768 x 1 pixels; the largest side allowed is 32767");

  RawPng tall{1, 32768, 8, PNG_COLOR_TYPE_GRAY, false, {}, {}, {}};
  tall.rows.assign(32768, Bytes{7});
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("tall.png"), tall));
  EXPECT_EQ(ErrorOf(Path("tall.png")),
            Quoted(Path("tall.png")) + " is 1 x 32768 pixels; the largest side allowed is 32767");

  RawPng widest{32767, 1, 8, PNG_COLOR_TYPE_GRAY, false, {Bytes(32767, 7)}, {}, {}};
  ASSERT_NO_FATAL_FAILURE(WriteRawPng(Path("widest.png"), widest));
  const Image image = ReadOk(Path("widest.png"));
  EXPECT_EQ(image.width, 32767);
  EXPECT_EQ(image.rgba.size(), 32767u * 4);
  EXPECT_EQ(image.rgba[4 * 32766], 7);
}

uint32_t Crc32(const uint8_t* data, size_t size) {
  uint32_t crc = 0xffffffffu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
  }
  return ~crc;
}

TEST_F(ImageFileTest, PngZeroWidthHeader) {
  // Signature and a well-formed IHDR chunk (valid CRC) declaring 0 x 1 pixels, then IEND.
  Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0, 0, 13};
  const Bytes ihdr = {'I', 'H', 'D', 'R', 0, 0, 0, 0, 0, 0, 0, 1, 8, 0, 0, 0, 0};
  png.insert(png.end(), ihdr.begin(), ihdr.end());
  const uint32_t crc = Crc32(ihdr.data(), ihdr.size());
  png.insert(png.end(), {uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)});
  png.insert(png.end(), {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xae, 0x42, 0x60, 0x82});
  WriteBytes(Path("zero.png"), png);
  EXPECT_EQ(ErrorOf(Path("zero.png")),
            Quoted(Path("zero.png")) + " is 0 x 1 pixels; each side must be at least 1 pixel");
}

// ---------------------------------------------------------------------------------------------
// Write errors leave nothing behind and keep existing files.

TEST_F(ImageFileTest, WriteIntoMissingDirectory) {
  const std::string path = Path("missing/out.png");
  const std::string message = WriteErrorOf(path, SampleImage(2, 2, false), false);
  EXPECT_EQ(message, "cannot write '" + path + "': no such directory");
  EXPECT_FALSE(std::filesystem::exists(Path("missing")));
  EXPECT_EQ(Entries(), Names{});
}

TEST_F(ImageFileTest, InvalidImageKeepsExistingFile) {
  const Bytes old = {'o', 'l', 'd', 0, 1, 2};
  WriteBytes(Path("out.png"), old);
  Image image = SampleImage(2, 2, false);
  image.rgba.pop_back();
  EXPECT_EQ(WriteErrorOf(Path("out.png"), image, false),
            "cannot write '" + Path("out.png") +
                "': pixel buffer holds 15 bytes instead of width * height * 4");
  image = SampleImage(1, 1, false);
  image.width = 0;
  EXPECT_EQ(WriteErrorOf(Path("out.png"), image, true),
            "cannot write '" + Path("out.png") + "': invalid image size 0 x 1");
  image.width = 32768;
  image.rgba.resize(32768 * 4);
  EXPECT_EQ(WriteErrorOf(Path("out.png"), image, true),
            "cannot write '" + Path("out.png") + "': invalid image size 32768 x 1");
  EXPECT_EQ(ReadBytes(Path("out.png")), old);
  EXPECT_EQ(Entries(), Names{"out.png"});
}

TEST_F(ImageFileTest, FailedRenameRemovesTemporaryFile) {
  // The PNG data is written completely, then renaming it over a non-empty directory fails.
  std::filesystem::create_directory(Path("out.png"));
  WriteBytes(Path("out.png/keep"), {'k'});
  const std::string message = WriteErrorOf(Path("out.png"), SampleImage(3, 3, true), true);
  EXPECT_EQ(message.rfind("cannot write '" + Path("out.png") + "': ", 0), 0u) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_directory(Path("out.png")));
  EXPECT_EQ(ReadBytes(Path("out.png/keep")), Bytes{'k'});
  EXPECT_EQ(Entries(), Names{"out.png"});
}

// ---------------------------------------------------------------------------------------------
// Several files at once: all of them or none.

TEST_F(ImageFileTest, WritePngFilesWritesEachInItsColourType) {
  WriteBytes(Path("b.png"), {'o', 'l', 'd'});
  const Image colour = SampleImage(4, 3, true);
  WriteImageFiles(
      {{Path("a.png"), colour, FileColour::Rgba}, {Path("b.png"), colour, FileColour::Gray}});
  EXPECT_EQ(ReadBytes(Path("a.png"))[25], PNG_COLOR_TYPE_RGB_ALPHA);
  EXPECT_EQ(ReadOk(Path("a.png")).rgba, colour.rgba);
  EXPECT_EQ(ReadBytes(Path("b.png"))[25], PNG_COLOR_TYPE_GRAY);
  EXPECT_EQ(ReadOk(Path("b.png")).width, 4);
  EXPECT_EQ(Entries(), (Names{"a.png", "b.png"}));
}

TEST_F(ImageFileTest, WritePngFilesFailingLateKeepsEveryOldFile) {
  // Both files are written completely; the second rename fails on a directory, after the first
  // has replaced its file, which then gets its old contents back.
  const Bytes old = {'o', 'l', 'd'};
  WriteBytes(Path("a.png"), old);
  std::filesystem::create_directory(Path("dir.png"));
  const Image image = SampleImage(3, 2, false);
  try {
    WriteImageFiles(
        {{Path("a.png"), image, FileColour::Rgb}, {Path("dir.png"), image, FileColour::Gray}});
    ADD_FAILURE() << "no error";
  } catch (const ImageError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("cannot write " + Quoted(Path("dir.png")) + ": ", 0), 0u)
        << e.what();
  }
  EXPECT_EQ(ReadBytes(Path("a.png")), old);
  EXPECT_EQ(Entries(), (Names{"a.png", "dir.png"}));

  // A file that did not exist before is not left behind.
  std::filesystem::remove(Path("a.png"));
  EXPECT_THROW(WriteImageFiles({{Path("new.png"), image, FileColour::Rgb},
                                {Path("dir.png"), image, FileColour::Rgb}}),
               ImageError);
  EXPECT_EQ(Entries(), Names{"dir.png"});
}

TEST_F(ImageFileTest, WritePngFilesFailingEarlyWritesNothing) {
  const Bytes old = {'o', 'l', 'd'};
  WriteBytes(Path("b.png"), old);
  Image broken = SampleImage(2, 2, false);
  broken.rgba.pop_back();
  const Image image = SampleImage(3, 2, false);
  for (const auto& files :
       {std::vector<OutputFile>{{Path("a.png"), image, FileColour::Rgb},
                                {Path("b.png"), broken, FileColour::Gray}},
        std::vector<OutputFile>{{Path("b.png"), broken, FileColour::Gray},
                                {Path("a.png"), image, FileColour::Rgb}},
        std::vector<OutputFile>{{Path("a.png"), image, FileColour::Rgb},
                                {Path("missing/b.png"), image, FileColour::Rgb}}}) {
    EXPECT_THROW(WriteImageFiles(files), ImageError);
    EXPECT_EQ(ReadBytes(Path("b.png")), old);
    EXPECT_EQ(Entries(), Names{"b.png"});
  }
}

}  // namespace
}  // namespace qpx
