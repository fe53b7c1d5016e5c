// Every destination pixel, row by row and left to right. A pixel takes each of its four
// neighbours that lies in the picture: its effective weight (the plan's, or the mask's entry)
// is subtracted from the remaining weight and each channel's share, v × weight truncated, is
// added to a 32-bit wrapping sum; what weight remains above 0 goes to the pixel's old colour;
// the sums are clamped and the pixel stored afresh.
//
// Columns and rows no neighbour reaches keep their colour exactly (the remaining weight is
// 1.0), so only their fourth byte is rewritten, a word at a time. Runs whose four neighbours
// all lie in the picture go to a vector loop when the call has one.
#include "draw_rows.h"

#include <algorithm>
#include <cstring>

#include "draw_lanes.h"
#include "int_conversion.h"
#include "pixel_layout.h"

namespace {

// One row of the mask: a column's value is the red byte of its pixel. Columns at or past the
// mask's width read 0 (opaque), so a mask narrower than its picture is never read outside
// itself; rows past its bottom read its row 0, the editors' row rule.
struct MaskRow {
  const uint8_t* pixels = nullptr;
  int red = 0;          // the red byte's offset in a pixel
  int64_t columns = 0;  // 0 for a mask of a code without a layout: every value is 0
  uint8_t At(int64_t x) const { return x < columns ? pixels[kBytesPerPixel * x + red] : 0; }
};

MaskRow MaskRowAt(const PictureEditor* mask, int64_t y) {
  if (mask == nullptr) return {};
  const int red = RedByte(mask->pixelFormat);
  if (red < 0) return {};
  return {mask->RowAddress(static_cast<int32_t>(y)), red, mask->width};
}

// The picture rows of one destination row's neighbours; null when outside the picture.
struct SourceRows {
  const uint8_t* top = nullptr;     // row Y − iy − 1
  const uint8_t* bottom = nullptr;  // row Y − iy
  MaskRow topMask, bottomMask;
};

struct RowJob {
  const DrawPlan& plan;
  int64_t pictureWidth;
  int64_t destinationWidth;
  InteriorLoop interior;  // null: every pixel one by one
  LaneLayout layout;
};

inline uint32_t Share(uint32_t value, double weight) {
  return static_cast<uint32_t>(TruncateToInt32(value * weight));
}

inline uint8_t Clamp(uint32_t sum) {
  const int32_t value = static_cast<int32_t>(sum);
  return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

// Destination pixel `d`, whose right-hand neighbours lie in picture column `right`.
template <class In, class Out>
void DrawPixel(const RowJob& job, const SourceRows& rows, int64_t right, uint8_t* d) {
  const DrawPlan& plan = job.plan;
  double remaining = 1.0;
  uint32_t red = 0, green = 0, blue = 0;
  auto add = [&](const uint8_t* row, const MaskRow& mask, int64_t x, Neighbour k) {
    if (row == nullptr || x < 0 || x >= job.pictureWidth) return;
    const double e = plan.masked ? plan.maskWeight[k][mask.At(x)] : plan.weight[k];
    remaining -= e;
    const uint8_t* p = row + kBytesPerPixel * x;
    red += Share(In::Red(p), e);
    green += Share(In::Green(p), e);
    blue += Share(In::Blue(p), e);
  };
  add(rows.top, rows.topMask, right - 1, kTopLeft);
  add(rows.top, rows.topMask, right, kTopRight);
  add(rows.bottom, rows.bottomMask, right, kBottomRight);
  add(rows.bottom, rows.bottomMask, right - 1, kBottomLeft);
  if (remaining > 0.0) {
    using Old = ReadOf<Out>;
    red += Share(Old::Red(d), remaining);
    green += Share(Old::Green(d), remaining);
    blue += Share(Old::Blue(d), remaining);
  }
  Out::Store(d, Clamp(red), Clamp(green), Clamp(blue));
}

// What storing `count` unreached pixels afresh amounts to: their fourth byte set.
template <class Out>
void StoreUnreached(uint8_t* d, int64_t count) {
  if constexpr (Out::kStores) {
    uint8_t keepBytes[kBytesPerPixel] = {255, 255, 255, 255};
    uint8_t fourthBytes[kBytesPerPixel] = {};
    keepBytes[Out::kFourth] = 0;
    fourthBytes[Out::kFourth] = Out::kFourthValue;
    uint32_t keep, fourth;
    std::memcpy(&keep, keepBytes, sizeof keep);
    std::memcpy(&fourth, fourthBytes, sizeof fourth);
    for (int64_t i = 0; i < count; ++i) {
      uint32_t word;
      std::memcpy(&word, d + kBytesPerPixel * i, sizeof word);
      word = (word & keep) | fourth;
      std::memcpy(d + kBytesPerPixel * i, &word, sizeof word);
    }
  }
}

template <class In, class Out>
void DrawRow(const RowJob& job, const SourceRows& rows, uint8_t* destination) {
  const int64_t ix = job.plan.ix, pw = job.pictureWidth, dw = job.destinationWidth;
  // Columns some neighbour reaches: X − ix − 1 or X − ix lies in 0 .. pw − 1.
  const bool reached = rows.top != nullptr || rows.bottom != nullptr;
  const int64_t first = reached ? std::clamp<int64_t>(ix, 0, dw) : dw;
  const int64_t end = std::clamp<int64_t>(ix + pw + 1, first, dw);
  StoreUnreached<Out>(destination, first);

  int64_t x = first;
  auto oneByOne = [&](int64_t to) {
    for (; x < to; ++x) DrawPixel<In, Out>(job, rows, x - ix, destination + kBytesPerPixel * x);
  };
  if (job.interior != nullptr && rows.top != nullptr && rows.bottom != nullptr) {
    // Both horizontal neighbours inside the picture, and inside the mask when there is one.
    int64_t inside = pw;
    if (job.plan.masked) inside = std::min({inside, rows.topMask.columns, rows.bottomMask.columns});
    oneByOne(std::min(ix + 1, end));
    const int64_t to = std::min(end, ix + inside);
    if (x < to) {
      const int64_t left = kBytesPerPixel * (x - ix - 1);
      InteriorRun run{
          rows.top + left, rows.bottom + left, nullptr, nullptr, destination + kBytesPerPixel * x,
          to - x};
      if (job.plan.masked) {
        run.topMask = rows.topMask.pixels + left;
        run.bottomMask = rows.bottomMask.pixels + left;
      }
      x += job.interior(job.plan, job.layout, run);
    }
  }
  oneByOne(end);
  StoreUnreached<Out>(destination + kBytesPerPixel * end, dw - end);
}

// A fixed-point loop when the plan has the multipliers and the picture's channels lie at the
// destination's bytes, else the loop in doubles; null for the plain loops.
InteriorLoop InteriorLoopFor(PixelLoops loops, const DrawPlan& plan, bool sameChannelBytes) {
  InteriorLoop inDoubles = nullptr, fixed = nullptr, maskedFixed = nullptr;
  switch (loops) {
    case PixelLoops::Vector128:
      inDoubles = kDrawInteriorVector128;
      fixed = kDrawInteriorFixed128;
      maskedFixed = kDrawMaskedFixed128;
      break;
    case PixelLoops::Avx2:
      inDoubles = kDrawInteriorAvx2;
      fixed = kDrawInteriorFixedAvx2;
      maskedFixed = kDrawMaskedFixedAvx2;
      break;
    case PixelLoops::Plain:
      break;
  }
  InteriorLoop chosen = nullptr;
  if (sameChannelBytes)
    chosen = plan.masked ? (plan.fixed.maskFound ? maskedFixed : nullptr)
                         : (plan.fixed.found ? fixed : nullptr);
  return chosen != nullptr ? chosen : inDoubles;
}

}  // namespace

void DrawRows(const DrawPlan& plan, const DrawEditors& editors, PixelLoops loops,
              YieldData& yielding) {
  PictureEditor& destination = editors.destination;
  const PictureEditor& picture = editors.picture;
  const PictureEditor* mask = editors.mask;
  const bool shared = picture.picture == destination.picture ||
                      (mask != nullptr && mask->picture == destination.picture);
  if (shared) loops = PixelLoops::Plain;

  WithLayouts(picture.pixelFormat, destination.pixelFormat, [&]<class In, class Out>() {
    RowJob job{plan, picture.width, destination.width, nullptr, {}};
    if constexpr (In::kReads && Out::kStores) {
      job.interior = InteriorLoopFor(loops, plan, SameChannelBytes<In, Out>());
      const int fourthShift = 8 * Out::kFourth;
      job.layout = {{8 * In::kRed, 8 * In::kGreen, 8 * In::kBlue},
                    std::max(mask != nullptr ? RedByte(mask->pixelFormat) : 0, 0),
                    {8 * Out::kRed, 8 * Out::kGreen, 8 * Out::kBlue},
                    static_cast<uint32_t>(Out::kFourthValue) << fourthShift,
                    ~(0xFFu << fourthShift)};
    }
    for (int32_t y = 0; y < destination.height; ++y) {
      SourceRows rows;
      const int64_t top = static_cast<int64_t>(y) - plan.iy - 1;
      if (top >= 0 && top < picture.height) {
        rows.top = picture.RowAddress(static_cast<int32_t>(top));
        rows.topMask = MaskRowAt(mask, top);
      }
      const int64_t bottom = top + 1;
      if (bottom >= 0 && bottom < picture.height) {
        rows.bottom = picture.RowAddress(static_cast<int32_t>(bottom));
        rows.bottomMask = MaskRowAt(mask, bottom);
      }
      DrawRow<In, Out>(job, rows, destination.RowAddress(y));
      if (yielding.interval != 0) yielding.DoYield();
    }
  });
}
