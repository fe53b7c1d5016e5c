// DrawPictureFQPX's interior loop on 128-bit vectors: two double lanes a register, four lanes
// as a pair. SSE2's truncation gives the most negative integer for NaN and out-of-range
// values by itself; other processors (ARM64 saturates) test the range first.
#include "draw_fixed.h"
#include "draw_lanes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

typedef double Pair __attribute__((vector_size(16)));
typedef int64_t PairMask __attribute__((vector_size(16)));
typedef int32_t PairInts __attribute__((vector_size(8)));

struct Quad {
  Pair low, high;
};
inline Quad operator*(Quad a, Quad b) {
  return {a.low * b.low, a.high * b.high};
}
inline Quad operator-(Quad a, Quad b) {
  return {a.low - b.low, a.high - b.high};
}

inline draw_lanes::Ints Join(PairInts low, PairInts high) {
  return draw_lanes::Ints{low[0], low[1], high[0], high[1]};
}

inline PairInts TruncatePair(Pair v) {
#if defined(__SSE2__)
  const __m128i ints = _mm_cvttpd_epi32(reinterpret_cast<__m128d>(v));
  PairInts out;
  __builtin_memcpy(&out, &ints, sizeof out);
  return out;
#else
  const PairMask inRange = (v > -2147483649.0) & (v < 2147483648.0);
  const PairInts ints = __builtin_convertvector(inRange ? v : Pair{}, PairInts);
  return __builtin_convertvector(inRange, PairInts) ? ints : PairInts{} + INT32_MIN;
#endif
}

struct Lanes128 {
  using D = Quad;
  static D Broadcast(double value) { return {Pair{} + value, Pair{} + value}; }
  static D FromInts(draw_lanes::Ints v) {
    return {Pair{static_cast<double>(v[0]), static_cast<double>(v[1])},
            Pair{static_cast<double>(v[2]), static_cast<double>(v[3])}};
  }
  static D Of(double a, double b, double c, double d) { return {Pair{a, b}, Pair{c, d}}; }
  static draw_lanes::Ints Truncate(D v) { return Join(TruncatePair(v.low), TruncatePair(v.high)); }
  static draw_lanes::Ints Positive(D v) {
    return Join(__builtin_convertvector(v.low > 0.0, PairInts),
                __builtin_convertvector(v.high > 0.0, PairInts));
  }
};

}  // namespace

#if defined(__SSE2__)

namespace {

struct Fixed128 {
  using V = __m128i;
  static constexpr int kPixels = 4;
  static V Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const V*>(p)); }
  static void Store(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<V*>(p), v); }
  static V Zero() { return _mm_setzero_si128(); }
  static V Set16(uint16_t value) { return _mm_set1_epi16(static_cast<int16_t>(value)); }
  static V Set32(uint32_t value) { return _mm_set1_epi32(static_cast<int32_t>(value)); }
  static V Low(V bytes) { return _mm_unpacklo_epi8(bytes, _mm_setzero_si128()); }
  static V High(V bytes) { return _mm_unpackhi_epi8(bytes, _mm_setzero_si128()); }
  static V MulHigh16(V a, V b) { return _mm_mulhi_epu16(a, b); }
  static V Add16(V a, V b) { return _mm_add_epi16(a, b); }
  static V And(V a, V b) { return _mm_and_si128(a, b); }
  static V Or(V a, V b) { return _mm_or_si128(a, b); }
  static V Pack(V low, V high) { return _mm_packus_epi16(low, high); }
  // Entries for pixels 0 and 1 (`High`: 2 and 3), the lanes Low and High widen them into.
  static V Multipliers(const uint64_t* table, const uint8_t* m, bool high) {
    const int j = high ? 2 : 0;
    return _mm_set_epi64x(static_cast<int64_t>(table[m[j + 1]]), static_cast<int64_t>(table[m[j]]));
  }
  static V FromWords(const draw_lanes::Words* groups) { return reinterpret_cast<V>(groups[0]); }
};

}  // namespace

const InteriorLoop kDrawInteriorFixed128 = draw_fixed::DrawInterior<Fixed128>;
const InteriorLoop kDrawMaskedFixed128 = draw_fixed::DrawMaskedInterior<Fixed128, Lanes128>;

#else

const InteriorLoop kDrawInteriorFixed128 = nullptr;
const InteriorLoop kDrawMaskedFixed128 = nullptr;

#endif

const InteriorLoop kDrawInteriorVector128 = draw_lanes::DrawInterior<Lanes128>;
