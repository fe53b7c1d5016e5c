// Floors a method's time is held against: plain copies of pixels between host pictures (the
// memory traffic no method can avoid), and a new picture made, written once and released (what
// every call that returns one pays, whatever it computes).
#include <cstring>
#include <string>

#include "benchmarks.h"
#include "host_session.h"
#include "picture_services.h"

namespace qpxbench {
namespace {

void BM_Copy(benchmark::State& state, qpxhost::AppKind app, Size from, Size to) {
  Session& session = Session::For(app);
  qpxhost::HostPicture* source = session.Source(from);
  qpxhost::HostPicture* target = session.Target(to);
  for (auto _ : state) {
    CopyRows(*source, *target);
    benchmark::ClobberMemory();
  }
  SetCounters(state, to.Pixels());
}

// What every call that returns a new picture pays at least: the host making it, each of its
// rows written once (the first touch of fresh memory is paid here), and its release.
void BM_NewPicture(benchmark::State& state, qpxhost::AppKind app, Size size) {
  qpxhost::Host& host = Session::For(app).host();
  for (auto _ : state) {
    qpxhost::HostPicture* picture = qpxhost::NewHostPicture(host, size.width, size.height);
    for (int32_t y = 0; y < size.height; ++y) std::memset(picture->Row(y), 0xFF, size.RowBytes());
    benchmark::ClobberMemory();
    host.Unlock(picture);
  }
  SetCounters(state, size.Pixels());
}

}  // namespace

void RegisterFloorBenchmarks(qpxhost::AppKind app, const char* appName) {
  const std::string name = appName;
  // Every row of a 4000 x 3000 picture: what the blur and both enlargements write.
  benchmark::RegisterBenchmark(("Copy/" + name).c_str(), BM_Copy, app, kLarge, kLarge)
      ->Unit(benchmark::kMillisecond);
  // The shrink's output alone.
  benchmark::RegisterBenchmark(("Copy/" + name + "/" + kSmall.Name()).c_str(), BM_Copy, app, kSmall,
                               kSmall)
      ->Unit(benchmark::kMillisecond);
  // What the box resizer must touch when shrinking: one whole source row read per output row,
  // and the output written.
  benchmark::RegisterBenchmark(("ReadWrite/" + name + "/" + kShrink.name).c_str(), BM_Copy, app,
                               kShrink.from, kShrink.to)
      ->Unit(benchmark::kMillisecond);
  for (Size size : {kLarge, kSmall, kThumb}) {
    benchmark::RegisterBenchmark(("NewPicture/" + name + "/" + size.Name()).c_str(), BM_NewPicture,
                                 app, size)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace qpxbench
