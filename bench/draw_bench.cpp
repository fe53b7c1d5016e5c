// DrawPictureFQPX through the emulated host, with yielding off: each of kDrawJobs' pictures,
// without and with its mask, drawn in place onto the session's 4000 x 3000 canvas at the job's
// fractional position with opacity kDrawAlpha, on a given build of the module. Every call draws
// over what the calls before it left, as the peers' cases do.
#include <optional>
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

void BM_Draw(benchmark::State& state, qpxhost::AppKind app, DrawJob job, bool masked,
             const std::string& module) {
  TimeMethodCall(state, app,
                 {"DrawPictureFQPX",
                  kCanvas,
                  {job.x, job.y, kDrawAlpha, int32_t{0}},
                  std::nullopt,
                  PictureArgument{job.picture, masked}},
                 module);
}

}  // namespace

void RegisterDrawBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                            RunLength length) {
  for (const DrawJob& job : kDrawJobs) {
    for (const bool masked : {false, true}) {
      // Named Draw/APP/JOB[SUFFIX]/no-mask or .../mask.
      const std::string name = std::string("Draw/") + appName + "/" + job.name + module.suffix +
                               (masked ? "/mask" : "/no-mask");
      SetRunLength(
          benchmark::RegisterBenchmark(name.c_str(), BM_Draw, app, job, masked, module.path)
              ->Unit(benchmark::kMillisecond),
          length);
    }
  }
}

}  // namespace qpxbench
