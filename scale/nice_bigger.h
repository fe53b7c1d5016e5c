// The anti-aliased enlargement of ScaleQPX and ScaleImageAndMaskQPX.
#pragma once

#include <cstdint>

#include "REALplugin.h"
#include "pixel_loops.h"

// A new picture of `width` x `height` made from `source` by a separable cubic convolution, or
// nil when the source, the new picture or the working buffers cannot be had. Yields through
// the shared yield state.
REALpicture ScalePictureNiceBigger(REALpicture source, int32_t width, int32_t height);
// The same with a chosen version of the pixel loops.
REALpicture ScalePictureNiceBiggerWith(REALpicture source, int32_t width, int32_t height,
                                       PixelLoops loops);
