// DrawPictureFQPX's interior loop on AVX2: four double lanes a register. The conversion
// instruction gives the most negative integer for NaN and out-of-range values, as the rule
// does. Called only on processors that have AVX2.
#include <cstdint>
#include <cstring>

#include "draw_rows.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

// Only the vector loop below is built for AVX2: every header it needs besides its own was
// included above, so nothing the rest of the module shares is built with AVX2 instructions.
// clang takes the same request as an attribute of every function declared from here on.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC target("avx2")
#endif
#include "draw_fixed.h"
#include "draw_lanes.h"

namespace {

typedef double Quad __attribute__((vector_size(32)));

struct LanesAvx2 {
  using D = Quad;
  static D Broadcast(double value) { return Quad{} + value; }
  static D FromInts(draw_lanes::Ints v) {
    return reinterpret_cast<D>(_mm256_cvtepi32_pd(reinterpret_cast<__m128i>(v)));
  }
  static D Of(double a, double b, double c, double d) { return Quad{a, b, c, d}; }
  static draw_lanes::Ints Truncate(D v) {
    return reinterpret_cast<draw_lanes::Ints>(_mm256_cvttpd_epi32(reinterpret_cast<__m256d>(v)));
  }
  static draw_lanes::Ints Positive(D v) {
    return __builtin_convertvector(v > 0.0, draw_lanes::Ints);
  }
};

struct FixedAvx2 {
  using V = __m256i;
  static constexpr int kPixels = 8;
  static V Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
  static void Store(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
  static V Zero() { return _mm256_setzero_si256(); }
  static V Set16(uint16_t value) { return _mm256_set1_epi16(static_cast<int16_t>(value)); }
  static V Set32(uint32_t value) { return _mm256_set1_epi32(static_cast<int32_t>(value)); }
  // Within each 128-bit half, as the pack puts them back.
  static V Low(V bytes) { return _mm256_unpacklo_epi8(bytes, _mm256_setzero_si256()); }
  static V High(V bytes) { return _mm256_unpackhi_epi8(bytes, _mm256_setzero_si256()); }
  static V MulHigh16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
  static V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
  static V And(V a, V b) { return _mm256_and_si256(a, b); }
  static V Or(V a, V b) { return _mm256_or_si256(a, b); }
  static V Pack(V low, V high) { return _mm256_packus_epi16(low, high); }
  // Entries for pixels 0, 1 and 4, 5 (`High`: 2, 3 and 6, 7), the lanes Low and High widen
  // them into within each 128-bit half.
  static V Multipliers(const uint64_t* table, const uint8_t* m, bool high) {
    const int j = high ? 2 : 0;
    return _mm256_set_epi64x(
        static_cast<int64_t>(table[m[j + 5]]), static_cast<int64_t>(table[m[j + 4]]),
        static_cast<int64_t>(table[m[j + 1]]), static_cast<int64_t>(table[m[j]]));
  }
  // Joined in registers: through memory the two halves' stores would stall the wide load.
  static V FromWords(const draw_lanes::Words* groups) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(reinterpret_cast<__m128i>(groups[0])),
                                   reinterpret_cast<__m128i>(groups[1]), 1);
  }
};

}  // namespace

const InteriorLoop kDrawInteriorAvx2 = draw_lanes::DrawInterior<LanesAvx2>;
const InteriorLoop kDrawInteriorFixedAvx2 = draw_fixed::DrawInterior<FixedAvx2>;
const InteriorLoop kDrawMaskedFixedAvx2 = draw_fixed::DrawMaskedInterior<FixedAvx2, LanesAvx2>;

#if defined(__clang__)
#pragma clang attribute pop
#endif

#else

#include "draw_lanes.h"

// Not an x86 processor: never chosen.
const InteriorLoop kDrawInteriorAvx2 = nullptr;
const InteriorLoop kDrawInteriorFixedAvx2 = nullptr;
const InteriorLoop kDrawMaskedFixedAvx2 = nullptr;

#endif
