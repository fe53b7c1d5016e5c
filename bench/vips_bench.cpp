// libvips on the same pictures of noise, as 4-band 8-bit images: vips_shrink for the box
// shrink; vips_reduce with the linear, cubic, Mitchell and Lanczos 3 kernels for the shrinks
// with those filters (to the exact size, all of it done by the kernel, as ScalingQPX does it);
// vips_resize with the nearest, linear and cubic kernels for the enlargements (libvips 8.14
// enlarges with an interpolator: nearest, bilinear, and bicubic for every other kernel). One
// worker thread and no operation cache; each result is written into a memory image so that its
// pixels are computed. libvips computes on a worker thread even then, so these cases count the
// process's CPU time rather than the calling thread's.
#include <vips/vips.h>

#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

using Operation = int (*)(VipsImage* in, VipsImage** out, ScaleJob job);

int Shrink(VipsImage* in, VipsImage** out, ScaleJob job) {
  return vips_shrink(in, out, static_cast<double>(job.from.width) / job.to.width,
                     static_cast<double>(job.from.height) / job.to.height, nullptr);
}

template <VipsKernel kernel>
int Reduce(VipsImage* in, VipsImage** out, ScaleJob job) {
  return vips_reduce(in, out, static_cast<double>(job.from.width) / job.to.width,
                     static_cast<double>(job.from.height) / job.to.height, "kernel", kernel,
                     nullptr);
}

template <VipsKernel kernel>
int Resize(VipsImage* in, VipsImage** out, ScaleJob job) {
  return vips_resize(in, out, static_cast<double>(job.to.width) / job.from.width, "vscale",
                     static_cast<double>(job.to.height) / job.from.height, "kernel", kernel,
                     nullptr);
}

// Runs `operation` and computes its pixels into memory; an empty string on success, otherwise
// what went wrong.
std::string RunOnce(VipsImage* source, Operation operation, ScaleJob job) {
  VipsImage* result = nullptr;
  if (operation(source, &result, job) != 0) return vips_error_buffer();
  VipsImage* memory = vips_image_new_memory();
  std::string error;
  if (vips_image_write(result, memory) != 0) {
    error = vips_error_buffer();
  } else if (memory->Xsize != job.to.width || memory->Ysize != job.to.height) {
    error = "libvips gave " + std::to_string(memory->Xsize) + "x" + std::to_string(memory->Ysize) +
            ", not " + job.to.Name();
  }
  g_object_unref(memory);
  g_object_unref(result);
  return error;
}

void BM_Vips(benchmark::State& state, ScaleJob job, Operation operation) {
  static const bool ready = [] {
    if (VIPS_INIT("qpx_bench") != 0) return false;
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    return true;
  }();
  if (!ready) {
    state.SkipWithError("libvips did not start");
    return;
  }
  const std::vector<uint8_t>& pixels = NoisePixels(job.from);
  VipsImage* source = vips_image_new_from_memory(pixels.data(), pixels.size(), job.from.width,
                                                 job.from.height, 4, VIPS_FORMAT_UCHAR);
  std::string error = source == nullptr ? vips_error_buffer() : RunOnce(source, operation, job);
  if (!error.empty()) {
    state.SkipWithError(error.c_str());
  } else {
    for (auto _ : state) RunOnce(source, operation, job);
    SetCounters(state, job.to.Pixels());
  }
  if (source != nullptr) g_object_unref(source);
}

}  // namespace

void RegisterVipsBenchmarks() {
  const struct {
    const char* kernel;
    ScaleJob job;
    Operation operation;
  } cases[] = {
      {"box", kShrink, Shrink},
      {"linear", kShrink, Reduce<VIPS_KERNEL_LINEAR>},
      {"cubic", kShrink, Reduce<VIPS_KERNEL_CUBIC>},
      {"mitchell", kShrink, Reduce<VIPS_KERNEL_MITCHELL>},
      {"lanczos3", kShrink, Reduce<VIPS_KERNEL_LANCZOS3>},
      {"box", kThumbnail, Shrink},
      {"linear", kThumbnail, Reduce<VIPS_KERNEL_LINEAR>},
      {"cubic", kThumbnail, Reduce<VIPS_KERNEL_CUBIC>},
      {"mitchell", kThumbnail, Reduce<VIPS_KERNEL_MITCHELL>},
      {"lanczos3", kThumbnail, Reduce<VIPS_KERNEL_LANCZOS3>},
      {"nearest", kEnlarge, Resize<VIPS_KERNEL_NEAREST>},
      {"linear", kEnlarge, Resize<VIPS_KERNEL_LINEAR>},
      {"cubic", kEnlarge, Resize<VIPS_KERNEL_CUBIC>},
  };
  for (const auto& [kernel, job, operation] : cases) {
    // Named libvips/KERNEL/JOB.
    const std::string name = std::string("libvips/") + kernel + "/" + job.name;
    benchmark::RegisterBenchmark(name.c_str(), BM_Vips, job, operation)
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace qpxbench
