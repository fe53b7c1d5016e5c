// PNG image data compressed on every processor: one zlib stream made of pieces deflated side by
// side, which every decoder reads as the single stream it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qpx {

// Bytes of filtered rows a piece holds (the last piece less). The pieces depend on this alone,
// never on how many processors compress them, so a file comes out the same everywhere.
constexpr size_t kDeflatePiece = size_t{1} << 20;

// The zlib stream of `size` bytes at `data` at effort `level` (0 to 9): a header, then each
// piece as raw deflate data primed with the 32 KB before it (so little is lost to the split)
// and ended on a byte boundary, the last one finished, then the Adler-32 of the whole. Up to
// `threads` pieces are deflated at once. Empty on failure (out of memory).
std::vector<uint8_t> DeflatePieces(const uint8_t* data, size_t size, int level, unsigned threads);

}  // namespace qpx
