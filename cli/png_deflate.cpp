#include "png_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <system_error>
#include <thread>

namespace qpx {
namespace {

constexpr size_t kWindow = 32768;

struct Piece {
  size_t start, size;
  std::vector<uint8_t> deflated;
  uLong adler = 1;
  bool ok = false;
};

// Deflates one piece into piece.deflated, its Adler-32 into piece.adler; piece.ok tells.
void DeflateOrThrow(const uint8_t* data, Piece& piece, int level, bool last) {
  piece.adler = adler32(1, data + piece.start, uInt(piece.size));
  // Room for the worst case, and for the empty stored block a sync flush ends with.
  piece.deflated.resize(piece.size + piece.size / 1000 + 64);
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) return;
  const size_t primer = std::min(kWindow, piece.start);
  if (primer == 0 ||
      deflateSetDictionary(&stream, data + piece.start - primer, uInt(primer)) == Z_OK) {
    stream.next_in = const_cast<Bytef*>(data + piece.start);
    stream.avail_in = uInt(piece.size);
    stream.next_out = piece.deflated.data();
    stream.avail_out = uInt(piece.deflated.size());
    const int result = deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
    piece.ok = (last ? result == Z_STREAM_END : result == Z_OK) && stream.avail_in == 0 &&
               stream.avail_out != 0;
    piece.deflated.resize(piece.deflated.size() - stream.avail_out);
  }
  deflateEnd(&stream);
}

// Runs in helper threads, so nothing may escape it: a piece without memory is left not ok.
void Deflate(const uint8_t* data, Piece& piece, int level, bool last) noexcept {
  try {
    DeflateOrThrow(data, piece, level, last);
  } catch (const std::bad_alloc&) {
    piece.ok = false;
  }
}

// The header's second byte for `level`: its effort field, and check bits that make the two
// bytes a multiple of 31.
uint8_t HeaderFlags(int level) {
  const int effort = level <= 1 ? 0 : level <= 5 ? 1 : level == 6 ? 2 : 3;
  const int flags = effort << 6;
  return uint8_t(flags + (31 - (0x78 * 256 + flags) % 31) % 31);
}

}  // namespace

std::vector<uint8_t> DeflatePieces(const uint8_t* data, size_t size, int level, unsigned threads) {
  std::vector<Piece> pieces;
  for (size_t start = 0; start < size || pieces.empty(); start += kDeflatePiece) {
    pieces.push_back({start, std::min(kDeflatePiece, size - start), {}, 1, false});
  }
  std::atomic<size_t> next{0};
  auto work = [&] {
    for (size_t i = next++; i < pieces.size(); i = next++) {
      Deflate(data, pieces[i], level, i + 1 == pieces.size());
    }
  };
  std::vector<std::thread> helpers;
  const size_t helpersWanted = std::min<size_t>(std::max(threads, 1u), pieces.size()) - 1;
  for (size_t i = 0; i < helpersWanted; ++i) {
    try {
      helpers.emplace_back(work);
    } catch (const std::system_error&) {
      break;  // no more threads: those there are do every piece
    }
  }
  work();
  for (std::thread& helper : helpers) helper.join();

  std::vector<uint8_t> stream = {0x78, HeaderFlags(level)};
  uLong adler = 1;
  for (const Piece& piece : pieces) {
    if (!piece.ok) return {};
    stream.insert(stream.end(), piece.deflated.begin(), piece.deflated.end());
    adler = adler32_combine(adler, piece.adler, z_off_t(piece.size));
  }
  for (int shift = 24; shift >= 0; shift -= 8) stream.push_back(uint8_t(adler >> shift));
  return stream;
}

}  // namespace qpx
