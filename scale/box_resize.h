// The box resizer of ScaleQPX and ScaleImageAndMaskQPX.
#pragma once

#include <cstdint>

#include "REALplugin.h"
#include "pixel_loops.h"

// A new picture of `width` x `height` (with an alpha channel when the source has one, always
// opaque), or nil. Yields through the shared yield state after every row and once at the end.
REALpicture ScalePictureFast(REALpicture source, int32_t width, int32_t height);
// The same with a chosen version of the pixel loops.
REALpicture ScalePictureFastWith(REALpicture source, int32_t width, int32_t height,
                                 PixelLoops loops);
