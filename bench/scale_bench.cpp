// ScaleQPX and ScaleImageAndMaskQPX through the emulated host, with yielding off: the box
// resizer shrinking 4000 x 3000 to 1000 x 750, and 1000 x 750 enlarged to 4000 x 3000 with
// AntiAlias (the cubic enlargement) and without (nearest pixel, by the box resizer).
// ScaleImageAndMaskQPX is called on the same noise with a mask of noise; it is held against
// ScaleQPX on the picture alone, with the same arguments, once for the picture and once for its
// mask (a 32-bit picture of the same size, which the resizers treat alike).
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

MethodCall ScaleCall(const char* method, const ScaleCase& scale, bool masked) {
  const Size to = scale.job.to;
  return {.method = method,
          .source = scale.job.from,
          .arguments = {to.width, to.height, scale.antiAlias, int32_t{0}},
          .result = to,
          .masked = masked};
}

benchmark::internal::Benchmark* Register(const std::string& name, qpxhost::AppKind app,
                                         const MethodCall& call, const ModuleBuild& module) {
  return benchmark::RegisterBenchmark(name.c_str(), TimeMethodCall, app, call, module.path)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

void RegisterScaleBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                             std::span<const ScaleCase> cases, std::optional<RunLength> length) {
  for (const ScaleCase& scale : cases) {
    // Named Scale/APP/CASE[SUFFIX].
    auto* registered = Register(std::string("Scale/") + appName + "/" + scale.name + module.suffix,
                                app, ScaleCall("ScaleQPX", scale, false), module);
    if (length) SetRunLength(registered, *length);
  }
}

void RegisterScaleImageAndMaskBenchmarks(qpxhost::AppKind app, const char* appName,
                                         const ModuleBuild& module, RunLength length) {
  for (const ScaleCase& scale : kMaskedScaleCases) {
    // Named ScaleImageAndMask/APP/CASE[SUFFIX].
    SetRunLength(
        Register(std::string("ScaleImageAndMask/") + appName + "/" + scale.name + module.suffix,
                 app, ScaleCall("ScaleImageAndMaskQPX", scale, true), module),
        length);
  }
}

}  // namespace qpxbench
