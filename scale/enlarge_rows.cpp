#include "enlarge_rows.h"

#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace {

constexpr int kChannels = 4;  // bytes of a pixel, each blended on its own
constexpr int kNear = 2;      // index of w2 in a weight group
constexpr int kFar = 1;       // index of w1

// --- Plain loops ------------------------------------------------------------------------------
// `v` is never NaN: bytes times the finite weights of fractions in (-1, 1), plus 0.5.
uint8_t ToByte(float v) {
  if (v <= 0.0f) return 0;
  if (v >= 255.0f) return 255;
  return static_cast<uint8_t>(static_cast<int32_t>(v));
}

void BlendRowsPlain(const uint8_t* upper, const uint8_t* lower, int32_t bytes, float wUpper,
                    float wLower, float* out) {
  for (int32_t k = 0; k < bytes; ++k) {
    const float a = static_cast<float>(upper[k]) * wUpper;
    const float b = static_cast<float>(lower[k]) * wLower;
    out[k] = a + b;
  }
}

void ExpandRowPlain(const float* padded, const int32_t* first, const float* groups, int32_t width,
                    uint8_t* out) {
  for (int32_t i = 0; i < width; ++i) {
    const float* a = padded + kChannels * first[i];
    const float* b = a + kChannels;
    const float* g = groups + kChannels * i;
    for (int c = 0; c < kChannels; ++c) {
      float v = 0.5f + a[c] * g[kNear];
      v = v + b[c] * g[kFar];
      out[kChannels * i + c] = ToByte(v);
    }
  }
}

#if defined(__SSE2__)
// --- SSE2: one pixel's 4 bytes a vector -----------------------------------------------------
// max and min against 0 and 255 before the truncating conversion give 0 for v <= 0 and 255 for
// v >= 255; the saturating packs then keep the values 0 to 255 as they are.

void BlendRowsVector(const uint8_t* upper, const uint8_t* lower, int32_t bytes, float wUpper,
                     float wLower, float* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128 wu = _mm_set1_ps(wUpper), wl = _mm_set1_ps(wLower);
  int32_t k = 0;
  for (; k + 16 <= bytes; k += 16) {
    const __m128i up = _mm_loadu_si128(reinterpret_cast<const __m128i*>(upper + k));
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lower + k));
    const __m128i up16[2] = {_mm_unpacklo_epi8(up, zero), _mm_unpackhi_epi8(up, zero)};
    const __m128i low16[2] = {_mm_unpacklo_epi8(low, zero), _mm_unpackhi_epi8(low, zero)};
    for (int q = 0; q < 4; ++q) {
      const __m128i u32 =
          q % 2 ? _mm_unpackhi_epi16(up16[q / 2], zero) : _mm_unpacklo_epi16(up16[q / 2], zero);
      const __m128i l32 =
          q % 2 ? _mm_unpackhi_epi16(low16[q / 2], zero) : _mm_unpacklo_epi16(low16[q / 2], zero);
      const __m128 a = _mm_mul_ps(_mm_cvtepi32_ps(u32), wu);
      const __m128 b = _mm_mul_ps(_mm_cvtepi32_ps(l32), wl);
      _mm_storeu_ps(out + k + 4 * q, _mm_add_ps(a, b));
    }
  }
  BlendRowsPlain(upper + k, lower + k, bytes - k, wUpper, wLower, out + k);
}

__m128i ExpandPixel(const float* padded, int32_t first, const float* group) {
  const __m128 a = _mm_loadu_ps(padded + kChannels * first);
  const __m128 b = _mm_loadu_ps(padded + kChannels * first + kChannels);
  const __m128 g = _mm_loadu_ps(group);
  const __m128 near = _mm_shuffle_ps(g, g, _MM_SHUFFLE(kNear, kNear, kNear, kNear));
  const __m128 far = _mm_shuffle_ps(g, g, _MM_SHUFFLE(kFar, kFar, kFar, kFar));
  __m128 v = _mm_add_ps(_mm_set1_ps(0.5f), _mm_mul_ps(a, near));
  v = _mm_add_ps(v, _mm_mul_ps(b, far));
  v = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(255.0f));
  return _mm_cvttps_epi32(v);
}

void ExpandRowVector(const float* padded, const int32_t* first, const float* groups, int32_t width,
                     uint8_t* out) {
  int32_t i = 0;
  for (; i + 4 <= width; i += 4) {
    const float* g = groups + kChannels * i;
    const __m128i low = _mm_packs_epi32(ExpandPixel(padded, first[i], g),
                                        ExpandPixel(padded, first[i + 1], g + kChannels));
    const __m128i high = _mm_packs_epi32(ExpandPixel(padded, first[i + 2], g + 2 * kChannels),
                                         ExpandPixel(padded, first[i + 3], g + 3 * kChannels));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + kChannels * i), _mm_packus_epi16(low, high));
  }
  ExpandRowPlain(padded, first + i, groups + kChannels * i, width - i, out + kChannels * i);
}

// --- AVX2: two pixels a vector ----------------------------------------------------------------
__attribute__((target("avx2"))) void BlendRowsAvx2(const uint8_t* upper, const uint8_t* lower,
                                                   int32_t bytes, float wUpper, float wLower,
                                                   float* out) {
  const __m256 wu = _mm256_set1_ps(wUpper), wl = _mm256_set1_ps(wLower);
  int32_t k = 0;
  for (; k + 8 <= bytes; k += 8) {
    const __m256i up =
        _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(upper + k)));
    const __m256i low =
        _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(lower + k)));
    const __m256 a = _mm256_mul_ps(_mm256_cvtepi32_ps(up), wu);
    const __m256 b = _mm256_mul_ps(_mm256_cvtepi32_ps(low), wl);
    _mm256_storeu_ps(out + k, _mm256_add_ps(a, b));
  }
  BlendRowsPlain(upper + k, lower + k, bytes - k, wUpper, wLower, out + k);
}

__attribute__((target("avx2"))) __m256 LoadTwoPixels(const float* padded, int32_t first0,
                                                     int32_t first1, int offset) {
  const __m128 p0 = _mm_loadu_ps(padded + kChannels * first0 + offset);
  const __m128 p1 = _mm_loadu_ps(padded + kChannels * first1 + offset);
  return _mm256_insertf128_ps(_mm256_castps128_ps256(p0), p1, 1);
}

// Pixels i and i + 1 as 32-bit integers, pixel i in the lower half.
__attribute__((target("avx2"))) __m256i ExpandTwoPixels(const float* padded, const int32_t* first,
                                                        const float* groups) {
  const __m256 a = LoadTwoPixels(padded, first[0], first[1], 0);
  const __m256 b = LoadTwoPixels(padded, first[0], first[1], kChannels);
  const __m256 g = _mm256_loadu_ps(groups);
  const __m256 near = _mm256_permute_ps(g, _MM_SHUFFLE(kNear, kNear, kNear, kNear));
  const __m256 far = _mm256_permute_ps(g, _MM_SHUFFLE(kFar, kFar, kFar, kFar));
  __m256 v = _mm256_add_ps(_mm256_set1_ps(0.5f), _mm256_mul_ps(a, near));
  v = _mm256_add_ps(v, _mm256_mul_ps(b, far));
  v = _mm256_min_ps(_mm256_max_ps(v, _mm256_setzero_ps()), _mm256_set1_ps(255.0f));
  return _mm256_cvttps_epi32(v);
}

__attribute__((target("avx2"))) void ExpandRowAvx2(const float* padded, const int32_t* first,
                                                   const float* groups, int32_t width,
                                                   uint8_t* out) {
  // The packs work within 128-bit halves: they leave pixels i, i + 2 in the lower half and
  // i + 1, i + 3 in the upper one, which the permutation puts back in order.
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  int32_t i = 0;
  for (; i + 4 <= width; i += 4) {
    const float* g = groups + kChannels * i;
    const __m256i pixels01 = ExpandTwoPixels(padded, first + i, g);
    const __m256i pixels23 = ExpandTwoPixels(padded, first + i + 2, g + 2 * kChannels);
    const __m256i shorts = _mm256_packs_epi32(pixels01, pixels23);
    const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(shorts, shorts), order);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + kChannels * i),
                     _mm256_castsi256_si128(bytes));
  }
  ExpandRowPlain(padded, first + i, groups + kChannels * i, width - i, out + kChannels * i);
}

#else
// --- Other processors: GCC's vector types, NEON on ARM64 ----------------------------------
typedef float Floats4 __attribute__((vector_size(16)));
typedef int32_t Ints4 __attribute__((vector_size(16)));
typedef uint8_t Bytes4 __attribute__((vector_size(4)));

Floats4 Load4(const float* p) {
  Floats4 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

void BlendRowsVector(const uint8_t* upper, const uint8_t* lower, int32_t bytes, float wUpper,
                     float wLower, float* out) {
  int32_t k = 0;
  for (; k + 4 <= bytes; k += 4) {
    Bytes4 up, low;
    std::memcpy(&up, upper + k, sizeof up);
    std::memcpy(&low, lower + k, sizeof low);
    const Floats4 a = __builtin_convertvector(up, Floats4) * wUpper;
    const Floats4 b = __builtin_convertvector(low, Floats4) * wLower;
    const Floats4 sum = a + b;
    std::memcpy(out + k, &sum, sizeof sum);
  }
  BlendRowsPlain(upper + k, lower + k, bytes - k, wUpper, wLower, out + k);
}

void ExpandRowVector(const float* padded, const int32_t* first, const float* groups, int32_t width,
                     uint8_t* out) {
  const Floats4 zero = {0, 0, 0, 0};
  const Floats4 top = {255, 255, 255, 255};
  for (int32_t i = 0; i < width; ++i) {
    const Floats4 a = Load4(padded + kChannels * first[i]);
    const Floats4 b = Load4(padded + kChannels * first[i] + kChannels);
    const float* g = groups + kChannels * i;
    Floats4 v = 0.5f + a * g[kNear];
    v = v + b * g[kFar];
    v = v > zero ? v : zero;
    v = v < top ? v : top;
    const Bytes4 bytes = __builtin_convertvector(__builtin_convertvector(v, Ints4), Bytes4);
    std::memcpy(out + kChannels * i, &bytes, sizeof bytes);
  }
}
#endif

}  // namespace

EnlargeKernels EnlargeKernelsFor(PixelLoops loops) {
  switch (loops) {
    case PixelLoops::Plain:
      return {BlendRowsPlain, ExpandRowPlain};
    case PixelLoops::Vector128:
      return {BlendRowsVector, ExpandRowVector};
    case PixelLoops::Avx2:
#if defined(__SSE2__)
      return {BlendRowsAvx2, ExpandRowAvx2};
#else
      return {BlendRowsVector, ExpandRowVector};
#endif
  }
  return {BlendRowsPlain, ExpandRowPlain};
}
