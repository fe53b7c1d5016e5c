// ScaleQPX through the emulated host, with yielding off: the box resizer shrinking 4000 x 3000
// to 1000 x 750, and 1000 x 750 enlarged to 4000 x 3000 with AntiAlias (the cubic enlargement)
// and without (nearest pixel, by the box resizer).
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

void BM_Scale(benchmark::State& state, qpxhost::AppKind app, ScaleJob job, bool antiAlias) {
  TimeMethodCall(
      state, app,
      {"ScaleQPX", job.from, {job.to.width, job.to.height, antiAlias, int32_t{0}}, job.to});
}

}  // namespace

void RegisterScaleBenchmarks(qpxhost::AppKind app, const char* appName) {
  const struct {
    const char* name;
    ScaleJob job;
    bool antiAlias;
  } cases[] = {{"shrink", kShrink, false}, {"cubic", kEnlarge, true}, {"nearest", kEnlarge, false}};
  for (const auto& [name, job, antiAlias] : cases) {
    benchmark::RegisterBenchmark((std::string("Scale/") + appName + "/" + name).c_str(), BM_Scale,
                                 app, job, antiAlias)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace qpxbench
