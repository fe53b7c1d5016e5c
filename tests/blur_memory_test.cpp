// BlurQPX's working memory grows with the picture, never with the radius: the bytes allocated
// in the process, sampled at every yield of a call that yields at every check, stay within the
// new picture and a little more, for radii up to the largest the division table's size test
// lets through. The blur takes all its buffers before its first yield and frees them before its
// last, so the yields see each of them. Bytes are counted by the allocator: glibc's mallinfo2,
// or the sanitizers' own under AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "blur.h"
#include "differential.h"
#include "module_host.h"
#include "picture_bytes.h"
#include "pixel_loops.h"

#if defined(QPX_SANITIZED)
// The sanitizers' runtime has it; GCC does not install the header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#define QPX_COUNTS_ALLOCATIONS 1
#elif defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
#include <malloc.h>
#define QPX_COUNTS_ALLOCATIONS 1
#endif

namespace {

using qpxhost::AppKind;
using qpxhost::HostPicture;
using qpxtest::ModuleHost;
using qpxtest::Ref;

constexpr int32_t kLargestTableRadius = 1048574;
// Room for the loops' buffers (a few bytes a column) and the host's bookkeeping.
constexpr size_t kSlackBytes = size_t{1} << 20;

#ifdef QPX_COUNTS_ALLOCATIONS

size_t AllocatedBytes() {
#if defined(QPX_SANITIZED)
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

struct Peak {
  size_t bytes = 0;  // above what was allocated before the call
  int yields = 0;
};

// Blurs `picture` with `loops`, yielding at every check, and answers the most bytes allocated
// at any yield beyond those allocated before the call. Checks the result's references.
Peak PeakOfBlur(ModuleHost& env, HostPicture* picture, double radius, PixelLoops loops) {
  const size_t before = AllocatedBytes();
  Peak peak;
  env.host.onYield = [&] {
    peak.bytes = std::max(peak.bytes, AllocatedBytes() - std::min(before, AllocatedBytes()));
    ++peak.yields;
  };
  REALpicture result =
      BlurQPXWith(Ref(picture), radius, qpxtest::method_test_names::kYieldEveryCall, loops);
  env.host.onYield = nullptr;
  auto* blurred = reinterpret_cast<HostPicture*>(result);
  EXPECT_NE(blurred, nullptr);
  if (blurred != nullptr) {
    EXPECT_EQ(env.host.RefCount(blurred), 1);
    env.host.Unlock(blurred);
  }
  return peak;
}

qpxhost::HostConfig HostOf(AppKind app) {
  qpxhost::HostConfig config;
  config.app = app;
  return config;
}

// The application kind sticks for the life of a process: one kind a test.
void ExpectSmallPeaks(AppKind app, int32_t width, int32_t height) {
  ModuleHost env(HostOf(app));
  HostPicture* picture = env.Picture(width, height);
  const size_t pictureBytes = static_cast<size_t>(picture->rowBytes) * height;
  for (double radius : {1.0, 50.0, 300.0, double(kLargestTableRadius)}) {
    for (PixelLoops loops : AvailablePixelLoops()) {
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + ", radius " +
                   std::to_string(radius) + ", " + PixelLoopsName(loops));
      const Peak peak = PeakOfBlur(env, picture, radius, loops);
      EXPECT_EQ(peak.yields, 2 * height + 2);
      EXPECT_LE(peak.bytes, pictureBytes + kSlackBytes);
    }
  }
  env.host.Unlock(picture);
}

FRESH_TEST(BlurMemory, OnePixelWithTheLargestRadiusStaysWithinAMegabyte) {
  ExpectSmallPeaks(AppKind::Console, 1, 1);
}

FRESH_TEST(BlurMemory, OnePixelOnTheDesktopStaysWithinAMegabyte) {
  ExpectSmallPeaks(AppKind::Desktop, 1, 1);
}

FRESH_TEST(BlurMemory, PictureOfThousandsOfColumnsTakesItsOwnSizeAndAMegabyte) {
  ExpectSmallPeaks(AppKind::Console, 3000, 7);
  ExpectSmallPeaks(AppKind::Console, 7, 300);
}

// From r = 1048575 on the table fails its size test: nothing is allocated and only the last
// yield remains.
FRESH_TEST(BlurMemory, RadiusFailingTheSizeTestAllocatesNothing) {
  ModuleHost env(HostOf(AppKind::Console));
  HostPicture* picture = env.Picture(5, 4);
  for (PixelLoops loops : AvailablePixelLoops()) {
    SCOPED_TRACE(PixelLoopsName(loops));
    const Peak peak = PeakOfBlur(env, picture, kLargestTableRadius + 1.0, loops);
    EXPECT_EQ(peak.yields, 1);
    EXPECT_LE(peak.bytes, kSlackBytes);
  }
  env.host.Unlock(picture);
}

#else

TEST(BlurMemory, CountsAllocatedBytes) {
  GTEST_SKIP() << "the C library here does not tell the bytes it has allocated";
}

#endif

}  // namespace
