// The box resizer: box averages across, point sampling down. Output row j takes source row
// sy = trunc(j * yScale) only; output column i averages the boxWidth pixels from column
// sx = trunc(i * xScale), where xScale = source width / width and boxWidth = ceil(xScale) (and
// likewise boxHeight down). Each channel is trunc((0.5 + boxHeight * S) / (boxWidth *
// boxHeight)) for the sum S of that channel over the box, in doubles; the source's fourth byte
// is never read and the result is opaque.
#include "box_resize.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "box_rows.h"
#include "int_conversion.h"
#include "new_picture.h"
#include "pixel_layout.h"
#include "working_buffer.h"
#include "yield_data.h"

namespace {

using namespace box_rows;

struct Geometry {
  double xScale = 0;
  double yScale = 0;
  int32_t boxWidth = 0;
  int32_t boxHeight = 0;
  double count = 0;  // boxWidth * boxHeight, as the 32-bit product gives it
};

// --- Box offsets ------------------------------------------------------------------------------
// The byte offset of each column's box in its source row, the same for every row: worked out
// once per call into a table when there is memory for one, else per stretch of columns on
// every row, on the stack.
class BoxOffsets {
 public:
  BoxOffsets(const Geometry& g, int32_t width)
      : g_(g),
        table_(static_cast<ptrdiff_t*>(
            NewWorkingBuffer(sizeof(ptrdiff_t) * static_cast<uint64_t>(width)))) {
    if (table_ != nullptr) Compute(0, width, table_);
  }
  ~BoxOffsets() { std::free(table_); }
  BoxOffsets(const BoxOffsets&) = delete;
  BoxOffsets& operator=(const BoxOffsets&) = delete;

  // Offsets of `count` columns (at most kChunk) from `first` on.
  static constexpr int32_t kChunk = 256;
  const ptrdiff_t* Columns(int32_t first, int32_t count) {
    if (table_ != nullptr) return table_ + first;
    Compute(first, count, chunk_);
    return chunk_;
  }

 private:
  // The products stay within 0 <= xScale * i < source width, so the plain conversion is
  // exact: xScale = fl(srcW / width) and i <= width - 1 give at most
  // srcW (1 - 1 / width) (1 + 2^-52), below srcW for any width under 2^51.
  void Compute(int32_t first, int32_t count, ptrdiff_t* offsets) const {
    for (int32_t i = 0; i < count; ++i) {
      const auto sx = static_cast<int32_t>(g_.xScale * static_cast<double>(first + i));
      offsets[i] = ptrdiff_t{kBytesPerPixel} * sx;
    }
  }

  const Geometry& g_;
  ptrdiff_t* table_;
  ptrdiff_t chunk_[kChunk];
};

// --- Rows -------------------------------------------------------------------------------------
// Every output row through `row`, which fills up to BoxOffsets::kChunk columns at a time. An
// output row made from the same source row as the one before it is the same row of bytes, so
// it is copied from there rather than worked out again.
template <class Out, class Row>
void ResizeRows(const PictureReader& reader, PictureWriter& writer, const Geometry& g,
                const Row& row) {
  const size_t rowBytes = size_t{kBytesPerPixel} * static_cast<size_t>(writer.width);
  const uint8_t* previousRow = nullptr;
  int32_t previousSy = -1;
  BoxOffsets offsets(g, writer.width);
  for (int32_t j = 0; j < writer.height; ++j) {
    const int32_t sy = TruncateToInt32(g.yScale * static_cast<double>(j));
    if constexpr (Out::kStores) {
      if (sy == previousSy) {
        std::memcpy(writer.cursor, previousRow, rowBytes);
      } else {
        const uint8_t* source = reader.RowAddress(sy);
        for (int32_t first = 0; first < writer.width; first += BoxOffsets::kChunk) {
          const int32_t count = std::min(writer.width - first, BoxOffsets::kChunk);
          row(source, offsets.Columns(first, count), count,
              writer.cursor + ptrdiff_t{kBytesPerPixel} * first);
        }
      }
    }
    previousRow = writer.cursor;
    previousSy = sy;
    writer.NextRow();
    if (yield.interval != 0) yield.DoYield();
  }
}

template <class In, class Out>
void Resize(const PictureReader& reader, PictureWriter& writer, const Geometry& g,
            PixelLoops loops) {
  constexpr bool kWholePixels = SameChannelBytes<In, Out>();
  const bool vector = loops != PixelLoops::Plain;
  const int64_t product = int64_t{g.boxWidth} * g.boxHeight;
  if (g.boxWidth == 1 && g.boxHeight >= 1) {
    if constexpr (kWholePixels) {
      if (vector) return ResizeRows<Out>(reader, writer, g, WholePixelCopyRow<Out>{});
    }
    return ResizeRows<Out>(reader, writer, g, PlainRow<In, Out, CopyMean>{CopyMean{}, 1});
  }
  if (g.boxWidth >= 1 && g.boxWidth <= ReciprocalMean::kWidestBox && g.boxHeight >= 1 &&
      product <= INT32_MAX) {
    if constexpr (kWholePixels) {
      if (vector && g.boxWidth == 2) {
        return ResizeRows<Out>(reader, writer, g, WholePixelBoxRow<Out, 2>(2));
      }
      if (vector && g.boxWidth == 4) {
        return ResizeRows<Out>(reader, writer, g, WholePixelBoxRow<Out, 4>(4));
      }
      if (vector && g.boxWidth <= WholePixelBoxRow<Out>::kWidestBox) {
        return ResizeRows<Out>(reader, writer, g, WholePixelBoxRow<Out>(g.boxWidth));
      }
    }
    const ReciprocalMean mean(g.boxWidth);
    return ResizeRows<Out>(reader, writer, g, PlainRow<In, Out, ReciprocalMean>{mean, g.boxWidth});
  }
  const LiteralMean mean{double(g.boxHeight), g.count};
  ResizeRows<Out>(reader, writer, g, PlainRow<In, Out, LiteralMean>{mean, std::max(g.boxWidth, 0)});
}

Geometry MeasureBoxes(const PictureReader& reader, int32_t width, int32_t height) {
  Geometry g;
  g.xScale = static_cast<double>(reader.width) / static_cast<double>(width);
  g.yScale = static_cast<double>(reader.height) / static_cast<double>(height);
  g.boxWidth = TruncateToInt32(std::ceil(g.xScale));
  g.boxHeight = TruncateToInt32(std::ceil(g.yScale));
  // The product is a 32-bit one; it wraps as the host's own integers do.
  g.count = static_cast<double>(
      static_cast<int32_t>(static_cast<uint32_t>(g.boxWidth) * static_cast<uint32_t>(g.boxHeight)));
  return g;
}

}  // namespace

REALpicture ScalePictureFastWith(REALpicture source, int32_t width, int32_t height,
                                 PixelLoops loops) {
  auto shape = [&](const PictureReader& reader) {
    return NewPictureShape{reader.hasAlpha, width, height};
  };
  REALpicture result =
      FillNewPicture(source, shape, [&](const PictureReader& reader, PictureWriter& writer) {
        const Geometry g = MeasureBoxes(reader, width, height);
        WithLayouts(reader.pixelFormat, writer.pixelFormat,
                    [&]<class In, class Out>() { Resize<In, Out>(reader, writer, g, loops); });
        return true;
      });
  if (yield.interval != 0) yield.DoYield();
  return result;
}

REALpicture ScalePictureFast(REALpicture source, int32_t width, int32_t height) {
  return ScalePictureFastWith(source, width, height, ChoosePixelLoops());
}
