// The sine is evaluated in double-double arithmetic (an unevaluated sum hi + lo of two doubles,
// about 106 bits) built from error-free transformations that use only IEEE additions and
// multiplications, then rounded once to a double. No fused multiply-add and no wider
// intermediate format may take part, or processors would differ again: the build passes
// -ffp-contract=off, and the check below refuses x87 excess precision.
//
// 1. Reduction: n = nearest integer to y / (pi/2) and r = y - n pi/2. pi/2 is split into six
//    doubles of at most 33 significant bits each, so each n * part (|n| < 2^20) is an exact
//    double; y and the six products are summed exactly as an expansion. What is left out of
//    pi/2 is below 2^-214, so r carries an absolute error below 2^-194. Over all doubles with
//    pi/4 < |y| < 2^20 the smallest |y - n pi/2| is about 2^-60.5 (y nearest 29 pi/2), so r is
//    accurate to better than 2^-130 relative, even where y is the double nearest a multiple of
//    pi (the sinc kernels at whole distances).
// 2. By the quadrant n mod 4, sin y is sin r, cos r, -sin r or -cos r, with |r| <= pi/4 (up to
//    rounding of n). Their Taylor series are summed in double-double up to r^27 / 27! and
//    r^28 / 28!; the first omitted terms are below 2^-112 of the result. With the rounding
//    errors of the double-double operations, the whole result is within about 2^-100
//    (relative) of the exact sine, and rounding it gives the correctly rounded double unless
//    the exact sine lies that close to a midpoint between two doubles.
//
// That costs a few hundred nanoseconds, so a fast evaluation comes first (Ziv's strategy) and
// the accurate one runs only where the fast one cannot prove the rounding. Its error bound:
// a. r = y - n (three parts of pi/2) in double-double: the parts are exact products, their sum
//    is exact up to one rounding below 2^-100, and the omitted parts of pi/2 are below 2^-103,
//    so |error| < 2^-82.9 absolute (n < 2^20); n = 0 leaves r = y exact. In the quadrants of
//    sin r the fast path refuses n != 0 with |r| < 2^-12, so r is good to 2^-70.9 relative.
// b. r = a + h with a = i/256 and |h| <= 2^-9 (exact by Sterbenz), and sin a, cos a from a
//    table built at compile time by the accurate series (relative error below 2^-99). The
//    value A cos h + B sin h (A, B = sin a, cos a or cos a, -sin a) is A + B h in
//    double-double plus A (cos h - 1) + B (sin h - h) in plain doubles from h^2 <= 2^-18:
//    those two terms are below 2^-19 |A| and 2^-20.6 |h| and carry relative errors below
//    2^-49.5, so the absolute error is below 2^-68.5 |A| + 2^-69.9 |h| + 2^-99 (|A| + |h|).
// c. Relative to the result: in the cos r quadrants |A| <= 1, |h| <= 2^-9 and the result is
//    above 0.7; in the sin r quadrants i = 0 gives A = 0 and a result above 0.99 |h|, and
//    i >= 1 gives a + h >= a / 2 >= |h|, so |A| <= 2 sin(a + h) and |h| <= 1.13 sin(a + h).
//    With (a), every case is within 2^-66 of the exact sine (relative); the rounding test
//    allows 2^-64 and returns only when both ends of that interval round to the same double.
//    A sine within 2^-100 of a midpoint never passes, so the results equal the accurate ones.
#include "correctly_rounded_sin.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>

#if !defined(FLT_EVAL_METHOD) || FLT_EVAL_METHOD != 0
#error "double-double arithmetic needs plain double evaluation (use -msse2 -mfpmath=sse on x86)"
#endif

namespace {

struct DoubleDouble {
  double hi;
  double lo;
};

// a + b = hi + lo exactly (Knuth), for any a and b.
constexpr DoubleDouble TwoSum(double a, double b) {
  const double s = a + b;
  const double bVirtual = s - a;
  const double aVirtual = s - bVirtual;
  return {s, (a - aVirtual) + (b - bVirtual)};
}

// a + b = hi + lo exactly (Dekker), when |a| >= |b| or a is 0.
constexpr DoubleDouble FastTwoSum(double a, double b) {
  const double s = a + b;
  return {s, b - (s - a)};
}

// a = hi + lo with each half of at most 26 significant bits (Veltkamp).
constexpr DoubleDouble Split(double a) {
  const double c = 134217729.0 * a;  // 2^27 + 1
  const double hi = c - (c - a);
  return {hi, a - hi};
}

// a * b = hi + lo exactly (Dekker), without a fused multiply-add.
constexpr DoubleDouble TwoProduct(double a, double b) {
  const double p = a * b;
  const DoubleDouble as = Split(a), bs = Split(b);
  const double err = ((as.hi * bs.hi - p) + as.hi * bs.lo + as.lo * bs.hi) + as.lo * bs.lo;
  return {p, err};
}

constexpr DoubleDouble Add(DoubleDouble a, DoubleDouble b) {
  DoubleDouble s = TwoSum(a.hi, b.hi);
  const DoubleDouble t = TwoSum(a.lo, b.lo);
  s = FastTwoSum(s.hi, s.lo + t.hi);
  return FastTwoSum(s.hi, s.lo + t.lo);
}

constexpr DoubleDouble Multiply(DoubleDouble a, DoubleDouble b) {
  const DoubleDouble p = TwoProduct(a.hi, b.hi);
  return FastTwoSum(p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi));
}

constexpr DoubleDouble DivideByWhole(DoubleDouble a, double d) {
  const double q = a.hi / d;
  const DoubleDouble p = TwoProduct(q, d);
  return FastTwoSum(q, (((a.hi - p.hi) - p.lo) + a.lo) / d);
}

// 1 / k! for k = 0 to 29, each from the one before by a double-double division.
struct InverseFactorials {
  DoubleDouble value[30];
  constexpr InverseFactorials() : value{} {
    value[0] = {1.0, 0.0};
    for (int k = 1; k < 30; ++k) value[k] = DivideByWhole(value[k - 1], k);
  }
};
constexpr InverseFactorials kInverseFactorials;

// sum over k = 1 to `terms` of (-1)^k z^k / (2k + first)!, in Horner's form. The terms from
// k = `exactTerms` + 1 on are below 2^-50 of the sum's leading 1, so plain doubles carry them.
constexpr DoubleDouble AlternatingSeries(DoubleDouble z, int first, int exactTerms, int terms) {
  auto coefficient = [first](int k) {
    const DoubleDouble c = kInverseFactorials.value[2 * k + first];
    return k % 2 == 1 ? DoubleDouble{-c.hi, -c.lo} : c;
  };
  double tail = 0.0;
  for (int k = terms; k > exactTerms; --k) tail = (tail + coefficient(k).hi) * z.hi;
  DoubleDouble sum = {tail, 0.0};
  for (int k = exactTerms; k >= 1; --k) sum = Multiply(Add(sum, coefficient(k)), z);
  return sum;
}

// sin r = r + r (-z/3! + z^2/5! - ...) and cos r = 1 + (-z/2! + z^2/4! - ...), z = r^2 <= 0.62.
// The series end where the next term is below 2^-112 of the result.
constexpr DoubleDouble SinOfReduced(DoubleDouble r) {
  return Add(r, Multiply(r, AlternatingSeries(Multiply(r, r), 1, 7, 13)));
}

constexpr DoubleDouble CosOfReduced(DoubleDouble r) {
  return Add({1.0, 0.0}, AlternatingSeries(Multiply(r, r), 0, 8, 14));
}

// pi/2 = sum of the parts + (a rest below 2^-214); 33 significant bits each.
constexpr double kHalfPiParts[] = {
    0x1.921fb544p+0,   0x1.0b4611a6p-34,  0x1.3198a2ep-69,
    0x1.b839a252p-104, 0x1.27044534p-142, -0x1.9c5fefa2p-178,
};
constexpr double kTwoOverPi = 0.6366197723675814;
constexpr int kExpansionLength = std::size(kHalfPiParts);

// An expansion: doubles whose exact sum is the value, smaller magnitudes first, none
// overlapping another's bits (Shewchuk). Adding a double keeps the sum exact.
struct Expansion {
  double part[kExpansionLength] = {};
  int length = 0;

  void Grow(double b) {
    for (int i = 0; i < length; ++i) {
      const DoubleDouble s = TwoSum(b, part[i]);
      part[i] = s.lo;
      b = s.hi;
    }
    part[length++] = b;
  }

  // The sum to double-double precision. Growing with round-to-nearest-even leaves the parts
  // strongly nonoverlapping, so the largest part is within a factor of 4 of the sum and adding
  // from the smallest up loses no more than a few units of 2^-106 of the sum.
  DoubleDouble Sum() const {
    DoubleDouble sum = {0.0, 0.0};
    for (int i = 0; i < length; ++i) sum = Add(sum, {part[i], 0.0});
    return sum;
  }
};

// y - n pi/2 for pi/4 < y < 2^20 and n >= 1 the nearest whole number to y / (pi/2). y - n
// times the first part is exact: the two agree to within a factor of two, or the difference is
// a multiple of y's last place below 1.
DoubleDouble ReduceByHalfPi(double y, double n) {
  Expansion remainder;
  remainder.Grow(y - n * kHalfPiParts[0]);
  for (size_t i = 1; i < std::size(kHalfPiParts); ++i) remainder.Grow(-(n * kHalfPiParts[i]));
  return remainder.Sum();
}

constexpr DoubleDouble Negate(DoubleDouble a) {
  return {-a.hi, -a.lo};
}

// The whole number nearest x (ties to even) for |x| < 2^51: adding 1.5 * 2^52 rounds x to a
// whole number, and subtracting it back is exact.
double NearestWhole(double x) {
  constexpr double kShift = 0x1.8p52;
  return (x + kShift) - kShift;
}

// y - n pi/2 from the first three parts of pi/2, for the fast path: each n * part is exact,
// y - n * part 0 is exact (see ReduceByHalfPi) and the sum is rounded once, in its low half.
DoubleDouble ReduceByHalfPiFast(double y, double n) {
  const DoubleDouble s = TwoSum(y - n * kHalfPiParts[0], -(n * kHalfPiParts[1]));
  return TwoSum(s.hi, s.lo - n * kHalfPiParts[2]);
}

// sin and cos of i / kTableSteps for 0 <= i / kTableSteps < 0.8, which covers |r| <= pi/4.
constexpr int kTableSteps = 256;
constexpr int kTableSize = static_cast<int>(0.8 * kTableSteps);
struct SineCosineTable {
  DoubleDouble sine[kTableSize];
  DoubleDouble cosine[kTableSize];
  constexpr SineCosineTable() : sine{}, cosine{} {
    for (int i = 0; i < kTableSize; ++i) {
      const DoubleDouble a = {static_cast<double>(i) / kTableSteps, 0.0};
      sine[i] = SinOfReduced(a);
      cosine[i] = CosOfReduced(a);
    }
  }
};
constexpr SineCosineTable kSineCosineTable;

// A cos h + B sin h for |h| <= 2^-9: A + B h in double-double, and the small terms
// A (cos h - 1) and B (sin h - h) by short series in plain doubles.
DoubleDouble Rotate(DoubleDouble a, DoubleDouble b, DoubleDouble h) {
  const double hs = h.hi + h.lo;
  const double q = hs * hs;
  const double cosMinusOne = q * (-0.5 + q * (1.0 / 24.0 - q * (1.0 / 720.0)));
  const double sinMinusH = hs * q * (-1.0 / 6.0 + q * (1.0 / 120.0 - q * (1.0 / 5040.0)));
  const DoubleDouble bh = Multiply(b, h);
  return Add(Add(a, bh), {a.hi * cosMinusOne + b.hi * sinMinusH, 0.0});
}

// The fast path's relative error bound, with a margin (see the top of the file).
constexpr double kFastRelativeError = 0x1p-64;
// Below this |r| in the sin r quadrants, the reduction's absolute error is too large.
constexpr double kFastSmallestSineRemainder = 0x1p-12;

}  // namespace

std::optional<double> CorrectlyRoundedSinFast(double y) {
  const double magnitude = std::fabs(y);
  if (!(magnitude >= 0x1p-26 && magnitude < kCorrectlyRoundedSinLimit)) return std::nullopt;
  const double n = NearestWhole(magnitude * kTwoOverPi);
  DoubleDouble r = n == 0.0 ? DoubleDouble{magnitude, 0.0} : ReduceByHalfPiFast(magnitude, n);
  const int quadrant = static_cast<int>(static_cast<int64_t>(n) % 4);
  const bool sineQuadrant = quadrant % 2 == 0;
  if (sineQuadrant && n != 0.0 && std::fabs(r.hi) < kFastSmallestSineRemainder) {
    return std::nullopt;
  }
  // sin(-r) = -sin r and cos(-r) = cos r.
  bool negative = quadrant >= 2;
  if (r.hi < 0.0) {
    r = Negate(r);
    negative = negative != sineQuadrant;
  }
  const double i = NearestWhole(r.hi * kTableSteps);
  const DoubleDouble h = {r.hi - i / kTableSteps, r.lo};
  const DoubleDouble sine = kSineCosineTable.sine[static_cast<int>(i)];
  const DoubleDouble cosine = kSineCosineTable.cosine[static_cast<int>(i)];
  const DoubleDouble value =
      sineQuadrant ? Rotate(sine, cosine, h) : Rotate(cosine, Negate(sine), h);
  // Monotonic rounding: if both ends of the error interval round alike, so does the sine.
  const double error = std::fabs(value.hi) * kFastRelativeError;
  const double low = value.hi + (value.lo - error), high = value.hi + (value.lo + error);
  if (low != high) return std::nullopt;
  return negative != std::signbit(y) ? -low : low;
}

double CorrectlyRoundedSin(double y) {
  if (const std::optional<double> fast = CorrectlyRoundedSinFast(y)) return *fast;
  return CorrectlyRoundedSinAccurate(y);
}

double CorrectlyRoundedSinAccurate(double y) {
  if (!std::isfinite(y)) return std::numeric_limits<double>::quiet_NaN();
  const double magnitude = std::fabs(y);
  if (magnitude >= kCorrectlyRoundedSinLimit) return std::sin(y);
  // Below 2^-26, y^3/6 is less than half a unit in the last place of y: sin y rounds to y.
  if (magnitude < 0x1p-26) return y;
  const double n = std::round(magnitude * kTwoOverPi);
  const DoubleDouble r = n == 0.0 ? DoubleDouble{magnitude, 0.0} : ReduceByHalfPi(magnitude, n);
  const int quadrant = static_cast<int>(static_cast<int64_t>(n) % 4);
  const DoubleDouble value = quadrant % 2 == 0 ? SinOfReduced(r) : CosOfReduced(r);
  const double rounded = value.hi;  // the halves are normalised: hi is hi + lo rounded
  const double sine = quadrant >= 2 ? -rounded : rounded;
  return std::signbit(y) ? -sine : sine;
}
