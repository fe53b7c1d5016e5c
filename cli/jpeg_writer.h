// Writing JPEG files through libjpeg.
#pragma once

#include <cstdio>
#include <string>

#include "image_file.h"

namespace qpx {

// Writes `image` to `out` as a baseline JPEG of libjpeg quality `quality` (1 to 100): its
// colours, any alpha left out, or with `gray` its red channel as gray. False, with `error` the
// reason in a few words, when libjpeg or the file fails.
bool WriteJpeg(FILE* out, const Image& image, bool gray, int quality, std::string& error);

}  // namespace qpx
