// Bitmap contexts on platforms without CoreGraphics: the six functions are looked up by name in
// the running process (the host provides them), so the module links no platform library.
#include <dlfcn.h>

#include "bitmap_context.h"

namespace {

struct BitmapContextFunctions {
  void* (*getData)(void*) = nullptr;
  size_t (*getBitsPerPixel)(void*) = nullptr;
  size_t (*getWidth)(void*) = nullptr;
  size_t (*getHeight)(void*) = nullptr;
  size_t (*getBytesPerRow)(void*) = nullptr;
  uint32_t (*getAlphaInfo)(void*) = nullptr;
  bool complete() const {
    return getData && getBitsPerPixel && getWidth && getHeight && getBytesPerRow && getAlphaInfo;
  }
};

template <typename Fn>
void Find(Fn& function, const char* name) {
  if (function == nullptr) function = reinterpret_cast<Fn>(dlsym(RTLD_DEFAULT, name));
}

// Found functions stay cached; missing ones are looked for again next time.
const BitmapContextFunctions* Functions() {
  static BitmapContextFunctions functions;
  Find(functions.getData, "CGBitmapContextGetData");
  Find(functions.getBitsPerPixel, "CGBitmapContextGetBitsPerPixel");
  Find(functions.getWidth, "CGBitmapContextGetWidth");
  Find(functions.getHeight, "CGBitmapContextGetHeight");
  Find(functions.getBytesPerRow, "CGBitmapContextGetBytesPerRow");
  Find(functions.getAlphaInfo, "CGBitmapContextGetAlphaInfo");
  return functions.complete() ? &functions : nullptr;
}

}  // namespace

bool ReadBitmapContext(void* context, BitmapContextInfo* info) {
  const BitmapContextFunctions* cg = Functions();
  if (cg == nullptr) return false;
  info->data = cg->getData(context);
  info->bitsPerPixel = cg->getBitsPerPixel(context);
  info->width = cg->getWidth(context);
  info->height = cg->getHeight(context);
  info->bytesPerRow = cg->getBytesPerRow(context);
  info->alphaInfo = cg->getAlphaInfo(context);
  return true;
}

// No platform here has pixel maps.
void UnlockPixelMap(void*) {}
