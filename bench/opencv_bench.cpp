// OpenCV on the same pictures of noise, single-threaded, as 4-byte CV_8UC4 pixels: cv::blur
// for BlurQPX's box blur (it averages all four channels, one more than BlurQPX) and cv::resize
// for the resize jobs, into one output matrix reused from call to call and, for ScaleQPX's
// jobs, also into a new one every call. Its linear, cubic and Lanczos resizes stand beside
// ScalingQPX's modes for reference only: they shrink with their fixed 2, 4 and 8 taps, without
// widening the kernel to the scale (no anti-aliasing), so they do less work.
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

// A matrix over the shared noise pixels; OpenCV only reads it.
cv::Mat NoiseMat(Size size) {
  const std::vector<uint8_t>& pixels = NoisePixels(size);
  return cv::Mat(size.height, size.width, CV_8UC4, const_cast<uint8_t*>(pixels.data()));
}

// cv::blur with the same (2r + 1)-square box and edge repetition.
void BM_Blur(benchmark::State& state) {
  cv::setNumThreads(1);
  const cv::Mat source = NoiseMat(kLarge);
  const int radius = static_cast<int>(state.range(0));
  const cv::Size box(2 * radius + 1, 2 * radius + 1);
  cv::Mat result(kLarge.height, kLarge.width, CV_8UC4);
  for (auto _ : state) {
    cv::blur(source, result, box, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    benchmark::DoNotOptimize(result.data);
    benchmark::ClobberMemory();
  }
  SetCounters(state, kLarge.Pixels());
}

// `newOutput`: a new output matrix every call, as a program resizing one picture after another
// into new ones has (ScaleQPX's every result is a new picture); otherwise one matrix reused.
void BM_Resize(benchmark::State& state, ScaleJob job, int interpolation, bool newOutput) {
  cv::setNumThreads(1);
  const cv::Mat source = NoiseMat(job.from);
  const cv::Size size(job.to.width, job.to.height);
  cv::Mat result;
  cv::resize(source, result, size, 0, 0, interpolation);
  if (result.cols != job.to.width || result.rows != job.to.height) {
    state.SkipWithError(("cv::resize did not give " + job.to.Name()).c_str());
    return;
  }
  for (auto _ : state) {
    if (newOutput) result.release();
    cv::resize(source, result, size, 0, 0, interpolation);
    benchmark::DoNotOptimize(result.data);
    benchmark::ClobberMemory();
  }
  SetCounters(state, job.to.Pixels());
}

}  // namespace

void RegisterOpenCVBenchmarks() {
  benchmark::RegisterBenchmark("OpenCV", BM_Blur)
      ->Arg(1)
      ->Arg(10)
      ->Arg(100)
      ->Unit(benchmark::kMillisecond);
  const struct {
    const char* name;
    ScaleJob job;
    int interpolation;
    bool alsoNewOutput;  // ScaleQPX's jobs: its every result is a new picture
  } cases[] = {
      {"area", kShrink, cv::INTER_AREA, true},
      {"cubic", kEnlarge, cv::INTER_CUBIC, true},
      {"nearest", kEnlarge, cv::INTER_NEAREST, true},
      {"linear", kShrink, cv::INTER_LINEAR, false},
      {"linear", kEnlarge, cv::INTER_LINEAR, false},
      {"cubic", kShrink, cv::INTER_CUBIC, false},
      {"lanczos4", kShrink, cv::INTER_LANCZOS4, false},
      {"lanczos4", kEnlarge, cv::INTER_LANCZOS4, false},
  };
  for (const auto& [interpolationName, job, interpolation, alsoNewOutput] : cases) {
    // Named OpenCV/INTERPOLATION/JOB.
    const std::string name = std::string("OpenCV/") + interpolationName + "/" + job.name;
    benchmark::RegisterBenchmark(name.c_str(), BM_Resize, job, interpolation, false)
        ->Unit(benchmark::kMillisecond);
    if (!alsoNewOutput) continue;
    benchmark::RegisterBenchmark((name + "/new-output").c_str(), BM_Resize, job, interpolation,
                                 true)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace qpxbench
