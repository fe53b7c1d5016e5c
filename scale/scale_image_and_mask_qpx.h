// ScaleImageAndMaskQPX's resize of one picture together with its mask.
#pragma once

#include <cstdint>

#include "REALplugin.h"

// `picture` and its mask resized to `width` x `height` by the same resizer: the anti-aliased
// enlargement when `antiAlias` is set and `sourceWidth` x `sourceHeight` is strictly smaller
// both ways (the box resizer when the image cannot be enlarged so), else the box resizer. The
// resized mask is drawn into a mask made for the result. Nil when the image cannot be resized;
// a mask that cannot be had or resized leaves the result without one.
REALpicture PictureResizeImageAndMaskInternal(REALpicture picture, int32_t width, int32_t height,
                                              int8_t antiAlias, int32_t sourceWidth,
                                              int32_t sourceHeight);
