// Where each method hands control back to the host, seen from the host's side: at every
// "REALYieldToRB" the host counts how many rows of the picture being made (or, for
// DrawPictureFQPX, of the receiver being drawn into) have been written so far. The host fills
// the pictures it makes for the module with 0x5A, a byte no method stores in the fourth byte of
// a pixel (every method stores 255 there, or 0 in console pictures), so a row counts as written
// once the fourth byte of each of its pixels has been stored. Every call here passes INT32_MIN
// as its yield argument, which makes every yield check yield. -1 in a sequence stands for "no
// new picture yet".
//
// Where the methods yield, relative to the rows they write (H rows in the result):
// - ScaleQPX, box resizer: after each destination row is stored (1, 2, ..., H), then once more
//   after the result is handed over and the source released (H).
// - ScaleQPX, anti-aliased enlargement: three times before any pixel, after the column weights,
//   the row weights and the repeated weights (0, 0, 0); then four times per destination row, one
//   for each byte of the pixel, and no yield after the last row. The rule takes the bytes as the
//   outermost loop (byte b of every row before byte b + 1 of any row); the module works ahead of
//   that order for speed, storing all four bytes of a row at once and then making that row's four
//   yield checks, so each row counts as written from its first yield on (1, 1, 1, 1, 2, ...).
// - ScalingQPX: four times before the new picture exists (setup, horizontal lists, horizontal
//   pass, vertical lists: -1 each), after each output row of the vertical pass (1, ..., H),
//   after the last row, after the result is handed over and after the source is released
//   (H, H, H).
// - BlurQPX, plain loops: once before the passes (0); once per row of the vertical pass, after
//   that destination row was written (1, ..., H); once per row of the horizontal pass, which
//   rewrites rows in place (H each); once at the end (H).
// - BlurQPX, vector loops: as many yields in the same places of the call, but both passes run
//   on blocks of n rows, n being the pixels in a vector (4 for 128-bit vectors, 8 for AVX2).
//   For a block starting at row f with m rows (n, or fewer for the last block), the vertical
//   pass puts the block's means into a buffer of its own and yields m times with f rows of the
//   destination written; the horizontal pass then writes the block's m rows and yields m times
//   with f + m rows written. Once before the first block (0) and once at the end (H).
// - DrawPictureFQPX: once before the first row (0), after each row (1, ..., H), once at the
//   end (H).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "blur.h"
#include "call_sequence.h"
#include "draw_picture_f.h"
#include "module_host.h"
#include "picture_methods.h"
#include "pixel_loops.h"
#include "scaling_qpx.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxtest::Join;
using qpxtest::ModuleHost;
using qpxtest::Ref;
using Rows = std::vector<int32_t>;

constexpr uint8_t kFill = 0x5A;
constexpr int32_t kNoPictureYet = -1;

HostConfig Filled(AppKind app, double version = 2013.03) {
  HostConfig config = qpxtest::Config(app, version);
  config.newPixelFill = kFill;
  return config;
}

// A desktop whose bitmaps keep the alpha or skipped byte first: the fourth byte a method
// stores is byte 0 of each pixel.
HostConfig FilledAlphaFirstDesktop() {
  HostConfig config = Filled(AppKind::Desktop);
  config.desktopLayout = 6;
  config.desktopAlphaLayout = 2;
  return config;
}

// --- Expected sequences ------------------------------------------------------------------------

// first, first + 1, ..., last.
Rows Counting(int32_t first, int32_t last) {
  Rows rows;
  for (int32_t v = first; v <= last; ++v) rows.push_back(v);
  return rows;
}
Rows Repeated(int32_t value, int32_t times) {
  return Rows(static_cast<size_t>(std::max(times, 0)), value);
}

Rows BoxResizerRows(int32_t height) {
  return Join({Counting(1, height), {height}});
}

// Each row is stored whole before its four yield checks.
Rows EnlargementRows(int32_t height) {
  Rows rows = Repeated(0, 3);
  for (int32_t j = 0; j < height; ++j) {
    for (int byte = 0; byte < 4; ++byte) rows.push_back(j + 1);
  }
  return rows;
}

Rows ScalingRows(int32_t height) {
  return Join({Repeated(kNoPictureYet, 4), Counting(1, height), Repeated(height, 3)});
}

// Rows per block of the blur's vector loops; 0 for the plain loops.
int32_t BlockRows(PixelLoops loops) {
  switch (loops) {
    case PixelLoops::Vector128:
      return 4;
    case PixelLoops::Avx2:
      return 8;
    case PixelLoops::Plain:
      break;
  }
  return 0;
}

Rows BlurRows(int32_t height, PixelLoops loops) {
  const int32_t n = BlockRows(loops);
  if (n == 0) return Join({{0}, Counting(1, height), Repeated(height, height), {height}});
  Rows rows = {0};
  for (int32_t first = 0; first < height; first += n) {
    const int32_t m = std::min(n, height - first);
    rows = Join({rows, Repeated(first, m), Repeated(first + m, m)});
  }
  rows.push_back(height);
  return rows;
}

Rows DrawingRows(int32_t height) {
  return Join({{0}, Counting(1, height), {height}});
}

// --- Watching the yields -----------------------------------------------------------------------

// Counts, at each yield, the rows written of the picture that the last call of `creator`
// ("newPicture", or "PluginNewInstance" for pictures with an alpha channel) made since the
// recorder was set up, or of one given picture.
class RowsAtYields {
 public:
  RowsAtYields(qpxhost::Host& host, std::string creator)
      : host_(host), creator_(std::move(creator)), from_(host.log.size()) {
    host_.onYield = [this] { Record(); };
  }
  RowsAtYields(qpxhost::Host& host, HostPicture* watched)
      : host_(host), watched_(watched), from_(host.log.size()) {
    host_.onYield = [this] { Record(); };
  }
  ~RowsAtYields() { host_.onYield = nullptr; }
  RowsAtYields(const RowsAtYields&) = delete;
  RowsAtYields& operator=(const RowsAtYields&) = delete;

  const Rows& rows() const { return rows_; }

 private:
  void Record() {
    HostPicture* picture = watched_;
    if (picture == nullptr) {
      picture = dynamic_cast<HostPicture*>(qpxtest::LastResultOf(host_, creator_, from_));
    }
    rows_.push_back(picture == nullptr ? kNoPictureYet : qpxtest::RowsWritten(*picture, kFill));
  }

  qpxhost::Host& host_;
  std::string creator_;
  HostPicture* watched_ = nullptr;
  size_t from_;
  Rows rows_;
};

// A source whose bytes are none of them the fill: every byte 0x11, then a few colours.
HostPicture* Source(ModuleHost& env, int32_t width, int32_t height, bool hasAlpha = false) {
  PictureOptions options;
  options.hasAlpha = hasAlpha;
  HostPicture* picture = env.Picture(width, height, options);
  picture->FillPixels(0x11);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      picture->Set(x, y, {static_cast<uint8_t>(40 * x), static_cast<uint8_t>(30 * y), 200, 255});
    }
  }
  return picture;
}

// A returned picture: new, carrying one reference (the caller's), which is released here.
void ReleaseResult(ModuleHost& env, REALpicture result, HostPicture* source) {
  auto* picture = reinterpret_cast<HostPicture*>(result);
  ASSERT_NE(picture, nullptr);
  EXPECT_NE(picture, source);
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

// --- ScaleQPX, box resizer ---------------------------------------------------------------------

void BoxResizerYieldsAfterEachRowAndOnceAtTheEnd(const HostConfig& config) {
  ModuleHost env(config);
  HostPicture* source = Source(env, 4, 3);
  struct Case {
    int32_t width, height;
    int8_t antiAlias;
  };
  // Enlarging and shrinking, and AntiAlias asked for when only one side grows.
  for (const Case& c :
       {Case{6, 5, 0}, Case{2, 2, 0}, Case{2, 1, 1}, Case{7, 3, 1}, Case{4, 9, 1}, Case{1, 7, 0}}) {
    SCOPED_TRACE(testing::Message()
                 << c.width << " x " << c.height << ", AntiAlias " << int(c.antiAlias));
    REALpicture result = nullptr;
    Rows rows;
    {
      RowsAtYields recorder(env.host, "newPicture");
      result = PictureResizeQPX(Ref(source), c.width, c.height, c.antiAlias, kYieldEveryCall);
      rows = recorder.rows();
    }
    EXPECT_EQ(rows, BoxResizerRows(c.height));
    ReleaseResult(env, result, source);
  }
  env.host.Unlock(source);
}

FRESH_TEST(ScaleQPXYieldPlacement, BoxResizerConsole) {
  BoxResizerYieldsAfterEachRowAndOnceAtTheEnd(Filled(AppKind::Console));
}
FRESH_TEST(ScaleQPXYieldPlacement, BoxResizerDesktop) {
  BoxResizerYieldsAfterEachRowAndOnceAtTheEnd(Filled(AppKind::Desktop));
}
FRESH_TEST(ScaleQPXYieldPlacement, BoxResizerDesktopAlphaFirst) {
  BoxResizerYieldsAfterEachRowAndOnceAtTheEnd(FilledAlphaFirstDesktop());
}

// A receiver with an alpha channel gets a result with one, made through "PluginNewInstance".
FRESH_TEST(ScaleQPXYieldPlacement, BoxResizerWithAlphaChannel) {
  ModuleHost env(Filled(AppKind::Desktop));
  HostPicture* source = Source(env, 5, 4, /*hasAlpha=*/true);
  REALpicture result = nullptr;
  Rows rows;
  {
    RowsAtYields recorder(env.host, "PluginNewInstance");
    result = PictureResizeQPX(Ref(source), 3, 6, 0, kYieldEveryCall);
    rows = recorder.rows();
  }
  EXPECT_EQ(rows, BoxResizerRows(6));
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(reinterpret_cast<HostPicture*>(result)->hasAlpha);
  ReleaseResult(env, result, source);
  env.host.Unlock(source);
}

// --- ScaleQPX, anti-aliased enlargement --------------------------------------------------------

// The rows written at each yield of one enlargement.
Rows Enlarge(ModuleHost& env, HostPicture* source, int32_t width, int32_t height) {
  REALpicture result = nullptr;
  Rows rows;
  {
    RowsAtYields recorder(env.host, "newPicture");
    result = PictureResizeQPX(Ref(source), width, height, 1, kYieldEveryCall);
    rows = recorder.rows();
  }
  ReleaseResult(env, result, source);
  return rows;
}

void EnlargementStoresEachRowWholeBeforeItsYields(const HostConfig& config) {
  ModuleHost env(config);
  HostPicture* source = Source(env, 3, 2);
  for (auto [width, height] : {std::pair{7, 5}, std::pair{4, 3}, std::pair{9, 3}}) {
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    EXPECT_EQ(Enlarge(env, source, width, height), EnlargementRows(height));
  }
  env.host.Unlock(source);
}

// What any order of the rows and bytes keeps: three yields before the first pixel, four per
// destination row, none after the last pass, and rows never unwritten again.
void EnlargementYieldsFourTimesPerRowAfterThreeSetupYields(const HostConfig& config) {
  ModuleHost env(config);
  HostPicture* source = Source(env, 3, 2);
  for (auto [width, height] : {std::pair{7, 5}, std::pair{4, 3}}) {
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    const Rows rows = Enlarge(env, source, width, height);
    ASSERT_EQ(rows.size(), size_t(4 * height + 3));
    EXPECT_THAT(Rows(rows.begin(), rows.begin() + 3), testing::Each(0));
    EXPECT_EQ(rows.back(), height);
    EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end()));
  }
  env.host.Unlock(source);
}

FRESH_TEST(ScaleQPXYieldPlacement, EnlargementStoresEachRowWholeConsole) {
  EnlargementStoresEachRowWholeBeforeItsYields(Filled(AppKind::Console));
}
FRESH_TEST(ScaleQPXYieldPlacement, EnlargementStoresEachRowWholeDesktop) {
  EnlargementStoresEachRowWholeBeforeItsYields(Filled(AppKind::Desktop));
}
FRESH_TEST(ScaleQPXYieldPlacement, EnlargementStoresEachRowWholeDesktopAlphaFirst) {
  EnlargementStoresEachRowWholeBeforeItsYields(FilledAlphaFirstDesktop());
}

FRESH_TEST(ScaleQPXYieldPlacement, EnlargementYieldsFourTimesPerRowConsole) {
  EnlargementYieldsFourTimesPerRowAfterThreeSetupYields(Filled(AppKind::Console));
}
FRESH_TEST(ScaleQPXYieldPlacement, EnlargementYieldsFourTimesPerRowDesktopAlphaFirst) {
  EnlargementYieldsFourTimesPerRowAfterThreeSetupYields(FilledAlphaFirstDesktop());
}

// --- ScalingQPX --------------------------------------------------------------------------------

void ScalingYieldsFourTimesBeforeTheWriterThenPerRow(const HostConfig& config) {
  ModuleHost env(config);
  HostPicture* source = Source(env, 4, 3);
  struct Case {
    int32_t mode, width, height;
  };
  for (const Case& c : {Case{1, 6, 5}, Case{2, 2, 2}, Case{5, 3, 1}, Case{7, 1, 9}}) {
    for (PixelLoops loops : AvailablePixelLoops()) {
      SCOPED_TRACE(testing::Message() << "mode " << c.mode << " to " << c.width << " x " << c.height
                                      << ", " << PixelLoopsName(loops));
      REALpicture result = nullptr;
      Rows rows;
      {
        RowsAtYields recorder(env.host, "newPicture");
        result =
            PictureScalingQPXWith(Ref(source), c.mode, c.width, c.height, kYieldEveryCall, loops);
        rows = recorder.rows();
      }
      EXPECT_EQ(rows, ScalingRows(c.height));
      ReleaseResult(env, result, source);
    }
  }
  env.host.Unlock(source);
}

FRESH_TEST(ScalingQPXYieldPlacement, Console) {
  ScalingYieldsFourTimesBeforeTheWriterThenPerRow(Filled(AppKind::Console));
}
FRESH_TEST(ScalingQPXYieldPlacement, Desktop) {
  ScalingYieldsFourTimesBeforeTheWriterThenPerRow(Filled(AppKind::Desktop));
}
FRESH_TEST(ScalingQPXYieldPlacement, DesktopAlphaFirst) {
  ScalingYieldsFourTimesBeforeTheWriterThenPerRow(FilledAlphaFirstDesktop());
}

FRESH_TEST(ScalingQPXYieldPlacement, WithAlphaChannel) {
  ModuleHost env(Filled(AppKind::Desktop));
  HostPicture* source = Source(env, 4, 3, /*hasAlpha=*/true);
  REALpicture result = nullptr;
  Rows rows;
  {
    RowsAtYields recorder(env.host, "PluginNewInstance");
    result = PictureScalingQPX(Ref(source), 3, 5, 4, kYieldEveryCall);
    rows = recorder.rows();
  }
  EXPECT_EQ(rows, ScalingRows(4));
  ReleaseResult(env, result, source);
  env.host.Unlock(source);
}

// --- BlurQPX -----------------------------------------------------------------------------------

void BlurYieldsByRowOrByBlock(const HostConfig& config) {
  ModuleHost env(config);
  for (int32_t height : {1, 3, 4, 5, 8, 9, 16, 17}) {
    for (int32_t width : {1, 5, 11}) {
      HostPicture* source = Source(env, width, height);
      for (double radius : {1.0, 2.5}) {
        for (PixelLoops loops : AvailablePixelLoops()) {
          SCOPED_TRACE(testing::Message() << width << " x " << height << ", radius " << radius
                                          << ", " << PixelLoopsName(loops));
          REALpicture result = nullptr;
          Rows rows;
          {
            RowsAtYields recorder(env.host, "newPicture");
            result = BlurQPXWith(Ref(source), radius, kYieldEveryCall, loops);
            rows = recorder.rows();
          }
          EXPECT_EQ(rows, BlurRows(height, loops));
          ReleaseResult(env, result, source);
        }
      }
      env.host.Unlock(source);
      if (testing::Test::HasFailure()) return;
    }
  }
}

FRESH_TEST(BlurQPXYieldPlacement, Console) {
  BlurYieldsByRowOrByBlock(Filled(AppKind::Console));
}
FRESH_TEST(BlurQPXYieldPlacement, Desktop) {
  BlurYieldsByRowOrByBlock(Filled(AppKind::Desktop));
}
FRESH_TEST(BlurQPXYieldPlacement, DesktopAlphaFirst) {
  BlurYieldsByRowOrByBlock(FilledAlphaFirstDesktop());
}

// A radius too large for the division table leaves the new picture as the host made it: the
// only yield is the last one, with no row written.
FRESH_TEST(BlurQPXYieldPlacement, RadiusTooLargeYieldsOnceWithNothingWritten) {
  ModuleHost env(Filled(AppKind::Console));
  HostPicture* source = Source(env, 5, 4);
  for (PixelLoops loops : AvailablePixelLoops()) {
    SCOPED_TRACE(PixelLoopsName(loops));
    REALpicture result = nullptr;
    Rows rows;
    {
      RowsAtYields recorder(env.host, "newPicture");
      result = BlurQPXWith(Ref(source), 1e9, kYieldEveryCall, loops);
      rows = recorder.rows();
    }
    EXPECT_EQ(rows, Rows{0});
    ReleaseResult(env, result, source);
  }
  env.host.Unlock(source);
}

// --- DrawPictureFQPX ---------------------------------------------------------------------------

void DrawYieldsBeforeAfterEachRowAndAtTheEnd(const HostConfig& config) {
  ModuleHost env(config);
  for (int32_t height : {1, 4, 7}) {
    for (bool masked : {false, true}) {
      for (PixelLoops loops : AvailablePixelLoops()) {
        SCOPED_TRACE(testing::Message() << "height " << height << (masked ? ", mask" : "") << ", "
                                        << PixelLoopsName(loops));
        HostPicture* destination = env.Picture(6, height);
        destination->FillPixels(kFill);
        HostPicture* picture = Source(env, 3, 2);
        if (masked) picture->mask = qpxhost::NewHostMask(env.host, *picture);
        bool drawn = false;
        Rows rows;
        {
          RowsAtYields recorder(env.host, destination);
          drawn = DrawPictureFWith(Ref(destination), Ref(picture), 1.5, 0.25, 0.75, kYieldEveryCall,
                                   loops);
          rows = recorder.rows();
        }
        EXPECT_TRUE(drawn);
        EXPECT_EQ(rows, DrawingRows(height));
        EXPECT_EQ(env.host.RefCount(destination), 1);
        env.host.Unlock(destination);
        env.host.Unlock(picture);
      }
    }
  }
}

FRESH_TEST(DrawPictureFQPXYieldPlacement, Console) {
  DrawYieldsBeforeAfterEachRowAndAtTheEnd(qpxtest::Config(AppKind::Console));
}
FRESH_TEST(DrawPictureFQPXYieldPlacement, Desktop) {
  DrawYieldsBeforeAfterEachRowAndAtTheEnd(qpxtest::Config(AppKind::Desktop));
}
FRESH_TEST(DrawPictureFQPXYieldPlacement, DesktopAlphaFirst) {
  DrawYieldsBeforeAfterEachRowAndAtTheEnd(FilledAlphaFirstDesktop());
}

}  // namespace
