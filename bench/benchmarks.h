// The benchmark cases, registered by group, and the resize jobs the module and its peers share.
#pragma once

#include "host.h"
#include "noise.h"

namespace qpxbench {

// Picture sizes every case that resizes works with; peers and the module make the same jobs.
struct ScaleJob {
  const char* name;
  Size from;
  Size to;
};
inline constexpr ScaleJob kShrink{"shrink", kLarge, kSmall};
inline constexpr ScaleJob kCubic{"cubic", kSmall, kLarge};
inline constexpr ScaleJob kNearest{"nearest", kSmall, kLarge};

// Runs under a host of kind `app`.
void RegisterFloorBenchmarks(qpxhost::AppKind app, const char* appName);
void RegisterBlurBenchmarks(qpxhost::AppKind app, const char* appName);
void RegisterScaleBenchmarks(qpxhost::AppKind app, const char* appName);

// Other libraries, when built in.
void RegisterOpenCVBenchmarks();
void RegisterVipsBenchmarks();

}  // namespace qpxbench
