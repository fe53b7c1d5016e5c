// A plain ScalingQPX to check the module against, written for obviousness rather than speed:
// the seven kernels as their formulas read, contributor lists built candidate by candidate, and
// the two passes summing every output pixel afresh through a word-per-pixel intermediate.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "differential.h"
#include "host_config.h"
#include "picture_bytes.h"

namespace qpxtest {

// Conversion of a double to a 32-bit signed integer toward zero, as the processor's truncating
// conversion does it: a value that is not a number or lies outside the 32-bit range gives the
// most negative integer.
int32_t TruncToInt32(double value);

// One row of the mode table: the kernel's candidate radius (source pixels at scale 1) and the
// fixed capacities of enlarging lists across and down.
struct ScalingMode {
  double radius = 0;
  int32_t capacityAcross = 0;
  int32_t capacityDown = 0;
};
// Mode 1 to 7; nullopt for any other number.
std::optional<ScalingMode> ReferenceScalingMode(int32_t mode);

// sin(t pi) / (t pi) with pi = 3.141592653589793, and 1.0 for t exactly 0.0.
double ReferenceSinc(double t);
// The kernel of mode 1 to 7 at distance x >= 0, evaluated in the order its formula is written;
// nullopt where the kernel is not applied.
std::optional<double> ReferenceKernel(int32_t mode, double x);

enum class ListDirection { Across, Down };

struct ReferenceContributor {
  float weight = 0;
  int32_t pixel = 0;
};

// The contributors of one output column or row.
struct ReferenceList {
  int64_t capacity = 0;  // entries allocated for the list
  bool nil = false;      // their byte size failed its test: no entries, weightSum 0
  std::vector<ReferenceContributor> entries;
  float weightSum = 0;  // the double sum of the stored kernel values, converted to float
};

// The lists of every output index when `sourceSize` pixels become `outputs` in one direction,
// scale = outputs / sourceSize.
std::vector<ReferenceList> ReferenceContributorLists(int32_t outputs, int32_t sourceSize,
                                                     int32_t mode, ListDirection direction);

// The whole resampling of `source` (read in its own layout) to width x height with a mode of 1
// to 7, written opaque in `newFormat`. Sizes at least 1.
RawPicture ReferenceScaling(const RawPicture& source, int32_t mode, int32_t width, int32_t height,
                            int32_t newFormat);

// The arguments of one ScalingQPX call.
struct ScalingCall {
  int32_t mode = 1;
  int32_t width = 0;
  int32_t height = 0;
  int32_t yield = 0;
};

// What ScalingQPX gives, and how often it yields when every check yields, in a host configured as
// `host` for a receiver with these pixels (nil for a nil receiver; a picture without pixels does
// not open) that has an alpha channel or not. The intermediate's true byte size must fit in 32
// bits.
ExpectedResult ExpectedScaling(const RawPicture* source, bool hasAlpha,
                               const qpxhost::HostConfig& host, const ScalingCall& call);

}  // namespace qpxtest
