// ScalingQPX's mode table, kernels and contributor lists, checked against their formulas: the
// kernels at the distances that matter with hand values or the formula written out, sweeps bit
// for bit against the plain kernels of scaling_reference.h, and contributor lists compared entry
// by entry with lists built candidate by candidate, on many sizes.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "contributors.h"
#include "correctly_rounded_sin.h"
#include "filter_kernels.h"
#include "scaling_reference.h"

namespace {

using qpxtest::ListDirection;
using qpxtest::ReferenceContributorLists;
using qpxtest::ReferenceList;

constexpr double kPi = 3.141592653589793;

FilterKernel KernelOf(int32_t mode) {
  return FindResamplingMode(mode)->kernel;
}

// Both absent, or both present with the same bits.
::testing::AssertionResult SameValue(std::optional<double> expected, std::optional<double> actual) {
  if (expected.has_value() != actual.has_value()) {
    return ::testing::AssertionFailure()
           << (actual ? "applied" : "not applied") << ", expected the opposite";
  }
  if (expected && std::bit_cast<uint64_t>(*expected) != std::bit_cast<uint64_t>(*actual)) {
    return ::testing::AssertionFailure()
           << std::hexfloat << *actual << ", expected " << *expected << std::defaultfloat;
  }
  return ::testing::AssertionSuccess();
}

bool SameBits(float a, float b) {
  return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b);
}

// --- Mode table --------------------------------------------------------------------------------

TEST(ScalingModes, SevenModesWithTheirKernelsRadiiAndCapacities) {
  struct Row {
    int32_t mode;
    FilterKernel kernel;
    double radius;
    int32_t across, down;
  };
  const Row rows[] = {{1, TriangleKernel, 1.0, 4, 4}, {2, BoxKernel, 0.5, 2, 3},
                      {3, Lanczos3Kernel, 3.0, 8, 8}, {4, Lanczos8Kernel, 8.0, 18, 18},
                      {5, MitchellKernel, 2.0, 6, 6}, {6, CubicKernel, 4.0, 10, 10},
                      {7, Cubic6Kernel, 3.0, 8, 8}};
  for (const Row& row : rows) {
    SCOPED_TRACE("mode " + std::to_string(row.mode));
    const ResamplingMode* mode = FindResamplingMode(row.mode);
    ASSERT_NE(mode, nullptr);
    EXPECT_NE(mode->name, nullptr);
    EXPECT_EQ(mode->kernel, row.kernel);
    EXPECT_EQ(mode->radius, row.radius);
    EXPECT_EQ(mode->capacityAcross, row.across);
    EXPECT_EQ(mode->capacityDown, row.down);
    // The reference lists below use the same table.
    const qpxtest::ScalingMode reference = qpxtest::ReferenceScalingMode(row.mode).value();
    EXPECT_EQ(reference.radius, row.radius);
    EXPECT_EQ(reference.capacityAcross, row.across);
    EXPECT_EQ(reference.capacityDown, row.down);
  }
  for (int32_t mode : {0, 8, 9, -1, -7, 100, std::numeric_limits<int32_t>::min(),
                       std::numeric_limits<int32_t>::max()}) {
    EXPECT_EQ(FindResamplingMode(mode), nullptr) << mode;
  }
}

// --- Kernels at the distances that matter --------------------------------------------------

TEST(ScalingKernels, TriangleIsNotAppliedFromOneOn) {
  EXPECT_EQ(TriangleKernel(0.0), 1.0);
  EXPECT_EQ(TriangleKernel(0.25), 0.75);
  EXPECT_EQ(TriangleKernel(0.5), 0.5);
  EXPECT_EQ(TriangleKernel(std::nextafter(1.0, 0.0)), 0x1p-53);
  for (double x : {1.0, std::nextafter(1.0, 2.0), 1.5, 2.0, 100.0}) {
    EXPECT_EQ(TriangleKernel(x), std::nullopt) << x;
  }
}

TEST(ScalingKernels, BoxIncludesOneHalfAndIsZeroBeyond) {
  for (double x : {0.0, 0.25, std::nextafter(0.5, 0.0), 0.5}) {
    EXPECT_EQ(BoxKernel(x), std::optional<double>(1.0)) << x;
  }
  for (double x : {std::nextafter(0.5, 1.0), 0.75, 1.0, 3.0}) {
    EXPECT_EQ(BoxKernel(x), std::optional<double>(0.0)) << x;
  }
}

// A Lanczos kernel of `lobes` lobes is 1 at 0, sinc(x) sinc(x / lobes) written out below it
// (the second argument formed as `second` forms it) and not applied from `lobes` on. sin(k pi)
// is not exactly 0 in doubles, so whole distances give tiny non-zero values.
void ExpectLanczos(FilterKernel kernel, double lobes, double (*second)(double)) {
  EXPECT_EQ(kernel(0.0), 1.0);
  for (double x = 0.25; x < lobes; x += 0.25) {
    const double y = x * kPi, z = second(x) * kPi;
    const double expected = CorrectlyRoundedSin(y) / y * (CorrectlyRoundedSin(z) / z);
    EXPECT_TRUE(SameValue(expected, kernel(x))) << x;
    if (x == std::floor(x)) {
      EXPECT_NE(expected, 0.0) << x;
      EXPECT_LT(std::fabs(expected), 1e-15) << x;
    }
  }
  EXPECT_TRUE(kernel(std::nextafter(lobes, 0.0)).has_value());
  EXPECT_EQ(kernel(lobes), std::nullopt);
  EXPECT_EQ(kernel(lobes + 1.0), std::nullopt);
}

TEST(ScalingKernels, LanczosThreeIsTinyAtWholeDistancesAndNotAppliedFromThree) {
  ExpectLanczos(Lanczos3Kernel, 3.0, [](double x) { return x / 3.0; });
}

TEST(ScalingKernels, LanczosEightIsTinyAtWholeDistancesAndNotAppliedFromEight) {
  ExpectLanczos(Lanczos8Kernel, 8.0, [](double x) { return x * 0.125; });
}

// The constants written as decimals: 16/3, -7/3 and 32/3.
TEST(ScalingKernels, MitchellIsSixteenEighteenthsAtZeroAndOneEighteenthAtOne) {
  const double atZero = (7.0 * 0.0 * 0.0 - 12.0 * 0.0 + 5.333333333333333) / 6.0;
  EXPECT_TRUE(SameValue(atZero, MitchellKernel(0.0)));
  EXPECT_NEAR(atZero, 16.0 / 18.0, 1e-15);
  // 1.0 is not below 1.0: the second piece.
  const double atOne =
      (-2.3333333333333335 * 1.0 * 1.0 + 12.0 * 1.0 - 20.0 * 1.0 + 10.666666666666666) / 6.0;
  EXPECT_TRUE(SameValue(atOne, MitchellKernel(1.0)));
  EXPECT_NEAR(atOne, 1.0 / 18.0, 1e-15);
  const double x = std::nextafter(1.0, 0.0);
  EXPECT_TRUE(
      SameValue((7.0 * x * (x * x) - 12.0 * (x * x) + 5.333333333333333) / 6.0, MitchellKernel(x)));
  EXPECT_TRUE(MitchellKernel(std::nextafter(2.0, 0.0)).has_value());
  EXPECT_EQ(MitchellKernel(2.0), std::nullopt);
  EXPECT_EQ(MitchellKernel(3.0), std::nullopt);
}

// Whole numbers and halves keep every step exact: (1.25 x - 2.25) x x + 1 and
// ((-0.75 x + 3.75) x - 6) x + 3.
TEST(ScalingKernels, CubicIsExactlyZeroAtOneAndNotAppliedFromTwo) {
  EXPECT_EQ(CubicKernel(0.0), 1.0);
  EXPECT_EQ(CubicKernel(0.5), 0.59375);
  EXPECT_EQ(CubicKernel(1.0), std::optional<double>(0.0));
  EXPECT_EQ(CubicKernel(1.5), -0.09375);
  EXPECT_TRUE(CubicKernel(std::nextafter(2.0, 0.0)).has_value());
  for (double x : {2.0, 3.0, 4.0}) EXPECT_EQ(CubicKernel(x), std::nullopt) << x;
}

// Each piece as (c3 x^2) x + c2 x^2 + c1 x + c0 with the constants written as decimals:
// -2.2e-16 at 1, -8.9e-16 at 2 and exactly 0 at 3.
TEST(ScalingKernels, SixPointCubicIsNearZeroAtOneTwoAndThree) {
  EXPECT_EQ(Cubic6Kernel(0.0), 1.0);
  const double atOne = 1.3333333333333333 * 1.0 * 1.0 + -2.3333333333333335 * 1.0 + 1.0;
  const double atTwo = -0.5833333333333334 * 4.0 * 2.0 + 3.0 * 4.0 + -4.916666666666667 * 2.0 + 2.5;
  const double atThree =
      0.08333333333333333 * 9.0 * 3.0 + -0.6666666666666666 * 9.0 + 1.75 * 3.0 + -1.5;
  const double atHalf = 1.3333333333333333 * 0.25 * 0.5 + -2.3333333333333335 * 0.25 + 1.0;
  EXPECT_TRUE(SameValue(atOne, Cubic6Kernel(1.0)));
  EXPECT_TRUE(SameValue(atTwo, Cubic6Kernel(2.0)));
  EXPECT_TRUE(SameValue(atThree, Cubic6Kernel(3.0)));
  EXPECT_TRUE(SameValue(atHalf, Cubic6Kernel(0.5)));
  for (double value : {atOne, atTwo, atThree}) EXPECT_LT(std::fabs(value), 1e-15);
  EXPECT_EQ(Cubic6Kernel(std::nextafter(3.0, 4.0)), std::nullopt);
  EXPECT_EQ(Cubic6Kernel(4.0), std::nullopt);
}

TEST(ScalingKernels, SincIsOneAtZeroAndSineOverItsArgument) {
  EXPECT_EQ(Sinc(0.0), 1.0);
  std::mt19937 rng(5);
  for (int trial = 0; trial < 1000; ++trial) {
    const double t = std::uniform_real_distribution<double>(-9.0, 9.0)(rng);
    const double y = t * kPi;
    ASSERT_TRUE(SameValue(CorrectlyRoundedSin(y) / y, Sinc(t))) << t;
  }
  EXPECT_NE(Sinc(1.0), 0.0);
  EXPECT_LT(std::fabs(Sinc(1.0)), 1e-16);
}

// Every kernel against its formula on a grid of 1/64 (whole numbers and halves among it), on
// the neighbours of whole and half numbers, and at random distances.
TEST(ScalingKernels, EveryKernelFollowsItsFormulaBitForBit) {
  std::mt19937 rng(17);
  for (int32_t mode = 1; mode <= 7; ++mode) {
    SCOPED_TRACE("mode " + std::to_string(mode));
    const double reach = qpxtest::ReferenceScalingMode(mode)->radius + 1.0;
    std::vector<double> distances;
    for (double x = 0.0; x <= reach; x += 1.0 / 64.0) distances.push_back(x);
    for (double x = 0.5; x <= reach; x += 0.5) {
      distances.push_back(std::nextafter(x, 0.0));
      distances.push_back(std::nextafter(x, reach + 1.0));
    }
    for (int i = 0; i < 4000; ++i) {
      distances.push_back(std::uniform_real_distribution<double>(0.0, reach)(rng));
    }
    for (double x : distances) {
      ASSERT_TRUE(SameValue(qpxtest::ReferenceKernel(mode, x), KernelOf(mode)(x))) << x;
    }
  }
}

// --- Contributor lists -------------------------------------------------------------------------

Direction ModuleDirection(ListDirection direction) {
  return direction == ListDirection::Down ? Direction::Down : Direction::Across;
}

const char* DirectionName(ListDirection direction) {
  return direction == ListDirection::Down ? "down" : "across";
}

// The module's lists for `sourceSize` pixels to `outputs`, scale = outputs / sourceSize,
// freed when they go.
class BuiltLists {
 public:
  BuiltLists(int32_t outputs, int32_t sourceSize, int32_t mode, ListDirection direction)
      : lists_(size_t(outputs), ContributorList{nullptr, 0, 0.0f}) {
    BuildContributorLists(lists_.data(), outputs, sourceSize,
                          static_cast<double>(outputs) / static_cast<double>(sourceSize),
                          *FindResamplingMode(mode), ModuleDirection(direction));
  }
  ~BuiltLists() { FreeContributorLists(lists_.data(), static_cast<int32_t>(lists_.size())); }
  BuiltLists(const BuiltLists&) = delete;
  BuiltLists& operator=(const BuiltLists&) = delete;

  const ContributorList& operator[](size_t i) const { return lists_[i]; }
  std::vector<ContributorList>& lists() { return lists_; }

 private:
  std::vector<ContributorList> lists_;
};

// The same sources, float weights and weight sum bit for bit, in the same order; a nil list
// is nil with count 0 and weight sum 0.
::testing::AssertionResult SameList(const ReferenceList& expected, const ContributorList& actual) {
  if (expected.nil) {
    if (actual.entries == nullptr && actual.count == 0 && actual.weightSum == 0.0f) {
      return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "expected a nil list, count " << actual.count;
  }
  if (actual.entries == nullptr) return ::testing::AssertionFailure() << "nil list";
  if (actual.count != static_cast<int32_t>(expected.entries.size())) {
    return ::testing::AssertionFailure()
           << "count " << actual.count << ", expected " << expected.entries.size();
  }
  for (size_t k = 0; k < expected.entries.size(); ++k) {
    const Contributor& a = actual.entries[k];
    const qpxtest::ReferenceContributor& e = expected.entries[k];
    if (a.pixel != e.pixel || !SameBits(a.weight, e.weight)) {
      return ::testing::AssertionFailure()
             << "entry " << k << ": pixel " << a.pixel << " weight " << std::hexfloat << a.weight
             << ", expected pixel " << e.pixel << " weight " << e.weight;
    }
  }
  if (!SameBits(actual.weightSum, expected.weightSum)) {
    return ::testing::AssertionFailure() << "weight sum " << std::hexfloat << actual.weightSum
                                         << ", expected " << expected.weightSum;
  }
  return ::testing::AssertionSuccess();
}

// Builds the module's lists and checks each against the reference and its capacity. Returns
// the reference lists for further checks.
std::vector<ReferenceList> CheckLists(int32_t outputs, int32_t sourceSize, int32_t mode,
                                      ListDirection direction) {
  std::ostringstream trace;
  trace << "mode " << mode << ", " << sourceSize << " to " << outputs << " "
        << DirectionName(direction);
  SCOPED_TRACE(trace.str());
  const BuiltLists actual(outputs, sourceSize, mode, direction);
  std::vector<ReferenceList> expected =
      ReferenceContributorLists(outputs, sourceSize, mode, direction);
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_TRUE(SameList(expected[i], actual[i])) << "list " << i;
    EXPECT_LE(actual[i].count, expected[i].capacity) << "list " << i;
  }
  return expected;
}

// Sizes of every kind: small both ways, up to 300 both ways, shrinking by large factors (many
// candidates, above all for mode 4), enlarging by large factors, and the same size.
TEST(ContributorLists, MatchTheirDefinitionOnRandomSizes) {
  struct Ranges {
    int32_t outputsFrom, outputsTo, sourceFrom, sourceTo;
  };
  const Ranges kinds[] = {{1, 40, 1, 40}, {1, 300, 1, 300}, {1, 8, 40, 3000}, {9, 600, 1, 8}};
  std::mt19937 rng(23);
  auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
  };
  for (int trial = 0; trial < 700; ++trial) {
    const int32_t mode = 1 + trial % 7;
    const auto direction = (trial / 7) % 2 ? ListDirection::Down : ListDirection::Across;
    const auto kind = static_cast<size_t>(trial / 14) % 5;
    int32_t outputs = pick(1, 120), sourceSize = outputs;
    if (kind < 4) {
      outputs = pick(kinds[kind].outputsFrom, kinds[kind].outputsTo);
      sourceSize = pick(kinds[kind].sourceFrom, kinds[kind].sourceTo);
    }
    CheckLists(outputs, sourceSize, mode, direction);
    if (::testing::Test::HasFailure()) return;
  }
}

// Near the edges the candidate range is cut at 0 and at the last source index, and every list
// keeps at least its nearest source pixel: sources within range and ascending.
TEST(ContributorLists, SourcesStayWithinTheSourceAndAscend) {
  std::mt19937 rng(29);
  for (int trial = 0; trial < 300; ++trial) {
    const int32_t mode = 1 + trial % 7;
    const auto direction = trial % 2 ? ListDirection::Down : ListDirection::Across;
    const int32_t outputs = std::uniform_int_distribution<int32_t>(1, 90)(rng);
    const int32_t sourceSize = std::uniform_int_distribution<int32_t>(1, 90)(rng);
    const BuiltLists lists(outputs, sourceSize, mode, direction);
    for (int32_t i = 0; i < outputs; ++i) {
      const ContributorList& list = lists[size_t(i)];
      ASSERT_GE(list.count, 1) << "mode " << mode << ", list " << i;
      for (int32_t k = 0; k < list.count; ++k) {
        ASSERT_GE(list.entries[k].pixel, 0);
        ASSERT_LT(list.entries[k].pixel, sourceSize);
        if (k > 0) {
          ASSERT_GT(list.entries[k].pixel, list.entries[k - 1].pixel);
        }
      }
    }
  }
}

// Shrinking, the capacity is 2 trunc(support) + 2 across and trunc(2 support + 2) down, which
// differ when the support's fraction is at least one half; stored entries stay within both.
// (Exceeding a capacity is what ASan would see in the module's arrays as well.)
TEST(ContributorLists, ShrinkingCountsStayWithinTheCapacityOfTheirDirection) {
  std::mt19937 rng(31);
  int formulasDiffer = 0;
  for (int trial = 0; trial < 1400; ++trial) {
    const int32_t mode = 1 + trial % 7;
    const auto direction = (trial / 7) % 2 ? ListDirection::Down : ListDirection::Across;
    const int32_t outputs = std::uniform_int_distribution<int32_t>(1, 60)(rng);
    const int32_t sourceSize = std::uniform_int_distribution<int32_t>(outputs + 1, 61 * 7)(rng);
    const double support = qpxtest::ReferenceScalingMode(mode)->radius /
                           (static_cast<double>(outputs) / static_cast<double>(sourceSize));
    const int64_t across = 2 * int64_t{qpxtest::TruncToInt32(support)} + 2;
    const int64_t down = qpxtest::TruncToInt32(2.0 * support + 2.0);
    formulasDiffer += across != down;
    const BuiltLists lists(outputs, sourceSize, mode, direction);
    for (int32_t i = 0; i < outputs; ++i) {
      ASSERT_LE(lists[size_t(i)].count, direction == ListDirection::Down ? down : across)
          << "mode " << mode << ", " << sourceSize << " to " << outputs;
    }
  }
  EXPECT_GT(formulasDiffer, 100);
}

// Enlarging from one pixel: every output has exactly one contributor, source pixel 0, its
// weight the weight sum.
TEST(ContributorLists, OneSourcePixelEnlargedGivesOneContributorEach) {
  for (int32_t mode = 1; mode <= 7; ++mode) {
    for (ListDirection direction : {ListDirection::Across, ListDirection::Down}) {
      for (int32_t outputs : {1, 2, 3, 7, 40}) {
        SCOPED_TRACE("mode " + std::to_string(mode) + ", outputs " + std::to_string(outputs));
        CheckLists(outputs, 1, mode, direction);
        const BuiltLists lists(outputs, 1, mode, direction);
        for (int32_t i = 0; i < outputs; ++i) {
          ASSERT_EQ(lists[size_t(i)].count, 1);
          EXPECT_EQ(lists[size_t(i)].entries[0].pixel, 0);
          EXPECT_TRUE(SameBits(lists[size_t(i)].entries[0].weight, lists[size_t(i)].weightSum));
        }
      }
    }
  }
}

// At a scale of exactly 1.0 lists are built as for enlarging: the kernel is not stretched, so
// the distances are whole numbers. (At scale 1 the shrinking formulas would give the same
// capacities, candidates and distances, so what this pins down is the content.) Triangle (not
// applied at 1), box (0.0 at 1) and cubic (0.0 at 1, not applied from 2 although the radius is
// 4) keep only the pixel itself.
TEST(ContributorLists, ScaleOneUsesTheKernelAtWholeDistances) {
  constexpr int32_t kSize = 9;
  for (ListDirection direction : {ListDirection::Across, ListDirection::Down}) {
    for (int32_t mode : {1, 2, 6}) {
      SCOPED_TRACE("mode " + std::to_string(mode));
      CheckLists(kSize, kSize, mode, direction);
      const BuiltLists lists(kSize, kSize, mode, direction);
      for (int32_t i = 0; i < kSize; ++i) {
        ASSERT_EQ(lists[size_t(i)].count, 1);
        EXPECT_EQ(lists[size_t(i)].entries[0].pixel, i);
        EXPECT_EQ(lists[size_t(i)].entries[0].weight, 1.0f);
        EXPECT_EQ(lists[size_t(i)].weightSum, 1.0f);
      }
    }
    // Mitchell: 16/18 for the pixel, 1/18 for each neighbour (not applied at 2), summed in
    // double in stored order.
    const double w0 = 5.333333333333333 / 6.0;
    const double w1 =
        (-2.3333333333333335 * 1.0 * 1.0 + 12.0 * 1.0 - 20.0 * 1.0 + 10.666666666666666) / 6.0;
    CheckLists(kSize, kSize, 5, direction);
    const BuiltLists mitchell(kSize, kSize, 5, direction);
    for (int32_t i = 0; i < kSize; ++i) {
      const ContributorList& list = mitchell[size_t(i)];
      const bool edge = i == 0 || i == kSize - 1;
      ASSERT_EQ(list.count, edge ? 2 : 3) << i;
      const int32_t centre = i == 0 ? 0 : 1;
      EXPECT_EQ(list.entries[centre].pixel, i);
      EXPECT_EQ(list.entries[centre].weight, static_cast<float>(w0));
      EXPECT_EQ(list.entries[1 - centre].weight, static_cast<float>(w1));
      const double sum = edge ? w0 + w1 : w1 + w0 + w1;
      EXPECT_EQ(list.weightSum, static_cast<float>(sum)) << i;
    }
    // Lanczos and the six-point cubic: 1 for the pixel and tiny non-zero values at whole
    // distances (the six-point cubic is exactly 0 at 3, not stored).
    for (int32_t mode : {3, 4, 7}) {
      SCOPED_TRACE("mode " + std::to_string(mode));
      CheckLists(kSize, kSize, mode, direction);
      const BuiltLists lists(kSize, kSize, mode, direction);
      const int32_t reach = mode == 4 ? 7 : 2;
      for (int32_t i = 0; i < kSize; ++i) {
        const ContributorList& list = lists[size_t(i)];
        const int32_t first = std::max(0, i - reach), last = std::min(kSize - 1, i + reach);
        ASSERT_EQ(list.count, last - first + 1) << i;
        for (int32_t k = 0; k < list.count; ++k) {
          const Contributor& c = list.entries[k];
          EXPECT_EQ(c.pixel, first + k);
          if (c.pixel == i) {
            EXPECT_EQ(c.weight, 1.0f);
          } else {
            EXPECT_NE(c.weight, 0.0f);
            EXPECT_LT(std::fabs(c.weight), 1e-15f);
          }
        }
        EXPECT_EQ(list.weightSum, 1.0f);
      }
    }
  }
}

// 10 to 4 with the triangle: scale 0.4, support 2.5, centres 1.25, 3.75, 6.25 and 8.75. The
// bounds are trunc(centre -+ 2.5), cut to 0..9 (trunc(-1.25) = -1, raised to 0), the distances
// |centre - j - 0.5| * 0.4; the weights are not divided by anything, so they sum to about 1/0.4
// where nothing is cut.
TEST(ContributorLists, ShrinkingStretchesTheKernelAndCutsAtTheEdges) {
  struct Expected {
    std::vector<int32_t> pixels;
    std::vector<double> weights;
  };
  const Expected expected[] = {{{0, 1, 2, 3}, {0.7, 0.9, 0.5, 0.1}},
                               {{1, 2, 3, 4, 5}, {0.1, 0.5, 0.9, 0.7, 0.3}},
                               {{4, 5, 6, 7, 8}, {0.3, 0.7, 0.9, 0.5, 0.1}},
                               {{6, 7, 8, 9}, {0.1, 0.5, 0.9, 0.7}}};
  for (ListDirection direction : {ListDirection::Across, ListDirection::Down}) {
    CheckLists(4, 10, 1, direction);
    const BuiltLists lists(4, 10, 1, direction);
    for (size_t i = 0; i < 4; ++i) {
      const ContributorList& list = lists[i];
      ASSERT_EQ(list.count, static_cast<int32_t>(expected[i].pixels.size())) << i;
      double sum = 0.0;
      for (size_t k = 0; k < expected[i].pixels.size(); ++k) {
        EXPECT_EQ(list.entries[k].pixel, expected[i].pixels[k]);
        EXPECT_NEAR(list.entries[k].weight, expected[i].weights[k], 1e-6);
        sum += expected[i].weights[k];
      }
      EXPECT_NEAR(list.weightSum, sum, 1e-6);
    }
  }
}

// Box, 2 to 3 (scale 1.5): the middle output's centre 1.0 lies exactly halfway between source
// pixels 0 and 1, at distance 0.5 from both, and both count fully; the outer outputs see the
// far pixel at 7/6, where the box is 0.0 and nothing is stored. Two entries fill the box's
// capacity across.
TEST(ContributorLists, BoxCountsAHalfwayPixelFullyAndStoresNoZeros) {
  for (ListDirection direction : {ListDirection::Across, ListDirection::Down}) {
    CheckLists(3, 2, 2, direction);
    const BuiltLists lists(3, 2, 2, direction);
    ASSERT_EQ(lists[0].count, 1);
    EXPECT_EQ(lists[0].entries[0].pixel, 0);
    ASSERT_EQ(lists[1].count, 2);
    EXPECT_EQ(lists[1].entries[0].pixel, 0);
    EXPECT_EQ(lists[1].entries[1].pixel, 1);
    EXPECT_EQ(lists[1].entries[0].weight, 1.0f);
    EXPECT_EQ(lists[1].entries[1].weight, 1.0f);
    EXPECT_EQ(lists[1].weightSum, 2.0f);
    ASSERT_EQ(lists[2].count, 1);
    EXPECT_EQ(lists[2].entries[0].pixel, 1);
  }
}

// The weight sum is the double sum of the kernel values converted once to float; summing the
// float weights, in float or in double, gives other values in many lists, which this sweep
// meets (so the comparisons above tell the ways apart).
TEST(ContributorLists, WeightSumIsTheDoubleSumOfTheKernelValues) {
  std::mt19937 rng(37);
  int floatSumDiffers = 0, summedFloatsDiffer = 0;
  for (int trial = 0; trial < 140; ++trial) {
    const int32_t mode = 1 + trial % 7;
    const auto direction = (trial / 7) % 2 ? ListDirection::Down : ListDirection::Across;
    const int32_t outputs = std::uniform_int_distribution<int32_t>(1, 70)(rng);
    const int32_t sourceSize = std::uniform_int_distribution<int32_t>(1, 70)(rng);
    for (const ReferenceList& list : CheckLists(outputs, sourceSize, mode, direction)) {
      float inFloat = 0.0f;
      double ofFloats = 0.0;
      for (const qpxtest::ReferenceContributor& c : list.entries) {
        inFloat += c.weight;
        ofFloats += c.weight;
      }
      floatSumDiffers += !SameBits(inFloat, list.weightSum);
      summedFloatsDiffer += !SameBits(static_cast<float>(ofFloats), list.weightSum);
    }
  }
  EXPECT_GT(floatSumDiffers, 0);
  EXPECT_GT(summedFloatsDiffer, 0);
}

// A list of 100000 candidates fits and is filled; shrinking 40,000,000 pixels to 2 with the
// 8-lobe Lanczos makes the support 160,000,000 and the capacity 320,000,002 entries in either
// direction, 2,560,000,016 bytes: above 0x7FFFFFFF, so the lists stay nil, count 0, weight
// sum 0, and freeing them is harmless.
TEST(ContributorLists, ListWhoseCapacityFailsTheSizeTestStaysNil) {
  for (ListDirection direction : {ListDirection::Across, ListDirection::Down}) {
    SCOPED_TRACE(DirectionName(direction));
    const std::vector<ReferenceList> large = CheckLists(1, 100000, 4, direction);
    EXPECT_EQ(large[0].entries.size(), 100000u);
    const std::vector<ReferenceList> huge = CheckLists(2, 40000000, 4, direction);
    for (const ReferenceList& list : huge) {
      EXPECT_TRUE(list.nil);
      EXPECT_EQ(list.capacity, 320000002);
    }
    const BuiltLists lists(2, 40000000, 4, direction);
    for (size_t i = 0; i < 2; ++i) {
      EXPECT_EQ(lists[i].entries, nullptr);
      EXPECT_EQ(lists[i].count, 0);
      EXPECT_EQ(lists[i].weightSum, 0.0f);
    }
  }
}

TEST(ContributorLists, FreeingLeavesEveryListEmpty) {
  BuiltLists lists(13, 29, 3, ListDirection::Across);
  FreeContributorLists(lists.lists().data(), 13);
  for (const ContributorList& list : lists.lists()) {
    EXPECT_EQ(list.entries, nullptr);
    EXPECT_EQ(list.count, 0);
  }
}

}  // namespace
