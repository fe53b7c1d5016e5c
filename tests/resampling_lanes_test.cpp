// The resampler's channel values when a quotient sum / weightSum lies beyond the 32-bit range or
// is NaN (weight sums of 0, of either sign, tiny or denormal; a list with no entries): the
// rule truncates such a quotient to the most negative integer, which clamps to 0, where the
// bare conversion would saturate on ARM64 and give 255. Every version of the passes that this
// processor runs gives, lane by lane, what the rule gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "exact_reciprocal.h"
#include "int_conversion.h"
#include "module_host.h"
#include "picture_bytes.h"
#include "resampling_passes.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostPicture;
using qpxtest::Channels;
using qpxtest::Config;
using qpxtest::ModuleHost;
using qpxtest::RawPicture;
using qpxtest::Ref;

// One output's list: its entries (weights of source pixel 0, 1, ...) and its weight sum.
struct ListCase {
  std::vector<float> weights;
  float weightSum;
};

// Quotients beyond 2^31 for large channel values and within it for small ones (1e-7), only
// beyond it (0, denormal, negative zero), negative ones, NaN from 0 / 0, and ordinary ones.
const std::vector<ListCase> kLists = {
    {{1.0f}, 1e-7f},
    {{1.0f}, 0.0f},
    {{1.0f}, -1e-7f},
    {{}, 0.0f},
    {{1.0f}, 1e-45f},
    {{0.5f, 0.5f}, 1.0f},
    {{1.0f}, 1.0f / 255},
    {{-1.0f, 2.0f}, 1.0f},
    {{1.0f}, 4.656613e-10f},
    {{2.0f, -1.0f}, -0.0f},
    {{0.0f, 1.0f}, 3e-9f},
    // Powers of two, which the vector loops divide by as products: ordinary, negative, the
    // smallest normal one (quotients beyond 2^31) and a denormal one (divided).
    {{1.0f, 1.0f}, 2.0f},
    {{0.75f, 0.25f}, 0.25f},
    {{1.0f}, -0.5f},
    {{1.0f}, 0x1p-126f},
    {{1.0f}, 0x1p-149f},
    {{3.0f, 5.0f}, 8.0f},
};

// The lists, their entries kept in `storage`.
std::vector<ContributorList> Lists(std::vector<std::vector<Contributor>>& storage) {
  std::vector<ContributorList> lists;
  for (const ListCase& c : kLists) {
    std::vector<Contributor>& entries = storage.emplace_back();
    for (size_t k = 0; k < c.weights.size(); ++k) entries.push_back({c.weights[k], int32_t(k)});
    lists.push_back(
        {entries.empty() ? nullptr : entries.data(), int32_t(entries.size()), c.weightSum});
  }
  return lists;
}

// The rule: trunc(sum / weightSum + 0.5) by the 32-bit conversion, clamped to 0..255.
int RuleValue(double sum, float weightSum) {
  const int32_t value = TruncateToInt32(sum / static_cast<double>(weightSum) + 0.5);
  return value < 0 ? 0 : value > 255 ? 255 : value;
}

// Channel values 0 to 255 with the ones around the limits, different in every byte.
uint8_t SourceByte(int32_t x, int32_t y, int c) {
  return static_cast<uint8_t>(x * 101 + y * 53 + c * 85 + (x + y) % 2 * 214);
}

// Channel `c` (0 red, 1 green, 2 blue) of an intermediate word.
int WordChannel(IntermediateWord word, int c) {
  return static_cast<int>(word >> (16 - 8 * c) & 0xFF);
}

FRESH_TEST(ResamplingLanes, HorizontalPassGivesTheRulesValues) {
  ModuleHost env(Config(AppKind::Console));
  constexpr int32_t kRows = 5;  // a group of four rows and one alone
  HostPicture* source = env.Picture(2, kRows);
  for (int32_t y = 0; y < kRows; ++y) {
    for (int32_t i = 0; i < 8; ++i) source->Row(y)[i] = SourceByte(i / 4, y, i % 4);
  }
  std::vector<std::vector<Contributor>> storage;
  const std::vector<ContributorList> lists = Lists(storage);
  const auto width = static_cast<int32_t>(lists.size());
  const RawPicture pixels = qpxtest::ReadRaw(*source);
  PictureReader reader;
  ASSERT_TRUE(reader.GetPictureEditor(Ref(source), true, false));
  for (PixelLoops loops : AvailablePixelLoops()) {
    SCOPED_TRACE(PixelLoopsName(loops));
    std::vector<IntermediateWord> intermediate(size_t(width) * kRows);
    HorizontalPass(reader, lists.data(), width, intermediate.data(), loops);
    for (int32_t y = 0; y < kRows; ++y) {
      for (int32_t i = 0; i < width; ++i) {
        const Channels p0 = qpxtest::ReadChannels(pixels.Pixel(0, y), pixels.format);
        const Channels p1 = qpxtest::ReadChannels(pixels.Pixel(1, y), pixels.format);
        const int values[2][3] = {{p0.red, p0.green, p0.blue}, {p1.red, p1.green, p1.blue}};
        for (int c = 0; c < 3; ++c) {
          double sum = 0.0;
          for (const Contributor& e : storage[size_t(i)]) {
            if (e.weight != 0.0f) sum += values[e.pixel][c] * static_cast<double>(e.weight);
          }
          EXPECT_EQ(WordChannel(intermediate[size_t(y * width + i)], c),
                    RuleValue(sum, lists[size_t(i)].weightSum))
              << "row " << y << ", list " << i << ", channel " << c;
        }
      }
    }
  }
  reader.clear();
  env.host.Unlock(source);
}

FRESH_TEST(ResamplingLanes, VerticalPassGivesTheRulesValues) {
  ModuleHost env(Config(AppKind::Console));
  constexpr int32_t kWidth = 11;  // a vector of eight columns and three alone
  std::vector<IntermediateWord> intermediate;
  for (int32_t y = 0; y < 2; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) {
      intermediate.push_back(SourceByte(x, y, 2) | SourceByte(x, y, 1) << 8 |
                             IntermediateWord{SourceByte(x, y, 0)} << 16);
    }
  }
  std::vector<std::vector<Contributor>> storage;
  const std::vector<ContributorList> lists = Lists(storage);
  const auto height = static_cast<int32_t>(lists.size());
  for (PixelLoops loops : AvailablePixelLoops()) {
    SCOPED_TRACE(PixelLoopsName(loops));
    PictureWriter writer;
    ASSERT_TRUE(writer.NewPictureWriter(false, kWidth, height));
    YieldData yielding{0, 0};
    VerticalPass(intermediate.data(), lists.data(), writer, yielding, loops);
    auto* result = reinterpret_cast<HostPicture*>(writer.RenderPictureWriter());
    ASSERT_NE(result, nullptr);
    const RawPicture bytes = qpxtest::ReadRaw(*result);
    for (int32_t r = 0; r < height; ++r) {
      for (int32_t x = 0; x < kWidth; ++x) {
        int expected[3];
        for (int c = 0; c < 3; ++c) {
          double sum = 0.0;
          for (const Contributor& e : storage[size_t(r)]) {
            if (e.weight == 0.0f) continue;
            const auto value =
                static_cast<float>(WordChannel(intermediate[size_t(e.pixel * kWidth + x)], c));
            sum += static_cast<double>(value * e.weight);
          }
          expected[c] = RuleValue(sum, lists[size_t(r)].weightSum);
        }
        const Channels actual = qpxtest::ReadChannels(bytes.Pixel(x, r), bytes.format);
        EXPECT_EQ(actual.red, expected[0]) << "row " << r << ", column " << x;
        EXPECT_EQ(actual.green, expected[1]) << "row " << r << ", column " << x;
        EXPECT_EQ(actual.blue, expected[2]) << "row " << r << ", column " << x;
      }
    }
    env.host.Unlock(result);
  }
}

// A quotient by a power of two is the product by its reciprocal for every double, NaN,
// infinities, zeros and denormals among them; any other sum has no such reciprocal.
TEST(ResamplingLanes, ExactReciprocalsAreThoseOfPowersOfTwo) {
  for (int exponent = -126; exponent <= 127; ++exponent) {
    for (float sign : {1.0f, -1.0f}) {
      const float weightSum = sign * std::ldexp(1.0f, exponent);
      const double reciprocal = ExactReciprocal(weightSum);
      ASSERT_EQ(reciprocal, sign / std::ldexp(1.0, exponent)) << weightSum;
      for (double sum :
           std::initializer_list<double>{0.0, -0.0, 1.0, 255.0 * 3.0, 1e-310, 0.1, 1e300, -7.25,
                                         INFINITY, NAN, std::nextafter(1.0, 2.0), 123456.789}) {
        const double quotient = sum / static_cast<double>(weightSum);
        const double product = sum * reciprocal;
        if (std::isnan(quotient)) {
          EXPECT_TRUE(std::isnan(product)) << sum << " / " << weightSum;
        } else {
          EXPECT_EQ(std::signbit(product), std::signbit(quotient)) << sum << " / " << weightSum;
          EXPECT_EQ(product, quotient) << sum << " / " << weightSum;
        }
      }
    }
  }
  for (float weightSum :
       {0.0f, -0.0f, 3.0f, 1.0f / 3, 0x1p-149f, 0x1.8p-130f, 4.000001f, INFINITY, -INFINITY, NAN}) {
    EXPECT_EQ(ExactReciprocal(weightSum), 0.0) << weightSum;
  }
}

}  // namespace
