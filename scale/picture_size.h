// The size a picture reports to the resizing methods.
#pragma once

#include <cstdint>

#include "REALplugin.h"
#include "host_services.h"

// The picture's integer property ("Width" or "Height"), or 0 when it cannot be read.
inline int32_t PictureSize(REALpicture picture, const char* property) {
  int32_t value = 0;
  if (picture == nullptr || !REALGetPropValueInt32(AsObject(picture), property, &value)) return 0;
  return value;
}
