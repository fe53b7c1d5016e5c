// Writing JPEG files through libjpeg.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "image_file.h"

namespace qpx {

// Writes `image` to `out` as a baseline JPEG of libjpeg quality `quality` (1 to 100): its
// colours, any alpha left out, or with `gray` its red channel as gray. False, with `error` the
// reason in a few words, when libjpeg or the file fails.
// `icc`, when not empty, is embedded as the file's colour profile.
bool WriteJpeg(FILE* out, const Image& image, bool gray, int quality,
               const std::vector<uint8_t>& icc, std::string& error);

}  // namespace qpx
