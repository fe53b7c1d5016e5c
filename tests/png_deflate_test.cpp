// PNG image data deflated in pieces: one zlib stream that gives the data back exactly, the same
// bytes whatever the number of threads, the effort in its header.
#include "png_deflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <vector>

namespace qpx {
namespace {

std::vector<uint8_t> Inflated(const std::vector<uint8_t>& stream, size_t size) {
  std::vector<uint8_t> data(size + 1);
  uLongf length = uLongf(data.size());
  EXPECT_EQ(uncompress(data.data(), &length, stream.data(), uLong(stream.size())), Z_OK);
  data.resize(length);
  return data;
}

TEST(DeflatePieces, GivesOneStreamOfTheDataWhateverTheThreads) {
  std::mt19937 random(7);
  for (size_t size : {size_t{0}, size_t{1}, kDeflatePiece - 1, kDeflatePiece, kDeflatePiece + 1,
                      2 * kDeflatePiece + 12345}) {
    std::vector<uint8_t> data(size);
    // Noise in the first half, repeats in the second: matches reach across the pieces' seams.
    for (size_t i = 0; i < size; ++i) data[i] = i < size / 2 ? uint8_t(random()) : data[i % 1000];
    for (int level : {0, 1, 6, 9}) {
      SCOPED_TRACE("size " + std::to_string(size) + ", level " + std::to_string(level));
      const std::vector<uint8_t> one = DeflatePieces(data.data(), size, level, 1);
      ASSERT_FALSE(one.empty());
      EXPECT_EQ(Inflated(one, size), data);
      EXPECT_EQ(DeflatePieces(data.data(), size, level, 3), one);
      EXPECT_EQ(DeflatePieces(data.data(), size, level, 64), one);
      EXPECT_EQ(one[0], 0x78);
      EXPECT_EQ((one[0] * 256 + one[1]) % 31, 0);
      EXPECT_EQ(one[1] >> 6, level <= 1 ? 0 : level <= 5 ? 1 : level == 6 ? 2 : 3);
    }
  }
}

TEST(DeflatePieces, PrimedPiecesLoseLittleToTheSplit) {
  // Data that repeats every 20000 bytes: with each piece primed by the 32 KB before it, the
  // split costs a few bytes a piece, not a fresh start.
  std::mt19937 random(3);
  std::vector<uint8_t> pattern(20000);
  for (uint8_t& b : pattern) b = uint8_t(random());
  std::vector<uint8_t> data(4 * kDeflatePiece);
  for (size_t i = 0; i < data.size(); ++i) data[i] = pattern[i % pattern.size()];
  const std::vector<uint8_t> pieces = DeflatePieces(data.data(), data.size(), 6, 2);
  uLongf whole = compressBound(uLong(data.size()));
  std::vector<uint8_t> single(whole);
  ASSERT_EQ(compress2(single.data(), &whole, data.data(), uLong(data.size()), 6), Z_OK);
  EXPECT_LT(pieces.size(), whole + 4 * 1024);
}

}  // namespace
}  // namespace qpx
