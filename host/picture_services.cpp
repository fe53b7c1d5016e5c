// Picture services. Desktop pictures lock as bitmap contexts (type 8), console and web pictures
// as console records (type 10); 0 x 0 pictures and pictures whose depth is not 32 bits do not
// lock as a console record, and desktop ones report their depth as bits per pixel.
#include "picture_services.h"

#include <cstring>
#include <map>

#include "host.h"
#include "services.h"

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

std::string Number(int64_t value) {
  return std::to_string(value);
}

// A picture the host makes because a module asked: the faults, size change and fill the host
// was configured with.
HostPicture* MadeForModule(HostPicture* picture) {
  const HostConfig& config = H().config();
  picture->faults = config.newPictureFaults;
  if (config.newPixelFill) picture->FillPixels(*config.newPixelFill);
  return picture;
}

// The size a faulty host makes instead of the one asked for.
int32_t Changed(int32_t side) {
  const int32_t change = H().config().newPictureSizeChange;
  if (change == 0) return side;
  const int64_t changed = int64_t{side} + change;
  return changed < 0 ? 0 : changed > INT32_MAX ? INT32_MAX : static_cast<int32_t>(changed);
}

REALpicture NewPicture(int32_t width, int32_t height, int32_t depth) {
  const size_t at = LogService("newPicture", {}, {Number(width), Number(height), Number(depth)});
  width = Changed(width);
  height = Changed(height);
  HostPicture* picture = nullptr;
  if (SizeAllowed(width, height)) {
    PictureOptions options;
    options.depth = depth;
    picture = MadeForModule(NewHostPicture(H(), width, height, options));
  }
  LogResult(at, picture);
  return Ref(picture);
}

bool ReadInt(REALobject object, const char* name, int32_t* value) {
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

bool GetPropInt(REALobject object, const char* name, int32_t* value) {
  const size_t at = LogService("REALGetPropValueInt", {object}, {Quoted(name)});
  const bool read = ReadInt(object, name, value);
  if (read) {
    H().SetResult(at, Number(*value));
  } else {
    LogResult(at, false);
  }
  return read;
}

bool GetPropBool(REALobject object, const char* name, uint8_t* value) {
  const size_t at = LogService("REALGetPropValueBool", {object}, {Quoted(name)});
  HostPicture* picture = AsPicture(object, "REALGetPropValueBool");
  if (picture == nullptr || name == nullptr || value == nullptr ||
      std::strcmp(name, "HasAlphaChannel") != 0) {
    LogResult(at, false);
    return false;
  }
  *value = picture->hasAlpha ? 1 : 0;
  H().SetResult(at, picture->hasAlpha ? "True" : "False");
  return true;
}

// The description a sound host hands out for `type`, or false when the picture does not lock
// as that type.
bool Describe(HostPicture& picture, uint32_t type, REALpictureDescription* out) {
  if (!picture.lockable || picture.width < 1 || picture.height < 1) return false;
  if (type == kPictureTypeBitmapContext && picture.storage == PictureStorage::Bitmap) {
    picture.context.alphaInfo =
        picture.faults.alphaInfo.value_or(static_cast<uint32_t>(picture.layout)) |
        picture.faults.alphaInfoExtraBits;
    *out = {kPictureTypeBitmapContext, &picture.context, picture.width, picture.height};
    return true;
  }
  if (type == kPictureTypeConsole && picture.storage == PictureStorage::Console &&
      picture.depth == 32) {
    *out = {kPictureTypeConsole, picture.record.data(), picture.width, picture.height};
    return true;
  }
  return false;
}

bool LockDescription(REALpicture reference, REALpictureDescription* out, uint32_t type) {
  const size_t at = LogService("REALLockPictureDescription", {reference}, {Number(type)});
  HostPicture* picture = AsPicture(reference, "REALLockPictureDescription");
  if (picture == nullptr || out == nullptr || !Describe(*picture, type, out)) {
    LogResult(at, false);
    return false;
  }
  if (picture->faults.lockReportsOtherType) {
    out->pictureType =
        type == kPictureTypeBitmapContext ? kPictureTypeConsole : kPictureTypeBitmapContext;
  }
  if (picture->faults.lockReportsNullData) out->pictureData = nullptr;
  ++picture->lockCount;
  LogResult(at, true);
  return true;
}

// An unlock without a lock is how hosts older than 2012.0 are called after a failed lock; from
// 2012.0 on it is misuse.
void UnlockDescription(REALpicture reference) {
  LogService("unlockPictureDescription", {reference});
  HostPicture* picture = AsPicture(reference, "unlockPictureDescription");
  if (picture == nullptr) return;
  if (picture->lockCount > 0) {
    --picture->lockCount;
    return;
  }
  ++picture->unmatchedUnlocks;
  if (H().config().version.value_or(0.0) >= 2012.0) {
    H().ReportProblem("unlockPictureDescription(" + H().NameOf(reference) +
                      "): its description is not locked");
  }
}

void ClearCache(REALpicture reference) {
  LogService("REALPictureClearCache", {reference});
  if (HostPicture* picture = AsPicture(reference, "REALPictureClearCache")) {
    ++picture->clearCacheCount;
  }
}

// Graphics exist for desktop pictures only.
REALgraphics GetGraphics(REALpicture reference) {
  const size_t at = LogService("pluginPictureGraphicsGetter", {reference});
  HostPicture* picture = AsPicture(reference, "pluginPictureGraphicsGetter");
  if (picture == nullptr || picture->storage != PictureStorage::Bitmap) {
    LogResult(at, nullptr);
    return nullptr;
  }
  H().Lock(picture);
  auto* graphics = H().Adopt(std::make_unique<HostGraphics>(picture));
  LogResult(at, graphics);
  return reinterpret_cast<REALgraphics>(static_cast<HostObject*>(graphics));
}

// The picture's mask with one reference for the caller; made (all opaque) on request.
REALpicture GetMask(REALpicture reference, bool create) {
  const size_t at = LogService("REALGetPictureMask", {reference}, {create ? "1" : "0"});
  HostPicture* picture = AsPicture(reference, "REALGetPictureMask");
  if (picture == nullptr || (picture->mask == nullptr && !create)) {
    LogResult(at, nullptr);
    return nullptr;
  }
  if (picture->mask == nullptr) {
    picture->mask = MadeForModule(NewHostMask(H(), *picture));  // the picture's reference
  }
  H().Lock(picture->mask);
  LogResult(at, picture->mask);
  return Ref(picture->mask);
}

REALpicture BuildFromBuffer(int32_t width, int32_t height, void* buffer, int32_t rowBytes);

REALpicture BuildPictureFromBuffer(int32_t width, int32_t height, RBPixelType type, void* buffer,
                                   int32_t rowBytes) {
  const size_t at = LogService(
      "REALBuildPictureFromBuffer", {},
      {Number(width), Number(height), Number(type), buffer ? "buffer" : "nil", Number(rowBytes)});
  REALpicture built = BuildFromBuffer(width, height, buffer, rowBytes);
  LogResult(at, built);
  return built;
}

REALpicture BuildFromBuffer(int32_t width, int32_t height, void* buffer, int32_t rowBytes) {
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
  LogService(
      "Graphics.DrawPicture", {graphicsRef, sourceRef},
      {Number(x), Number(y), Number(w), Number(h), Number(sx), Number(sy), Number(sw), Number(sh)},
      HostCall::Kind::Method);
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
  LogService("Picture.Constructor", {reference}, {Number(width), Number(height)},
             HostCall::Kind::Method);
  HostPicture* picture = AsPicture(reference, "Picture.Constructor");
  width = Changed(width);
  height = Changed(height);
  if (picture != nullptr && SizeAllowed(width, height)) {
    picture->Allocate(width, height);
    MadeForModule(picture);
  }
}

// A copy of the mask: the picture's own mask, at that mask's size (which the setter lets differ
// from the picture's), or one the picture's size made from its alpha channel (255 - alpha). Nil
// when the picture has neither.
REALpicture MaskCopy(REALpicture reference);

REALpicture CopyMask(REALpicture reference) {
  const size_t at = LogService("Picture.CopyMask", {reference}, {}, HostCall::Kind::Method);
  REALpicture copy = MaskCopy(reference);
  LogResult(at, copy);
  return copy;
}

REALpicture MaskCopy(REALpicture reference) {
  HostPicture* picture = AsPicture(reference, "Picture.CopyMask");
  if (picture == nullptr) return nullptr;
  if (const HostPicture* mask = picture->mask) {
    HostPicture* copy = MadeForModule(NewHostMask(H(), *mask));
    for (int32_t y = 0; y < mask->height; ++y) {
      for (int32_t x = 0; x < mask->width; ++x) copy->Set(x, y, mask->Get(x, y));
    }
    return Ref(copy);
  }
  if (!picture->hasAlpha) return nullptr;
  HostPicture* copy = MadeForModule(NewHostMask(H(), *picture));
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
  LogService("Picture.Mask", {reference, maskRef}, {}, HostCall::Kind::Method);
  HostPicture* picture = AsPicture(reference, "Picture.Mask");
  HostPicture* mask = AsPicture(maskRef, "Picture.Mask");
  if (picture == nullptr) return;
  if (mask != nullptr) H().Lock(mask);
  if (picture->mask != nullptr) H().Unlock(picture->mask);
  picture->mask = mask;
}

void* ObjectMethod(REALobject reference, const char* declaration);

void* LoadObjectMethod(REALobject reference, const char* declaration) {
  const size_t at = LogService("REALLoadObjectMethod", {reference}, {Quoted(declaration)});
  void* method = ObjectMethod(reference, declaration);
  LogResult(at, method != nullptr);
  return method;
}

void* ObjectMethod(REALobject reference, const char* declaration) {
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
  picture->faults = options.faults;
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
  options.faults = host.config().newPictureFaults;
  return NewHostPicture(host, 0, 0, options);
}

// The bitmap context's functions: logged, and reported as misuse unless the context is that of
// a live picture whose description is locked.
BitmapContext& LockedContext(void* context, const char* function) {
  Host& host = *Host::Current();
  const HostPicture* owner = nullptr;
  for (HostObject* object : host.LiveObjects()) {
    auto* picture = dynamic_cast<HostPicture*>(object);
    if (picture != nullptr && static_cast<void*>(&picture->context) == context) owner = picture;
  }
  host.LogCall(HostCall::Kind::Service, function, {owner});
  if (owner == nullptr) {
    host.ReportProblem(std::string(function) + ": not the bitmap context of a live picture");
  } else if (owner->lockCount == 0) {
    host.ReportProblem(std::string(function) + "(" + ObjectName(owner) +
                       "): its description is not locked");
  }
  return *static_cast<BitmapContext*>(context);
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
  return qpxhost::LockedContext(c, "CGBitmapContextGetData").data;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetBitsPerPixel(void* c) {
  return qpxhost::LockedContext(c, "CGBitmapContextGetBitsPerPixel").bitsPerPixel;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetWidth(void* c) {
  return qpxhost::LockedContext(c, "CGBitmapContextGetWidth").width;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetHeight(void* c) {
  return qpxhost::LockedContext(c, "CGBitmapContextGetHeight").height;
}
__attribute__((visibility("default"))) size_t CGBitmapContextGetBytesPerRow(void* c) {
  return qpxhost::LockedContext(c, "CGBitmapContextGetBytesPerRow").bytesPerRow;
}
__attribute__((visibility("default"))) uint32_t CGBitmapContextGetAlphaInfo(void* c) {
  return qpxhost::LockedContext(c, "CGBitmapContextGetAlphaInfo").alphaInfo;
}
}
