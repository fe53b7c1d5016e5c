// ScaleQPX(width, height, AntiAlias, YieldTicks): a new picture of the requested size. The
// same size gives the receiver itself with one more reference. With AntiAlias, a target
// strictly wider and strictly taller than the receiver is made by the smooth cubic
// enlargement; every other size, and an enlargement that cannot be made, by the box resizer.
// Both resizers yield through the shared yield state, which this method sets first of all.
#include "box_resize.h"
#include "host_services.h"
#include "nice_bigger.h"
#include "picture_methods.h"
#include "picture_size.h"
#include "yield_data.h"

REALpicture PictureResizeQPX(REALpicture source, int32_t width, int32_t height, int8_t antiAlias,
                             int32_t yieldTicks) {
  yield.interval = yieldTicks;
  yield.lastYield = 0;

  const int32_t sourceWidth = PictureSize(source, "Width");
  const int32_t sourceHeight = PictureSize(source, "Height");
  if (sourceWidth == width && sourceHeight == height) {
    if (source != nullptr) REALLockObject(AsObject(source));
    return source;
  }
  if (antiAlias != 0 && sourceWidth < width && sourceHeight < height) {
    if (REALpicture result = ScalePictureNiceBigger(source, width, height)) return result;
  }
  return ScalePictureFast(source, width, height);
}
