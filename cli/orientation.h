// EXIF orientation: which way up a camera stored its picture, and turning the picture upright.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image_file.h"

namespace qpx {

// The Orientation tag (1 to 8) of the first image directory of EXIF data in TIFF structure
// (a byte-order mark "II" or "MM", 42, then directories); 1, as stored, when there is none or
// the data is malformed.
int ExifOrientation(const uint8_t* tiff, size_t size);

// `image` turned as `orientation` asks so that it shows upright: 2 mirrored left to right,
// 3 turned half round, 4 mirrored top to bottom, 5 mirrored along the diagonal from the top
// left, 6 turned a quarter clockwise, 7 mirrored along the other diagonal, 8 turned a quarter
// anticlockwise; 1 and anything else as it is. Its orientation becomes 1.
Image Oriented(const Image& image, int orientation);

}  // namespace qpx
