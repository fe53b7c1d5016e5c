// ICC colour profiles: carried from the input into the files written, unless --strip.
#include "cli_support.h"

namespace qpx {
namespace {

// An sRGB display profile (tests/data/srgb.icc, as LittleCMS makes it), `marker` written into
// the last byte of its creator field so that two profiles differ.
std::vector<uint8_t> RgbProfile(char marker) {
  std::ifstream file(std::string(QPX_SOURCE_DIR) + "/tests/data/srgb.icc", std::ios::binary);
  std::vector<uint8_t> profile((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
  EXPECT_EQ(profile.size(), 588u);
  if (profile.size() > 83) profile[83] = uint8_t(marker);
  return profile;
}

// `png` with an iCCP chunk holding `profile` after its header chunk.
std::string WithProfileChunk(const std::string& png, const std::vector<uint8_t>& profile) {
  uLongf size = compressBound(uLong(profile.size()));
  std::string packed(size, '\0');
  EXPECT_EQ(compress(reinterpret_cast<Bytef*>(packed.data()), &size, profile.data(),
                     uLong(profile.size())),
            Z_OK);
  packed.resize(size);
  const std::string chunk = std::string("iCCPtest", 8) + '\0' + '\0' + packed;
  const uint32_t length = uint32_t(chunk.size() - 4);
  const uint32_t crc = crc32(0, reinterpret_cast<const Bytef*>(chunk.data()), uInt(chunk.size()));
  std::string bytes = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
  bytes += chunk;
  bytes += {char(crc >> 24), char(crc >> 16), char(crc >> 8), char(crc)};
  const size_t afterHeader = 8 + 8 + 13 + 4;
  return png.substr(0, afterHeader) + bytes + png.substr(afterHeader);
}

TEST_F(CliTest, TheInputsProfileGoesIntoEveryColourFileUnlessStripped) {
  const std::vector<uint8_t> profile = RgbProfile('a');
  WritePng(Path("plain.png"), RandomImage(20, 10, true), true);
  WriteBytes(Path("in.png"), WithProfileChunk(ReadAll(Path("plain.png")), profile));
  ASSERT_EQ(ReadImage(Path("in.png")).icc, profile);

  for (const char* out : {"out.png", "out.jpg"}) {
    SCOPED_TRACE(out);
    ASSERT_EQ(Qpx({"convert", "in.png", out, "--mask-out", "mask.png"}).exitCode, 0);
    EXPECT_EQ(ReadImage(Path(out)).icc, profile);
    EXPECT_TRUE(ReadImage(Path("mask.png")).icc.empty());  // a gray file: an RGB profile is not its
    ASSERT_EQ(Qpx({"convert", "in.png", out, "--strip"}).exitCode, 0);
    EXPECT_TRUE(ReadImage(Path(out)).icc.empty());
  }
  // A method's result too, and from a JPEG input.
  ASSERT_EQ(Qpx({"resample", "in.png", "small.jpg", "--mode", "3", "--width", "7", "--height", "5"})
                .exitCode,
            0);
  EXPECT_EQ(ReadImage(Path("small.jpg")).icc, profile);
  ASSERT_EQ(Qpx({"blur", "small.jpg", "blurred.png", "--radius", "1"}).exitCode, 0);
  EXPECT_EQ(ReadImage(Path("blurred.png")).icc, profile);
}

TEST_F(CliTest, DrawWritesTheDestinationsProfile) {
  WritePng(Path("plain.png"), RandomImage(20, 10, false), false);
  WriteBytes(Path("dest.png"), WithProfileChunk(ReadAll(Path("plain.png")), RgbProfile('d')));
  WriteBytes(Path("pic.png"), WithProfileChunk(ReadAll(Path("plain.png")), RgbProfile('p')));
  ASSERT_EQ(Qpx({"draw", "dest.png", "pic.png", "out.png", "--x", "1.5", "--y", "2"}).exitCode, 0);
  EXPECT_EQ(ReadImage(Path("out.png")).icc, RgbProfile('d'));
}

TEST(ProfileCheck, OnlyWholeRgbProfilesAreEmbedded) {
  EXPECT_TRUE(IsRgbIccProfile(RgbProfile('x')));
  std::vector<uint8_t> gray = RgbProfile('x');
  std::memcpy(&gray[16], "GRAY", 4);
  EXPECT_FALSE(IsRgbIccProfile(gray));
  std::vector<uint8_t> longer = RgbProfile('x');
  longer.push_back(0);  // the size field says 588
  EXPECT_FALSE(IsRgbIccProfile(longer));
  std::vector<uint8_t> unsigned_ = RgbProfile('x');
  unsigned_[36] = 'x';
  EXPECT_FALSE(IsRgbIccProfile(unsigned_));
  EXPECT_FALSE(IsRgbIccProfile({}));
  const std::vector<uint8_t> whole = RgbProfile('x');
  EXPECT_FALSE(IsRgbIccProfile(std::vector<uint8_t>(whole.begin(), whole.begin() + 100)));
}

}  // namespace
}  // namespace qpx
