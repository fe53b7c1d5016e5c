#include "draw_reference.h"

#include <algorithm>
#include <cmath>

#include "scaling_reference.h"

namespace qpxtest {
namespace {

// Three 32-bit signed channel sums. They wrap around like the processor's, so they are kept in
// unsigned arithmetic, where wrapping is defined, and read back as signed when clamped.
struct ChannelSums {
  uint32_t red = 0;
  uint32_t green = 0;
  uint32_t blue = 0;

  // Adds each channel value times `weight`, truncated on its own.
  void Add(const Channels& channels, double weight) {
    red += static_cast<uint32_t>(TruncToInt32(channels.red * weight));
    green += static_cast<uint32_t>(TruncToInt32(channels.green * weight));
    blue += static_cast<uint32_t>(TruncToInt32(channels.blue * weight));
  }
  Channels Clamped() const { return {Clamp(red), Clamp(green), Clamp(blue)}; }
  static int Clamp(uint32_t sum) { return std::clamp(static_cast<int32_t>(sum), 0, 255); }
};

// A neighbour of destination pixel (X, Y): the picture pixel (X - ix + dx, Y - iy + dy).
struct Neighbour {
  int64_t dx = 0;
  int64_t dy = 0;
  double weight = 0;
};

// The mask's value for picture pixel (sx, sy), 0 opaque to 255 transparent.
int MaskValue(const RawPicture& mask, int64_t sx, int64_t sy) {
  if (sx >= mask.width) return 0;
  const int64_t row = sy >= mask.height ? 0 : sy;
  return ReadChannels(mask.Pixel(int32_t(sx), int32_t(row)), mask.format).red;
}

}  // namespace

bool ReferenceAcceptsPosition(double x, double y) {
  for (double v : {x, y}) {
    const double whole = std::floor(v);
    if (std::isnan(v) || whole < -2147483648.0 || whole > 2147483647.0) return false;
  }
  return true;
}

RawPicture ReferenceDrawPicture(const RawPicture& destination, const RawPicture& picture,
                                const RawPicture* mask, SharedWithDestination shared, double x,
                                double y, double alpha) {
  RawPicture out = destination;
  const RawPicture& source = shared == SharedWithDestination::Picture ? out : picture;
  const RawPicture* maskPixels = shared == SharedWithDestination::Mask ? &out : mask;

  const int32_t ix = TruncToInt32(std::floor(x));
  const int32_t iy = TruncToInt32(std::floor(y));
  const double fx = std::fabs(x - ix);
  const double fy = std::fabs(y - iy);
  // Top-left, top-right, bottom-right, bottom-left, each product taken left to right.
  const Neighbour neighbours[4] = {{-1, -1, fx * fy * alpha},
                                   {0, -1, (1 - fx) * fy * alpha},
                                   {0, 0, (1 - fx) * (1 - fy) * alpha},
                                   {-1, 0, fx * (1 - fy) * alpha}};

  for (int32_t Y = 0; Y < out.height; ++Y) {
    for (int32_t X = 0; X < out.width; ++X) {
      double remaining = 1.0;
      ChannelSums sums;
      for (const Neighbour& n : neighbours) {
        const int64_t sx = int64_t{X} - ix + n.dx;
        const int64_t sy = int64_t{Y} - iy + n.dy;
        if (sx < 0 || sx >= source.width || sy < 0 || sy >= source.height) continue;
        double e = n.weight;
        if (maskPixels != nullptr) e = ((255 - MaskValue(*maskPixels, sx, sy)) * e) / 255;
        remaining -= e;
        sums.Add(ReadChannels(source.Pixel(int32_t(sx), int32_t(sy)), source.format), e);
      }
      if (remaining > 0.0) sums.Add(ReadChannels(out.Pixel(X, Y), out.format), remaining);
      WriteOpaque(out.Pixel(X, Y), out.format, sums.Clamped());
    }
  }
  return out;
}

ExpectedDraw ExpectedDrawPictureF(const DrawScene& scene, const DrawCall& call) {
  ExpectedDraw expected;
  expected.destination = scene.destination;
  if (!scene.destination) {
    expected.exceptionMessage = "source is nil";
    return expected;
  }
  const bool shared = scene.shared == SharedWithDestination::Picture;
  if (!scene.picture && !shared) {
    expected.exceptionMessage = "picture is nil";
    return expected;
  }
  if (!ReferenceAcceptsPosition(call.x, call.y)) return expected;

  const RawPicture& picture = shared ? *scene.destination : *scene.picture;
  expected.destination =
      ReferenceDrawPicture(*scene.destination, picture, scene.mask ? &*scene.mask : nullptr,
                           scene.shared, call.x, call.y, call.alpha);
  expected.result = true;
  expected.yields = call.yield != 0 ? scene.destination->height + 2 : 0;
  return expected;
}

}  // namespace qpxtest
