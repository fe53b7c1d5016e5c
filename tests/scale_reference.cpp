#include "scale_reference.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "random_pictures.h"

namespace qpxtest {
namespace {

// Row y of the source, rows at or past the bottom giving row 0.
const uint8_t* SourceRow(const RawPicture& source, int32_t y) {
  return source.Pixel(0, y >= source.height ? 0 : y);
}

// The weights of one output position whose fraction is t, with the cubic's parameter a = 0.
// w3 weighs the sample before the base one, w2 the base, w1 the one after, w0 the one after
// that. Every step is a single-precision operation, in this order.
struct Taps {
  float w0 = 0, w1 = 0, w2 = 0, w3 = 0;
};

Taps CubicTaps(float t) {
  const float a = 0.0f;
  const float p = t * a;
  const float q = t * p;
  const float r = t * q;
  Taps taps;
  taps.w0 = q - r;
  const float s = t * 3.0f * t;
  const float u = (t + t) * t * t;
  taps.w1 = s - u - p;
  taps.w2 = u - s + 1.0f;
  taps.w3 = r - q + p;
  return taps;
}

// Base source index and weights of each output position along one direction. The products
// k * src come from a 32-bit running sum that wraps as the module's does (done here in
// unsigned arithmetic, then read back as signed).
struct Axis {
  std::vector<int32_t> index;
  std::vector<Taps> taps;
};

Axis MakeAxis(int32_t src, int32_t dst, int32_t maxDim) {
  Axis axis;
  std::vector<int32_t> products(size_t(maxDim), 0);
  uint32_t sum = 0;
  for (int32_t k = 0; k < maxDim; ++k) {
    products[size_t(k)] = static_cast<int32_t>(sum);
    sum += static_cast<uint32_t>(src);
  }
  for (int32_t k = 0; k < maxDim; ++k) axis.index.push_back(products[size_t(k)] / dst);
  for (int32_t k = 0; k < dst; ++k) {
    const float t = static_cast<float>(products[size_t(k)] % dst) / static_cast<float>(dst);
    axis.taps.push_back(CubicTaps(t));
  }
  // The tables run to the larger destination side; the shorter one repeats its groups.
  for (int32_t k = dst; k < maxDim; ++k) axis.taps.push_back(axis.taps[size_t(k % dst)]);
  return axis;
}

int32_t ClampIndex(int64_t v, int32_t size) {
  return static_cast<int32_t>(std::clamp<int64_t>(v, 0, size - 1));
}

uint8_t ClampByte(float v) {
  if (v <= 0) return 0;
  if (v >= 255.0f) return 255;
  return static_cast<uint8_t>(static_cast<int32_t>(v));
}

}  // namespace

RawPicture ReferenceBoxResize(const RawPicture& source, int32_t width, int32_t height,
                              int32_t newFormat) {
  const double xScale = double(source.width) / double(width);
  const double yScale = double(source.height) / double(height);
  const auto boxWidth = static_cast<int32_t>(std::ceil(xScale));
  const auto boxHeight = static_cast<int32_t>(std::ceil(yScale));
  const auto count = static_cast<double>(boxWidth * boxHeight);
  RawPicture result(width, height, newFormat);
  for (int32_t j = 0; j < height; ++j) {
    const auto sy = static_cast<int32_t>(yScale * j);
    for (int32_t i = 0; i < width; ++i) {
      double red = 0.5, green = 0.5, blue = 0.5;
      const auto sx = static_cast<int32_t>(xScale * i);
      // Every pass reads the box's top row again: down the picture it is point-sampled.
      for (int32_t pass = 0; pass < boxHeight; ++pass) {
        const uint8_t* row = SourceRow(source, sy);
        for (int32_t x = sx; x < sx + boxWidth; ++x) {
          const Channels c = ReadChannels(row + 4 * x, source.format);
          red += c.red, green += c.green, blue += c.blue;
        }
      }
      WriteOpaque(result.Pixel(i, j), newFormat,
                  {int(red / count), int(green / count), int(blue / count)});
    }
  }
  return result;
}

RawPicture ReferenceEnlarge(const RawPicture& source, int32_t width, int32_t height,
                            int32_t newFormat) {
  const int32_t srcW = source.width, srcH = source.height;
  const int32_t maxDim = std::max(width, height);
  const Axis columns = MakeAxis(srcW, width, maxDim);
  const Axis rows = MakeAxis(srcH, height, maxDim);
  RawPicture result(width, height, newFormat);
  std::vector<float> column(size_t(srcW), 0.0f);
  for (int b = 0; b < 4; ++b) {
    for (int32_t j = 0; j < height; ++j) {
      const int32_t y = rows.index[size_t(j)];
      const Taps& wy = rows.taps[size_t(j)];
      for (int32_t x = 0; x < srcW; ++x) {
        auto sample = [&](int64_t r) {
          return static_cast<float>(source.Pixel(x, ClampIndex(r, srcH))[b]);
        };
        float v = 0.0f;
        v = sample(int64_t{y} - 1) * wy.w3 + 0.0f;
        v = v + sample(y) * wy.w2;
        v = v + sample(int64_t{y} + 1) * wy.w1;
        v = v + sample(int64_t{y} + 2) * wy.w0;
        column[size_t(x)] = v;
      }
      for (int32_t i = 0; i < width; ++i) {
        const int32_t x = columns.index[size_t(i)];
        const Taps& wx = columns.taps[size_t(i)];
        auto at = [&](int64_t c) { return column[size_t(ClampIndex(c, srcW))]; };
        float v = at(int64_t{x} - 1) * wx.w3 + 0.5f;
        v = v + at(x) * wx.w2;
        v = v + at(int64_t{x} + 1) * wx.w1;
        v = v + at(int64_t{x} + 2) * wx.w0;
        result.Pixel(i, j)[b] = ClampByte(v);
      }
    }
  }
  return result;
}

ExpectedScaleResult ExpectedScale(const RawPicture* source, bool hasAlpha,
                                  const qpxhost::HostConfig& host, const ScaleCall& call) {
  const int32_t srcW = source ? source->width : 0, srcH = source ? source->height : 0;
  const bool yields = call.yieldTicks != 0;
  if (srcW == call.width && srcH == call.height) {
    return {source ? ExpectedPicture::Receiver() : ExpectedPicture::Nil(), 0};
  }
  const bool writer = WriterAccepts(host, hasAlpha, call.width, call.height);
  const int32_t format = hasAlpha ? NewAlphaPictureFormat(host) : NewPictureFormat(host);
  // The enlargement yields three times before its pixel loops and once a row of each byte; when
  // it cannot run, it yields nothing and the box resizer takes over.
  if (call.antiAlias && srcW < call.width && srcH < call.height && source && writer) {
    return {
        ExpectedPicture::New(ReferenceEnlarge(*source, call.width, call.height, format), hasAlpha),
        yields ? 3 + 4 * call.height : 0};
  }
  // The box resizer yields once a row and once at the end, failed or not.
  if (!source || !writer) return {ExpectedPicture::Nil(), yields ? 1 : 0};
  return {
      ExpectedPicture::New(ReferenceBoxResize(*source, call.width, call.height, format), hasAlpha),
      yields ? call.height + 1 : 0};
}

}  // namespace qpxtest
