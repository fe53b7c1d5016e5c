// BlurQPX on a 4000 x 3000 picture of noise, called through the emulated host as a host
// program calls it, at radii 1, 10 and 100.
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

void BM_Blur(benchmark::State& state, qpxhost::AppKind app) {
  const double radius = static_cast<double>(state.range(0));
  TimeMethodCall(state, app, {"BlurQPX", kLarge, {radius, int32_t{0}}, kLarge});
}

}  // namespace

void RegisterBlurBenchmarks(qpxhost::AppKind app, const char* appName) {
  benchmark::RegisterBenchmark((std::string("Blur/") + appName).c_str(), BM_Blur, app)
      ->Arg(1)
      ->Arg(10)
      ->Arg(100)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace qpxbench
