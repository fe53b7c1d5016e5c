// BlurQPX: a square box filter of side k = 2r + 1, run as a vertical and then a horizontal
// running-sum pass. Pixels beyond the border repeat the nearest edge pixel, and both passes
// truncate their means, so the horizontal pass averages the already truncated output of the
// vertical one. Each pass touches one entering and one leaving value per output pixel, whatever
// the radius; the division by k is an exact multiplication and shift (blur_division.h).
//
// The working buffers are sized and tested as a division table of 256 k entries, three
// per-column sums and a copy of one row would be, and a call whose buffer fails the test gives
// the new picture unblurred; but only what the chosen loops use is allocated, in proportion to
// the picture's width and never to the radius.
#include "blur.h"

#include <algorithm>
#include <cstdint>

#include "blur_rows.h"
#include "host_services.h"
#include "int_conversion.h"
#include "new_picture.h"
#include "working_buffer.h"

namespace {

// Division table entries per unit of k: one for every channel value.
constexpr uint64_t kTableBytesPerUnit = 256 * sizeof(int32_t);
// Slack after the per-column sums and the line copy; never read.
constexpr uint64_t kLineSlack = 20;

// Whether every buffer of the rule passes its size test.
bool BuffersFit(const PictureReader& reader, const PictureWriter& writer, int64_t k) {
  const uint64_t sumBytes = 4 * static_cast<uint64_t>(reader.width) + kLineSlack;
  const int64_t lineBytes = static_cast<int64_t>(writer.rowBytes) + kLineSlack;
  return NewWorkingBufferFits((static_cast<uint64_t>(k) + 1) * kTableBytesPerUnit) &&
         NewWorkingBufferFits(sumBytes) &&
         NewWorkingBufferFits(static_cast<uint64_t>(std::max<int64_t>(lineBytes, 0)));
}

// The vector loops for this call, or none (rows 0) for the plain ones.
BlurBlockLoops BlockLoopsFor(const BlurJob& job, PixelLoops loops) {
  const int32_t in = job.reader.pixelFormat, out = job.writer.pixelFormat;
  const bool sums16 = job.divide16.found;
  switch (loops) {
    case PixelLoops::Vector128:
      return BlurBlockLoops128(in, out, sums16);
    case PixelLoops::Avx2:
      return BlurBlockLoopsAvx2(in, out, sums16);
    case PixelLoops::Plain:
      break;
  }
  return {};
}

// Both passes a block of rows at a time. The yields keep the plain loops' count and order: for
// each block, one per row once the vertical pass has put the block's means into the block
// buffer, then one per row once the horizontal pass has written those rows of the destination.
// A buffer that cannot be had leaves the destination unblurred.
void RunBlocks(const BlurJob& job, const BlurBlockLoops& loops, YieldData& yielding) {
  const bool sums16 = job.divide16.found;
  const int32_t width = job.reader.width, height = job.reader.height;
  WorkingBuffer<uint8_t> sums(BlurSumsBytes(loops, width, sums16));
  WorkingBuffer<uint8_t> block(BlurBlockBytes(loops, width));
  if (!sums || !block) return;
  const BlurBlockBuffers buffers{sums.get(), block.get()};
  auto yieldRows = [&](int32_t rows) {
    for (int32_t i = 0; i < rows && yielding.interval != 0; ++i) yielding.DoYield();
  };

  yieldRows(1);
  loops.prime(job, buffers);
  for (int32_t first = 0; first < height; first += loops.rows) {
    const int32_t rows = std::min(loops.rows, height - first);
    loops.vertical(job, buffers, first);
    yieldRows(rows);
    loops.horizontal(job, buffers, first);
    yieldRows(rows);
  }
}

// The plain loops, with every buffer of the rule except the division table.
void RunPlain(const BlurJob& job, YieldData& yielding) {
  const uint64_t sumBytes = 4 * static_cast<uint64_t>(job.reader.width) + kLineSlack;
  const uint64_t lineBytes =
      static_cast<uint64_t>(static_cast<int64_t>(job.writer.rowBytes) + kLineSlack);
  WorkingBuffer<uint32_t> red(sumBytes), green(sumBytes), blue(sumBytes);
  WorkingBuffer<uint8_t> line(lineBytes);
  if (!red || !green || !blue || !line) return;
  if (yielding.interval != 0) yielding.DoYield();
  BlurPlainPasses(job, {red.get(), green.get(), blue.get(), line.get()}, yielding);
}

}  // namespace

int32_t BlurRadius(double radius) {
  return TruncateToInt32(radius);
}

REALpicture BlurQPXWith(REALpicture source, double radius, int32_t yieldInterval,
                        PixelLoops loops) {
  const int32_t r = BlurRadius(radius);
  if (r < 1) {
    if (source == nullptr) return nullptr;
    REALLockObject(AsObject(source));
    return source;
  }

  // The destination never has an alpha channel.
  auto shape = [](const PictureReader& reader) {
    return NewPictureShape{false, reader.width, reader.height};
  };
  return FillNewPicture(source, shape, [&](const PictureReader& reader, PictureWriter& writer) {
    YieldData yielding{yieldInterval, 0};
    // In 64 bits: a radius too large for the table fails the size test instead of wrapping,
    // and the caller gets the new picture unblurred.
    const int64_t k = 2 * static_cast<int64_t>(r) + 1;
    if (BuffersFit(reader, writer, k)) {
      const uint32_t k32 = static_cast<uint32_t>(k);
      const BlurJob job{reader, writer, r, MakeBlurDivision32(k32), MakeBlurDivision16(k32)};
      const BlurBlockLoops blockLoops = BlockLoopsFor(job, loops);
      if (blockLoops.rows != 0) {
        RunBlocks(job, blockLoops, yielding);
      } else {
        RunPlain(job, yielding);
      }
    }
    if (yielding.interval != 0) yielding.DoYield();
    return true;
  });
}

REALpicture BlurQPX(REALpicture source, double radius, int32_t yieldInterval) {
  return BlurQPXWith(source, radius, yieldInterval, ChoosePixelLoops());
}
