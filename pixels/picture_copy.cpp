#include "picture_copy.h"

#include <cstring>

#include "globals.h"
#include "host_services.h"
#include "picture_description.h"

void GraphicsDrawPicture(REALpicture destination, REALpicture source, int32_t x, int32_t y,
                         int32_t w, int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
  REALgraphics graphics = REALGetPictureGraphics(destination);
  if (graphics == nullptr || source == nullptr) {
    OwnCopy(destination, source, x, y, w, h, sx, sy, sw, sh);
    if (graphics == nullptr) return;
  } else if (auto draw = reinterpret_cast<GraphicsDrawPictureFn>(
                 REALLoadObjectMethod(graphics, kGraphicsDrawPictureDeclaration))) {
    draw(graphics, source, 0, 0, w, h, 0, 0, sw, sh);
  } else {
    // Older hosts are asked for their runtime drawing service, which is then left unused.
    if (rbversion_rbversion < 2012.0 && gResolver != nullptr)
      gResolver("RuntimeGraphicsDrawPicture");
    OwnCopy(destination, source, x, y, w, h, sx, sy, sw, sh);
  }
  REALUnlockObject(graphics);
}

bool OwnCopy(REALpicture destination, REALpicture source, int32_t, int32_t, int32_t w, int32_t h,
             int32_t, int32_t, int32_t sw, int32_t sh) {
  if (destination == nullptr || source == nullptr || w != sw || h != sh) return false;
  REALpictureDescription from = {};
  if (!LockPictureDescription(source, &from, kPictureTypeConsole)) return false;
  bool copied = false;
  REALpictureDescription to = {};
  if (LockPictureDescription(destination, &to, kPictureTypeConsole)) {
    const uintptr_t* s = ConsoleRecord(from);
    const uintptr_t* d = ConsoleRecord(to);
    if (s != nullptr && d != nullptr && s[0] == 0 && d[0] == 0 &&
        s[kConsoleRecordWidthSlot] == d[kConsoleRecordWidthSlot] &&
        s[kConsoleRecordHeightSlot] == d[kConsoleRecordHeightSlot] &&
        ConsoleRowTable(s) != nullptr && ConsoleRowTable(d) != nullptr) {
      copied = true;
      uint8_t** sourceRows = ConsoleRowTable(s);
      uint8_t** destinationRows = ConsoleRowTable(d);
      const size_t rowSize = s[kConsoleRecordWidthSlot] * 4;
      for (uintptr_t i = 0; i < s[kConsoleRecordHeightSlot]; ++i) {
        std::memcpy(destinationRows[i], sourceRows[i], rowSize);
      }
    }
    REALUnlockPictureDescription(destination);
  }
  REALUnlockPictureDescription(source);
  REALPictureClearCache(destination);
  return copied;
}
