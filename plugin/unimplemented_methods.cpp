// A method whose algorithm is not built yet: it answers nil and touches nothing.
#include "picture_methods.h"

REALpicture PictureResizeImageAndMaskQPX(REALpicture, int32_t, int32_t, int8_t, int32_t) {
  return nullptr;
}

