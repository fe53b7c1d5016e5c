// The benchmark cases, registered by group, and the resize jobs the module and its peers share.
#pragma once

#include <benchmark/benchmark.h>

#include <optional>
#include <span>
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
inline constexpr ScaleJob kThumbnail{"thumbnail", kLarge, kThumb};

// ScaleQPX's and ScaleImageAndMaskQPX's cases: a resize job and their AntiAlias argument.
struct ScaleCase {
  const char* name;
  ScaleJob job;
  bool antiAlias;
};
// The box resizer shrinking, the cubic enlargement, and the box resizer enlarging (repeating
// pixels).
inline constexpr ScaleCase kScaleShrink{"shrink", kShrink, false};
inline constexpr ScaleCase kScaleCubic{"cubic", kEnlarge, true};
inline constexpr ScaleCase kScaleNearest{"nearest", kEnlarge, false};
inline constexpr ScaleCase kScaleCases[] = {kScaleShrink, kScaleCubic, kScaleNearest};
// ScaleImageAndMaskQPX's: one for each resizer.
inline constexpr ScaleCase kMaskedScaleCases[] = {kScaleShrink, kScaleCubic};

// DrawPictureFQPX's jobs: a picture of noise, with or without a mask of noise, drawn at a
// fractional position with opacity kDrawAlpha onto a receiver of noise of kCanvas, in place.
// The peers draw the same pictures onto the same receiver.
struct DrawJob {
  const char* name;
  Size picture;
  double x;
  double y;
};
inline constexpr Size kCanvas = kLarge;
inline constexpr double kDrawAlpha = 0.5;
inline constexpr DrawJob kDrawPicture{"picture", {2000, 2000}, 10.25, 4.5};
// Near the middle of the receiver, away from its edges.
inline constexpr DrawJob kDrawSprite{"sprite", {64, 64}, 1968.25, 1468.5};
inline constexpr DrawJob kDrawJobs[] = {kDrawPicture, kDrawSprite};

// A build of the module: the normal one, whose pixel loops pick the widest vectors the
// processor has, or one built with QPX_PLAIN_LOOPS, named on the command line.
struct ModuleBuild {
  std::string path;
  // Appended to the names of its cases: empty for the normal build.
  std::string suffix;
};

// How long cases run, where they differ from the command line's: ScalingQPX's calls are
// long, and 42 of its cases at the usual minimum time would make the run too long, while a few
// more repetitions steady their medians on a shared machine; DrawPictureFQPX's 12 cases and
// cairo's 6 would add too much at the usual minimum time as well.
struct RunLength {
  double minTime = 0.1;  // seconds a repetition, at least
  int repetitions = 0;   // 0: as many as --benchmark_repetitions asks for
};

// Gives `cases` that run length.
inline void SetRunLength(benchmark::internal::Benchmark* cases, RunLength length) {
  cases->MinTime(length.minTime);
  if (length.repetitions > 0) cases->Repetitions(length.repetitions);
}

// Runs under a host of kind `app`.
void RegisterFloorBenchmarks(qpxhost::AppKind app, const char* appName);
void RegisterBlurBenchmarks(qpxhost::AppKind app, const char* appName);
// ScaleQPX on a picture of noise without mask, for each of `cases`; with the command line's run
// length unless `length` is given.
void RegisterScaleBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                             std::span<const ScaleCase> cases,
                             std::optional<RunLength> length = std::nullopt);
// ScaleImageAndMaskQPX on that picture with a mask of noise, for each of kMaskedScaleCases.
void RegisterScaleImageAndMaskBenchmarks(qpxhost::AppKind app, const char* appName,
                                         const ModuleBuild& module, RunLength length);
// What ScaleImageAndMaskQPX pays beyond its resizes, for the output of each of
// kMaskedScaleCases: a mask made for the result and the resized mask put into it.
void RegisterMaskCopyBenchmarks(qpxhost::AppKind app, const char* appName, RunLength length);
void RegisterScalingBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                               RunLength length);
void RegisterDrawBenchmarks(qpxhost::AppKind app, const char* appName, const ModuleBuild& module,
                            RunLength length);

// Other libraries, when built in.
void RegisterOpenCVBenchmarks();
void RegisterVipsBenchmarks();
void RegisterCairoBenchmarks(RunLength length);

}  // namespace qpxbench
