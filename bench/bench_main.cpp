// qpx_bench: the module's methods called through the emulated host, next to plain copies of
// the same pixels and, when built in, other libraries doing the same jobs. Times are the
// thread's CPU time (the library's default; libvips's cases take the process's): on a small
// shared machine wall time also counts waits for a core.
//
// Besides Google Benchmark's flags it takes
//   --plain_module=PATH       a build of the module with QPX_PLAIN_LOOPS, whose ScalingQPX,
//                             DrawPictureFQPX, ScaleImageAndMaskQPX and ScaleQPX (the last two
//                             on the shrink and the cubic enlargement only) are timed too, on a
//                             desktop host (cases Scaling/desktop/JOB/plain/MODE,
//                             Draw/desktop/JOB/plain/MASK, ScaleImageAndMask/desktop/CASE/plain,
//                             Scale/desktop/CASE/plain)
//   --scaling_min_time=SECS   seconds each ScalingQPX case runs at least, per repetition
//                             (default 0.1)
//   --scaling_repetitions=N   repetitions of each ScalingQPX case (default: as many as
//                             --benchmark_repetitions asks for)
//   --draw_min_time=SECS      seconds each DrawPictureFQPX and cairo case runs at least, per
//                             repetition (default 0.5)
//   --masked_min_time=SECS    seconds each ScaleImageAndMaskQPX case and each case only it is
//                             held against (the plain build's ScaleQPX, the mask copy) runs at
//                             least, per repetition (default 0.5)
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "benchmarks.h"
#include "host_session.h"

#ifdef QPX_BENCH_OPENCV
#include <opencv2/core/version.hpp>
#endif
#ifdef QPX_BENCH_VIPS
#include <vips/version.h>
#endif
#ifdef QPX_BENCH_CAIRO
#include <cairo.h>
#endif

namespace {

struct Options {
  std::string plainModule;
  qpxbench::RunLength scaling;
  qpxbench::RunLength draw{0.5};
  qpxbench::RunLength masked{0.5};
};

// The value of `--name=VALUE` in `argument`, if that is what it is.
std::optional<std::string> FlagValue(std::string_view argument, std::string_view name) {
  if (!argument.starts_with("--") || !argument.substr(2).starts_with(name)) return std::nullopt;
  argument.remove_prefix(2 + name.size());
  if (!argument.starts_with('=')) return std::nullopt;
  return std::string(argument.substr(1));
}

// The number `text` spells, or 0 when it is not a positive number.
double PositiveNumber(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return end != text.c_str() && *end == '\0' && value > 0 ? value : 0;
}

bool BadValue(const char* program, const char* flag, const char* wanted) {
  std::fprintf(stderr, "%s: --%s wants %s\n", program, flag, wanted);
  return false;
}

// Sets `length`'s minimum time from the value of `--flag`; false after saying it is bad.
bool SetMinTime(const char* program, const char* flag, const std::string& value,
                qpxbench::RunLength& length) {
  length.minTime = PositiveNumber(value);
  return length.minTime > 0 || BadValue(program, flag, "a positive number of seconds");
}

// Reads this program's own flags from what Google Benchmark left; false after naming the first
// argument that is none of them.
bool ParseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    if (auto path = FlagValue(argv[i], "plain_module")) {
      options.plainModule = *path;
    } else if (auto seconds = FlagValue(argv[i], "scaling_min_time")) {
      if (!SetMinTime(argv[0], "scaling_min_time", *seconds, options.scaling)) return false;
    } else if (auto seconds = FlagValue(argv[i], "draw_min_time")) {
      if (!SetMinTime(argv[0], "draw_min_time", *seconds, options.draw)) return false;
    } else if (auto seconds = FlagValue(argv[i], "masked_min_time")) {
      if (!SetMinTime(argv[0], "masked_min_time", *seconds, options.masked)) return false;
    } else if (auto count = FlagValue(argv[i], "scaling_repetitions")) {
      const double repetitions = PositiveNumber(*count);
      options.scaling.repetitions = static_cast<int>(repetitions);
      if (repetitions < 1 || repetitions != options.scaling.repetitions) {
        return BadValue(argv[0], "scaling_repetitions", "a positive whole number");
      }
    } else {
      std::fprintf(stderr, "%s: unrecognized command-line flag: %s\n", argv[0], argv[i]);
      return false;
    }
  }
  return true;
}

void AddMinTimeContext(const char* name, const qpxbench::RunLength& length) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%g", length.minTime);
  benchmark::AddCustomContext(name, seconds);
}

// Cases of one kind of application and one build of the module are registered together, so
// that a run in order boots each host once; an interleaved run boots one again whenever it
// switches.
void RegisterAll(const Options& options) {
  const struct {
    const char* name;
    qpxhost::AppKind app;
  } apps[] = {{"console", qpxhost::AppKind::Console}, {"desktop", qpxhost::AppKind::Desktop}};
  const qpxbench::ModuleBuild normal{qpxbench::NormalModulePath(), ""};
  for (const auto& [name, app] : apps) {
    qpxbench::RegisterFloorBenchmarks(app, name);
    qpxbench::RegisterBlurBenchmarks(app, name);
    qpxbench::RegisterScaleBenchmarks(app, name, normal, qpxbench::kScaleCases);
    qpxbench::RegisterScaleImageAndMaskBenchmarks(app, name, normal, options.masked);
    qpxbench::RegisterMaskCopyBenchmarks(app, name, options.masked);
    qpxbench::RegisterScalingBenchmarks(app, name, normal, options.scaling);
    qpxbench::RegisterDrawBenchmarks(app, name, normal, options.draw);
  }
  // The plain loops on one kind of host only: they are slow, and the kinds differ only in how
  // pixels are reached, not in the loops.
  if (!options.plainModule.empty()) {
    const qpxbench::ModuleBuild plain{options.plainModule, "/plain"};
    qpxbench::RegisterScalingBenchmarks(qpxhost::AppKind::Desktop, "desktop", plain,
                                        options.scaling);
    qpxbench::RegisterDrawBenchmarks(qpxhost::AppKind::Desktop, "desktop", plain, options.draw);
    // ScaleImageAndMaskQPX's and the two ScaleQPX calls it is held against.
    qpxbench::RegisterScaleBenchmarks(qpxhost::AppKind::Desktop, "desktop", plain,
                                      qpxbench::kMaskedScaleCases, options.masked);
    qpxbench::RegisterScaleImageAndMaskBenchmarks(qpxhost::AppKind::Desktop, "desktop", plain,
                                                  options.masked);
  }
#ifdef QPX_BENCH_OPENCV
  qpxbench::RegisterOpenCVBenchmarks();
#endif
#ifdef QPX_BENCH_VIPS
  qpxbench::RegisterVipsBenchmarks();
#endif
#ifdef QPX_BENCH_CAIRO
  qpxbench::RegisterCairoBenchmarks(options.draw);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Options options;
  if (!ParseOptions(argc, argv, options)) return 1;
  benchmark::AddCustomContext("picture", qpxbench::kLarge.Name());
  benchmark::AddCustomContext("small_picture", qpxbench::kSmall.Name());
  for (const qpxbench::DrawJob& job : qpxbench::kDrawJobs) {
    char where[96];
    std::snprintf(where, sizeof where, "%s at (%g, %g)", job.picture.Name().c_str(), job.x, job.y);
    benchmark::AddCustomContext(std::string("draw_") + job.name, where);
  }
  benchmark::AddCustomContext("plain_module",
                              options.plainModule.empty() ? "not given" : options.plainModule);
  AddMinTimeContext("scaling_min_time", options.scaling);
  AddMinTimeContext("draw_min_time", options.draw);
  AddMinTimeContext("masked_min_time", options.masked);
  benchmark::AddCustomContext("scaling_repetitions",
                              options.scaling.repetitions > 0
                                  ? std::to_string(options.scaling.repetitions)
                                  : "as --benchmark_repetitions");
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
#ifdef QPX_BENCH_CAIRO
  benchmark::AddCustomContext("cairo", cairo_version_string());
#else
  benchmark::AddCustomContext("cairo", "not built in");
#endif
  RegisterAll(options);
  benchmark::RunSpecifiedBenchmarks();
  qpxbench::Session::End();
  benchmark::Shutdown();
  return 0;
}
