// BlurQPX's block loops on 128-bit vectors of four pixels: SSE2 on x86 (no byte shuffles, which
// need SSSE3), GCC's vector extensions elsewhere (NEON on ARM64).
#include <cstdint>
#include <cstring>

#include "blur_lanes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

#if defined(__SSE2__)

struct Vector128 {
  using V = __m128i;
  static constexpr int kPixels = 4;
  static V Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const V*>(p)); }
  static void Store(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<V*>(p), v); }
  static V Set16(uint16_t value) { return _mm_set1_epi16(static_cast<int16_t>(value)); }
  static V Set32(uint32_t value) { return _mm_set1_epi32(static_cast<int32_t>(value)); }
  static V And(V a, V b) { return _mm_and_si128(a, b); }
  static V Or(V a, V b) { return _mm_or_si128(a, b); }

  // Pixels 0, 1 and 2, 3, a pixel's four bytes in four lanes.
  static void Widen16(V bytes, V* parts) {
    parts[0] = _mm_unpacklo_epi8(bytes, _mm_setzero_si128());
    parts[1] = _mm_unpackhi_epi8(bytes, _mm_setzero_si128());
  }
  static V Narrow16(const V* parts) { return _mm_packus_epi16(parts[0], parts[1]); }
  static void Difference16(V entering, V leaving, V* parts) {
    V out[2];
    Widen16(entering, parts);
    Widen16(leaving, out);
    parts[0] = _mm_sub_epi16(parts[0], out[0]);
    parts[1] = _mm_sub_epi16(parts[1], out[1]);
  }
  static V Add16(V a, V b) { return _mm_add_epi16(a, b); }
  static V Mul16(V v, uint16_t count) { return _mm_mullo_epi16(v, Set16(count)); }
  static V MulHigh16(V v, V multiplier) { return _mm_mulhi_epu16(v, multiplier); }
  static V ShiftRight16(V v, int shift) { return _mm_srl_epi16(v, _mm_cvtsi32_si128(shift)); }
  template <int A, int B, int C, int D>
  static V Shuffle16(V v) {
    constexpr int order = A | B << 2 | C << 4 | D << 6;
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, order), order);
  }

  // Pixels 0, 1, 2 and 3, one a vector.
  static void Widen32(V bytes, V* parts) {
    const V zero = _mm_setzero_si128();
    const V low = _mm_unpacklo_epi8(bytes, zero), high = _mm_unpackhi_epi8(bytes, zero);
    parts[0] = _mm_unpacklo_epi16(low, zero);
    parts[1] = _mm_unpackhi_epi16(low, zero);
    parts[2] = _mm_unpacklo_epi16(high, zero);
    parts[3] = _mm_unpackhi_epi16(high, zero);
  }
  static V Narrow32(const V* parts) {
    return _mm_packus_epi16(_mm_packs_epi32(parts[0], parts[1]),
                            _mm_packs_epi32(parts[2], parts[3]));
  }
  static V Add32(V a, V b) { return _mm_add_epi32(a, b); }
  static V Sub32(V a, V b) { return _mm_sub_epi32(a, b); }
  // Lanes 0 and 2 and lanes 1 and 3 as 64-bit products, their low halves joined again.
  static V Mul32(V v, uint32_t count) {
    const V c = Set32(count);
    const V even = _mm_mul_epu32(v, c), odd = _mm_mul_epu32(_mm_srli_epi64(v, 32), c);
    return _mm_or_si128(_mm_and_si128(even, _mm_set1_epi64x(0xFFFFFFFF)), _mm_slli_epi64(odd, 32));
  }
  // The quotients are below 2^32, so each lands in the low half of its 64-bit product.
  static V Divide32(V v, uint32_t multiplier, int shift) {
    const V m = Set32(multiplier), s = _mm_cvtsi32_si128(shift);
    const V even = _mm_srl_epi64(_mm_mul_epu32(v, m), s);
    const V odd = _mm_srl_epi64(_mm_mul_epu32(_mm_srli_epi64(v, 32), m), s);
    return _mm_or_si128(even, _mm_slli_epi64(odd, 32));
  }
  template <int A, int B, int C, int D>
  static V Shuffle32(V v) {
    return _mm_shuffle_epi32(v, A | B << 2 | C << 4 | D << 6);
  }

  static void Transpose(V* v) {
    const V t0 = _mm_unpacklo_epi32(v[0], v[1]), t1 = _mm_unpacklo_epi32(v[2], v[3]);
    const V t2 = _mm_unpackhi_epi32(v[0], v[1]), t3 = _mm_unpackhi_epi32(v[2], v[3]);
    v[0] = _mm_unpacklo_epi64(t0, t1);
    v[1] = _mm_unpackhi_epi64(t0, t1);
    v[2] = _mm_unpacklo_epi64(t2, t3);
    v[3] = _mm_unpackhi_epi64(t2, t3);
  }
};

#else

typedef uint8_t Bytes __attribute__((vector_size(16)));
typedef uint16_t Words __attribute__((vector_size(16)));
typedef uint32_t Dwords __attribute__((vector_size(16)));
typedef uint32_t WideWords __attribute__((vector_size(32)));
typedef uint64_t WideDwords __attribute__((vector_size(32)));

// The same operations in GCC's vector extensions. V holds bytes; the lanes of sums are its
// bits seen as 16-bit or 32-bit lanes.
struct Vector128 {
  using V = Bytes;
  static constexpr int kPixels = 4;
  static V Load(const uint8_t* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
  }
  static void Store(uint8_t* p, V v) { std::memcpy(p, &v, sizeof v); }
  static V Set16(uint16_t value) { return reinterpret_cast<V>(Words{} + value); }
  static V Set32(uint32_t value) { return reinterpret_cast<V>(Dwords{} + value); }
  static V And(V a, V b) { return a & b; }
  static V Or(V a, V b) { return a | b; }

  static Words W(V v) { return reinterpret_cast<Words>(v); }
  static Dwords D(V v) { return reinterpret_cast<Dwords>(v); }

  static void Widen16(V bytes, V* parts) {
    const V zero{};
    parts[0] = __builtin_shufflevector(bytes, zero, 0, 16, 1, 16, 2, 16, 3, 16, 4, 16, 5, 16, 6, 16,
                                       7, 16);
    parts[1] = __builtin_shufflevector(bytes, zero, 8, 16, 9, 16, 10, 16, 11, 16, 12, 16, 13, 16,
                                       14, 16, 15, 16);
  }
  static V Narrow16(const V* parts) {
    return __builtin_shufflevector(parts[0], parts[1], 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22,
                                   24, 26, 28, 30);
  }
  static void Difference16(V entering, V leaving, V* parts) {
    V out[2];
    Widen16(entering, parts);
    Widen16(leaving, out);
    parts[0] = reinterpret_cast<V>(W(parts[0]) - W(out[0]));
    parts[1] = reinterpret_cast<V>(W(parts[1]) - W(out[1]));
  }
  static V Add16(V a, V b) { return reinterpret_cast<V>(W(a) + W(b)); }
  static V Mul16(V v, uint16_t count) { return reinterpret_cast<V>(W(v) * count); }
  static V MulHigh16(V v, V multiplier) {
    const WideWords product = __builtin_convertvector(W(v), WideWords) *
                              __builtin_convertvector(W(multiplier), WideWords);
    return reinterpret_cast<V>(__builtin_convertvector(product >> 16, Words));
  }
  static V ShiftRight16(V v, int shift) { return reinterpret_cast<V>(W(v) >> shift); }
  template <int A, int B, int C, int D>
  static V Shuffle16(V v) {
    return reinterpret_cast<V>(
        __builtin_shufflevector(W(v), W(v), A, B, C, D, A + 4, B + 4, C + 4, D + 4));
  }

  static void Widen32(V bytes, V* parts) {
    const V zero{};
    parts[0] = __builtin_shufflevector(bytes, zero, 0, 16, 16, 16, 1, 16, 16, 16, 2, 16, 16, 16, 3,
                                       16, 16, 16);
    parts[1] = __builtin_shufflevector(bytes, zero, 4, 16, 16, 16, 5, 16, 16, 16, 6, 16, 16, 16, 7,
                                       16, 16, 16);
    parts[2] = __builtin_shufflevector(bytes, zero, 8, 16, 16, 16, 9, 16, 16, 16, 10, 16, 16, 16,
                                       11, 16, 16, 16);
    parts[3] = __builtin_shufflevector(bytes, zero, 12, 16, 16, 16, 13, 16, 16, 16, 14, 16, 16, 16,
                                       15, 16, 16, 16);
  }
  // The low 16 bits of each 32-bit lane, then their low bytes.
  static V Narrow32(const V* parts) {
    const V words[2] = {__builtin_shufflevector(parts[0], parts[1], 0, 1, 4, 5, 8, 9, 12, 13, 16,
                                                17, 20, 21, 24, 25, 28, 29),
                        __builtin_shufflevector(parts[2], parts[3], 0, 1, 4, 5, 8, 9, 12, 13, 16,
                                                17, 20, 21, 24, 25, 28, 29)};
    return Narrow16(words);
  }
  static V Add32(V a, V b) { return reinterpret_cast<V>(D(a) + D(b)); }
  static V Sub32(V a, V b) { return reinterpret_cast<V>(D(a) - D(b)); }
  static V Mul32(V v, uint32_t count) { return reinterpret_cast<V>(D(v) * count); }
  static V Divide32(V v, uint32_t multiplier, int shift) {
    const WideDwords product = __builtin_convertvector(D(v), WideDwords) * uint64_t{multiplier};
    return reinterpret_cast<V>(__builtin_convertvector(product >> shift, Dwords));
  }
  template <int A, int B, int C, int E>
  static V Shuffle32(V v) {
    return reinterpret_cast<V>(__builtin_shufflevector(D(v), D(v), A, B, C, E));
  }

  static void Transpose(V* v) {
    const Dwords a = D(v[0]), b = D(v[1]), c = D(v[2]), d = D(v[3]);
    const Dwords ab0 = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    const Dwords cd0 = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    const Dwords ab1 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Dwords cd1 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    v[0] = reinterpret_cast<V>(__builtin_shufflevector(ab0, cd0, 0, 1, 4, 5));
    v[1] = reinterpret_cast<V>(__builtin_shufflevector(ab0, cd0, 2, 3, 6, 7));
    v[2] = reinterpret_cast<V>(__builtin_shufflevector(ab1, cd1, 0, 1, 4, 5));
    v[3] = reinterpret_cast<V>(__builtin_shufflevector(ab1, cd1, 2, 3, 6, 7));
  }
};

#endif

}  // namespace

BlurBlockLoops BlurBlockLoops128(int32_t readerFormat, int32_t writerFormat, bool sums16) {
  return blur_lanes::LoopsFor<Vector128>(readerFormat, writerFormat, sums16);
}
