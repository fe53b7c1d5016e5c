// Locking a picture's description, and the console picture record it can point at.
#pragma once

#include <cstdint>

#include "REALplugin.h"

// "REALLockPictureDescription" with `pictureType`. Hosts older than 2012.0 expect an unlock
// call after a failed lock too, and get one.
bool LockPictureDescription(REALpicture picture, REALpictureDescription* description,
                            uint32_t pictureType);

// The record of a type-10 description, read as pointer-sized slots: slot 0 must be 0, slot 1
// is the width, slot 2 the height, slot 1807 the table of row addresses.
inline const uintptr_t* ConsoleRecord(const REALpictureDescription& description) {
  return static_cast<const uintptr_t*>(description.pictureData);
}
inline uint8_t** ConsoleRowTable(const uintptr_t* record) {
  return reinterpret_cast<uint8_t**>(record[kConsoleRecordRowTableSlot]);
}
