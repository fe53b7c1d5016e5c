// The two clocks cooperative yielding reads. Both count from system start and wrap around in
// 32 bits, so callers compare readings by their 32-bit difference.
#pragma once

#include <cstdint>

// Ticks of 1/60 second.
int32_t ClockTicks();
// Milliseconds, from the platform's nanosecond clock through MillisecondsFromNanoseconds.
int32_t ClockMilliseconds();

// Whole milliseconds of a nanosecond count: divided as a double and truncated. Counts past the
// 32-bit range (after some 25 days of uptime) wrap around instead of saturating, so that the
// clock keeps moving.
inline int32_t MillisecondsFromNanoseconds(uint64_t nanoseconds) {
  const double milliseconds = static_cast<double>(nanoseconds) / 1000000.0;
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(milliseconds)));
}
