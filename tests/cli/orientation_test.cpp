// EXIF orientation: read from JPEG and PNG files, and --auto-orient turning pictures upright.
#include "orientation.h"

#include "cli_support.h"

namespace qpx {
namespace {

// EXIF data in TIFF structure with one directory holding `entries` (tag, type, count, value),
// the value a short at the start of its field, in the byte order `order` ("II" or "MM").
std::string Tiff(const std::string& order, const std::vector<std::array<uint32_t, 4>>& entries) {
  const bool little = order == "II";
  std::string data = order;
  auto u16 = [&](uint32_t v) {
    data += little ? std::string{char(v & 0xFF), char(v >> 8)} : std::string{char(v >> 8), char(v)};
  };
  auto u32 = [&](uint32_t v) {
    if (little) {
      u16(v & 0xFFFF), u16(v >> 16);
    } else {
      u16(v >> 16), u16(v & 0xFFFF);
    }
  };
  u16(42);
  u32(8);
  u16(uint32_t(entries.size()));
  for (const auto& [tag, type, count, value] : entries) {
    u16(tag), u16(type), u32(count), u16(value), u16(0);
  }
  u32(0);
  return data;
}

std::string OrientationTiff(int orientation, const std::string& order = "MM") {
  return Tiff(order, {{0x010F, 2, 1, 0}, {0x0112, 3, 1, uint32_t(orientation)}});
}

int OrientationOf(const std::string& tiff) {
  return ExifOrientation(reinterpret_cast<const uint8_t*>(tiff.data()), tiff.size());
}

// `png` with an eXIf chunk holding `tiff` after its header chunk.
std::string WithExifChunk(const std::string& png, const std::string& tiff) {
  std::string chunk = "eXIf" + tiff;
  const uint32_t crc = crc32(0, reinterpret_cast<const Bytef*>(chunk.data()), uInt(chunk.size()));
  std::string bytes;
  for (uint32_t v : {uint32_t(tiff.size())}) {
    bytes += {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  }
  bytes += chunk;
  bytes += {char(crc >> 24), char(crc >> 16), char(crc >> 8), char(crc)};
  const size_t afterHeader = 8 + 8 + 13 + 4;  // signature, then IHDR's length, type, data, CRC
  return png.substr(0, afterHeader) + bytes + png.substr(afterHeader);
}

// `jpeg` with an APP1 Exif segment holding `tiff` right after its start marker.
std::string WithExifSegment(const std::string& jpeg, const std::string& tiff) {
  const std::string payload = std::string("Exif\0\0", 6) + tiff;
  const size_t length = payload.size() + 2;
  return jpeg.substr(0, 2) + "\xFF\xE1" + char(length >> 8) + char(length & 0xFF) + payload +
         jpeg.substr(2);
}

// A picture whose red bytes number its pixels in row order.
Image Numbered(int32_t width, int32_t height) {
  Image image;
  image.width = width;
  image.height = height;
  for (int32_t i = 0; i < width * height; ++i) {
    image.rgba.insert(image.rgba.end(), {uint8_t(i), uint8_t(100 + i), 7, 255});
  }
  return image;
}

std::vector<std::vector<int>> RedRows(const Image& image) {
  std::vector<std::vector<int>> rows(size_t(image.height));
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      rows[size_t(y)].push_back(image.rgba[(size_t(y) * size_t(image.width) + size_t(x)) * 4]);
    }
  }
  return rows;
}

TEST(Orientation, TheTagIsReadInEitherByteOrderAndAnythingOddIsAsStored) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    EXPECT_EQ(OrientationOf(OrientationTiff(orientation, "MM")), orientation);
    EXPECT_EQ(OrientationOf(OrientationTiff(orientation, "II")), orientation);
  }
  EXPECT_EQ(OrientationOf(OrientationTiff(0)), 1);
  EXPECT_EQ(OrientationOf(OrientationTiff(9)), 1);
  EXPECT_EQ(OrientationOf(Tiff("MM", {{0x010F, 2, 1, 0}})), 1);  // no such tag
  EXPECT_EQ(OrientationOf(Tiff("MM", {{0x0112, 4, 1, 6}})), 1);  // not a short
  EXPECT_EQ(OrientationOf(Tiff("MM", {{0x0112, 3, 2, 6}})), 1);  // two of them
  EXPECT_EQ(OrientationOf(Tiff("XX", {{0x0112, 3, 1, 6}})), 1);  // no byte order
  const std::string whole = OrientationTiff(6);
  for (size_t cut = 0; cut < whole.size() - 4; ++cut) {
    EXPECT_EQ(OrientationOf(whole.substr(0, cut)), 1) << cut;  // cut short: never read past
  }
  std::string far = OrientationTiff(6);
  far[7] = char(200);  // the directory starts past the end
  EXPECT_EQ(OrientationOf(far), 1);
}

TEST(Orientation, EachOrientationTurnsThePictureUpright) {
  const Image image = Numbered(3, 2);
  using Rows = std::vector<std::vector<int>>;
  const std::map<int, Rows> upright = {
      {1, {{0, 1, 2}, {3, 4, 5}}},   {2, {{2, 1, 0}, {5, 4, 3}}},   {3, {{5, 4, 3}, {2, 1, 0}}},
      {4, {{3, 4, 5}, {0, 1, 2}}},   {5, {{0, 3}, {1, 4}, {2, 5}}}, {6, {{3, 0}, {4, 1}, {5, 2}}},
      {7, {{5, 2}, {4, 1}, {3, 0}}}, {8, {{2, 5}, {1, 4}, {0, 3}}}, {9, {{0, 1, 2}, {3, 4, 5}}}};
  for (const auto& [orientation, rows] : upright) {
    SCOPED_TRACE(orientation);
    const Image turned = Oriented(image, orientation);
    EXPECT_EQ(RedRows(turned), rows);
    EXPECT_EQ(turned.width, int32_t(rows[0].size()));
    EXPECT_EQ(turned.orientation, 1);
  }
}

TEST_F(CliTest, AutoOrientTurnsPngAndJpegFilesUpright) {
  const Image input = Numbered(5, 3);
  WritePng(Path("plain.png"), input, false);
  WriteBytes(Path("turned.png"), WithExifChunk(ReadAll(Path("plain.png")), OrientationTiff(6)));
  EXPECT_EQ(ReadImage(Path("turned.png")).orientation, 6);

  ASSERT_EQ(Qpx({"convert", "turned.png", "as-stored.png"}).exitCode, 0);
  EXPECT_EQ(ReadImage(Path("as-stored.png")).rgba, input.rgba);
  const QpxRun run = Qpx({"convert", "turned.png", "upright.png", "--auto-orient"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const Image upright = ReadImage(Path("upright.png"));
  EXPECT_EQ(upright.width, 3);
  EXPECT_EQ(upright.height, 5);
  EXPECT_EQ(upright.rgba, Oriented(input, 6).rgba);

  // A JPEG from qpx itself, given an Exif segment: upright is the stored pixels turned.
  ASSERT_EQ(Qpx({"convert", "plain.png", "plain.jpg"}).exitCode, 0);
  WriteBytes(Path("turned.jpg"),
             WithExifSegment(ReadAll(Path("plain.jpg")), OrientationTiff(8, "II")));
  EXPECT_EQ(ReadImage(Path("turned.jpg")).orientation, 8);
  ASSERT_EQ(Qpx({"convert", "turned.jpg", "jpeg-stored.png"}).exitCode, 0);
  ASSERT_EQ(Qpx({"convert", "turned.jpg", "jpeg-upright.png", "--auto-orient"}).exitCode, 0);
  EXPECT_EQ(ReadImage(Path("jpeg-upright.png")).rgba,
            Oriented(ReadImage(Path("jpeg-stored.png")), 8).rgba);
  EXPECT_EQ(ReadImage(Path("jpeg-upright.png")).width, 3);
}

TEST_F(CliTest, AutoOrientTurnsTheMaskFileByItsOwnOrientation) {
  WritePng(Path("picture.png"), Numbered(3, 5), false);
  WritePng(Path("plain-mask.png"), Numbered(5, 3), false);
  WriteBytes(Path("mask.png"), WithExifChunk(ReadAll(Path("plain-mask.png")), OrientationTiff(6)));
  // Upright, the 5 x 3 mask is 3 x 5, the picture's size.
  const QpxRun run = Qpx({"convert", "picture.png", "out.png", "--mask", "mask.png", "--mask-out",
                          "mask-out.png", "--auto-orient"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(RedRows(ReadImage(Path("mask-out.png"))), RedRows(Oriented(Numbered(5, 3), 6)));
  const QpxRun stored = Qpx({"convert", "picture.png", "out.png", "--mask", "mask.png"});
  EXPECT_EQ(stored.exitCode, 1);
}

}  // namespace
}  // namespace qpx
