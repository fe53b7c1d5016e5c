// qpx_bench: the module's methods called through the emulated host, next to plain copies of
// the same pixels and, when built in, other libraries doing the same jobs. Times are the
// thread's CPU time (the library's default; libvips's cases take the process's): on a small
// shared machine wall time also counts waits for a core.
#include <benchmark/benchmark.h>

#include <string>

#include "benchmarks.h"
#include "host_session.h"

#ifdef QPX_BENCH_OPENCV
#include <opencv2/core/version.hpp>
#endif
#ifdef QPX_BENCH_VIPS
#include <vips/version.h>
#endif

namespace {

// Cases of one kind of application are registered together, so that a run in order boots each
// host once; an interleaved run boots one again whenever it switches kinds.
void RegisterAll() {
  const struct {
    const char* name;
    qpxhost::AppKind app;
  } apps[] = {{"console", qpxhost::AppKind::Console}, {"desktop", qpxhost::AppKind::Desktop}};
  for (const auto& [name, app] : apps) {
    qpxbench::RegisterFloorBenchmarks(app, name);
    qpxbench::RegisterBlurBenchmarks(app, name);
    qpxbench::RegisterScaleBenchmarks(app, name);
  }
#ifdef QPX_BENCH_OPENCV
  qpxbench::RegisterOpenCVBenchmarks();
#endif
#ifdef QPX_BENCH_VIPS
  qpxbench::RegisterVipsBenchmarks();
#endif
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("picture", qpxbench::kLarge.Name());
  benchmark::AddCustomContext("small_picture", qpxbench::kSmall.Name());
#ifdef QPX_BENCH_OPENCV
  benchmark::AddCustomContext("opencv", CV_VERSION);
#else
  benchmark::AddCustomContext("opencv", "not built in");
#endif
#ifdef QPX_BENCH_VIPS
  benchmark::AddCustomContext("libvips", VIPS_VERSION);
#else
  benchmark::AddCustomContext("libvips", "not built in");
#endif
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  qpxbench::Session::End();
  benchmark::Shutdown();
  return 0;
}
