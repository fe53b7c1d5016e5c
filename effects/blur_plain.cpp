// BlurQPX's plain loops: the vertical pass from the source into the destination, then the
// horizontal pass in place on the destination, each a running sum per column or per row, one
// channel at a time.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "blur_rows.h"
#include "pixel_layout.h"

namespace {

struct Sums {
  uint32_t* red;
  uint32_t* green;
  uint32_t* blue;
};

// --- Vertical pass ------------------------------------------------------------------------
template <class In>
void AddRow(const uint8_t* __restrict row, int32_t width, uint32_t times, const Sums& sums) {
  for (int32_t x = 0; x < width; ++x) {
    const uint8_t* p = row + kBytesPerPixel * x;
    sums.red[x] += times * In::Red(p);
    sums.green[x] += times * In::Green(p);
    sums.blue[x] += times * In::Blue(p);
  }
}

// Sums stay exact in unsigned arithmetic: adding before subtracting only wraps on the way.
template <class In>
void ReplaceRow(const uint8_t* __restrict leaving, const uint8_t* __restrict entering,
                int32_t width, const Sums& sums) {
  for (int32_t x = 0; x < width; ++x) {
    const uint8_t* out = leaving + kBytesPerPixel * x;
    const uint8_t* in = entering + kBytesPerPixel * x;
    sums.red[x] += In::Red(in) - In::Red(out);
    sums.green[x] += In::Green(in) - In::Green(out);
    sums.blue[x] += In::Blue(in) - In::Blue(out);
  }
}

template <class Out>
void StoreRow(uint8_t* __restrict row, int32_t width, const Sums& sums,
              const BlurDivision32& divide) {
  for (int32_t x = 0; x < width; ++x) {
    Out::Store(row + kBytesPerPixel * x, static_cast<uint8_t>(divide.Divide(sums.red[x])),
               static_cast<uint8_t>(divide.Divide(sums.green[x])),
               static_cast<uint8_t>(divide.Divide(sums.blue[x])));
  }
}

template <class In, class Out>
void VerticalPass(const BlurJob& job, const Sums& sums, YieldData& yielding) {
  const int32_t width = job.reader.width, height = job.reader.height, r = job.radius;
  if constexpr (In::kReads) {
    for (int32_t y = 0; y < height && y <= r; ++y) {
      const uint32_t times = TimesCovered(y, height - 1, r);
      if (times != 0) AddRow<In>(job.reader.RowAddress(y), width, times, sums);
    }
  }
  for (int32_t y = 0; y < height; ++y) {
    if constexpr (Out::kStores) StoreRow<Out>(job.writer.RowAddress(y), width, sums, job.divide);
    const int32_t leaving = std::max(y - r, 0);
    const int32_t entering = std::min(y + r + 1, height - 1);
    if (In::kReads && leaving != entering) {
      ReplaceRow<In>(job.reader.RowAddress(leaving), job.reader.RowAddress(entering), width, sums);
    }
    if (yielding.interval != 0) yielding.DoYield();
  }
}

// --- Horizontal pass ----------------------------------------------------------------------
// Filters one destination row from its copy in `line`, which is read in the source's layout.
template <class In, class Out>
void BlurLine(uint8_t* __restrict row, const uint8_t* __restrict line, int32_t width, int32_t r,
              const BlurDivision32& divide) {
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
    Out::Store(row + kBytesPerPixel * x, static_cast<uint8_t>(divide.Divide(red)),
               static_cast<uint8_t>(divide.Divide(green)),
               static_cast<uint8_t>(divide.Divide(blue)));
    const uint8_t* in = line + kBytesPerPixel * std::min(x + r + 1, last);
    const uint8_t* out = line + kBytesPerPixel * std::max(x - r, 0);
    red += In::Red(in) - In::Red(out);
    green += In::Green(in) - In::Green(out);
    blue += In::Blue(in) - In::Blue(out);
  }
}

template <class In, class Out>
void HorizontalPass(const BlurJob& job, uint8_t* line, YieldData& yielding) {
  const int32_t width = job.writer.width, height = job.writer.height;
  const size_t rowBytes = static_cast<size_t>(std::max(job.writer.rowBytes, 0));
  for (int32_t y = 0; y < height; ++y) {
    if constexpr (Out::kStores) {
      uint8_t* row = job.writer.RowAddress(y);
      std::memcpy(line, row, rowBytes);
      BlurLine<In, Out>(row, line, width, job.radius, job.divide);
    }
    if (yielding.interval != 0) yielding.DoYield();
  }
}

}  // namespace

// Both passes read with the source's layout, the horizontal one from destination rows.
void BlurPlainPasses(const BlurJob& job, const BlurPlainBuffers& buffers, YieldData& yielding) {
  const Sums sums{buffers.red, buffers.green, buffers.blue};
  WithLayouts(job.reader.pixelFormat, job.writer.pixelFormat, [&]<class In, class Out>() {
    VerticalPass<In, Out>(job, sums, yielding);
    HorizontalPass<In, Out>(job, buffers.line, yielding);
  });
}
