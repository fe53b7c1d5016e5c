// Putting one whole picture into another of the same size.
#pragma once

#include <cstdint>

#include "REALplugin.h"

// The host's graphics method that draws a picture, and how it is called.
inline constexpr const char* kGraphicsDrawPictureDeclaration =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
using GraphicsDrawPictureFn = void (*)(REALgraphics, REALpicture, int32_t x, int32_t y, int32_t w,
                                       int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);

// Has the host draw `source` into `destination` at (0, 0), w x h from sw x sh; copies the rows
// itself (OwnCopy) when the host has no graphics object or no drawing method.
void GraphicsDrawPicture(REALpicture destination, REALpicture source, int32_t x, int32_t y,
                         int32_t w, int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);

// Copies the rows of a console or web picture into another of the same size. True when copied;
// the destination's cache is cleared whenever the source could be locked.
bool OwnCopy(REALpicture destination, REALpicture source, int32_t x, int32_t y, int32_t w,
             int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);
