// The benchmark cases, registered by group, and the resize jobs the module and its peers share.
#pragma once

#include <string>

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
inline constexpr ScaleJob kEnlarge{"enlarge", kSmall, kLarge};

// A build of the module: the normal one, whose pixel loops pick the widest vectors the
// processor has, or one built with QPX_PLAIN_LOOPS, named on the command line.
struct ModuleBuild {
  std::string path;
  // Appended to the names of its cases: empty for the normal build.
  std::string suffix;
};

// How long cases run, where they differ from the command line's: ScalingQPX's calls are
// long, and 42 of its cases at the usual minimum time would make the run too long, while a few
// more repetitions steady their medians on a shared machine.
struct RunLength {
  double minTime = 0.1;  // seconds a repetition, at least
  int repetitions = 0;   // 0: as many as --benchmark_repetitions asks for
};

// Runs under a host of kind `app`.
void RegisterFloorBenchmarks(qpxhost::AppKind app, const char* appName);
void RegisterBlurBenchmarks(qpxhost::AppKind app, const char* appName);
void RegisterScaleBenchmarks(qpxhost::AppKind app, const char* appName);
void RegisterScalingBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                               RunLength length);

// Other libraries, when built in.
void RegisterOpenCVBenchmarks();
void RegisterVipsBenchmarks();

}  // namespace qpxbench
