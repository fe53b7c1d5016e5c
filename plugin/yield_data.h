// Cooperative yielding: long loops hand control to the host now and then through
// "REALYieldToRB", at an interval chosen by the caller of the method.
#pragma once

#include <cstdint>

struct YieldData {
  // > 0: minimum ticks (1/60 second) between yields; < 0: minimum milliseconds, negated;
  // 0: never yield (callers then do not call DoYield).
  int32_t interval = 0;
  // Clock reading taken just after the last yield; 0 when a method starts, so that its first
  // call yields at once.
  int32_t lastYield = 0;

  // Yields when at least the interval has passed since the last yield.
  void DoYield();
};

// Shared by ScaleQPX and ScaleImageAndMaskQPX; the other methods keep their own.
extern YieldData yield;

// The clocks DoYield reads (ClockTicks and ClockMilliseconds); tests put their own here.
using YieldClock = int32_t (*)();
extern YieldClock yieldTickClock;
extern YieldClock yieldMillisecondClock;
