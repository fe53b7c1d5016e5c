// CorrectlyRoundedSin against the sine in quad precision (113 bits) rounded to a double, over
// the arguments the Lanczos kernels give and the ones hardest for the argument reduction.
#include "correctly_rounded_sin.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#if defined(QPX_HAVE_QUADMATH)
#include <quadmath.h>
#endif

namespace {

constexpr double kPi = 3.141592653589793;

// The quad-precision sine: libquadmath's on x86, the C library's long double (binary128) one
// on processors where long double is quad precision. Either is within an ulp of 113 bits, far
// closer than the half unit of 53 bits that rounding to a double needs, except for arguments
// whose sine lies within about 2^-112 of a midpoint between doubles.
#if defined(QPX_HAVE_QUADMATH)
using Quad = __float128;
constexpr bool kHaveQuadSine = true;
Quad QuadSine(Quad y) {
  return sinq(y);
}
Quad QuadHalfPi() {
  return acosq(Quad(0));
}
#elif LDBL_MANT_DIG == 113
using Quad = long double;
constexpr bool kHaveQuadSine = true;
Quad QuadSine(Quad y) {
  return std::sin(y);
}
Quad QuadHalfPi() {
  return std::acos(Quad(0));
}
#else
using Quad = long double;
constexpr bool kHaveQuadSine = false;
Quad QuadSine(Quad) {
  return 0;
}
Quad QuadHalfPi() {
  return 0;
}
#endif

double CorrectlyRoundedReference(double y) {
  return static_cast<double>(QuadSine(static_cast<Quad>(y)));
}

// Every argument's sine must be the reference's double, bit for bit (and so the sign of 0).
void ExpectMatchesQuadPrecision(const std::vector<double>& arguments) {
  if (!kHaveQuadSine) GTEST_SKIP() << "no quad-precision sine on this platform";
  size_t mismatches = 0;
  std::ostringstream first;
  for (double y : arguments) {
    const double expected = CorrectlyRoundedReference(y), actual = CorrectlyRoundedSin(y);
    if (actual == expected && std::signbit(actual) == std::signbit(expected)) continue;
    if (++mismatches <= 10) first << std::hexfloat << " sin(" << y << ") = " << actual;
  }
  EXPECT_EQ(mismatches, 0u) << "of " << arguments.size() << " arguments:" << first.str();
  ::testing::Test::RecordProperty("arguments", std::to_string(arguments.size()));
}

// `count` doubles on each side of `center` (and `center`), stepping one unit in the last place.
void AddNeighbours(std::vector<double>& arguments, double center, int count) {
  arguments.push_back(center);
  double below = center, above = center;
  for (int step = 0; step < count; ++step) {
    below = std::nextafter(below, -std::numeric_limits<double>::infinity());
    above = std::nextafter(above, std::numeric_limits<double>::infinity());
    arguments.push_back(below);
    arguments.push_back(above);
  }
}

// The double nearest k pi/2.
double NearestMultipleOfHalfPi(int64_t k) {
  return static_cast<double>(static_cast<Quad>(k) * QuadHalfPi());
}

// The kernels' arguments: y = t pi, (t / 3) pi and (t * 0.125) pi for distances t up to 8.
std::vector<double> LanczosArguments(int steps) {
  std::vector<double> arguments;
  for (int i = 1; i <= steps; ++i) {
    const double t = static_cast<double>(i) * (8.0 / steps);
    for (double second : {t, t / 3.0, t * 0.125}) arguments.push_back(second * kPi);
  }
  return arguments;
}

// Near k pi/2 the remainder of the reduction is tiny and all its bits matter; the doubles
// nearest k pi are where sinc is evaluated at whole distances. Both signs.
std::vector<double> ArgumentsNearMultiplesOfHalfPi() {
  std::vector<double> arguments;
  for (int k = 1; k <= 16; ++k) AddNeighbours(arguments, NearestMultipleOfHalfPi(k), 2000);
  for (int k = 1; k <= 8; ++k) AddNeighbours(arguments, k * kPi, 100);
  // The closest approach to a multiple of pi/2 below 2^20 is the double nearest 29 pi/2.
  for (int64_t k = 17; k * kPi / 2.0 < kCorrectlyRoundedSinLimit; k += 7) {
    arguments.push_back(NearestMultipleOfHalfPi(k));
  }
  AddNeighbours(arguments, NearestMultipleOfHalfPi(29), 100);
  const size_t positive = arguments.size();
  for (size_t i = 0; i < positive; ++i) arguments.push_back(-arguments[i]);
  return arguments;
}

// Subnormal to 2^-20, and around 2^-26, below which sin y rounds to y itself.
std::vector<double> TinyArguments() {
  std::mt19937_64 rng(26);
  std::uniform_real_distribution<double> mantissa(1.0, 2.0);
  std::vector<double> arguments = {std::numeric_limits<double>::denorm_min(),
                                   std::numeric_limits<double>::min()};
  for (int exponent = -1074; exponent <= -20; ++exponent) {
    for (int i = 0; i < 50; ++i) {
      const double y = std::ldexp(mantissa(rng), exponent);
      arguments.push_back(y);
      arguments.push_back(-y);
    }
  }
  AddNeighbours(arguments, 0x1p-26, 20000);
  return arguments;
}

// Uniform over the domain, and with magnitudes spread evenly over its binades.
std::vector<double> RandomArguments(uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> uniform(-kCorrectlyRoundedSinLimit,
                                                 kCorrectlyRoundedSinLimit);
  std::uniform_real_distribution<double> mantissa(1.0, 2.0);
  std::uniform_int_distribution<int> exponent(-26, 19);
  std::vector<double> arguments;
  for (int i = 0; i < 250000; ++i) {
    arguments.push_back(uniform(rng));
    const double y = std::ldexp(mantissa(rng), exponent(rng));
    arguments.push_back(i % 2 == 0 ? y : -y);
  }
  return arguments;
}

TEST(CorrectlyRoundedSin, MatchesQuadPrecisionOnTheLanczosArguments) {
  ExpectMatchesQuadPrecision(LanczosArguments(500000));
}

TEST(CorrectlyRoundedSin, MatchesQuadPrecisionNearMultiplesOfHalfPi) {
  ExpectMatchesQuadPrecision(ArgumentsNearMultiplesOfHalfPi());
}

TEST(CorrectlyRoundedSin, MatchesQuadPrecisionOnTinyArguments) {
  ExpectMatchesQuadPrecision(TinyArguments());
}

TEST(CorrectlyRoundedSin, MatchesQuadPrecisionOnRandomArguments) {
  ExpectMatchesQuadPrecision(RandomArguments(20));
}

// Wherever the fast path answers, it must give the accurate path's double bit for bit, and so
// must CorrectlyRoundedSin (which falls back on the accurate path elsewhere).
void ExpectFastMatchesAccurate(const std::vector<double>& arguments) {
  size_t mismatches = 0;
  std::ostringstream first;
  for (double y : arguments) {
    const double accurate = CorrectlyRoundedSinAccurate(y);
    const std::optional<double> fast = CorrectlyRoundedSinFast(y);
    const double combined = CorrectlyRoundedSin(y);
    const auto same = [accurate](double s) {
      return s == accurate && std::signbit(s) == std::signbit(accurate);
    };
    if ((!fast || same(*fast)) && same(combined)) continue;
    if (++mismatches <= 10) first << std::hexfloat << " sin(" << y << ")";
  }
  EXPECT_EQ(mismatches, 0u) << "of " << arguments.size() << " arguments:" << first.str();
}

TEST(CorrectlyRoundedSin, FastPathEqualsAccuratePathOnTheLanczosArguments) {
  ExpectFastMatchesAccurate(LanczosArguments(1000000));
}

TEST(CorrectlyRoundedSin, FastPathEqualsAccuratePathNearMultiplesOfHalfPi) {
  ExpectFastMatchesAccurate(ArgumentsNearMultiplesOfHalfPi());
}

TEST(CorrectlyRoundedSin, FastPathEqualsAccuratePathOnTinyAndRandomArguments) {
  ExpectFastMatchesAccurate(TinyArguments());
  ExpectFastMatchesAccurate(RandomArguments(21));
}

// The fast path refuses only where the remainder of y by pi/2 is below 2^-12 in a quadrant of
// sin r (about 2^-12 / (pi/2) of the sin quadrants' arguments, plus the whole distances) or
// where its 2^-64 error interval straddles a rounding boundary (about 2^-10 of them): well
// under 1% of the kernels' arguments.
TEST(CorrectlyRoundedSin, FastPathAnswersForNearlyAllLanczosArguments) {
  const std::vector<double> arguments = LanczosArguments(1000000);
  size_t answered = 0;
  for (double y : arguments) answered += CorrectlyRoundedSinFast(y).has_value() ? 1 : 0;
  EXPECT_GE(static_cast<double>(answered), 0.99 * static_cast<double>(arguments.size()));
  ::testing::Test::RecordProperty("answered", std::to_string(answered));
}

TEST(CorrectlyRoundedSin, FastPathLeavesTheEdgesOfTheDomainToTheAccuratePath) {
  for (double y :
       {0.0, -0.0, 0x1p-27, -1e-300, kCorrectlyRoundedSinLimit, 1e300,
        std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    EXPECT_FALSE(CorrectlyRoundedSinFast(y).has_value()) << y;
  }
  // The double nearest 2 pi leaves a remainder near 2^-51: too small for the fast reduction.
  EXPECT_FALSE(CorrectlyRoundedSinFast(2.0 * kPi).has_value());
  EXPECT_TRUE(CorrectlyRoundedSinFast(1.0).has_value());
}

TEST(CorrectlyRoundedSin, IsOddAndKeepsTheSignOfZero) {
  EXPECT_EQ(CorrectlyRoundedSin(0.0), 0.0);
  EXPECT_FALSE(std::signbit(CorrectlyRoundedSin(0.0)));
  EXPECT_EQ(CorrectlyRoundedSin(-0.0), 0.0);
  EXPECT_TRUE(std::signbit(CorrectlyRoundedSin(-0.0)));
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> uniform(0.0, 100.0);
  for (int i = 0; i < 10000; ++i) {
    const double y = uniform(rng);
    ASSERT_EQ(CorrectlyRoundedSin(-y), -CorrectlyRoundedSin(y)) << y;
  }
  // Tiny arguments are their own sine; pi/2 rounds to a double whose sine rounds to 1.
  EXPECT_EQ(CorrectlyRoundedSin(1e-300), 1e-300);
  EXPECT_EQ(CorrectlyRoundedSin(kPi / 2.0), 1.0);
  EXPECT_EQ(CorrectlyRoundedSin(-kPi / 2.0), -1.0);
}

TEST(CorrectlyRoundedSin, GivesNaNForNaNAndInfinitiesAndTheLibrarySineBeyondItsDomain) {
  for (double y :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    EXPECT_TRUE(std::isnan(CorrectlyRoundedSin(y))) << y;
  }
  for (double y : {kCorrectlyRoundedSinLimit, -kCorrectlyRoundedSinLimit, 1e10, 1e300}) {
    EXPECT_EQ(CorrectlyRoundedSin(y), std::sin(y)) << y;
  }
  const double below = std::nextafter(kCorrectlyRoundedSinLimit, 0.0);
  if (kHaveQuadSine) {
    EXPECT_EQ(CorrectlyRoundedSin(below), CorrectlyRoundedReference(below));
  }
}

}  // namespace
