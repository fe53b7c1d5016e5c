// ScalingQPX through the emulated host, with yielding off: every mode, 1 to 7, shrinking
// 4000 x 3000 to 1000 x 750 and to a 400 x 300 thumbnail, and enlarging 1000 x 750 to
// 4000 x 3000, on a given build of the module.
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

constexpr int32_t kModes = 7;

void BM_Scaling(benchmark::State& state, qpxhost::AppKind app, ScaleJob job,
                const std::string& module) {
  const auto mode = static_cast<int32_t>(state.range(0));
  TimeMethodCall(state, app,
                 {"ScalingQPX", job.from, {mode, job.to.width, job.to.height, int32_t{0}}, job.to},
                 module);
}

}  // namespace

void RegisterScalingBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                               RunLength length) {
  for (const ScaleJob& job : {kShrink, kThumbnail, kEnlarge}) {
    // Named Scaling/APP/JOB[SUFFIX]/MODE.
    const std::string name = std::string("Scaling/") + appName + "/" + job.name + module.suffix;
    SetRunLength(benchmark::RegisterBenchmark(name.c_str(), BM_Scaling, app, job, module.path)
                     ->DenseRange(1, kModes)
                     ->Unit(benchmark::kMillisecond),
                 length);
  }
}

}  // namespace qpxbench
