// BlurQPX: a square box filter of side k = 2r + 1, run as a vertical and then a horizontal
// running-sum pass. Pixels beyond the border repeat the nearest edge pixel, and both passes
// truncate their means through a division table, so the horizontal pass averages the already
// truncated output of the vertical one. Each pass touches one entering and one leaving value
// per output pixel, whatever the radius.
#include "blur.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "host_services.h"
#include "int_conversion.h"
#include "new_picture.h"
#include "pixel_layout.h"
#include "working_buffer.h"
#include "yield_data.h"

namespace {

// Division table entries per unit of k: one for every channel value.
constexpr uint64_t kTableBytesPerUnit = 256 * sizeof(int32_t);
// Slack after the per-column sums and the line copy; never read.
constexpr uint64_t kLineSlack = 20;

// --- One call's state ---------------------------------------------------------------------
struct Buffers {
  int32_t* table = nullptr;
  uint32_t* red = nullptr;
  uint32_t* green = nullptr;
  uint32_t* blue = nullptr;
  uint8_t* line = nullptr;

  bool complete() const {
    return table != nullptr && red != nullptr && green != nullptr && blue != nullptr &&
           line != nullptr;
  }
  void Free() {
    std::free(table);
    std::free(red);
    std::free(green);
    std::free(blue);
    std::free(line);
    *this = {};
  }
};

struct Blur {
  const PictureReader& reader;
  PictureWriter& writer;
  const Buffers& buffers;
  int32_t radius;  // below 2^20 once the table was allocated
  YieldData& yielding;
};

// How many of the positions -r .. r land on `index` once clamped to 0 .. last. Priming with
// these counts gives the same sums as adding 2r + 1 clamped reads one by one.
uint32_t TimesCovered(int32_t index, int32_t last, int32_t r) {
  const int64_t from = index == 0 ? -static_cast<int64_t>(r) : index;
  const int64_t to = index == last ? r : std::min<int64_t>(index, r);
  return to < from ? 0 : static_cast<uint32_t>(to - from + 1);
}

// --- Vertical pass ------------------------------------------------------------------------
template <class In>
void AddRow(const uint8_t* __restrict row, int32_t width, uint32_t times, uint32_t* __restrict red,
            uint32_t* __restrict green, uint32_t* __restrict blue) {
  for (int32_t x = 0; x < width; ++x) {
    const uint8_t* p = row + kBytesPerPixel * x;
    red[x] += times * In::Red(p);
    green[x] += times * In::Green(p);
    blue[x] += times * In::Blue(p);
  }
}

// Sums stay exact in unsigned arithmetic: adding before subtracting only wraps on the way.
template <class In>
void ReplaceRow(const uint8_t* __restrict leaving, const uint8_t* __restrict entering,
                int32_t width, uint32_t* __restrict red, uint32_t* __restrict green,
                uint32_t* __restrict blue) {
  for (int32_t x = 0; x < width; ++x) {
    const uint8_t* out = leaving + kBytesPerPixel * x;
    const uint8_t* in = entering + kBytesPerPixel * x;
    red[x] += In::Red(in) - In::Red(out);
    green[x] += In::Green(in) - In::Green(out);
    blue[x] += In::Blue(in) - In::Blue(out);
  }
}

template <class Out>
void StoreRow(uint8_t* __restrict row, int32_t width, const uint32_t* __restrict red,
              const uint32_t* __restrict green, const uint32_t* __restrict blue,
              const int32_t* __restrict table) {
  for (int32_t x = 0; x < width; ++x) {
    Out::Store(row + kBytesPerPixel * x, static_cast<uint8_t>(table[red[x]]),
               static_cast<uint8_t>(table[green[x]]), static_cast<uint8_t>(table[blue[x]]));
  }
}

template <class In, class Out>
void VerticalPass(const Blur& blur) {
  const int32_t width = blur.reader.width, height = blur.reader.height, r = blur.radius;
  const Buffers& b = blur.buffers;
  if constexpr (In::kReads) {
    for (int32_t y = 0; y < height && y <= r; ++y) {
      const uint32_t times = TimesCovered(y, height - 1, r);
      if (times != 0) AddRow<In>(blur.reader.RowAddress(y), width, times, b.red, b.green, b.blue);
    }
  }
  for (int32_t y = 0; y < height; ++y) {
    if constexpr (Out::kStores) {
      StoreRow<Out>(blur.writer.RowAddress(y), width, b.red, b.green, b.blue, b.table);
    }
    const int32_t leaving = std::max(y - r, 0);
    const int32_t entering = std::min(y + r + 1, height - 1);
    if (In::kReads && leaving != entering) {
      ReplaceRow<In>(blur.reader.RowAddress(leaving), blur.reader.RowAddress(entering), width,
                     b.red, b.green, b.blue);
    }
    if (blur.yielding.interval != 0) blur.yielding.DoYield();
  }
}

// --- Horizontal pass ----------------------------------------------------------------------
// Filters one destination row from its copy in `line`, which is read in the source's layout.
template <class In, class Out>
void BlurLine(uint8_t* __restrict row, const uint8_t* __restrict line, int32_t width, int32_t r,
              const int32_t* __restrict table) {
  uint32_t red = 0, green = 0, blue = 0;
  const int32_t last = width - 1;
  auto prime = [&](int32_t column) {
    const uint32_t times = TimesCovered(column, last, r);
    const uint8_t* p = line + kBytesPerPixel * column;
    red += times * In::Red(p);
    green += times * In::Green(p);
    blue += times * In::Blue(p);
  };
  for (int32_t column = 0; column <= last && column <= r; ++column) prime(column);
  for (int32_t x = 0; x < width; ++x) {
    Out::Store(row + kBytesPerPixel * x, static_cast<uint8_t>(table[red]),
               static_cast<uint8_t>(table[green]), static_cast<uint8_t>(table[blue]));
    const uint8_t* in = line + kBytesPerPixel * std::min(x + r + 1, last);
    const uint8_t* out = line + kBytesPerPixel * std::max(x - r, 0);
    red += In::Red(in) - In::Red(out);
    green += In::Green(in) - In::Green(out);
    blue += In::Blue(in) - In::Blue(out);
  }
}

template <class In, class Out>
void HorizontalPass(const Blur& blur) {
  const int32_t width = blur.writer.width, height = blur.writer.height;
  const size_t rowBytes = static_cast<size_t>(std::max(blur.writer.rowBytes, 0));
  for (int32_t y = 0; y < height; ++y) {
    if constexpr (Out::kStores) {
      uint8_t* row = blur.writer.RowAddress(y);
      std::memcpy(blur.buffers.line, row, rowBytes);
      BlurLine<In, Out>(row, blur.buffers.line, width, blur.radius, blur.buffers.table);
    }
    if (blur.yielding.interval != 0) blur.yielding.DoYield();
  }
}

template <class In, class Out>
void RunPasses(const Blur& blur) {
  VerticalPass<In, Out>(blur);
  HorizontalPass<In, Out>(blur);
}

// Both passes read with the source's layout, the horizontal one from destination rows.
void RunPasses(const Blur& blur) {
  WithLayouts(blur.reader.pixelFormat, blur.writer.pixelFormat,
              [&]<class In, class Out>() { RunPasses<In, Out>(blur); });
}

void FillDivisionTable(int32_t* table, int64_t k) {
  for (int32_t quotient = 0; quotient < 256; ++quotient) {
    std::fill_n(table, k, quotient);
    table += k;
  }
}

}  // namespace

int32_t BlurRadius(double radius) {
  return TruncateToInt32(radius);
}

REALpicture BlurQPX(REALpicture source, double radius, int32_t yieldInterval) {
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

    // Sizes in 64 bits: a radius too large for the table fails the size test instead of
    // wrapping, and the caller gets the new picture unblurred.
    const int64_t k = 2 * static_cast<int64_t>(r) + 1;
    const uint64_t sumBytes = 4 * static_cast<uint64_t>(reader.width) + kLineSlack;
    const int64_t lineBytes = static_cast<int64_t>(writer.rowBytes) + kLineSlack;
    Buffers buffers;
    buffers.table = static_cast<int32_t*>(
        NewWorkingBuffer((static_cast<uint64_t>(k) + 1) * kTableBytesPerUnit));
    buffers.red = static_cast<uint32_t*>(NewWorkingBuffer(sumBytes));
    buffers.green = static_cast<uint32_t*>(NewWorkingBuffer(sumBytes));
    buffers.blue = static_cast<uint32_t*>(NewWorkingBuffer(sumBytes));
    buffers.line = static_cast<uint8_t*>(
        NewWorkingBuffer(static_cast<uint64_t>(std::max<int64_t>(lineBytes, 0))));

    if (buffers.complete()) {
      FillDivisionTable(buffers.table, k);
      if (yieldInterval != 0) yielding.DoYield();
      RunPasses(Blur{reader, writer, buffers, r, yielding});
    }
    buffers.Free();
    if (yielding.interval != 0) yielding.DoYield();
    return true;
  });
}
