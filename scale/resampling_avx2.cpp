// Eight columns a vector for each channel: a contributor's eight intermediate words are loaded
// at once, each channel's bytes converted to floats, multiplied by the float weight, widened
// to doubles and added to that channel's sums, lane by lane in the contributors' order, as the
// plain loop does for one column.
#include "resampling_avx2.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <cstddef>
#include <cstring>

#define QPX_AVX2 __attribute__((target("avx2")))

namespace {

struct Sums {
  __m256d low, high;  // columns 0-3 and 4-7
};

QPX_AVX2 inline void Add(Sums& sums, __m256i channel, __m256 weight) {
  const __m256 products = _mm256_mul_ps(_mm256_cvtepi32_ps(channel), weight);
  sums.low = _mm256_add_pd(sums.low, _mm256_cvtps_pd(_mm256_castps256_ps128(products)));
  sums.high = _mm256_add_pd(sums.high, _mm256_cvtps_pd(_mm256_extractf128_ps(products, 1)));
}

// trunc(sum / weightSum + 0.5) for four columns: a quotient outside the 32-bit range (or NaN)
// gives the most negative integer, which clamps to 0; within it, clamping before the
// truncation gives what clamping after it would.
QPX_AVX2 inline __m128i ChannelValues(__m256d sums, __m256d weightSum) {
  const __m256d q = _mm256_add_pd(_mm256_div_pd(sums, weightSum), _mm256_set1_pd(0.5));
  const __m256d inRange = _mm256_and_pd(_mm256_cmp_pd(q, _mm256_set1_pd(-2147483649.0), _CMP_GT_OQ),
                                        _mm256_cmp_pd(q, _mm256_set1_pd(2147483648.0), _CMP_LT_OQ));
  __m256d clamped = _mm256_and_pd(q, inRange);
  clamped = _mm256_min_pd(_mm256_max_pd(clamped, _mm256_setzero_pd()), _mm256_set1_pd(255.0));
  return _mm256_cvttpd_epi32(clamped);
}

QPX_AVX2 inline __m256i Channel(const Sums& sums, __m256d weightSum, int shift) {
  const __m256i values =
      _mm256_set_m128i(ChannelValues(sums.high, weightSum), ChannelValues(sums.low, weightSum));
  return _mm256_sll_epi32(values, _mm_cvtsi32_si128(shift));
}

// The pixel at `p`, its four bytes as doubles.
QPX_AVX2 inline __m256d PixelDoubles(const uint8_t* p) {
  int32_t word;
  std::memcpy(&word, p, sizeof word);
  return _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(word)));
}

template <int N>
QPX_AVX2 inline void HorizontalRows(const uint8_t* const* rows, const ContributorList* columns,
                                    int32_t width, __m128i toWord, uint32_t* const* outs) {
  for (int32_t i = 0; i < width; ++i) {
    const ContributorList& list = columns[i];
    __m256d sums[N];
    for (int n = 0; n < N; ++n) sums[n] = _mm256_setzero_pd();
    for (int32_t k = 0; k < list.count; ++k) {
      const Contributor& c = list.entries[k];
      if (c.weight == 0.0f) continue;
      const ptrdiff_t offset = 4 * static_cast<ptrdiff_t>(c.pixel);
      const __m256d weight = _mm256_set1_pd(static_cast<double>(c.weight));
      for (int n = 0; n < N; ++n) {
        sums[n] = _mm256_add_pd(sums[n], _mm256_mul_pd(PixelDoubles(rows[n] + offset), weight));
      }
    }
    const __m256d weightSum = _mm256_set1_pd(static_cast<double>(list.weightSum));
    for (int n = 0; n < N; ++n) {
      const __m128i values = ChannelValues(sums[n], weightSum);
      outs[n][i] = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_shuffle_epi8(values, toWord)));
    }
  }
}

}  // namespace

QPX_AVX2 void HorizontalRowsAvx2(const uint8_t* const* rows, int32_t count,
                                 const ContributorList* columns, int32_t width,
                                 const PixelBytes& bytes, uint32_t* const* outs) {
  // Gathers the low byte of the blue, green and red lanes into bytes 0, 1 and 2 of the word
  // and zeroes byte 3.
  const __m128i toWord =
      _mm_setr_epi8(static_cast<char>(4 * bytes.blue), static_cast<char>(4 * bytes.green),
                    static_cast<char>(4 * bytes.red), -128, -128, -128, -128, -128, -128, -128,
                    -128, -128, -128, -128, -128, -128);
  if (count == 4) return HorizontalRows<4>(rows, columns, width, toWord, outs);
  for (int32_t n = 0; n < count; ++n) {
    HorizontalRows<1>(rows + n, columns, width, toWord, outs + n);
  }
}

QPX_AVX2 int32_t VerticalColumnsAvx2(const uint32_t* intermediate, int32_t width,
                                     const ContributorList& list, const WordLayout& layout,
                                     uint8_t* out) {
  const __m256i byteMask = _mm256_set1_epi32(0xFF);
  const __m256d weightSum = _mm256_set1_pd(static_cast<double>(list.weightSum));
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
    __m256i pixels = _mm256_or_si256(Channel(red, weightSum, layout.redShift),
                                     Channel(green, weightSum, layout.greenShift));
    pixels = _mm256_or_si256(pixels, Channel(blue, weightSum, layout.blueShift));
    pixels = _mm256_or_si256(pixels, fourth);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * static_cast<ptrdiff_t>(column)),
                        pixels);
  }
  return column;
}

#else

void HorizontalRowsAvx2(const uint8_t* const*, int32_t, const ContributorList*, int32_t,
                        const PixelBytes&, uint32_t* const*) {}

int32_t VerticalColumnsAvx2(const uint32_t*, int32_t, const ContributorList&, const WordLayout&,
                            uint8_t*) {
  return 0;
}

#endif
