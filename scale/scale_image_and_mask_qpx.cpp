// ScaleImageAndMaskQPX(width, height, AntiAlias, YieldTicks): ScaleQPX for a picture and its
// mask. The same size gives the receiver itself with one more reference. Otherwise the image
// and the mask each go through the resizer chosen on the receiver's size, and the resized mask
// is drawn into the result's own mask. A picture with an alpha channel is first drawn, at its
// own scale, into a new picture of the requested size, which takes a copy of its mask: the
// result shows the receiver's top-left width x height region under its whole mask resized.
// A nil receiver gives nil before the shared yield state is set; nothing else is reported.
#include "scale_image_and_mask_qpx.h"

#include "box_resize.h"
#include "host_services.h"
#include "nice_bigger.h"
#include "picture_copy.h"
#include "picture_methods.h"
#include "picture_size.h"
#include "yield_data.h"

namespace {

using Resizer = REALpicture (*)(REALpicture, int32_t, int32_t);
using CopyMaskFn = REALpicture (*)(REALpicture);
using SetMaskFn = void (*)(REALpicture, REALpicture);

constexpr const char* kCopyMask = "CopyMask as Picture";
constexpr const char* kSetMask = "Mask(assigns newMask As Picture)";

// Puts the whole of `source` into `target`, both `width` x `height`.
void DrawWhole(REALpicture target, REALpicture source, int32_t width, int32_t height) {
  GraphicsDrawPicture(target, source, 0, 0, width, height, 0, 0, width, height);
}

// `picture` resized by `resize`, with its mask resized by `resize` too when it has one; nil
// when the image cannot be resized.
REALpicture ResizeWithMask(Resizer resize, REALpicture picture, int32_t width, int32_t height) {
  REALpicture result = resize(picture, width, height);
  if (result == nullptr) return nullptr;
  REALpicture mask = REALGetPictureMask(picture, false);
  if (mask == nullptr) return result;
  if (REALpicture resizedMask = resize(mask, width, height)) {
    if (REALpicture target = REALGetPictureMask(result, true)) {
      DrawWhole(target, resizedMask, width, height);
      REALUnlockObject(AsObject(target));
    }
    REALUnlockObject(AsObject(resizedMask));
  }
  REALUnlockObject(AsObject(mask));
  return result;
}

// Gives `picture` a copy of `source`'s mask (made from its alpha channel), when the host can.
void CopyMaskInto(REALpicture picture, REALpicture source) {
  auto copyMask = reinterpret_cast<CopyMaskFn>(REALLoadObjectMethod(AsObject(source), kCopyMask));
  if (copyMask == nullptr) return;
  REALpicture mask = copyMask(source);
  if (mask == nullptr) return;
  if (auto setMask =
          reinterpret_cast<SetMaskFn>(REALLoadObjectMethod(AsObject(picture), kSetMask))) {
    setMask(picture, mask);
  }
  REALUnlockObject(AsObject(mask));
}

}  // namespace

REALpicture PictureResizeImageAndMaskInternal(REALpicture picture, int32_t width, int32_t height,
                                              int8_t antiAlias, int32_t sourceWidth,
                                              int32_t sourceHeight) {
  if (antiAlias != 0 && sourceWidth < width && sourceHeight < height) {
    if (REALpicture result = ResizeWithMask(&ScalePictureNiceBigger, picture, width, height)) {
      return result;
    }
  }
  return ResizeWithMask(&ScalePictureFast, picture, width, height);
}

REALpicture PictureResizeImageAndMaskQPX(REALpicture source, int32_t width, int32_t height,
                                         int8_t antiAlias, int32_t yieldTicks) {
  if (source == nullptr) return nullptr;
  yield.interval = yieldTicks;
  yield.lastYield = 0;

  const int32_t sourceWidth = PictureSize(source, "Width");
  const int32_t sourceHeight = PictureSize(source, "Height");
  if (sourceWidth == width && sourceHeight == height) {
    REALLockObject(AsObject(source));
    return source;
  }
  uint8_t hasAlpha = 0;
  if (!REALGetPropValueUInt8(AsObject(source), "HasAlphaChannel", &hasAlpha) || hasAlpha == 0) {
    return PictureResizeImageAndMaskInternal(source, width, height, antiAlias, sourceWidth,
                                             sourceHeight);
  }
  // Made at the requested size, so the source lands in it unscaled and cut to its top-left.
  REALpicture opaque = REALNewPicture(width, height, 32);
  if (opaque == nullptr) return nullptr;
  DrawWhole(opaque, source, width, height);
  CopyMaskInto(opaque, source);
  REALpicture result = PictureResizeImageAndMaskInternal(opaque, width, height, antiAlias,
                                                         sourceWidth, sourceHeight);
  REALUnlockObject(AsObject(opaque));
  return result;
}
