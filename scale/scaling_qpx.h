// ScalingQPX with a chosen version of its pixel loops (the method itself takes the widest the
// processor runs).
#pragma once

#include <cstdint>

#include "REALplugin.h"
#include "pixel_loops.h"

REALpicture PictureScalingQPXWith(REALpicture source, int32_t mode, int32_t width, int32_t height,
                                  int32_t yield, PixelLoops loops);
