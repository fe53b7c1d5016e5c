// BlurQPX on a 4000 x 3000 picture, called through the emulated host as a host program calls
// it, next to two references: a plain row-by-row copy of the same pixels (the memory traffic
// any blur has to pay) and, when built with OpenCV, cv::blur with the same box on the same
// amount of 4-byte pixels.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host.h"
#include "picture_services.h"

#ifdef QPX_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int32_t kWidth = 4000;
constexpr int32_t kHeight = 3000;
constexpr size_t kRowBytes = 4 * static_cast<size_t>(kWidth);
constexpr int64_t kPixels = static_cast<int64_t>(kWidth) * kHeight;
constexpr uint64_t kSeed = 0x9E3779B97F4A7C15u;

// Noise from xorshift64*: nothing a filter or the memory system could take a shortcut on.
class Noise {
 public:
  explicit Noise(uint64_t seed) : state_(seed) {}
  void Fill(uint8_t* bytes, size_t count) {
    while (count > 0) {
      state_ ^= state_ >> 12;
      state_ ^= state_ << 25;
      state_ ^= state_ >> 27;
      const uint64_t word = state_ * 0x2545F4914F6CDD1Du;
      const size_t n = count < sizeof(word) ? count : sizeof(word);
      std::memcpy(bytes, &word, n);
      bytes += n;
      count -= n;
    }
  }

 private:
  uint64_t state_;
};

// A booted host with the module loaded, a source picture filled once and a destination of the
// same kind for the copy. The host allows one booted host at a time, so asking for the other
// kind of application shuts this one down first.
class Session {
 public:
  static Session& For(qpxhost::AppKind app) {
    if (current_ == nullptr || current_->app_ != app) {
      current_.reset();
      current_ = std::make_unique<Session>(app);
    }
    return *current_;
  }
  // Shuts the host down while the process is still whole.
  static void End() { current_.reset(); }

  explicit Session(qpxhost::AppKind app) : app_(app), host_(Config(app)) {
    host_.LoadPlugin(QPX_PLUGIN_PATH);
    source_ = qpxhost::NewHostPicture(host_, kWidth, kHeight);
    copy_ = qpxhost::NewHostPicture(host_, kWidth, kHeight);
    Noise noise(kSeed);
    for (int32_t y = 0; y < kHeight; ++y) noise.Fill(source_->Row(y), kRowBytes);
  }
  ~Session() {
    host_.Unlock(copy_);
    host_.Unlock(source_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  qpxhost::Host& host() { return host_; }
  qpxhost::HostPicture* source() { return source_; }
  qpxhost::HostPicture* copy() { return copy_; }

  // Calls BlurQPX once outside the timing; an empty string when it gave a new picture of the
  // source's size without complaints from the host, otherwise what went wrong.
  std::string Check(double radius) {
    if (checked_.count(radius) != 0) return {};
    const size_t problems = host_.problems().size();
    const size_t raised = host_.raisedExceptions.size();
    const qpxhost::CallResult result = host_.Call("BlurQPX", source_, {radius, int32_t{0}});
    auto* picture = dynamic_cast<qpxhost::HostPicture*>(result.picture);
    std::string error;
    if (result.picture == nullptr) {
      error = "BlurQPX returned nil";
    } else if (picture == nullptr || picture == source_ || picture->width != kWidth ||
               picture->height != kHeight) {
      error = "BlurQPX did not return a new picture of the source's size";
    } else if (host_.problems().size() != problems) {
      error = "host misuse: " + host_.problems().back();
    } else if (host_.raisedExceptions.size() != raised) {
      error = "BlurQPX raised " + host_.raisedExceptions.back().className;
    }
    if (result.picture != nullptr) host_.Unlock(result.picture);
    if (error.empty()) checked_.insert(radius);
    return error;
  }

 private:
  static qpxhost::HostConfig Config(qpxhost::AppKind app) {
    qpxhost::HostConfig config;
    config.app = app;
    return config;
  }

  static inline std::unique_ptr<Session> current_;
  qpxhost::AppKind app_;
  qpxhost::Host host_;
  qpxhost::HostPicture* source_ = nullptr;
  qpxhost::HostPicture* copy_ = nullptr;
  std::set<double> checked_;
};

// Every case counts the source picture's pixels and bytes, so that the rates compare.
void SetCounters(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * kPixels);
  state.SetBytesProcessed(state.iterations() * kPixels * 4);
}

// The new picture is released inside the timing: a caller pays for it too.
void BM_Blur(benchmark::State& state, qpxhost::AppKind app) {
  Session& session = Session::For(app);
  const double radius = static_cast<double>(state.range(0));
  const std::string error = session.Check(radius);
  if (!error.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  qpxhost::Host& host = session.host();
  qpxhost::HostPicture* source = session.source();
  for (auto _ : state) {
    const qpxhost::CallResult result = host.Call("BlurQPX", source, {radius, int32_t{0}});
    benchmark::DoNotOptimize(result.picture);
    host.Unlock(result.picture);
  }
  SetCounters(state);
}

// Reads every source row and writes a destination row of the same size, in the picture's own
// row order and placement.
void BM_Copy(benchmark::State& state, qpxhost::AppKind app) {
  Session& session = Session::For(app);
  qpxhost::HostPicture* source = session.source();
  qpxhost::HostPicture* copy = session.copy();
  for (auto _ : state) {
    for (int32_t y = 0; y < kHeight; ++y) std::memcpy(copy->Row(y), source->Row(y), kRowBytes);
    benchmark::ClobberMemory();
  }
  SetCounters(state);
}

#ifdef QPX_BENCH_OPENCV
// cv::blur with the same (2r + 1)-square box and edge repetition, single-threaded, on 4-byte
// pixels (it averages all four channels, one more than BlurQPX).
void BM_OpenCV(benchmark::State& state) {
  static const cv::Mat source = [] {
    cv::Mat mat(kHeight, kWidth, CV_8UC4);
    Noise noise(kSeed);
    for (int32_t y = 0; y < kHeight; ++y) noise.Fill(mat.ptr<uint8_t>(y), kRowBytes);
    return mat;
  }();
  cv::setNumThreads(1);
  const int radius = static_cast<int>(state.range(0));
  const cv::Size box(2 * radius + 1, 2 * radius + 1);
  cv::Mat result(kHeight, kWidth, CV_8UC4);
  for (auto _ : state) {
    cv::blur(source, result, box, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    benchmark::DoNotOptimize(result.data);
    benchmark::ClobberMemory();
  }
  SetCounters(state);
}
#endif

// Cases of one kind of application run together, so each host boots once. Times are the
// thread's CPU time (the library's default): on a small shared machine wall time also counts
// waits for a core.
void RegisterAll() {
  const struct {
    const char* name;
    qpxhost::AppKind app;
  } apps[] = {{"console", qpxhost::AppKind::Console}, {"desktop", qpxhost::AppKind::Desktop}};
  for (const auto& [name, app] : apps) {
    benchmark::RegisterBenchmark((std::string("Copy/") + name).c_str(), BM_Copy, app)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((std::string("Blur/") + name).c_str(), BM_Blur, app)
        ->Arg(1)
        ->Arg(10)
        ->Arg(100)
        ->Unit(benchmark::kMillisecond);
  }
#ifdef QPX_BENCH_OPENCV
  benchmark::RegisterBenchmark("OpenCV", BM_OpenCV)
      ->Arg(1)
      ->Arg(10)
      ->Arg(100)
      ->Unit(benchmark::kMillisecond);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("picture", std::to_string(kWidth) + "x" + std::to_string(kHeight));
#ifdef QPX_BENCH_OPENCV
  benchmark::AddCustomContext("opencv", CV_VERSION);
#else
  benchmark::AddCustomContext("opencv", "not built in");
#endif
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  Session::End();
  benchmark::Shutdown();
  return 0;
}
