// Moving pictures between image files and the emulated host, and running the module's
// methods on them.
#pragma once

#include <cstdint>
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

// A new host picture of the given kind holding `image`; its alpha is taken only when the kind
// has an alpha channel.
PictureRef ImageToPicture(qpxhost::Host& host, const Image& image,
                          const qpxhost::PictureOptions& kind);
// The picture as shown, with alpha only when the picture has an alpha channel.
Image PictureToImage(const qpxhost::HostPicture& picture);

// Throws std::runtime_error when the host still holds objects or saw misuse, naming `after`.
void CheckLedger(const qpxhost::Host& host, const std::string& after);

// A call of one of the module's methods, without its trailing yield argument.
struct MethodCall {
  std::string method;
  std::vector<qpxhost::Value> arguments;

  // As a host program would write it, e.g. "pic.BlurQPX(3.0)" with the receiver "pic".
  std::string Text(const std::string& receiver = "pic") const;
};

// How many yields the call makes when it yields after every row, or 0 when unknown.
int64_t RowYields(const MethodCall& call, int32_t width, int32_t height);

// Runs `call` on `picture` (whose reference stays the caller's) with `yield` as the yield
// argument and returns the result's pixels, with every reference the call returned dropped.
// Throws std::runtime_error for a nil result, a raised exception or a wrong reference count.
Image RunMethod(qpxhost::Host& host, qpxhost::HostPicture* picture, const MethodCall& call,
                int32_t yield);

}  // namespace qpx
