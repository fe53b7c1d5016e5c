// cairo on the same pictures of noise, drawing as DrawPictureFQPX's jobs do: the receiver a
// 4000 x 3000 RGB24 image surface of noise, the picture set as the source at the job's
// fractional offset with the bilinear filter and painted with cairo_paint_with_alpha. Without a
// mask the picture is an RGB24 surface, the format for opaque pictures, and, as pixman draws
// that one more slowly, also an ARGB32 surface with every alpha 255; with a mask, an ARGB32
// surface whose alpha is the mask's opacity (255 - m), its colours premultiplied by it, made
// once outside the timing: the way a cairo program keeps a picture with transparency. Every
// call draws over what the calls before it left. cairo's image surfaces are drawn on the
// calling thread.
#include <cairo.h>

#include <cstring>
#include <memory>
#include <string>

#include "benchmarks.h"
#include "host_session.h"

namespace qpxbench {
namespace {

struct SurfaceDeleter {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

uint32_t Premultiplied(uint32_t channel, uint32_t alpha) {
  return (channel * alpha + 127) / 255;
}

// The pictures cairo draws.
struct Source {
  const char* name;
  cairo_format_t format;
  bool masked;  // ARGB32 only: the mask's opacity as alpha, else alpha 255
};
constexpr Source kSources[] = {{"no-mask", CAIRO_FORMAT_RGB24, false},
                               {"no-mask/argb32", CAIRO_FORMAT_ARGB32, false},
                               {"mask", CAIRO_FORMAT_ARGB32, true}};

// An image surface of that format with the noise of that size; with the mask of that size as
// its alpha when `masked`. Null when cairo cannot make it.
Surface NoiseSurface(Size size, cairo_format_t format, bool masked) {
  Surface surface(cairo_image_surface_create(format, size.width, size.height));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
  cairo_surface_flush(surface.get());
  uint8_t* data = cairo_image_surface_get_data(surface.get());
  const size_t stride = static_cast<size_t>(cairo_image_surface_get_stride(surface.get()));
  const uint8_t* noise = NoisePixels(size).data();
  const uint8_t* mask = MaskNoise(size).data();
  for (int32_t y = 0; y < size.height; ++y) {
    uint8_t* row = data + static_cast<size_t>(y) * stride;
    // RGB24 ignores the words' top bytes.
    std::memcpy(row, noise + static_cast<size_t>(y) * size.RowBytes(), size.RowBytes());
    if (format != CAIRO_FORMAT_ARGB32) continue;
    for (int32_t x = 0; x < size.width; ++x) {
      // Native 32-bit words 0xAARRGGBB.
      uint32_t word;
      std::memcpy(&word, row + 4 * x, 4);
      const uint32_t alpha = masked ? 255u - *mask++ : 255u;
      word = alpha << 24 | Premultiplied(word >> 16 & 0xFF, alpha) << 16 |
             Premultiplied(word >> 8 & 0xFF, alpha) << 8 | Premultiplied(word & 0xFF, alpha);
      std::memcpy(row + 4 * x, &word, 4);
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

// One drawing, as a cairo program draws a picture: a context on the receiver, the picture its
// source at the job's offset, filtered bilinearly, painted with the opacity.
cairo_status_t Paint(cairo_surface_t* canvas, cairo_surface_t* picture, DrawJob job) {
  cairo_t* cr = cairo_create(canvas);
  cairo_set_source_surface(cr, picture, job.x, job.y);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_BILINEAR);
  cairo_paint_with_alpha(cr, kDrawAlpha);
  const cairo_status_t status = cairo_status(cr);
  cairo_destroy(cr);
  cairo_surface_flush(canvas);
  return status;
}

void BM_CairoDraw(benchmark::State& state, DrawJob job, Source source) {
  const Surface canvas = NoiseSurface(kCanvas, CAIRO_FORMAT_RGB24, false);
  const Surface picture = NoiseSurface(job.picture, source.format, source.masked);
  const cairo_status_t status = canvas == nullptr || picture == nullptr
                                    ? CAIRO_STATUS_NO_MEMORY
                                    : Paint(canvas.get(), picture.get(), job);
  if (status != CAIRO_STATUS_SUCCESS) {
    state.SkipWithError(cairo_status_to_string(status));
    return;
  }
  for (auto _ : state) {
    Paint(canvas.get(), picture.get(), job);
    benchmark::ClobberMemory();
  }
  SetCounters(state, kCanvas.Pixels());
}

}  // namespace

void RegisterCairoBenchmarks(RunLength length) {
  for (const DrawJob& job : kDrawJobs) {
    for (const Source& source : kSources) {
      // Named cairo/JOB/SOURCE, SOURCE starting with DrawPictureFQPX's no-mask or mask.
      const std::string name = std::string("cairo/") + job.name + "/" + source.name;
      SetRunLength(benchmark::RegisterBenchmark(name.c_str(), BM_CairoDraw, job, source)
                       ->Unit(benchmark::kMillisecond),
                   length);
    }
  }
}

}  // namespace qpxbench
