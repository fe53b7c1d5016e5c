// The sample picture of "qpx demo", made in code so the demo needs no files.
#pragma once

#include <cstdint>
#include <string>

#include "image_file.h"

namespace qpx {

// An opaque landscape-like scene: smooth sky and glow, grainy textured ground, hard-edged hills
// and shapes, a fine line chart and lettering. The same every time.
Image MakeDemoPicture(int32_t width = 640, int32_t height = 480);

// A rectangle of pixels; (x, y) is its top left corner.
struct Region {
  int32_t x, y, width, height;
};

// The demo's detail of the 640 x 480 sample picture: the top left corner of the sign board, with
// the board's frame against the meadow, large and small lettering.
constexpr Region kDemoDetail{28, 332, 80, 60};

// A patch of the sample's sky with a cloud's edge, which the demo draws into: smooth enough for
// fractional drawing and opacity to show, busy enough to show through.
constexpr Region kDemoSky{360, 100, 40, 30};

// A 16 x 16 opaque checkerboard of 4 x 4 squares in two colours, all hard edges.
Image MakeDemoTile();

// A 20 x 20 shaded ball whose alpha falls smoothly from 255 at 4 pixels from its centre to 0
// at 9.5: read as a file with transparency, a picture with a soft round mask.
Image MakeDemoBall();

// A 40 x 30 striped badge lettered "QPX", a rounded rectangle whose alpha falls from 255 to 0
// over the last 4 pixels of its rim: read as a file with transparency, a picture with a soft
// mask. Its colours go on beyond the rim, under the transparent corners and edges.
Image MakeDemoBadge();

// The pixels of `region`. Throws std::out_of_range unless it lies within `image`.
Image CropImage(const Image& image, Region region);

// Draws `text` with a 5 x 7 pixel font, each font pixel `scale` x `scale` pixels; (x, y) is the
// top left corner. Letters are drawn as capitals; characters the font lacks as blanks.
void DrawText(Image& image, int32_t x, int32_t y, const std::string& text, int32_t scale, uint8_t r,
              uint8_t g, uint8_t b);

}  // namespace qpx
