// Moving pictures between image files and the emulated host, and running the module's
// methods on them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "declaration.h"
#include "host.h"
#include "host_picture.h"
#include "image_file.h"
#include "picture_services.h"

namespace qpx {

// One reference to a host picture, dropped when this goes.
class PictureRef {
 public:
  PictureRef() = default;
  PictureRef(qpxhost::Host& host, qpxhost::HostPicture* picture)
      : host_(&host), picture_(picture) {}
  PictureRef(PictureRef&& other) noexcept : host_(other.host_), picture_(other.picture_) {
    other.picture_ = nullptr;
  }
  PictureRef& operator=(PictureRef&& other) noexcept;
  ~PictureRef() { Reset(); }

  qpxhost::HostPicture* get() const { return picture_; }
  qpxhost::HostPicture* operator->() const { return picture_; }
  void Reset();

 private:
  qpxhost::Host* host_ = nullptr;
  qpxhost::HostPicture* picture_ = nullptr;
};

// How pictures and image files carry transparency in qpx, both ways:
// - in: a mask given with the image sets the picture's mask (its red channel: 0 opaque, 255
//   transparent); otherwise an image with transparency gives a picture without an alpha channel
//   a mask of 255 - alpha, and a picture with one its alpha. Else the picture has no mask at all.
// - out: a picture's alpha channel, else its mask (alpha 255 - mask), gives the image's alpha;
//   a picture with neither is opaque.

// A new host picture of the given kind holding `image`, with a mask as above. Throws
// std::invalid_argument when `mask` is not the size of `image` or the image is larger than a host
// picture can be.
PictureRef ImageToPicture(qpxhost::Host& host, const Image& image,
                          const qpxhost::PictureOptions& kind, const Image* mask = nullptr);
// The picture as shown, with alpha from its alpha channel or its mask as above.
Image PictureToImage(const qpxhost::HostPicture& picture);
// The picture's mask as a gray image, or nothing when it has none.
std::optional<Image> MaskToImage(const qpxhost::HostPicture& picture);

// Throws std::runtime_error when the host still holds objects or saw misuse, naming `after`.
void CheckLedger(const qpxhost::Host& host, const std::string& after);

// A call of one of the module's methods, without its trailing yield argument.
struct MethodCall {
  std::string method;
  std::vector<qpxhost::Value> arguments;
  // What Text() calls the receiver and the pictures passed as arguments.
  std::string receiver = "pic", picture = "pic2";

  // As a host program would write it, e.g. "pic.BlurQPX(3.0)".
  std::string Text() const;
};

// How many yields the call makes on a receiver of `width` x `height` when it yields after every
// row, or 0 when unknown. `masked`: the receiver has a mask or an alpha channel, which
// ScaleImageAndMaskQPX resizes too.
int64_t RowYields(const MethodCall& call, int32_t width, int32_t height, bool masked = false);

// Runs `call` on `picture` (whose reference stays the caller's) with `yield` as the yield
// argument. Returns the picture the call gives: the result of a method that returns a picture,
// or the receiver itself, changed in place, for a method that answers a boolean, with a
// reference for the caller either way; every other reference the call returned is dropped.
// Throws std::runtime_error for a nil result, False, a raised exception, host misuse or a
// reference count out of place.
PictureRef RunMethod(qpxhost::Host& host, qpxhost::HostPicture* picture, const MethodCall& call,
                     int32_t yield);

}  // namespace qpx
