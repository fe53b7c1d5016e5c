// DrawPictureFQPX with a chosen version of its pixel loops (the method itself takes the widest
// the processor runs).
#pragma once

#include <cstdint>

#include "REALplugin.h"
#include "pixel_loops.h"

bool DrawPictureFWith(REALpicture destination, REALpicture picture, double x, double y,
                      double alpha, int32_t yield, PixelLoops loops);
