// The pass across's taps in 256-bit registers, and the pass down eight columns a vector for
// each channel: a contributor's eight intermediate words are loaded at once, each channel's
// bytes converted to floats, multiplied by the float weight, widened to doubles and added to
// that channel's sums, lane by lane in the contributors' order, as the plain loop does for one
// column.
#include "resampling_avx2.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <cstddef>
#include <cstring>

#define QPX_AVX2 __attribute__((target("avx2")))
// The four bytes of `word` as doubles at `out`: one byte widening and one conversion, where the
// generic vector code takes two of each and a merge.
QPX_AVX2 inline void WidenToDoubles(uint32_t word, double* out) {
  const __m128i ints = _mm_cvtepu8_epi32(_mm_cvtsi32_si128(static_cast<int>(word)));
  _mm256_storeu_pd(out, _mm256_cvtepi32_pd(ints));
}
// The colour bytes of pixels in four rows as twelve doubles a pixel, row after row: a pixel's
// four words in one register, then three byte shuffles, each giving four colour bytes as
// 32-bit lanes, converted and stored whole. Four pixels at a time take one load per row and a
// transpose instead of a load and an insertion per row and pixel.
class FourRows {
 public:
  QPX_AVX2 explicit FourRows(int first) {
    for (int k = 0; k < 3; ++k) {
      alignas(16) int8_t bytes[16];
      for (int lane = 0; lane < 4; ++lane) {
        const int colour = 4 * k + lane;  // row colour / 3, channel colour % 3
        bytes[4 * lane] = static_cast<int8_t>(4 * (colour / 3) + first + colour % 3);
        bytes[4 * lane + 1] = bytes[4 * lane + 2] = bytes[4 * lane + 3] = -128;  // zero
      }
      masks_[k] = _mm_load_si128(reinterpret_cast<const __m128i*>(bytes));
    }
  }
  // The pixel at `offset`.
  QPX_AVX2 void operator()(const uint8_t* const* sources, ptrdiff_t offset, double* out) const {
    Store(_mm_setr_epi32(Word(sources[0] + offset), Word(sources[1] + offset),
                         Word(sources[2] + offset), Word(sources[3] + offset)),
          out);
  }
  // The four pixels from `offset` on, each `stride` doubles after the one before.
  QPX_AVX2 void Four(const uint8_t* const* sources, ptrdiff_t offset, double* out,
                     ptrdiff_t stride) const {
    __m128i rows[4];
    for (int n = 0; n < 4; ++n) {
      rows[n] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sources[n] + offset));
    }
    const __m128i low01 = _mm_unpacklo_epi32(rows[0], rows[1]),
                  low23 = _mm_unpacklo_epi32(rows[2], rows[3]),
                  high01 = _mm_unpackhi_epi32(rows[0], rows[1]),
                  high23 = _mm_unpackhi_epi32(rows[2], rows[3]);
    Store(_mm_unpacklo_epi64(low01, low23), out);
    Store(_mm_unpackhi_epi64(low01, low23), out + stride);
    Store(_mm_unpacklo_epi64(high01, high23), out + 2 * stride);
    Store(_mm_unpackhi_epi64(high01, high23), out + 3 * stride);
  }

 private:
  static int Word(const uint8_t* p) {
    int word;
    std::memcpy(&word, p, sizeof word);
    return word;
  }
  // One pixel's words of rows 0 to 3.
  QPX_AVX2 void Store(__m128i words, double* out) const {
    for (int k = 0; k < 3; ++k) {
      _mm256_storeu_pd(out + 4 * k, _mm256_cvtepi32_pd(_mm_shuffle_epi8(words, masks_[k])));
    }
  }
  __m128i masks_[3];
};
#define QPX_TAPS_TARGET QPX_AVX2
#define QPX_TAPS_WIDEN_TO_DOUBLES WidenToDoubles
#define QPX_TAPS_FOUR_ROWS FourRows
#include "horizontal_taps.h"

namespace {

struct Sums {
  __m256d low, high;  // columns 0-3 and 4-7
};

QPX_AVX2 inline void Add(Sums& sums, __m256i channel, __m256 weight) {
  const __m256 products = _mm256_mul_ps(_mm256_cvtepi32_ps(channel), weight);
  sums.low = _mm256_add_pd(sums.low, _mm256_cvtps_pd(_mm256_castps256_ps128(products)));
  sums.high = _mm256_add_pd(sums.high, _mm256_cvtps_pd(_mm256_extractf128_ps(products, 1)));
}

// A row's divisor: its weight sum, or the sum's reciprocal when that makes the quotient a
// product exactly (exact_reciprocal.h).
struct Divisor {
  __m256d weightSum, reciprocal;
  bool byProduct;
};

QPX_AVX2 inline Divisor DivisorOf(float weightSum) {
  const double reciprocal = ExactReciprocal(weightSum);
  return {_mm256_set1_pd(static_cast<double>(weightSum)), _mm256_set1_pd(reciprocal),
          reciprocal != 0.0};
}

// trunc(sum / weightSum + 0.5) for four columns: a quotient outside the 32-bit range (or NaN)
// gives the most negative integer, which clamps to 0; within it, clamping before the
// truncation gives what clamping after it would.
QPX_AVX2 inline __m128i ChannelValues(__m256d sums, const Divisor& divisor) {
  const __m256d quotients = divisor.byProduct ? _mm256_mul_pd(sums, divisor.reciprocal)
                                              : _mm256_div_pd(sums, divisor.weightSum);
  const __m256d q = _mm256_add_pd(quotients, _mm256_set1_pd(0.5));
  const __m256d inRange = _mm256_and_pd(_mm256_cmp_pd(q, _mm256_set1_pd(-2147483649.0), _CMP_GT_OQ),
                                        _mm256_cmp_pd(q, _mm256_set1_pd(2147483648.0), _CMP_LT_OQ));
  __m256d clamped = _mm256_and_pd(q, inRange);
  clamped = _mm256_min_pd(_mm256_max_pd(clamped, _mm256_setzero_pd()), _mm256_set1_pd(255.0));
  return _mm256_cvttpd_epi32(clamped);
}

QPX_AVX2 inline __m256i Channel(const Sums& sums, const Divisor& divisor, int shift) {
  const __m256i values =
      _mm256_set_m128i(ChannelValues(sums.high, divisor), ChannelValues(sums.low, divisor));
  return _mm256_sll_epi32(values, _mm_cvtsi32_si128(shift));
}

}  // namespace

QPX_AVX2 void HorizontalBlockAvx2(const uint8_t* const* sources, int rows,
                                  const ColourBytes& colours, const ColumnBlock& block,
                                  const TapColumn* columns, const Tap* taps, double* converted,
                                  uint32_t* const* outs) {
  ConvertAndTap(sources, rows, colours, block, columns, taps, converted, outs);
}

QPX_AVX2 int32_t VerticalColumnsAvx2(const uint32_t* intermediate, int32_t width,
                                     const ContributorList& list, const WordLayout& layout,
                                     uint8_t* out) {
  const __m256i byteMask = _mm256_set1_epi32(0xFF);
  const Divisor divisor = DivisorOf(list.weightSum);
  const __m256i fourth = _mm256_set1_epi32(static_cast<int32_t>(layout.fourth));
  int32_t column = 0;
  for (; column + 8 <= width; column += 8) {
    Sums blue = {_mm256_setzero_pd(), _mm256_setzero_pd()}, green = blue, red = blue;
    for (int32_t k = 0; k < list.count; ++k) {
      const Contributor& c = list.entries[k];
      if (c.weight == 0.0f) continue;
      const __m256i words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(
          intermediate + static_cast<ptrdiff_t>(c.pixel) * width + column));
      const __m256 weight = _mm256_set1_ps(c.weight);
      Add(blue, _mm256_and_si256(words, byteMask), weight);
      Add(green, _mm256_and_si256(_mm256_srli_epi32(words, 8), byteMask), weight);
      Add(red, _mm256_and_si256(_mm256_srli_epi32(words, 16), byteMask), weight);
    }
    __m256i pixels = _mm256_or_si256(Channel(red, divisor, layout.redShift),
                                     Channel(green, divisor, layout.greenShift));
    pixels = _mm256_or_si256(pixels, Channel(blue, divisor, layout.blueShift));
    pixels = _mm256_or_si256(pixels, fourth);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * static_cast<ptrdiff_t>(column)),
                        pixels);
  }
  return column;
}

#else

void HorizontalBlockAvx2(const uint8_t* const*, int, const ColourBytes&, const ColumnBlock&,
                         const TapColumn*, const Tap*, double*, uint32_t* const*) {}

int32_t VerticalColumnsAvx2(const uint32_t*, int32_t, const ContributorList&, const WordLayout&,
                            uint8_t*) {
  return 0;
}

#endif
