// Yield clocks from CLOCK_MONOTONIC, which counts from system start like the Apple clocks.
#include <time.h>

#include "clock.h"

namespace {

constexpr uint64_t kNanosecondsPerSecond = 1000000000;
constexpr uint64_t kTicksPerSecond = 60;

timespec Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

}  // namespace

int32_t ClockTicks() {
  const timespec now = Now();
  const uint64_t ticks =
      static_cast<uint64_t>(now.tv_sec) * kTicksPerSecond +
      static_cast<uint64_t>(now.tv_nsec) * kTicksPerSecond / kNanosecondsPerSecond;
  return static_cast<int32_t>(static_cast<uint32_t>(ticks));
}

int32_t ClockMilliseconds() {
  const timespec now = Now();
  return MillisecondsFromNanoseconds(static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
                                     static_cast<uint64_t>(now.tv_nsec));
}
