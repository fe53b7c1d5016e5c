#include "scale_mask_reference.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "random_pictures.h"

namespace qpxtest {
namespace {

using qpxhost::AppKind;
using qpxhost::HostConfig;

bool Lacks(const HostConfig& host, const std::string& name) {
  return host.unavailable.count(name) != 0;
}

bool Opens(const RawPicture& picture) {
  return picture.width >= 1 && picture.height >= 1;
}

// What one resizer makes of one picture (nothing when it fails) and how many times it yields.
struct Resized {
  std::optional<RawPicture> pixels;
  int yields = 0;
};
using Resizer = Resized (*)(const RawPicture&, int32_t, int32_t, const HostConfig&);

// Every new picture here is made without alpha channel: the receivers are pictures without one,
// masks, or the picture of the requested size the alpha path makes.
Resized Enlarged(const RawPicture& source, int32_t width, int32_t height, const HostConfig& host) {
  if (!Opens(source) || !WriterAccepts(host, false, width, height)) return {};
  return {ReferenceEnlarge(source, width, height, NewPictureFormat(host)), 3 + 4 * height};
}

Resized BoxResized(const RawPicture& source, int32_t width, int32_t height,
                   const HostConfig& host) {
  if (!Opens(source) || !WriterAccepts(host, false, width, height)) return {std::nullopt, 1};
  return {ReferenceBoxResize(source, width, height, NewPictureFormat(host)), height + 1};
}

// A resized mask drawn into the new mask of a result of its size: on a desktop host colour by
// colour, which stores its fourth byte opaque; on a console or web host, which has no graphics,
// every row copied as it is.
RawPicture DrawnIntoNewMask(const RawPicture& resized, const HostConfig& host) {
  if (host.app != AppKind::Desktop) return resized;
  return OpaqueInLayout(resized, NewPictureFormat(host));
}

// The image `resized` made by `resize`, carrying `mask` resized by the same resizer when it has
// one and that resize succeeds.
ExpectedResult WithResizedMask(Resizer resize, const Resized& image,
                               const std::optional<RawPicture>& mask, int32_t width, int32_t height,
                               const HostConfig& host) {
  ExpectedResult result{ExpectedPicture::New(*image.pixels).WithoutMask(), image.yields};
  if (!mask) return result;
  const Resized resizedMask = resize(*mask, width, height, host);
  result.yields += resizedMask.yields;
  if (resizedMask.pixels) {
    result.picture = result.picture.WithMask(DrawnIntoNewMask(*resizedMask.pixels, host));
  }
  return result;
}

// `image` and `mask` resized to the call's size, smoothly when `smooth`.
ExpectedResult ResizeImageAndMask(const RawPicture& image, const std::optional<RawPicture>& mask,
                                  bool smooth, const ScaleCall& call, const HostConfig& host) {
  if (smooth) {
    const Resized enlarged = Enlarged(image, call.width, call.height, host);
    if (enlarged.pixels) {
      return WithResizedMask(&Enlarged, enlarged, mask, call.width, call.height, host);
    }
  }
  const Resized box = BoxResized(image, call.width, call.height, host);
  if (!box.pixels) return {ExpectedPicture::Nil(), box.yields};
  return WithResizedMask(&BoxResized, box, mask, call.width, call.height, host);
}

// The host makes pictures of no negative side and at most 2^31 bytes, 0 x 0 ones included.
bool HostMakesPicture(int32_t width, int32_t height) {
  return width >= 0 && height >= 0 && uint64_t(width) * uint64_t(height) * 4 <= 0x80000000ull;
}

// The new picture of the requested size with the receiver drawn into it at its own scale. On a
// desktop host its top-left part takes the receiver's colours, opaque; what the receiver does
// not cover stays as the new picture came, all bytes 0. Console and web pictures have no
// graphics, and their rows are copied only between pictures of one size, which these two never
// are: the new picture stays as it came.
RawPicture DrawnAtOwnScale(const MaskedSource& source, int32_t width, int32_t height,
                           const HostConfig& host) {
  RawPicture drawn(width, height, NewPictureFormat(host));
  if (host.app != AppKind::Desktop) return drawn;
  const int32_t columns = std::min(width, source.pixels.width);
  const int32_t rows = std::min(height, source.pixels.height);
  for (int32_t y = 0; y < rows; ++y) {
    for (int32_t x = 0; x < columns; ++x) {
      const qpxhost::RGBA& c = source.shown[size_t(y) * source.pixels.width + x];
      WriteOpaque(drawn.Pixel(x, y), drawn.format, {c.r, c.g, c.b});
    }
  }
  return drawn;
}

// What "CopyMask as Picture" gives, set as the mask of the picture drawn into: a copy of the
// receiver's own mask at its size, else a mask of the receiver's size from its alpha, each in
// the layout of the host's masks. Nothing when the host lacks either method.
std::optional<RawPicture> CopiedMask(const MaskedSource& source, const HostConfig& host) {
  if (Lacks(host, "CopyMask as Picture") || Lacks(host, "Mask(assigns newMask As Picture)")) {
    return std::nullopt;
  }
  const int32_t format = NewPictureFormat(host);
  if (source.mask) return OpaqueInLayout(*source.mask, format);
  RawPicture mask(source.pixels.width, source.pixels.height, format);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      const int v = 255 - source.shown[size_t(y) * mask.width + x].a;
      WriteOpaque(mask.Pixel(x, y), format, {v, v, v});
    }
  }
  return mask;
}

// What a resizer reads of `picture`, whose bytes are `raw`: see MaskedSource::read.
RawPicture AsRead(const qpxhost::HostPicture& picture, const RawPicture& raw,
                  const HostConfig& host) {
  if (picture.lockable) return raw;
  if (host.app == AppKind::Desktop && !picture.hasAlpha) {
    return OpaqueInLayout(raw, NewPictureFormat(host));
  }
  return RawPicture{};
}

}  // namespace

MaskedSource ReadMaskedSource(qpxhost::HostPicture& receiver, const HostConfig& host) {
  MaskedSource source;
  source.pixels = ReadRaw(receiver);
  source.read = AsRead(receiver, source.pixels, host);
  source.hasAlpha = receiver.hasAlpha;
  for (int32_t y = 0; y < receiver.height; ++y) {
    for (int32_t x = 0; x < receiver.width; ++x) source.shown.push_back(receiver.Get(x, y));
  }
  if (receiver.mask != nullptr) {
    source.mask = ReadRaw(*receiver.mask);
    source.maskRead = AsRead(*receiver.mask, *source.mask, host);
  }
  return source;
}

ExpectedResult ExpectedScaleImageAndMask(const MaskedSource* source, const HostConfig& host,
                                         const ScaleCall& call) {
  if (source == nullptr) return {ExpectedPicture::Nil(), 0};
  const int32_t srcW = source->pixels.width, srcH = source->pixels.height;
  if (srcW == call.width && srcH == call.height) return {ExpectedPicture::Receiver(), 0};
  const bool smooth = call.antiAlias && srcW < call.width && srcH < call.height;
  // Without "REALGetPictureMask" no mask is seen, neither the receiver's nor a copied one.
  const bool masksSeen = !Lacks(host, "REALGetPictureMask");
  ExpectedResult result;
  if (!source->hasAlpha || Lacks(host, "REALGetPropValueBool")) {
    result = ResizeImageAndMask(source->read, masksSeen ? source->maskRead : std::nullopt, smooth,
                                call, host);
  } else if (!HostMakesPicture(call.width, call.height)) {
    return {ExpectedPicture::Nil(), 0};
  } else {
    result = ResizeImageAndMask(DrawnAtOwnScale(*source, call.width, call.height, host),
                                masksSeen ? CopiedMask(*source, host) : std::nullopt, smooth, call,
                                host);
  }
  if (call.yieldTicks == 0) result.yields = 0;
  return result;
}

}  // namespace qpxtest
