// DrawPictureFQPX: draws `picture` into the receiver in place at (x, y), in fractional pixels,
// with an overall opacity `alpha`. Each picture pixel is spread over the four destination
// pixels it overlaps with bilinear weights, scaled by its mask's opacity when the picture has
// a mask; the weight left over keeps the destination's old colour. Every destination pixel is
// stored afresh, so the whole destination comes out opaque. True when drawn; a nil receiver or
// picture raises a host exception and answers false.
//
// Coordinates whose floor lies outside the 32-bit range (NaN among them) would give no
// meaningful offset: they answer false without touching anything.
#include "draw_picture_f.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "draw_rows.h"
#include "fixed_weights.h"
#include "host_services.h"
#include "int_conversion.h"
#include "picture_methods.h"
#include "raise_exception.h"
#include "yield_data.h"

namespace {

constexpr int64_t kMaskedFixedPointArea = 1 << 16;

bool FloorFitsInt32(double value) {
  const double whole = std::floor(value);  // NaN stays NaN and fails both tests
  return whole >= -2147483648.0 && whole <= 2147483647.0;
}

// Destination pixels along one axis that the picture, placed at `at`, covers.
int64_t Overlap(int64_t at, int64_t size, int64_t destinationSize) {
  return std::max<int64_t>(0, std::min(at + size, destinationSize) - std::max<int64_t>(at, 0));
}

// The offsets, fractions and weights, fixed before the first pixel. Each weight is multiplied
// in the order written.
void PlanDrawing(double x, double y, double alpha, bool masked, const PictureEditor& picture,
                 const PictureEditor& destination, DrawPlan& plan) {
  plan.ix = TruncateToInt32(std::floor(x));
  plan.iy = TruncateToInt32(std::floor(y));
  const double fx = std::fabs(x - plan.ix);
  const double fy = std::fabs(y - plan.iy);
  plan.weight[kTopLeft] = fx * fy * alpha;
  plan.weight[kTopRight] = (1 - fx) * fy * alpha;
  plan.weight[kBottomRight] = (1 - fx) * (1 - fy) * alpha;
  plan.weight[kBottomLeft] = fx * (1 - fy) * alpha;
  plan.masked = masked;
  if (!masked) {
    PlanFixedWeights(plan);
    return;
  }
  for (int k = 0; k < kNeighbours; ++k) {
    for (int m = 0; m < kMaskValues; ++m) {
      plan.maskWeight[k][m] = (static_cast<double>(255 - m) * plan.weight[k]) / 255;
    }
  }
  // A thousand multipliers to find: worth it only for a large overlap.
  const int64_t overlap = Overlap(plan.ix, picture.width, destination.width) *
                          Overlap(plan.iy, picture.height, destination.height);
  if (overlap >= kMaskedFixedPointArea) PlanFixedMaskWeights(plan);
}

}  // namespace

bool DrawPictureFWith(REALpicture destination, REALpicture picture, double x, double y,
                      double alpha, int32_t yieldInterval, PixelLoops loops) {
  if (destination == nullptr) {
    RaiseException("NilObjectException", "source is nil", 0);
    return false;
  }
  if (picture == nullptr) {
    RaiseException("NilObjectException", "picture is nil", 0);
    return false;
  }
  if (!FloorFitsInt32(x) || !FloorFitsInt32(y)) return false;

  REALpicture mask = REALGetPictureMask(picture, false);  // one reference when there is one
  bool result = false;
  PictureReader destinationEditor;
  PictureReader pictureEditor;
  std::optional<PictureReader> maskEditor;
  if (mask != nullptr) maskEditor.emplace();

  if ((!maskEditor || maskEditor->GetPictureEditor(mask, true, true)) &&
      destinationEditor.GetPictureEditor(destination, true, true) &&
      pictureEditor.GetPictureEditor(picture, true, false)) {
    DrawPlan plan;
    PlanDrawing(x, y, alpha, mask != nullptr, pictureEditor, destinationEditor, plan);
    YieldData yielding{yieldInterval, 0};
    if (yielding.interval != 0) yielding.DoYield();
    DrawRows(plan, {destinationEditor, pictureEditor, maskEditor ? &*maskEditor : nullptr}, loops,
             yielding);
    if (yielding.interval != 0) yielding.DoYield();
    result = true;
  }

  // Cleared picture, destination, mask; the mask's editor goes and its reference is dropped
  // before the other two editors are destroyed.
  pictureEditor.clear();
  destinationEditor.clear();
  if (maskEditor) maskEditor->clear();
  maskEditor.reset();
  if (mask != nullptr) REALUnlockObject(AsObject(mask));
  return result;
}

bool DrawPictureF(REALpicture destination, REALpicture picture, double x, double y, double alpha,
                  int32_t yieldInterval) {
  return DrawPictureFWith(destination, picture, x, y, alpha, yieldInterval, ChoosePixelLoops());
}
