// ScaleImageAndMaskQPX's cost beyond its two resizes, timed apart from them: a mask made for a
// result of the output's size, the resized mask put into it as the method does (through the
// host's DrawPicture on a desktop host, by copying its rows on a console one), and the mask
// released with the result.
#include <set>
#include <string>
#include <utility>

#include "benchmarks.h"
#include "host.h"
#include "host_session.h"

namespace qpxbench {
namespace {

// The host services a module reaches a picture's mask and graphics through, found by name as
// the module finds them.
struct MaskServices {
  using SetMaskFn = void (*)(REALpicture, REALpicture);
  using DrawPictureFn = void (*)(REALgraphics, REALpicture, int32_t x, int32_t y, int32_t w,
                                 int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);
  static constexpr const char* kSetMask = "Mask(assigns newMask As Picture)";
  static constexpr const char* kDrawPicture =
      "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx "
      "as Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";

  template <typename Fn>
  static Fn Find(const char* name) {
    return reinterpret_cast<Fn>(qpxhost::Host::Resolve(name));
  }

  REALGetPictureMaskFn getMask = Find<REALGetPictureMaskFn>("REALGetPictureMask");
  REALGetPictureGraphicsFn getGraphics =
      Find<REALGetPictureGraphicsFn>("pluginPictureGraphicsGetter");
  REALLoadObjectMethodFn loadObjectMethod = Find<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  REALUnlockObjectFn unlockObject = Find<REALUnlockObjectFn>("REALUnlockObject");
};

REALpicture AsReference(qpxhost::HostPicture* picture) {
  return reinterpret_cast<REALpicture>(static_cast<qpxhost::HostObject*>(picture));
}

REALobject AsObject(REALpicture picture) {
  return reinterpret_cast<REALobject>(picture);
}

// Makes `result`'s mask and puts `resized` (a picture of the result's size) into it, as
// ScaleImageAndMaskQPX does: drawn by the host's DrawPicture where the mask has graphics (a
// desktop host), else its rows copied, as the module copies console pictures. The mask stays
// with `result`.
void PutMask(qpxhost::Host& host, const MaskServices& services, qpxhost::HostPicture& result,
             qpxhost::HostPicture& resized) {
  REALpicture mask = services.getMask(AsReference(&result), true);
  if (mask == nullptr) return;
  if (REALgraphics graphics = services.getGraphics(mask)) {
    if (auto draw = reinterpret_cast<MaskServices::DrawPictureFn>(
            services.loadObjectMethod(graphics, MaskServices::kDrawPicture))) {
      draw(graphics, AsReference(&resized), 0, 0, result.width, result.height, 0, 0, result.width,
           result.height);
    }
    services.unlockObject(graphics);
  } else {
    CopyRows(resized, dynamic_cast<qpxhost::HostPicture&>(*host.Find(mask, "PutMask")));
  }
  services.unlockObject(AsObject(mask));
}

// What is wrong with one PutMask into `result`, which has no mask: the mask it made has to show
// `resized`'s colours and go when `dropMask` has released it, leaving the host as it was.
// Empty when nothing is.
std::string PutMaskError(qpxhost::Host& host, const MaskServices& services,
                         MaskServices::SetMaskFn dropMask, qpxhost::HostPicture& result,
                         qpxhost::HostPicture& resized) {
  const size_t objects = host.LiveObjectCount();
  const size_t problems = host.problems().size();
  PutMask(host, services, result, resized);
  std::string error = result.mask == nullptr ? "no mask was made" : "";
  for (int32_t y = 0; y < result.height && error.empty(); ++y) {
    for (int32_t x = 0; x < result.width && error.empty(); ++x) {
      const qpxhost::RGBA made = result.mask->Get(x, y);
      const qpxhost::RGBA wanted = resized.Get(x, y);
      if (made.r != wanted.r || made.g != wanted.g || made.b != wanted.b) {
        error = "the mask made does not show the resized mask at (" + std::to_string(x) + ", " +
                std::to_string(y) + ")";
      }
    }
  }
  if (error.empty() && host.RefCount(result.mask) != 1) {
    error = "the mask made is held more than once";
  }
  dropMask(AsReference(&result), nullptr);
  if (error.empty() && host.problems().size() != problems) {
    error = "host misuse: " + host.problems().back();
  } else if (error.empty() && host.LiveObjectCount() != objects) {
    error = "host objects were left behind";
  }
  return error;
}

// ScaleImageAndMaskQPX's cost beyond its two resizes, for a result of `size`: its mask made,
// the resized mask (noise here) put into it, and the mask released with the result.
void BM_MaskCopy(benchmark::State& state, qpxhost::AppKind app, Size size) {
  Session& session = Session::For(app);
  qpxhost::Host& host = session.host();
  const MaskServices services;
  qpxhost::HostPicture* result = session.Target(size);  // stands for the new picture
  qpxhost::HostPicture* resized = session.Source(size);
  auto dropMask = reinterpret_cast<MaskServices::SetMaskFn>(
      services.loadObjectMethod(AsObject(AsReference(result)), MaskServices::kSetMask));
  // Checked once for each kind of host and size: an interleaved run comes back many times.
  static std::set<std::pair<qpxhost::AppKind, Size>> checked;
  if (checked.count({app, size}) == 0) {
    const std::string error = dropMask == nullptr
                                  ? "the host has no mask setter"
                                  : PutMaskError(host, services, dropMask, *result, *resized);
    if (!error.empty()) {
      state.SkipWithError(error.c_str());
      return;
    }
    checked.insert({app, size});
  }
  for (auto _ : state) {
    PutMask(host, services, *result, *resized);
    benchmark::ClobberMemory();
    dropMask(AsReference(result), nullptr);  // as releasing the result releases its mask
  }
  SetCounters(state, size.Pixels());
}

}  // namespace

void RegisterMaskCopyBenchmarks(qpxhost::AppKind app, const char* appName, RunLength length) {
  for (const ScaleCase& scale : kMaskedScaleCases) {
    const Size size = scale.job.to;
    // Named MaskCopy/APP/WxH.
    SetRunLength(benchmark::RegisterBenchmark(
                     (std::string("MaskCopy/") + appName + "/" + size.Name()).c_str(), BM_MaskCopy,
                     app, size)
                     ->Unit(benchmark::kMillisecond),
                 length);
  }
}

}  // namespace qpxbench
