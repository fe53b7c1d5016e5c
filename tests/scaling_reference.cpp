#include "scaling_reference.h"

#include <algorithm>
#include <cmath>

#include "correctly_rounded_sin.h"
#include "random_pictures.h"

namespace qpxtest {
namespace {

constexpr double kPi = 3.141592653589793;

// A byte size an allocation accepts: neither 0 nor above 0x7FFFFFFF.
bool SizeFits(int64_t bytes) {
  return bytes > 0 && bytes <= 0x7FFFFFFF;
}

// One channel from a weighted sum: rounded by adding 0.5 and truncating, clamped to 0..255. A
// list without contributors gives 0 / 0, not a number, which converts to the most negative
// integer and so to 0.
uint32_t Channel(double sum, float weightSum) {
  const int32_t value = TruncToInt32(sum / static_cast<double>(weightSum) + 0.5);
  return static_cast<uint32_t>(std::clamp(value, 0, 255));
}

// Intermediate words: blue in bits 0-7, green 8-15, red 16-23, the top byte 0.
uint32_t IntermediateWord(uint32_t blue, uint32_t green, uint32_t red) {
  return blue | green << 8 | red << 16;
}

// Each source row resized to one column per list, products in double precision.
std::vector<uint32_t> HorizontalPass(const RawPicture& source,
                                     const std::vector<ReferenceList>& columns) {
  const auto width = static_cast<int32_t>(columns.size());
  std::vector<uint32_t> intermediate(size_t(width) * size_t(source.height));
  for (int32_t k = 0; k < source.height; ++k) {
    for (int32_t i = 0; i < width; ++i) {
      const ReferenceList& list = columns[size_t(i)];
      double blue = 0.0, green = 0.0, red = 0.0;
      for (const ReferenceContributor& c : list.entries) {
        if (c.weight == 0.0f) continue;
        const Channels channels = ReadChannels(source.Pixel(c.pixel, k), source.format);
        const double weight = c.weight;
        blue += channels.blue * weight;
        green += channels.green * weight;
        red += channels.red * weight;
      }
      intermediate[size_t(k) * size_t(width) + size_t(i)] =
          IntermediateWord(Channel(blue, list.weightSum), Channel(green, list.weightSum),
                           Channel(red, list.weightSum));
    }
  }
  return intermediate;
}

// Each intermediate column resized to the result's height, products in single precision
// added to double sums, written opaque in the result's layout.
void VerticalPass(const std::vector<uint32_t>& intermediate, const std::vector<ReferenceList>& rows,
                  RawPicture& result) {
  for (int32_t r = 0; r < result.height; ++r) {
    const ReferenceList& list = rows[size_t(r)];
    for (int32_t c = 0; c < result.width; ++c) {
      double sums[3] = {0.0, 0.0, 0.0};  // blue, green, red
      for (const ReferenceContributor& contributor : list.entries) {
        if (contributor.weight == 0.0f) continue;
        const uint32_t word =
            intermediate[size_t(contributor.pixel) * size_t(result.width) + size_t(c)];
        for (int channel = 0; channel < 3; ++channel) {
          const auto value = static_cast<float>((word >> (8 * channel)) & 0xFF);
          const float product = value * contributor.weight;
          sums[channel] += static_cast<double>(product);
        }
      }
      Channels out;
      out.blue = static_cast<int>(Channel(sums[0], list.weightSum));
      out.green = static_cast<int>(Channel(sums[1], list.weightSum));
      out.red = static_cast<int>(Channel(sums[2], list.weightSum));
      WriteOpaque(result.Pixel(c, r), result.format, out);
    }
  }
}

}  // namespace

int32_t TruncToInt32(double value) {
  if (std::isnan(value) || value >= 2147483648.0 || value <= -2147483649.0) return INT32_MIN;
  return static_cast<int32_t>(value);
}

std::optional<ScalingMode> ReferenceScalingMode(int32_t mode) {
  // Triangle, box, Lanczos 3 and 8, Mitchell, cubic, six-point cubic.
  constexpr ScalingMode kModes[] = {{1.0, 4, 4}, {0.5, 2, 3},   {3.0, 8, 8}, {8.0, 18, 18},
                                    {2.0, 6, 6}, {4.0, 10, 10}, {3.0, 8, 8}};
  if (mode < 1 || mode > 7) return std::nullopt;
  return kModes[mode - 1];
}

double ReferenceSinc(double t) {
  if (t == 0.0) return 1.0;
  const double y = t * kPi;
  return CorrectlyRoundedSin(y) / y;
}

std::optional<double> ReferenceKernel(int32_t mode, double x) {
  const double x2 = x * x;
  switch (mode) {
    case 1:  // triangle
      if (x < 1.0) return 1.0 - x;
      return std::nullopt;
    case 2:  // box
      return x <= 0.5 ? 1.0 : 0.0;
    case 3:  // Lanczos, 3 lobes
      if (x >= 3.0) return std::nullopt;
      return ReferenceSinc(x) * ReferenceSinc(x / 3.0);
    case 4:  // Lanczos, 8 lobes
      if (x >= 8.0) return std::nullopt;
      return ReferenceSinc(x) * ReferenceSinc(x * 0.125);
    case 5:  // Mitchell-Netravali, B = C = 1/3
      if (x < 1.0) return (7.0 * x * x2 - 12.0 * x2 + 16.0 / 3.0) / 6.0;
      if (x < 2.0) return (-7.0 / 3.0 * x2 * x + 12.0 * x2 - 20.0 * x + 32.0 / 3.0) / 6.0;
      return std::nullopt;
    case 6:  // cubic convolution, a = -0.75
      if (x < 1.0) return (1.25 * x - 2.25) * x * x + 1.0;
      if (x < 2.0) return ((-0.75 * x + 3.75) * x - 6.0) * x + 3.0;
      return std::nullopt;
    case 7:  // six-point cubic convolution: (c3 x^2) x + c2 x^2 + c1 x + c0, left to right
      if (x <= 1.0) return 4.0 / 3.0 * x2 * x + -7.0 / 3.0 * x2 + 1.0;
      if (x <= 2.0) return -7.0 / 12.0 * x2 * x + 3.0 * x2 + -59.0 / 12.0 * x + 2.5;
      if (x <= 3.0) return 1.0 / 12.0 * x2 * x + -2.0 / 3.0 * x2 + 1.75 * x + -1.5;
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

std::vector<ReferenceList> ReferenceContributorLists(int32_t outputs, int32_t sourceSize,
                                                     int32_t mode, ListDirection direction) {
  const ScalingMode table = ReferenceScalingMode(mode).value();
  const double scale = static_cast<double>(outputs) / static_cast<double>(sourceSize);
  const bool enlarging = scale >= 1.0;
  const bool down = direction == ListDirection::Down;
  std::vector<ReferenceList> lists(static_cast<size_t>(outputs));
  double i = 0.0;
  for (ReferenceList& list : lists) {
    const double center = (i + 0.5) / scale;
    i += 1.0;
    int32_t left = 0, right = 0;
    if (enlarging) {
      list.capacity = down ? table.capacityDown : table.capacityAcross;
      left = TruncToInt32(std::floor(center - table.radius));
      right = TruncToInt32(std::ceil(center + table.radius));
    } else {
      const double support = table.radius / scale;
      list.capacity =
          down ? TruncToInt32(2.0 * support + 2.0) : 2 * int64_t{TruncToInt32(support)} + 2;
      left = TruncToInt32(center - support);
      right = TruncToInt32(center + support);
    }
    if (!SizeFits(8 * list.capacity)) {
      list.nil = true;
      continue;
    }
    left = std::max(left, 0);
    right = std::min(right, sourceSize - 1);
    double sum = 0.0;
    for (int32_t j = left; j <= right; ++j) {
      const double offset = center - j - 0.5;
      const double x = std::fabs(enlarging ? offset : offset * scale);
      const std::optional<double> w = ReferenceKernel(mode, x);
      if (!w || *w == 0.0) continue;
      list.entries.push_back({static_cast<float>(*w), j});
      sum += *w;
    }
    list.weightSum = static_cast<float>(sum);
  }
  return lists;
}

RawPicture ReferenceScaling(const RawPicture& source, int32_t mode, int32_t width, int32_t height,
                            int32_t newFormat) {
  const std::vector<uint32_t> intermediate = HorizontalPass(
      source, ReferenceContributorLists(width, source.width, mode, ListDirection::Across));
  RawPicture result(width, height, newFormat);
  VerticalPass(intermediate,
               ReferenceContributorLists(height, source.height, mode, ListDirection::Down), result);
  return result;
}

ExpectedResult ExpectedScaling(const RawPicture* source, bool hasAlpha,
                               const qpxhost::HostConfig& host, const ScalingCall& call) {
  const int yields = call.yield != 0 ? 1 : 0;
  // Nothing is done, and nothing yields, for a nil or unopenable receiver or bad arguments.
  if (source == nullptr || call.height < 1 || call.width < 1 || !ReferenceScalingMode(call.mode) ||
      source->width < 1 || source->height < 1) {
    return {ExpectedPicture::Nil(), 0};
  }
  // Nor when the intermediate's byte size, formed in 32-bit unsigned arithmetic, fails its test.
  const uint32_t intermediateBytes =
      static_cast<uint32_t>(call.width) * static_cast<uint32_t>(source->height) * 4u;
  if (!SizeFits(intermediateBytes)) return {ExpectedPicture::Nil(), 0};
  // Then it yields after setting up, after the horizontal lists, after the horizontal pass and
  // after the vertical lists; a writer that fails skips to the end, where clearing the reader
  // is followed by one more yield.
  if (!WriterAccepts(host, hasAlpha, call.width, call.height)) {
    return {ExpectedPicture::Nil(), 5 * yields};
  }
  // A result adds one yield a row, one after the last row and one after rendering.
  const int32_t format = hasAlpha ? NewAlphaPictureFormat(host) : NewPictureFormat(host);
  return {ExpectedPicture::New(
              ReferenceScaling(*source, call.mode, call.width, call.height, format), hasAlpha),
          (call.height + 7) * yields};
}

}  // namespace qpxtest
