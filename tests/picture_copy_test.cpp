// Drawing and copying whole pictures.
#include "picture_copy.h"

#include "module_host.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostConfig;
using qpxhost::HostPicture;
using qpxhost::RGBA;
using qpxtest::Config;
using qpxtest::ModuleHost;
using qpxtest::Ref;

constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";

void Paint(HostPicture* picture) {
  for (int32_t y = 0; y < picture->height; ++y) {
    for (int32_t x = 0; x < picture->width; ++x) {
      picture->Set(x, y,
                   {static_cast<uint8_t>(x * 50 + 1), static_cast<uint8_t>(y * 60 + 2),
                    static_cast<uint8_t>(x + y), 255});
    }
  }
}

void ExpectSamePixels(HostPicture* a, HostPicture* b) {
  ASSERT_EQ(a->width, b->width);
  ASSERT_EQ(a->height, b->height);
  for (int32_t y = 0; y < a->height; ++y) {
    for (int32_t x = 0; x < a->width; ++x) {
      EXPECT_EQ(a->Get(x, y), b->Get(x, y)) << x << "," << y;
    }
  }
}

FRESH_TEST(OwnCopy, CopiesConsoleRows) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  Paint(source);
  EXPECT_TRUE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3));
  ExpectSamePixels(source, destination);
  EXPECT_EQ(destination->clearCacheCount, 1);
  EXPECT_EQ(source->clearCacheCount, 0);
  EXPECT_EQ(source->lockCount, 0);
  EXPECT_EQ(destination->lockCount, 0);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopy, DifferentSizesAreNotCopiedAndOnlyTheDestinationIsCleared) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(3, 3);
  Paint(source);
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 3, 3, 0, 0, 3, 3));
  EXPECT_EQ(destination->Get(0, 0), (RGBA{0, 0, 0, 255}));
  EXPECT_EQ(destination->clearCacheCount, 1);
  EXPECT_EQ(source->clearCacheCount, 0);
  EXPECT_EQ(source->lockCount, 0);
  EXPECT_EQ(destination->lockCount, 0);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopy, HeightZeroWithBothRowTablesCountsAsCopied) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(2, 1);
  HostPicture* destination = env.Picture(2, 1);
  source->record[2] = 0;
  destination->record[2] = 0;
  EXPECT_TRUE(OwnCopy(Ref(destination), Ref(source), 0, 0, 2, 0, 0, 0, 2, 0));
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopy, RefusesNilScalingAndDesktopPictures) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* source = env.Picture(2, 2);
  HostPicture* destination = env.Picture(2, 2);
  EXPECT_FALSE(OwnCopy(nullptr, Ref(source), 0, 0, 2, 2, 0, 0, 2, 2));
  EXPECT_FALSE(OwnCopy(Ref(destination), nullptr, 0, 0, 2, 2, 0, 0, 2, 2));
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 2, 2, 0, 0, 1, 2));
  EXPECT_EQ(destination->clearCacheCount, 0);
  // Desktop pictures do not lock as console records.
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 2, 2, 0, 0, 2, 2));
  EXPECT_EQ(destination->clearCacheCount, 0);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopy, OlderHostGetsUnlocksAfterFailedLocks) {
  ModuleHost env(Config(AppKind::Desktop, 2011.0));
  HostPicture* source = env.Picture(2, 2);
  HostPicture* destination = env.Picture(2, 2);
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 2, 2, 0, 0, 2, 2));
  EXPECT_EQ(source->unmatchedUnlocks, 1);       // the unlock that follows its failed lock
  EXPECT_EQ(destination->unmatchedUnlocks, 0);  // never reached
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(GraphicsDrawPicture, DesktopHostDraws) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* source = env.Picture(3, 2);
  HostPicture* destination = env.Picture(3, 2);
  Paint(source);
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 3, 2, 0, 0, 3, 2);
  ExpectSamePixels(source, destination);
  EXPECT_EQ(env.host.LiveObjectCount(), 2u);  // the graphics object was released
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(GraphicsDrawPicture, ConsoleHostCopiesItself) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(3, 2);
  HostPicture* destination = env.Picture(3, 2);
  Paint(source);
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 3, 2, 0, 0, 3, 2);
  ExpectSamePixels(source, destination);
  EXPECT_EQ(destination->clearCacheCount, 1);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(GraphicsDrawPicture, WithoutGraphicsServiceCopiesItself) {
  HostConfig config = Config(AppKind::Console);
  config.unavailable = {"pluginPictureGraphicsGetter"};
  ModuleHost env(config);
  HostPicture* source = env.Picture(2, 2);
  HostPicture* destination = env.Picture(2, 2);
  Paint(source);
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 2, 2, 0, 0, 2, 2);
  ExpectSamePixels(source, destination);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

void WithoutDrawingMethod(double version, int expectedLookups) {
  HostConfig config = Config(AppKind::Desktop, version);
  config.unavailable = {kDrawPicture};
  ModuleHost env(config);
  HostPicture* source = env.Picture(2, 2);
  HostPicture* destination = env.Picture(2, 2);
  Paint(source);
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 2, 2, 0, 0, 2, 2);
  // Desktop pictures cannot be copied row by row: the destination stays as it was.
  EXPECT_EQ(destination->Get(1, 1), (RGBA{0, 0, 0, 255}));
  EXPECT_EQ(env.host.LookupCount("RuntimeGraphicsDrawPicture"), expectedLookups);
  EXPECT_EQ(env.host.LiveObjectCount(), 2u);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(GraphicsDrawPicture, WithoutMethodOlderHostLooksUpRuntimeDrawing) {
  WithoutDrawingMethod(2011.9, 1);
}
FRESH_TEST(GraphicsDrawPicture, WithoutMethodNewerHostDoesNot) {
  WithoutDrawingMethod(2012.0, 0);
}

FRESH_TEST(GraphicsDrawPicture, NilSourceReleasesTheGraphics) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* destination = env.Picture(2, 2);
  GraphicsDrawPicture(Ref(destination), nullptr, 0, 0, 2, 2, 0, 0, 2, 2);
  EXPECT_EQ(env.host.LiveObjectCount(), 1u);
  EXPECT_EQ(destination->clearCacheCount, 0);
  env.host.Unlock(destination);
}

}  // namespace
