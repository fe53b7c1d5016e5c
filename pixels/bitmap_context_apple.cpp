// Bitmap contexts on Apple platforms: CoreGraphics directly, and "UnlockPixels" found once in
// ApplicationServices.framework of the system frameworks folder, kept loaded.
#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include "bitmap_context.h"

namespace {

using UnlockPixelsFn = void (*)(void*);

UnlockPixelsFn FindUnlockPixels() {
  FSRef folder;
  if (FSFindFolder(kOnAppropriateDisk, kFrameworksFolderType, true, &folder) != noErr) {
    return nullptr;
  }
  CFURLRef base = CFURLCreateFromFSRef(kCFAllocatorSystemDefault, &folder);
  if (base == nullptr) return nullptr;
  CFURLRef url = CFURLCreateCopyAppendingPathComponent(
      kCFAllocatorSystemDefault, base, CFSTR("ApplicationServices.framework"), false);
  CFRelease(base);
  if (url == nullptr) return nullptr;
  CFBundleRef bundle = CFBundleCreate(kCFAllocatorSystemDefault, url);
  CFRelease(url);
  if (bundle == nullptr) return nullptr;
  if (!CFBundleLoadExecutable(bundle)) {
    CFRelease(bundle);
    return nullptr;
  }
  // The bundle stays loaded for the life of the process.
  return reinterpret_cast<UnlockPixelsFn>(
      CFBundleGetFunctionPointerForName(bundle, CFSTR("UnlockPixels")));
}

}  // namespace

bool ReadBitmapContext(void* context, BitmapContextInfo* info) {
  auto cg = static_cast<CGContextRef>(context);
  info->data = CGBitmapContextGetData(cg);
  info->bitsPerPixel = CGBitmapContextGetBitsPerPixel(cg);
  info->width = CGBitmapContextGetWidth(cg);
  info->height = CGBitmapContextGetHeight(cg);
  info->bytesPerRow = CGBitmapContextGetBytesPerRow(cg);
  info->alphaInfo = CGBitmapContextGetAlphaInfo(cg);
  return true;
}

void UnlockPixelMap(void* pixelMap) {
  static UnlockPixelsFn unlockPixels = FindUnlockPixels();
  if (unlockPixels != nullptr) unlockPixels(pixelMap);
}
