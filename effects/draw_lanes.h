// The vector version of DrawPictureFQPX's interior pixels: four destination pixels at a time,
// each in a lane of its own that does the plain loop's double operations in the plain loop's
// order (the products, their truncations, the remaining weight's subtractions); only integer
// additions, whose order cannot change a 32-bit wrapping sum, are done side by side.
#pragma once

#include <cstdint>
#include <cstring>

#include "draw_rows.h"

// Where the channels lie, as bit shifts within a pixel's 32-bit little-endian word.
struct LaneLayout {
  int pictureShift[3];  // red, green, blue of the picture's pixels
  int maskByte;         // the byte of a mask pixel that holds its value (its red byte)
  int destShift[3];     // red, green, blue of the destination's pixels
  uint32_t fourth;      // the destination's fourth byte, in place
  uint32_t keep;        // every bit but the fourth byte's
};

// A run of destination pixels whose four neighbours all lie in the picture (and in the mask).
struct InteriorRun {
  const uint8_t* top;      // the first pixel's top-left neighbour; top-right follows it
  const uint8_t* bottom;   // its bottom-left neighbour; bottom-right follows it
  const uint8_t* topMask;  // the mask pixels at `top` and `bottom` (masked calls only)
  const uint8_t* bottomMask;
  uint8_t* destination;
  int64_t count;
};

// Draws the run's pixels in groups of four and answers how many it drew; the caller draws
// the rest one by one.
using InteriorLoop = int64_t (*)(const DrawPlan& plan, const LaneLayout& layout,
                                 const InteriorRun& run);

// The versions of the loop in doubles and, null where the processor has none, in fixed point
// without and with a mask (draw_fixed.h); the AVX2 ones run only on processors with AVX2.
extern const InteriorLoop kDrawInteriorVector128;
extern const InteriorLoop kDrawInteriorFixed128;
extern const InteriorLoop kDrawMaskedFixed128;
extern const InteriorLoop kDrawInteriorAvx2;
extern const InteriorLoop kDrawInteriorFixedAvx2;
extern const InteriorLoop kDrawMaskedFixedAvx2;

// The loop itself, written once over `Lanes`, which supplies four double lanes: `D`, and
// `Broadcast`, `FromInts`, `Of` (four doubles), `Truncate` (toward zero; NaN and values outside
// the 32-bit range give the most negative integer) and `Positive` (all bits set where a lane
// is greater than 0.0). Instantiated in the version's own file; the
// unnamed namespace keeps each file's copy, built for its own instruction set, to itself.
namespace draw_lanes {
namespace {

typedef int32_t Ints __attribute__((vector_size(16)));
typedef uint32_t Words __attribute__((vector_size(16)));

inline Words LoadWords(const uint8_t* p) {
  Words w;
  std::memcpy(&w, p, sizeof w);
  return w;
}

inline Ints AsInts(Words w) {
  return __builtin_convertvector(w, Ints);
}
inline Words AsWords(Ints v) {
  return __builtin_convertvector(v, Words);
}

inline Ints Byte(Words pixels, int shift) {
  return AsInts((pixels >> shift) & 0xFF);
}

template <class Lanes>
int64_t DrawInterior(const DrawPlan& plan, const LaneLayout& layout, const InteriorRun& run) {
  using D = typename Lanes::D;
  const D one = Lanes::Broadcast(1.0);
  D fixed[kNeighbours];
  for (int k = 0; k < kNeighbours; ++k) fixed[k] = Lanes::Broadcast(plan.weight[k]);

  int64_t i = 0;
  for (; i + 4 <= run.count; i += 4) {
    const Words pixel[kNeighbours] = {LoadWords(run.top + 4 * i), LoadWords(run.top + 4 * i + 4),
                                      LoadWords(run.bottom + 4 * i + 4),
                                      LoadWords(run.bottom + 4 * i)};
    const Words old = LoadWords(run.destination + 4 * i);

    D e[kNeighbours];
    if (plan.masked) {
      // Table entries read one by one: gathering them is slower on many processors.
      const uint8_t* red[kNeighbours] = {
          run.topMask + 4 * i + layout.maskByte, run.topMask + 4 * i + 4 + layout.maskByte,
          run.bottomMask + 4 * i + 4 + layout.maskByte, run.bottomMask + 4 * i + layout.maskByte};
      for (int k = 0; k < kNeighbours; ++k) {
        const double* table = plan.maskWeight[k];
        e[k] = Lanes::Of(table[red[k][0]], table[red[k][4]], table[red[k][8]], table[red[k][12]]);
      }
    } else {
      for (int k = 0; k < kNeighbours; ++k) e[k] = fixed[k];
    }
    D remaining = one;
    for (int k = 0; k < kNeighbours; ++k) remaining = remaining - e[k];
    const Words useOld = AsWords(Lanes::Positive(remaining));

    Words out = Words{} + layout.fourth;
    for (int c = 0; c < 3; ++c) {
      Words sum{};
      for (int k = 0; k < kNeighbours; ++k) {
        const D v = Lanes::FromInts(Byte(pixel[k], layout.pictureShift[c]));
        sum += AsWords(Lanes::Truncate(v * e[k]));
      }
      const D v = Lanes::FromInts(Byte(old, layout.destShift[c]));
      sum += AsWords(Lanes::Truncate(v * remaining)) & useOld;
      Ints value = AsInts(sum);
      value = value < 0 ? Ints{} : value;
      value = value > 255 ? Ints{} + 255 : value;
      out |= AsWords(value) << layout.destShift[c];
    }
    std::memcpy(run.destination + 4 * i, &out, sizeof out);
  }
  return i;
}

}  // namespace
}  // namespace draw_lanes
