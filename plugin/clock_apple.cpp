// Yield clocks on Apple platforms: the Event Manager's tick count and CoreAudio's host time.
#include <CoreAudio/HostTime.h>
#include <CoreServices/CoreServices.h>

#include "clock.h"

int32_t ClockTicks() {
  return static_cast<int32_t>(static_cast<uint32_t>(TickCount()));
}

int32_t ClockMilliseconds() {
  return MillisecondsFromNanoseconds(
      static_cast<uint64_t>(AudioConvertHostTimeToNanos(AudioGetCurrentHostTime())));
}
