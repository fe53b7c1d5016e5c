#include "picture_editor.h"

#include "application_kind.h"
#include "bitmap_context.h"
#include "globals.h"
#include "host_services.h"
#include "picture_copy.h"
#include "picture_description.h"

namespace {
constexpr int32_t kMaxWriterSide = 32767;
using ConstructorFn = void (*)(REALobject, int32_t, int32_t);

// The module's own guard against a host handing out pixels it cannot walk: every size must
// fit 32 bits and a bitmap row must hold its pixels. Such a picture does not open.
bool BitmapContextIsConsistent(const BitmapContextInfo& info) {
  // The row test divides: 4 * width would wrap where size_t has 32 bits.
  return info.width <= INT32_MAX && info.height <= INT32_MAX && info.bytesPerRow <= INT32_MAX &&
         info.bytesPerRow / 4 >= info.width;
}
// A console record must agree with its description, and its rows of 4-byte pixels must have a
// byte count that fits 32 bits.
bool ConsoleRecordIsConsistent(const REALpictureDescription& description, const uintptr_t* record) {
  return description.width >= 0 && description.width <= INT32_MAX / 4 && description.height >= 0 &&
         description.height <= INT32_MAX &&
         record[kConsoleRecordWidthSlot] == static_cast<uintptr_t>(description.width) &&
         record[kConsoleRecordHeightSlot] == static_cast<uintptr_t>(description.height);
}
}  // namespace

PictureEditor::~PictureEditor() {
  Release();
}
PictureReader::~PictureReader() = default;
PictureWriter::~PictureWriter() = default;

void PictureEditor::Release() {
  rowState = 0;
  if (pixelMap != nullptr) {
    UnlockPixelMap(pixelMap);
    pixelMap = nullptr;
  }
  if (descriptionLocked && picture != nullptr) REALUnlockPictureDescription(picture);
  descriptionLocked = false;
  if (clearCacheOnRelease) {
    if (picture == nullptr) return;
    REALPictureClearCache(picture);
  }
  if (picture != nullptr) {
    REALUnlockObject(AsObject(picture));
    picture = nullptr;
  }
}

bool PictureEditor::GetPictureEditor(REALpicture source, bool copyIfNeeded,
                                     bool clearCacheOnRelease) {
  return Open(source, copyIfNeeded, clearCacheOnRelease, true);
}

// `mayCopy` is false when opening a copy made here: a copy that cannot be opened directly is
// not copied again, so a host whose pictures never lock cannot send this into endless copying.
bool PictureEditor::Open(REALpicture source, bool copyIfNeeded_, bool clearCacheOnRelease_,
                         bool mayCopy) {
  Release();
  if (source == nullptr) return false;
  copyIfNeeded = copyIfNeeded_;
  clearCacheOnRelease = clearCacheOnRelease_;
  rowState = 0;

  DetectApplicationKind();
  uint8_t alpha = 0;
  if (!REALGetPropValueUInt8(AsObject(source), "HasAlphaChannel", &alpha)) alpha = 0;
  hasAlpha = alpha != 0;

  if (!IsConsole) {
    if (LockPictureDescription(source, &description, kPictureTypeBitmapContext)) {
      IsDesktop = 1;
      return OpenBitmapContext(source);
    }
    if (!hasAlpha && copyIfNeeded && !clearCacheOnRelease && mayCopy) {
      int32_t sourceWidth = 0, sourceHeight = 0;
      if (!REALGetPropValueInt32(AsObject(source), "Width", &sourceWidth)) sourceWidth = 0;
      if (!REALGetPropValueInt32(AsObject(source), "Height", &sourceHeight)) sourceHeight = 0;
      if (sourceWidth >= 1 && sourceHeight >= 1) {
        return OpenThroughCopy(source, sourceWidth, sourceHeight);
      }
    }
  }
  if (!IsDesktop) return OpenConsoleRecord(source);
  return false;
}

bool PictureEditor::OpenBitmapContext(REALpicture source) {
  BitmapContextInfo info;
  if (description.pictureType != kPictureTypeBitmapContext || description.pictureData == nullptr ||
      !ReadBitmapContext(description.pictureData, &info)) {
    REALUnlockPictureDescription(source);
    return false;
  }
  const int32_t alphaInfo = static_cast<int32_t>(info.alphaInfo & 7);
  const bool layoutOk =
      hasAlpha ? (alphaInfo == 1 || alphaInfo == 2) : (alphaInfo >= 1 && alphaInfo <= 6);
  // Returns with the description still locked, as the host has always seen it do.
  if (!layoutOk) return false;
  if (info.bitsPerPixel != 32 || !BitmapContextIsConsistent(info)) {
    REALUnlockPictureDescription(source);
    return false;
  }
  REALLockObject(AsObject(source));
  picture = source;
  descriptionLocked = true;
  if (hasAlpha) alphaOpened = true;
  rowBytes = static_cast<int32_t>(info.bytesPerRow);
  width = static_cast<int32_t>(info.width);
  height = static_cast<int32_t>(info.height);
  pixelFormat = alphaInfo;
  baseAddress = cursor = static_cast<uint8_t*>(info.data);
  bytesPerPixel = 4;
  cursorX = cursorY = 0;
  return true;
}

bool PictureEditor::OpenThroughCopy(REALpicture source, int32_t sourceWidth, int32_t sourceHeight) {
  REALpicture copy = REALNewPicture(sourceWidth, sourceHeight, 32);
  if (copy == nullptr) return false;
  REALgraphics graphics = REALGetPictureGraphics(copy);
  auto draw = graphics ? reinterpret_cast<GraphicsDrawPictureFn>(
                             REALLoadObjectMethod(graphics, kGraphicsDrawPictureDeclaration))
                       : nullptr;
  if (draw != nullptr) {
    draw(graphics, source, 0, 0, sourceWidth, sourceHeight, 0, 0, sourceWidth, sourceHeight);
  } else {
    OwnCopy(copy, source, 0, 0, sourceWidth, sourceHeight, 0, 0, sourceWidth, sourceHeight);
  }
  if (graphics != nullptr) REALUnlockObject(graphics);
  const bool opened = Open(copy, copyIfNeeded, false, false);
  REALUnlockObject(AsObject(copy));
  return opened;
}

bool PictureEditor::OpenConsoleRecord(REALpicture source) {
  if (!LockPictureDescription(source, &description, kPictureTypeConsole)) return false;
  IsConsole = 1;
  const uintptr_t* record = ConsoleRecord(description);
  if (description.pictureType != kPictureTypeConsole || record == nullptr || record[0] != 0 ||
      record[kConsoleRecordRowTableFlagSlot] == 0 || record[kConsoleRecordRowTableSlot] == 0 ||
      !ConsoleRecordIsConsistent(description, record)) {
    REALUnlockPictureDescription(source);
    return false;
  }
  REALLockObject(AsObject(source));
  picture = source;
  descriptionLocked = true;
  pixelFormat = kPixelFormatConsole;
  rowBytes = static_cast<int32_t>(description.width * 4);
  width = static_cast<int32_t>(description.width);
  height = static_cast<int32_t>(description.height);
  rowTable = ConsoleRowTable(record);
  baseAddress = cursor = rowTable[0];
  bytesPerPixel = 4;
  cursorX = cursorY = 0;
  return true;
}

REALpicture PictureEditor::RenderPictureWriter() {
  REALpicture result = nullptr;
  if (picture != nullptr) {
    REALLockObject(AsObject(picture));
    REALPictureClearCache(picture);
    result = picture;
  } else if (buffer != nullptr) {
    result = REALBuildPictureFromBuffer(width, height, 1, buffer, rowBytes);
  }
  Release();
  return result;
}

bool PictureWriter::NewPictureWriter(bool withAlpha, int32_t newWidth, int32_t newHeight) {
  REALpicture created = nullptr;
  if (withAlpha) {
    if (newWidth < 1 || newHeight < 1 || rbversion_rbversion < 2011.04) return false;
    created = reinterpret_cast<REALpicture>(REALnewInstance("Picture"));
    if (created == nullptr) return false;
    auto constructor = reinterpret_cast<ConstructorFn>(REALLoadObjectMethod(
        AsObject(created), "Constructor(width as integer, height as integer)"));
    if (constructor != nullptr) constructor(AsObject(created), newWidth, newHeight);
  } else {
    if (newWidth < 1 || newWidth > kMaxWriterSide || newHeight < 1 || newHeight > kMaxWriterSide) {
      return false;
    }
    created = REALNewPicture(newWidth, newHeight, 32);
    if (created == nullptr) return false;
  }
  bool opened = GetPictureEditor(created, false, true);
  // A host that made a picture of another size would have the method fill rows it does not have:
  // such a picture is given back, and the writer is not made.
  if (opened && (width != newWidth || height != newHeight)) {
    clear();
    opened = false;
  }
  REALUnlockObject(AsObject(created));
  return opened;
}
