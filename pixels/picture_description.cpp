#include "picture_description.h"

#include "globals.h"
#include "host_services.h"

bool LockPictureDescription(REALpicture picture, REALpictureDescription* description,
                            uint32_t pictureType) {
  if (REALLockPictureDescription(picture, description, pictureType)) return true;
  if (rbversion_rbversion < 2012.0) REALUnlockPictureDescription(picture);
  return false;
}
