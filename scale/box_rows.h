// The rows of the box resizer: channel means of a box of pixels, and the loops that fill one
// stretch of an output row from its boxes, given each box's byte offset in the source row.
#pragma once

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "int_conversion.h"
#include "pixel_layout.h"

namespace box_rows {

// --- Channel means ------------------------------------------------------------------------
// With the sums exact in doubles (they stay far below 2^53), the mean of a channel is
//   trunc((0.5 + h * S) / (w * h)) = floor(S / w + 1 / (2 w h)),
// and since S / w lies at least 1/w below the next integer, while 1 / (2 w h) <= 1 / (2 w),
// that is floor(S / w): the box height and the 0.5 never change a byte. The double division
// cannot round up to the next integer either: the quotient, below 256, lies at least
// 1 / (2 w h) under it, far more than its rounding error while w h < 2^44.

// Boxes one pixel wide: the mean of one value is that value.
struct CopyMean {
  using Sum = uint32_t;
  uint32_t operator()(Sum sum) const { return sum; }
};

// floor(S / w) as (S * m) >> 32 with m = floor(2^32 / w) + 1. Writing m = 2^32 / w + e with
// 0 < e <= 1, the product is 2^32 (S / w) + S e, which stays below 2^32 (floor(S / w) + 1) as
// long as S e < 2^32 / w; with S <= 255 w that holds for 255 w^2 < 2^32, i.e. w <= 4104.
struct ReciprocalMean {
  using Sum = uint32_t;
  static constexpr int32_t kWidestBox = 4104;
  explicit ReciprocalMean(int32_t boxWidth)
      : multiplier((uint64_t{1} << 32) / static_cast<uint32_t>(boxWidth) + 1) {}
  uint32_t operator()(Sum sum) const { return static_cast<uint32_t>((sum * multiplier) >> 32); }
  uint64_t multiplier;
};

// The formula as written, for boxes beyond the other two (wider than 4104 pixels, or with a
// product boxWidth * boxHeight that does not fit 32 bits). No pass is made without a box row.
struct LiteralMean {
  using Sum = uint64_t;
  uint32_t operator()(Sum sum) const {
    const double accumulated = boxHeight >= 1 ? 0.5 + boxHeight * static_cast<double>(sum) : 0.5;
    return static_cast<uint32_t>(TruncateToInt32(accumulated / count));
  }
  double boxHeight;
  double count;
};

// --- One output row, plain ------------------------------------------------------------------
template <class In, class Out, class Mean>
struct PlainRow {
  const Mean& mean;
  int32_t boxWidth;
  void operator()(const uint8_t* __restrict source, const ptrdiff_t* offsets, int32_t count,
                  uint8_t* __restrict out) const {
    for (int32_t i = 0; i < count; ++i, out += kBytesPerPixel) {
      const uint8_t* p = source + offsets[i];
      typename Mean::Sum red = 0, green = 0, blue = 0;
      for (int32_t k = 0; k < boxWidth; ++k, p += kBytesPerPixel) {
        red += In::Red(p);
        green += In::Green(p);
        blue += In::Blue(p);
      }
      Out::Store(out, static_cast<uint8_t>(mean(red)), static_cast<uint8_t>(mean(green)),
                 static_cast<uint8_t>(mean(blue)));
    }
  }
};

// --- One output row, whole pixels -----------------------------------------------------------
// Where source and result keep red, green and blue at the same bytes, whole pixels are summed
// (the fourth byte too, in a lane of its own) and the fourth byte is set afterwards; the colour
// lanes do the plain loop's additions and divisions.
template <class Out>
struct FourthByte {
  uint32_t keep = 0, fill = 0;  // pixel = (pixel & keep) | fill
  FourthByte() {
    uint8_t keepBytes[4] = {255, 255, 255, 255}, fillBytes[4] = {0, 0, 0, 0};
    keepBytes[Out::kFourth] = 0;
    fillBytes[Out::kFourth] = Out::kFourthValue;
    std::memcpy(&keep, keepBytes, sizeof keep);
    std::memcpy(&fill, fillBytes, sizeof fill);
  }
};

// Boxes one pixel wide: the pixel itself.
template <class Out>
struct WholePixelCopyRow {
  FourthByte<Out> fourth;
  void operator()(const uint8_t* __restrict source, const ptrdiff_t* offsets, int32_t count,
                  uint8_t* __restrict out) const {
    for (int32_t i = 0; i < count; ++i, out += kBytesPerPixel) {
      uint32_t pixel;
      std::memcpy(&pixel, source + offsets[i], sizeof pixel);
      pixel = (pixel & fourth.keep) | fourth.fill;
      std::memcpy(out, &pixel, sizeof pixel);
    }
  }
};

// Boxes of 2 to 16 pixels, a 16-bit lane for each byte of a pixel; `kWidth`, when not 0, fixes
// the box width at compile time for the common shrinks. Lane sums stay below
// 255 * 16 < 2^16, and floor(S / w) = (S * m) >> 16 with m = floor(2^16 / w) + 1 by the
// argument of ReciprocalMean, which holds for 255 w^2 < 2^16, i.e. up to w = 16.
#if defined(__SSE2__)
template <class Out, int32_t kWidth = 0>
struct WholePixelBoxRow {
  static constexpr int32_t kWidestBox = 16;
  explicit WholePixelBoxRow(int32_t boxWidth)
      : boxWidth(boxWidth),
        multiplier(_mm_set1_epi16(static_cast<int16_t>(65536u / uint32_t(boxWidth) + 1))) {}

  // The four lane sums of one box, in lanes 0 to 3, divided.
  __m128i Mean(const uint8_t* p) const {
    const __m128i zero = _mm_setzero_si128();
    __m128i sums = zero;  // lanes 0-3 and 4-7 each sum every other pixel
    const int32_t boxWidth = kWidth != 0 ? kWidth : this->boxWidth;
    int32_t k = 0;
    for (; k + 4 <= boxWidth; k += 4) {
      const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4 * k));
      sums = _mm_add_epi16(sums, _mm_unpacklo_epi8(four, zero));
      sums = _mm_add_epi16(sums, _mm_unpackhi_epi8(four, zero));
    }
    if (k + 2 <= boxWidth) {
      const __m128i two = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 4 * k));
      sums = _mm_add_epi16(sums, _mm_unpacklo_epi8(two, zero));
      k += 2;
    }
    if (k < boxWidth) {
      int32_t word;
      std::memcpy(&word, p + 4 * k, sizeof word);
      sums = _mm_add_epi16(sums, _mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero));
    }
    sums = _mm_add_epi16(sums, _mm_srli_si128(sums, 8));
    return _mm_mulhi_epu16(sums, multiplier);
  }

  void operator()(const uint8_t* __restrict source, const ptrdiff_t* offsets, int32_t count,
                  uint8_t* __restrict out) const {
    const __m128i keep = _mm_set1_epi32(static_cast<int32_t>(fourth.keep));
    const __m128i fill = _mm_set1_epi32(static_cast<int32_t>(fourth.fill));
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
      const __m128i low =
          _mm_unpacklo_epi64(Mean(source + offsets[i]), Mean(source + offsets[i + 1]));
      const __m128i high =
          _mm_unpacklo_epi64(Mean(source + offsets[i + 2]), Mean(source + offsets[i + 3]));
      const __m128i pixels = _mm_or_si128(_mm_and_si128(_mm_packus_epi16(low, high), keep), fill);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + kBytesPerPixel * i), pixels);
    }
    for (; i < count; ++i) {
      const __m128i pixel = _mm_or_si128(
          _mm_and_si128(_mm_packus_epi16(Mean(source + offsets[i]), _mm_setzero_si128()), keep),
          fill);
      const int32_t word = _mm_cvtsi128_si32(pixel);
      std::memcpy(out + kBytesPerPixel * i, &word, sizeof word);
    }
  }

  int32_t boxWidth;
  __m128i multiplier;
  FourthByte<Out> fourth;
};
#else
typedef uint8_t Bytes4 __attribute__((vector_size(4)));
typedef uint8_t Bytes8 __attribute__((vector_size(8)));
typedef uint16_t Shorts4 __attribute__((vector_size(8)));
typedef uint16_t Shorts8 __attribute__((vector_size(16)));
typedef uint32_t Words4 __attribute__((vector_size(16)));

template <class Out, int32_t kWidth = 0>
struct WholePixelBoxRow {
  static constexpr int32_t kWidestBox = 16;
  explicit WholePixelBoxRow(int32_t boxWidth)
      : boxWidth(boxWidth), multiplier(65536u / static_cast<uint32_t>(boxWidth) + 1) {}
  void operator()(const uint8_t* __restrict source, const ptrdiff_t* offsets, int32_t count,
                  uint8_t* __restrict out) const {
    for (int32_t i = 0; i < count; ++i, out += kBytesPerPixel) {
      const uint8_t* p = source + offsets[i];
      Shorts8 pairs = {};  // even pixels in lanes 0-3, odd ones in 4-7
      int32_t k = 0;
      for (; k + 2 <= boxWidth; k += 2) {
        Bytes8 two;
        std::memcpy(&two, p + kBytesPerPixel * k, sizeof two);
        pairs += __builtin_convertvector(two, Shorts8);
      }
      Shorts4 sum = __builtin_shufflevector(pairs, pairs, 0, 1, 2, 3) +
                    __builtin_shufflevector(pairs, pairs, 4, 5, 6, 7);
      if (k < boxWidth) {
        Bytes4 one;
        std::memcpy(&one, p + kBytesPerPixel * k, sizeof one);
        sum += __builtin_convertvector(one, Shorts4);
      }
      const Words4 mean = (__builtin_convertvector(sum, Words4) * multiplier) >> 16;
      const Bytes4 bytes = __builtin_convertvector(mean, Bytes4);
      uint32_t pixel;
      std::memcpy(&pixel, &bytes, sizeof pixel);
      pixel = (pixel & fourth.keep) | fourth.fill;
      std::memcpy(out, &pixel, sizeof pixel);
    }
  }
  int32_t boxWidth;
  uint32_t multiplier;
  FourthByte<Out> fourth;
};
#endif

}  // namespace box_rows
