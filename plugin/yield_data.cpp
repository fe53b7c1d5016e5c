#include "yield_data.h"

#include "clock.h"
#include "host_services.h"

YieldData yield;
YieldClock yieldTickClock = &ClockTicks;
YieldClock yieldMillisecondClock = &ClockMilliseconds;

namespace {

// |now - then| in 32-bit two's complement arithmetic: the difference wraps, and the absolute
// value of the most negative difference stays negative.
int32_t ElapsedBetween(int32_t then, int32_t now) {
  const uint32_t difference = static_cast<uint32_t>(now) - static_cast<uint32_t>(then);
  const bool negative = static_cast<int32_t>(difference) < 0;
  return static_cast<int32_t>(negative ? 0u - difference : difference);
}

// -value with the same wrap-around: the most negative value is its own negation.
int32_t Negated(int32_t value) {
  return static_cast<int32_t>(0u - static_cast<uint32_t>(value));
}

}  // namespace

void YieldData::DoYield() {
  // A clock that went backwards or wrapped counts as elapsed time.
  const YieldClock clock = interval > 0 ? yieldTickClock : yieldMillisecondClock;
  const int32_t minimum = interval > 0 ? interval : Negated(interval);
  if (ElapsedBetween(lastYield, clock()) < minimum) return;
  REALYieldToRB();
  // Time spent in the host does not count towards the next interval.
  lastYield = clock();
}
