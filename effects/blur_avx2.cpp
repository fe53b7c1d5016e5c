// BlurQPX's block loops on AVX2: vectors of eight pixels, blocks of eight rows. The byte and
// lane operations work within each 128-bit half, pixels 0 to 3 in the low half and 4 to 7 in
// the high one, which narrowing puts back in order. Called only on processors that have AVX2.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "blur_rows.h"
#include "pixel_layout.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

// Built for AVX2 from here on (clang: as an attribute of every function declared below); the
// headers the loops share with the rest of the module came first, so their inline functions
// stay free of AVX2 instructions.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC target("avx2")
#endif
#include "blur_lanes.h"

namespace {

struct Avx2 {
  using V = __m256i;
  static constexpr int kPixels = 8;
  static V Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
  static void Store(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
  static V Set16(uint16_t value) { return _mm256_set1_epi16(static_cast<int16_t>(value)); }
  static V Set32(uint32_t value) { return _mm256_set1_epi32(static_cast<int32_t>(value)); }
  static V And(V a, V b) { return _mm256_and_si256(a, b); }
  static V Or(V a, V b) { return _mm256_or_si256(a, b); }

  // Pixels 0, 1, 4, 5 and 2, 3, 6, 7.
  static void Widen16(V bytes, V* parts) {
    parts[0] = _mm256_unpacklo_epi8(bytes, _mm256_setzero_si256());
    parts[1] = _mm256_unpackhi_epi8(bytes, _mm256_setzero_si256());
  }
  static V Narrow16(const V* parts) { return _mm256_packus_epi16(parts[0], parts[1]); }
  // Each entering byte next to its leaving one, multiplied by 1 and -1 and added in pairs: half
  // the byte shuffles of widening both.
  static void Difference16(V entering, V leaving, V* parts) {
    const V signs = _mm256_set1_epi16(static_cast<int16_t>(0xFF01));
    parts[0] = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(entering, leaving), signs);
    parts[1] = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(entering, leaving), signs);
  }
  static V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
  static V Mul16(V v, uint16_t count) { return _mm256_mullo_epi16(v, Set16(count)); }
  static V MulHigh16(V v, V multiplier) { return _mm256_mulhi_epu16(v, multiplier); }
  static V ShiftRight16(V v, int shift) { return _mm256_srl_epi16(v, _mm_cvtsi32_si128(shift)); }
  template <int A, int B, int C, int D>
  static V Shuffle16(V v) {
    constexpr int order = A | B << 2 | C << 4 | D << 6;
    return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(v, order), order);
  }

  // Pixels 0 and 4, 1 and 5, 2 and 6, 3 and 7.
  static void Widen32(V bytes, V* parts) {
    const V zero = _mm256_setzero_si256();
    const V low = _mm256_unpacklo_epi8(bytes, zero), high = _mm256_unpackhi_epi8(bytes, zero);
    parts[0] = _mm256_unpacklo_epi16(low, zero);
    parts[1] = _mm256_unpackhi_epi16(low, zero);
    parts[2] = _mm256_unpacklo_epi16(high, zero);
    parts[3] = _mm256_unpackhi_epi16(high, zero);
  }
  static V Narrow32(const V* parts) {
    return _mm256_packus_epi16(_mm256_packs_epi32(parts[0], parts[1]),
                               _mm256_packs_epi32(parts[2], parts[3]));
  }
  static V Add32(V a, V b) { return _mm256_add_epi32(a, b); }
  static V Sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
  static V Mul32(V v, uint32_t count) { return _mm256_mullo_epi32(v, Set32(count)); }
  // The quotients are below 2^32, so each lands in the low half of its 64-bit product.
  static V Divide32(V v, uint32_t multiplier, int shift) {
    const V m = Set32(multiplier);
    const __m128i s = _mm_cvtsi32_si128(shift);
    const V even = _mm256_srl_epi64(_mm256_mul_epu32(v, m), s);
    const V odd = _mm256_srl_epi64(_mm256_mul_epu32(_mm256_srli_epi64(v, 32), m), s);
    return _mm256_or_si256(even, _mm256_slli_epi64(odd, 32));
  }
  template <int A, int B, int C, int D>
  static V Shuffle32(V v) {
    return _mm256_shuffle_epi32(v, A | B << 2 | C << 4 | D << 6);
  }

  static void Transpose(V* v) {
    V s[8], t[8];
    for (int i = 0; i < 4; ++i) {
      s[2 * i] = _mm256_unpacklo_epi32(v[2 * i], v[2 * i + 1]);
      s[2 * i + 1] = _mm256_unpackhi_epi32(v[2 * i], v[2 * i + 1]);
    }
    // t[c] holds column c of rows 0 to 3 in its low half and column c + 4 in its high half;
    // t[c + 4] the same of rows 4 to 7.
    for (int half = 0; half < 2; ++half) {
      const V* pair = s + 4 * half;
      t[4 * half + 0] = _mm256_unpacklo_epi64(pair[0], pair[2]);
      t[4 * half + 1] = _mm256_unpackhi_epi64(pair[0], pair[2]);
      t[4 * half + 2] = _mm256_unpacklo_epi64(pair[1], pair[3]);
      t[4 * half + 3] = _mm256_unpackhi_epi64(pair[1], pair[3]);
    }
    for (int c = 0; c < 4; ++c) {
      v[c] = _mm256_permute2x128_si256(t[c], t[c + 4], 0x20);
      v[c + 4] = _mm256_permute2x128_si256(t[c], t[c + 4], 0x31);
    }
  }
};

}  // namespace

BlurBlockLoops BlurBlockLoopsAvx2(int32_t readerFormat, int32_t writerFormat, bool sums16) {
  return blur_lanes::LoopsFor<Avx2>(readerFormat, writerFormat, sums16);
}

#if defined(__clang__)
#pragma clang attribute pop
#endif

#else

// Not an x86 processor: never chosen.
BlurBlockLoops BlurBlockLoopsAvx2(int32_t, int32_t, bool) {
  return {};
}

#endif
