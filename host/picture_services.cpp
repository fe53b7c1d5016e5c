// Picture services. Desktop pictures lock as bitmap contexts (type 8), console and web pictures
// as console records (type 10); 0 x 0 pictures and pictures whose depth is not 32 bits do not
// lock as a console record, and desktop ones report their depth as bits per pixel.
#include "picture_services.h"

#include <cstring>
#include <map>

#include "host.h"

namespace qpxhost {
namespace {

// The largest picture the host makes: 2^31 bytes of pixels.
constexpr uint64_t kMaxPictureBytes = 0x80000000ull;

Host& H() {
  return *Host::Current();
}

HostPicture* AsPicture(const void* reference, const char* service) {
  if (reference == nullptr) return nullptr;
  HostObject* object = H().Find(reference, service);
  auto* picture = dynamic_cast<HostPicture*>(object);
  if (object != nullptr && picture == nullptr) {
    H().ReportProblem(std::string(service) + ": not a picture");
  }
  return picture;
}

REALpicture Ref(HostObject* object) {
  return reinterpret_cast<REALpicture>(object);
}

// At most 2^31 bytes of pixels, and a row's bytes (padding included) within 32 bits even when
// the picture has no rows.
bool SizeAllowed(int32_t width, int32_t height) {
  return width >= 0 && height >= 0 &&
         static_cast<uint64_t>(width) * static_cast<uint64_t>(height) * 4 <= kMaxPictureBytes &&
         int64_t{width} * 4 + H().config().rowPadding <= INT32_MAX;
}

REALpicture NewPicture(int32_t width, int32_t height, int32_t depth) {
  if (!SizeAllowed(width, height)) return nullptr;
  PictureOptions options;
  options.depth = depth;
  return Ref(NewHostPicture(H(), width, height, options));
}

bool GetPropInt(REALobject object, const char* name, int32_t* value) {
  HostPicture* picture = AsPicture(object, "REALGetPropValueInt");
  if (picture == nullptr || name == nullptr || value == nullptr) return false;
  if (std::strcmp(name, "Width") == 0) {
    *value = picture->width;
  } else if (std::strcmp(name, "Height") == 0) {
    *value = picture->height;
  } else {
    return false;
  }
  return true;
}

bool GetPropBool(REALobject object, const char* name, uint8_t* value) {
  HostPicture* picture = AsPicture(object, "REALGetPropValueBool");
  if (picture == nullptr || name == nullptr || value == nullptr) return false;
  if (std::strcmp(name, "HasAlphaChannel") != 0) return false;
  *value = picture->hasAlpha ? 1 : 0;
  return true;
}

bool LockDescription(REALpicture reference, REALpictureDescription* out, uint32_t type) {
  HostPicture* picture = AsPicture(reference, "REALLockPictureDescription");
  if (picture == nullptr || out == nullptr || !picture->lockable || picture->width < 1 ||
      picture->height < 1) {
    return false;
  }
  if (type == kPictureTypeBitmapContext && picture->storage == PictureStorage::Bitmap) {
    *out = {kPictureTypeBitmapContext, &picture->context, picture->width, picture->height};
  } else if (type == kPictureTypeConsole && picture->storage == PictureStorage::Console &&
             picture->depth == 32) {
    *out = {kPictureTypeConsole, picture->record.data(), picture->width, picture->height};
  } else {
    return false;
  }
  ++picture->lockCount;
  return true;
}

void UnlockDescription(REALpicture reference) {
  HostPicture* picture = AsPicture(reference, "unlockPictureDescription");
  if (picture == nullptr) return;
  if (picture->lockCount > 0) {
    --picture->lockCount;
  } else {
    ++picture->unmatchedUnlocks;
  }
}

void ClearCache(REALpicture reference) {
  if (HostPicture* picture = AsPicture(reference, "REALPictureClearCache")) {
    ++picture->clearCacheCount;
  }
}

// Graphics exist for desktop pictures only.
REALgraphics GetGraphics(REALpicture reference) {
  HostPicture* picture = AsPicture(reference, "pluginPictureGraphicsGetter");
  if (picture == nullptr || picture->storage != PictureStorage::Bitmap) return nullptr;
  H().Lock(picture);
  return reinterpret_cast<REALgraphics>(H().Adopt(std::make_unique<HostGraphics>(picture)));
}

// The picture's mask with one reference for the caller; made (all opaque) on request.
REALpicture GetMask(REALpicture reference, bool create) {
  HostPicture* picture = AsPicture(reference, "REALGetPictureMask");
  if (picture == nullptr) return nullptr;
  if (picture->mask == nullptr) {
    if (!create) return nullptr;
    picture->mask = NewHostMask(H(), *picture);  // the picture's reference
  }
  H().Lock(picture->mask);
  return Ref(picture->mask);
}

REALpicture BuildPictureFromBuffer(int32_t width, int32_t height, RBPixelType, void* buffer,
                                   int32_t rowBytes) {
  if (buffer == nullptr || width < 1 || height < 1 || rowBytes < width * 4 ||
      !SizeAllowed(width, height)) {
    return nullptr;
  }
  HostPicture* picture = NewHostPicture(H(), width, height);
  for (int32_t y = 0; y < height; ++y) {
    std::memcpy(picture->Row(y),
                static_cast<const uint8_t*>(buffer) + static_cast<size_t>(y) * rowBytes,
                static_cast<size_t>(width) * 4);
  }
  return Ref(picture);
}

// --- Methods loaded through "REALLoadObjectMethod" ----------------------------------------

constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
constexpr const char* kConstructor = "Constructor(width as integer, height as integer)";
constexpr const char* kCopyMask = "CopyMask as Picture";
constexpr const char* kSetMask = "Mask(assigns newMask As Picture)";

// Where the colour channels and the fourth byte of a pixel lie in a layout.
struct ChannelOffsets {
  int r, g, b, fourth;
};
ChannelOffsets OffsetsOf(int32_t layout) {
  if (layout == 8) return {2, 1, 0, 3};
  if (layout % 2 == 0) return {1, 2, 3, 0};
  return {0, 1, 2, 3};
}

// The common unscaled copy between pictures without alpha channel, a row at a time: each pixel
// takes the source's colour and an opaque fourth byte, as Get and Set would give it. False
// (nothing done) for any other drawing.
bool CopyOpaqueRows(HostPicture& target, HostPicture& source, int32_t x, int32_t y, int32_t w,
                    int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
  if (source.hasAlpha || target.hasAlpha || sw != w || sh != h || x < 0 || y < 0 || sx < 0 ||
      sy < 0 || int64_t{x} + w > target.width || int64_t{y} + h > target.height ||
      int64_t{sx} + w > source.width || int64_t{sy} + h > source.height) {
    return false;
  }
  const ChannelOffsets from = OffsetsOf(source.layout), to = OffsetsOf(target.layout);
  const uint8_t opaque = target.layout == 8 ? 0 : 255;
  for (int32_t j = 0; j < h; ++j) {
    const uint8_t* in = source.Row(sy + j) + 4 * size_t(sx);
    uint8_t* out = target.Row(y + j) + 4 * size_t(x);
    for (int32_t i = 0; i < w; ++i, in += 4, out += 4) {
      const uint8_t r = in[from.r], g = in[from.g], b = in[from.b];
      out[to.r] = r;
      out[to.g] = g;
      out[to.b] = b;
      out[to.fourth] = opaque;
    }
  }
  return true;
}

// Copies source rectangle (sx, sy, sw, sh) onto (x, y, w, h) of the graphics' picture, pixel
// for pixel when the sizes agree and by nearest pixel otherwise; -10000 for sw or sh means the
// rest of the source. Colour and alpha are copied, not blended.
void DrawPicture(REALgraphics graphicsRef, REALpicture sourceRef, int32_t x, int32_t y, int32_t w,
                 int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
  auto* graphics = dynamic_cast<HostGraphics*>(H().Find(graphicsRef, "Graphics.DrawPicture"));
  HostPicture* source = AsPicture(sourceRef, "Graphics.DrawPicture");
  if (graphics == nullptr || source == nullptr || w <= 0 || h <= 0) return;
  if (sw == -10000) sw = source->width - sx;
  if (sh == -10000) sh = source->height - sy;
  HostPicture& target = *graphics->picture;
  if (CopyOpaqueRows(target, *source, x, y, w, h, sx, sy, sw, sh)) return;
  for (int32_t j = 0; j < h; ++j) {
    const int32_t ty = y + j;
    const int64_t fy = sy + static_cast<int64_t>(j) * sh / h;
    if (ty < 0 || ty >= target.height || fy < 0 || fy >= source->height) continue;
    for (int32_t i = 0; i < w; ++i) {
      const int32_t tx = x + i;
      const int64_t fx = sx + static_cast<int64_t>(i) * sw / w;
      if (tx < 0 || tx >= target.width || fx < 0 || fx >= source->width) continue;
      target.Set(tx, ty, source->Get(static_cast<int32_t>(fx), static_cast<int32_t>(fy)));
    }
  }
}

void Constructor(REALobject reference, int32_t width, int32_t height) {
  HostPicture* picture = AsPicture(reference, "Picture.Constructor");
  if (picture != nullptr && SizeAllowed(width, height)) picture->Allocate(width, height);
}

// A copy of the mask: the picture's own mask, at that mask's size (which the setter lets differ
// from the picture's), or one the picture's size made from its alpha channel (255 - alpha). Nil
// when the picture has neither.
REALpicture CopyMask(REALpicture reference) {
  HostPicture* picture = AsPicture(reference, "Picture.CopyMask");
  if (picture == nullptr) return nullptr;
  if (const HostPicture* mask = picture->mask) {
    HostPicture* copy = NewHostMask(H(), *mask);
    for (int32_t y = 0; y < mask->height; ++y) {
      for (int32_t x = 0; x < mask->width; ++x) copy->Set(x, y, mask->Get(x, y));
    }
    return Ref(copy);
  }
  if (!picture->hasAlpha) return nullptr;
  HostPicture* copy = NewHostMask(H(), *picture);
  for (int32_t y = 0; y < picture->height; ++y) {
    for (int32_t x = 0; x < picture->width; ++x) {
      const auto v = static_cast<uint8_t>(255 - picture->Get(x, y).a);
      copy->Set(x, y, {v, v, v, 255});
    }
  }
  return Ref(copy);
}

// Keeps `mask` as it is given, whatever its size; the module and qpx read a mask of another
// size within its own bounds.
void SetMask(REALpicture reference, REALpicture maskRef) {
  HostPicture* picture = AsPicture(reference, "Picture.Mask");
  HostPicture* mask = AsPicture(maskRef, "Picture.Mask");
  if (picture == nullptr) return;
  if (mask != nullptr) H().Lock(mask);
  if (picture->mask != nullptr) H().Unlock(picture->mask);
  picture->mask = mask;
}

void* LoadObjectMethod(REALobject reference, const char* declaration) {
  if (reference == nullptr || declaration == nullptr || H().Lacks(declaration)) return nullptr;
  HostObject* object = H().Find(reference, "REALLoadObjectMethod");
  const std::string wanted(declaration);
  if (dynamic_cast<HostGraphics*>(object) != nullptr) {
    if (wanted == kDrawPicture) return reinterpret_cast<void*>(&DrawPicture);
  } else if (dynamic_cast<HostPicture*>(object) != nullptr) {
    if (wanted == kConstructor) return reinterpret_cast<void*>(&Constructor);
    if (wanted == kCopyMask) return reinterpret_cast<void*>(&CopyMask);
    if (wanted == kSetMask) return reinterpret_cast<void*>(&SetMask);
  }
  return nullptr;
}

}  // namespace

HostPicture* NewHostPicture(Host& host, int32_t width, int32_t height,
                            const PictureOptions& options) {
  const HostConfig& config = host.config();
  const PictureStorage storage =
      config.app == AppKind::Desktop ? PictureStorage::Bitmap : PictureStorage::Console;
  const int32_t layout =
      options.layout.value_or(options.hasAlpha ? config.desktopAlphaLayout : config.desktopLayout);
  HostPicture* picture = host.Adopt(
      std::make_unique<HostPicture>(storage, width, height, options.depth, options.hasAlpha, layout,
                                    config.rowPadding, config.guardBytes));
  picture->lockable = options.lockable;
  return picture;
}

HostPicture* NewHostMask(Host& host, const HostPicture& picture) {
  PictureOptions options;
  if (picture.storage == PictureStorage::Bitmap) options.layout = host.config().desktopLayout;
  return NewHostPicture(host, picture.width, picture.height, options);
}

HostObject* NewPictureInstance(Host& host, const std::string& className) {
  if (className != "Picture") return nullptr;
  PictureOptions options;
  options.hasAlpha = true;
  return NewHostPicture(host, 0, 0, options);
}

void* FindPictureService(const std::string& serviceName) {
  static const std::map<std::string, void*> services = {
      {"newPicture", reinterpret_cast<void*>(&NewPicture)},
      {"REALGetPropValueInt", reinterpret_cast<void*>(&GetPropInt)},
      {"REALGetPropValueBool", reinterpret_cast<void*>(&GetPropBool)},
      {"REALLockPictureDescription", reinterpret_cast<void*>(&LockDescription)},
      {"unlockPictureDescription", reinterpret_cast<void*>(&UnlockDescription)},
      {"REALPictureClearCache", reinterpret_cast<void*>(&ClearCache)},
      {"pluginPictureGraphicsGetter", reinterpret_cast<void*>(&GetGraphics)},
      {"REALGetPictureMask", reinterpret_cast<void*>(&GetMask)},
      {"REALBuildPictureFromBuffer", reinterpret_cast<void*>(&BuildPictureFromBuffer)},
      {"REALLoadObjectMethod", reinterpret_cast<void*>(&LoadObjectMethod)},
  };
  auto it = services.find(serviceName);
  return it == services.end() ? nullptr : it->second;
}

}  // namespace qpxhost

// The platform's bitmap-context functions, which modules find by name in the host process.
extern "C" {
__attribute__((visibility("default"))) void* CGBitmapContextGetData(void* c) {
  return static_cast<qpxhost::BitmapContext*>(c)->data;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetBitsPerPixel(void* c) {
  return static_cast<qpxhost::BitmapContext*>(c)->bitsPerPixel;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetWidth(void* c) {
  return static_cast<qpxhost::BitmapContext*>(c)->width;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetHeight(void* c) {
  return static_cast<qpxhost::BitmapContext*>(c)->height;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetBytesPerRow(void* c) {
  return static_cast<qpxhost::BitmapContext*>(c)->bytesPerRow;
}
__attribute__((visibility("default"))) uint32_t CGBitmapContextGetAlphaInfo(void* c) {
  return static_cast<qpxhost::BitmapContext*>(c)->alphaInfo;
}
}
