// The five methods this module adds to the host's class "Picture".
#pragma once

#include <cstdint>

#include "REALplugin.h"

bool DrawPictureF(REALpicture destination, REALpicture picture, double x, double y, double alpha,
                  int32_t yield);
REALpicture PictureResizeQPX(REALpicture source, int32_t width, int32_t height, int8_t antiAlias,
                             int32_t yieldTicks);
REALpicture PictureResizeImageAndMaskQPX(REALpicture source, int32_t width, int32_t height,
                                         int8_t antiAlias, int32_t yieldTicks);
REALpicture PictureScalingQPX(REALpicture source, int32_t mode, int32_t width, int32_t height,
                              int32_t yield);
REALpicture BlurQPX(REALpicture source, double radius, int32_t yield);
