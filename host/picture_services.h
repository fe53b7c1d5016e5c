// Pictures, masks and graphics of the emulated host, and the services that reach them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host_picture.h"

namespace qpxhost {

class Host;

struct PictureOptions {
  bool hasAlpha = false;
  int32_t depth = 32;
  std::optional<int32_t> layout;  // default: the host's layout for pictures of that kind
  bool lockable = true;
  PictureFaults faults;
};

// A new picture in the booted host's storage, carrying one reference (the caller's).
HostPicture* NewHostPicture(Host& host, int32_t width, int32_t height,
                            const PictureOptions& options = {});

// A new mask for `picture`: all 0 (opaque), the size of the picture and in its storage,
// carrying one reference (the caller's). Masks hold gray values, 0 opaque and 255 transparent.
HostPicture* NewHostMask(Host& host, const HostPicture& picture);

// The picture service of that name, or null.
void* FindPictureService(const std::string& serviceName);
// "Picture" through "PluginNewInstance": a picture with alpha channel, 0 x 0 until its
// constructor runs. Null for any other class.
HostObject* NewPictureInstance(Host& host, const std::string& className);

// The context of a live picture with its description locked, for the bitmap-context functions;
// logs the call as `function` and reports misuse.
BitmapContext& LockedContext(void* context, const char* function);

// A graphics object draws into its picture.
class HostGraphics : public HostObject {
 public:
  explicit HostGraphics(HostPicture* picture) : HostObject("Graphics"), picture(picture) {}
  std::vector<HostObject*> HeldReferences() const override { return {picture}; }
  HostPicture* picture;  // one reference held
};

}  // namespace qpxhost

// The platform's bitmap-context functions, which modules find by name in the host process. Each
// is logged, and reported as misuse unless its context is that of a live picture whose
// description is locked.
extern "C" {
void* CGBitmapContextGetData(void* context);
size_t CGBitmapContextGetBitsPerPixel(void* context);
size_t CGBitmapContextGetWidth(void* context);
size_t CGBitmapContextGetHeight(void* context);
size_t CGBitmapContextGetBytesPerRow(void* context);
uint32_t CGBitmapContextGetAlphaInfo(void* context);
}
