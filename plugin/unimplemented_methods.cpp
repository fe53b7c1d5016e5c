// Methods whose algorithms are not built yet: each answers nil (false) and touches nothing.
#include "picture_methods.h"

bool DrawPictureF(REALpicture, REALpicture, double, double, double, int32_t) {
  return false;
}

REALpicture PictureResizeImageAndMaskQPX(REALpicture, int32_t, int32_t, int8_t, int32_t) {
  return nullptr;
}

