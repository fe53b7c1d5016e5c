// Output pixel i's centre, mapped into the source, is (i + 0.5) / scale. Enlarging (scale at
// least 1.0), the candidates are the source pixels from floor(centre - R) to ceil(centre + R)
// at their plain distances; shrinking, those from trunc(centre - R / scale) to
// trunc(centre + R / scale) at distances multiplied by the scale, which stretches the kernel.
// Candidates the kernel gives no weight are not stored; the weights are never normalised here.
#include "contributors.h"

#include <cmath>
#include <cstdlib>

#include "int_conversion.h"
#include "working_buffer.h"

namespace {

constexpr uint64_t kContributorBytes = 8;

// Room for `capacity` entries, or null when its byte size fails the working-buffer test.
Contributor* NewEntries(int64_t capacity) {
  if (capacity < 0) return nullptr;
  return static_cast<Contributor*>(
      NewWorkingBuffer(static_cast<uint64_t>(capacity) * kContributorBytes));
}

struct Candidates {
  Contributor* entries;
  int64_t capacity;
  int32_t left, right;
};

Candidates Enlarging(double center, int32_t sourceSize, const ResamplingMode& mode,
                     Direction direction) {
  const int64_t capacity = direction == Direction::Across ? mode.capacityAcross : mode.capacityDown;
  int32_t left = TruncateToInt32(std::floor(center - mode.radius));
  int32_t right = TruncateToInt32(std::ceil(center + mode.radius));
  if (left < 0) left = 0;
  if (right > sourceSize - 1) right = sourceSize - 1;
  return {NewEntries(capacity), capacity, left, right};
}

Candidates Shrinking(double center, double support, int32_t sourceSize, Direction direction) {
  // The two capacity formulas differ, and have always done so.
  const int64_t capacity = direction == Direction::Across
                               ? 2 * int64_t{TruncateToInt32(support)} + 2
                               : int64_t{TruncateToInt32(2.0 * support + 2.0)};
  int32_t left = TruncateToInt32(center - support);
  int32_t right = TruncateToInt32(center + support);
  if (left < 0) left = 0;
  if (right > sourceSize - 1) right = sourceSize - 1;
  return {NewEntries(capacity), capacity, left, right};
}

}  // namespace

void BuildContributorLists(ContributorList* lists, int32_t outputs, int32_t sourceSize,
                           double scale, const ResamplingMode& mode, Direction direction) {
  const bool enlarging = scale >= 1.0;
  const double support = mode.radius / scale;
  double i = 0.0;
  for (int32_t index = 0; index < outputs; ++index, i += 1.0) {
    ContributorList& list = lists[index];
    list = {nullptr, 0, 0.0f};
    const double center = (i + 0.5) / scale;
    const Candidates c = enlarging ? Enlarging(center, sourceSize, mode, direction)
                                   : Shrinking(center, support, sourceSize, direction);
    if (c.entries == nullptr) continue;
    double sum = 0.0;
    int32_t count = 0;
    for (int32_t j = c.left; j <= c.right; ++j) {
      const double offset = center - j - 0.5;
      const double x = std::fabs(enlarging ? offset : offset * scale);
      const std::optional<double> w = mode.kernel(x);
      if (!w || *w == 0.0) continue;
      // The capacities always hold every stored candidate; the test only keeps a list that
      // would not from ever writing past its end.
      if (count == c.capacity) break;
      c.entries[count++] = {static_cast<float>(*w), j};
      sum += *w;
    }
    list = {c.entries, count, static_cast<float>(sum)};
  }
}

void FreeContributorLists(ContributorList* lists, int32_t outputs) {
  for (int32_t index = 0; index < outputs; ++index) {
    std::free(lists[index].entries);
    lists[index] = {nullptr, 0, 0.0f};
  }
}
