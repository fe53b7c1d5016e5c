// Opening host pictures of every kind, and making new ones.
#include "picture_editor.h"

#include "application_kind.h"
#include "module_host.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostConfig;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxtest::Config;
using qpxtest::ModuleHost;
using qpxtest::Ref;

// Each byte of each pixel gets a value of its own, so a wrong address shows.
void Fill(HostPicture* picture) {
  for (int32_t y = 0; y < picture->height; ++y) {
    uint8_t* row = picture->Row(y);
    for (int32_t i = 0; i < picture->width * 4; ++i) row[i] = static_cast<uint8_t>(y * 31 + i * 7);
  }
}

void ExpectRowsMatch(const PictureReader& reader, HostPicture* picture) {
  for (int32_t y = 0; y < picture->height; ++y) {
    EXPECT_EQ(reader.RowAddress(y), picture->Row(y)) << "row " << y;
  }
  // Rows at or past the bottom give row 0.
  EXPECT_EQ(reader.RowAddress(picture->height), picture->Row(0));
  EXPECT_EQ(reader.RowAddress(picture->height + 5), picture->Row(0));
}

class DesktopLayout : public ::testing::TestWithParam<int> {};

TEST_P(DesktopLayout, OpensWithItsCodeStrideAndRows) {
  const int layout = GetParam();
  EXPECT_IN_FRESH_PROCESS({
    HostConfig config = Config(AppKind::Desktop);
    config.desktopLayout = layout;
    config.desktopAlphaLayout = qpxhost::AlphaLayoutPairedWith(layout);
    config.rowPadding = 12;
    ModuleHost env(config);
    HostPicture* picture = env.Picture(5, 4);
    Fill(picture);
    {
      PictureReader reader;
      ASSERT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
      EXPECT_EQ(reader.pixelFormat, layout);
      EXPECT_EQ(reader.rowBytes, 5 * 4 + 12);
      EXPECT_EQ(reader.width, 5);
      EXPECT_EQ(reader.height, 4);
      EXPECT_EQ(reader.bytesPerPixel, 4);
      EXPECT_FALSE(reader.hasAlpha);
      EXPECT_EQ(reader.cursor, picture->Row(0));
      EXPECT_EQ(reader.picture, Ref(picture));
      EXPECT_TRUE(reader.descriptionLocked);
      EXPECT_EQ(env.host.RefCount(picture), 2);
      EXPECT_EQ(picture->lockCount, 1);
      EXPECT_EQ(IsDesktop, 1);
      EXPECT_EQ(IsConsole, 0);
      ExpectRowsMatch(reader, picture);
      reader.clear();
      EXPECT_EQ(picture->lockCount, 0);
      EXPECT_EQ(env.host.RefCount(picture), 1);
      EXPECT_EQ(picture->clearCacheCount, 0);  // a reader does not tell the host of changes
    }
    env.host.Unlock(picture);
  });
}

INSTANTIATE_TEST_SUITE_P(Codes, DesktopLayout, ::testing::Values(1, 2, 3, 4, 5, 6));

class ConsoleKind : public ::testing::TestWithParam<AppKind> {};

TEST_P(ConsoleKind, OpensThroughTheRowTable) {
  const AppKind app = GetParam();
  EXPECT_IN_FRESH_PROCESS({
    ModuleHost env(Config(app));
    HostPicture* picture = env.Picture(3, 6);
    Fill(picture);
    {
      PictureReader reader;
      ASSERT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
      EXPECT_EQ(reader.pixelFormat, 8);
      EXPECT_EQ(reader.rowBytes, 12);
      EXPECT_EQ(reader.width, 3);
      EXPECT_EQ(reader.height, 6);
      EXPECT_EQ(reader.rowTable, picture->rowTable.data());
      EXPECT_EQ(reader.baseAddress, picture->Row(0));
      EXPECT_EQ(IsConsole, 1);
      EXPECT_EQ(IsDesktop, 0);
      // The host's rows are not contiguous: only the row table finds them.
      EXPECT_NE(picture->Row(1), picture->Row(0) + reader.rowBytes);
      ExpectRowsMatch(reader, picture);
    }
    EXPECT_EQ(picture->lockCount, 0);
    EXPECT_EQ(env.host.RefCount(picture), 1);
    env.host.Unlock(picture);
  });
}

INSTANTIATE_TEST_SUITE_P(Kinds, ConsoleKind, ::testing::Values(AppKind::Console, AppKind::Web));

class AlphaLayout : public ::testing::TestWithParam<int> {};

// A picture with an alpha channel opens only premultiplied (codes 1 and 2). Otherwise the
// editor gives up with the description still locked, as it always has.
TEST_P(AlphaLayout, OpensOnlyPremultiplied) {
  const int layout = GetParam();
  EXPECT_IN_FRESH_PROCESS({
    ModuleHost env(Config(AppKind::Desktop));
    PictureOptions options;
    options.hasAlpha = true;
    options.layout = layout;
    HostPicture* picture = env.Picture(2, 2, options);
    {
      PictureReader reader;
      const bool opened = reader.GetPictureEditor(Ref(picture), true, false);
      EXPECT_EQ(opened, layout == 1 || layout == 2);
      EXPECT_TRUE(reader.hasAlpha);
      if (opened) {
        EXPECT_EQ(reader.pixelFormat, layout);
        EXPECT_TRUE(reader.alphaOpened);
      } else {
        EXPECT_EQ(picture->lockCount, 1);
        EXPECT_EQ(env.host.RefCount(picture), 1);
      }
    }
    EXPECT_EQ(picture->lockCount, (layout == 1 || layout == 2) ? 0 : 1);
    env.host.Unlock(picture);
    // The host sees the picture go with its description locked.
    if (layout != 1 && layout != 2) {
      EXPECT_THAT(env.host.TakeProblems(),
                  ::testing::ElementsAre("picture #1 destroyed with its description locked"));
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Codes, AlphaLayout, ::testing::Values(1, 2, 3, 4, 5, 6));

FRESH_TEST(PictureEditor, NilDoesNotOpen) {
  ModuleHost env(Config(AppKind::Desktop));
  PictureReader reader;
  EXPECT_FALSE(reader.GetPictureEditor(nullptr, true, false));
  EXPECT_EQ(env.host.LookupCount("REALLockPictureDescription"), 0);
}

FRESH_TEST(PictureEditor, EmptyPictureDoesNotOpenOnDesktop) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(0, 0);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
  }
  EXPECT_EQ(picture->lockCount, 0);
  env.host.Unlock(picture);
}

FRESH_TEST(PictureEditor, EmptyPictureDoesNotOpenOnConsole) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* picture = env.Picture(0, 0);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
  }
  env.host.Unlock(picture);
}

FRESH_TEST(PictureEditor, DepthOtherThan32DoesNotOpenOnDesktop) {
  ModuleHost env(Config(AppKind::Desktop));
  PictureOptions options;
  options.depth = 16;
  HostPicture* picture = env.Picture(4, 4, options);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
  }
  EXPECT_EQ(picture->lockCount, 0);  // unlocked after the bits-per-pixel check
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

FRESH_TEST(PictureEditor, DepthOtherThan32DoesNotOpenOnConsole) {
  ModuleHost env(Config(AppKind::Console));
  PictureOptions options;
  options.depth = 8;
  HostPicture* picture = env.Picture(4, 4, options);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
  }
  env.host.Unlock(picture);
}

// --- Console records the editor refuses ------------------------------------------------

// A picture of `app` that `spoil` made unfit does not open: nothing held, nothing locked.
template <class Spoil>
void ExpectRefused(AppKind app, Spoil spoil) {
  ModuleHost env(Config(app));
  HostPicture* picture = env.Picture(3, 2);
  spoil(*picture);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_EQ(env.host.RefCount(picture), 1);
  }
  EXPECT_EQ(picture->lockCount, 0);
  env.host.Unlock(picture);
}

void ExpectConsoleRecordRefused(size_t slot, uintptr_t value) {
  ExpectRefused(AppKind::Console, [&](HostPicture& picture) { picture.record[slot] = value; });
}

FRESH_TEST(ConsoleRecord, NonZeroFirstWordIsRefused) {
  ExpectConsoleRecordRefused(0, 1);
}
FRESH_TEST(ConsoleRecord, NullSlot1806IsRefused) {
  ExpectConsoleRecordRefused(1806, 0);
}
FRESH_TEST(ConsoleRecord, NullRowTableIsRefused) {
  ExpectConsoleRecordRefused(1807, 0);
}

// A record whose size slots disagree with the size its description reports.
FRESH_TEST(ConsoleRecord, WidthSlotOtherThanTheDescriptionsIsRefused) {
  ExpectConsoleRecordRefused(1, 4);
}
FRESH_TEST(ConsoleRecord, HeightSlotOtherThanTheDescriptionsIsRefused) {
  ExpectConsoleRecordRefused(2, 1);
}

// --- Bitmap contexts the editor refuses ------------------------------------------------------
// A context whose sizes cannot be walked in 32 bits, or whose rows are shorter than their
// pixels: the picture does not open and its description is unlocked again.
void ExpectBitmapContextRefused(void (*spoil)(qpxhost::BitmapContext&)) {
  ExpectRefused(AppKind::Desktop, [&](HostPicture& picture) { spoil(picture.context); });
}

FRESH_TEST(BitmapContext, RowsShorterThanTheirPixelsAreRefused) {
  ExpectBitmapContextRefused([](qpxhost::BitmapContext& c) { c.bytesPerRow = 4 * c.width - 1; });
}
FRESH_TEST(BitmapContext, WidthBeyond32BitsIsRefused) {
  ExpectBitmapContextRefused([](qpxhost::BitmapContext& c) { c.width = size_t{1} << 31; });
}
FRESH_TEST(BitmapContext, HeightBeyond32BitsIsRefused) {
  ExpectBitmapContextRefused([](qpxhost::BitmapContext& c) { c.height = size_t{1} << 31; });
}
FRESH_TEST(BitmapContext, BytesPerRowBeyond32BitsIsRefused) {
  ExpectBitmapContextRefused([](qpxhost::BitmapContext& c) { c.bytesPerRow = size_t{1} << 31; });
}

// --- The copy attempt ----------------------------------------------------------------------

FRESH_TEST(CopyAttempt, UnlockablePictureOpensThroughADrawnCopy) {
  ModuleHost env(Config(AppKind::Desktop));
  PictureOptions options;
  options.lockable = false;
  HostPicture* source = env.Picture(3, 2, options);
  for (int32_t y = 0; y < 2; ++y) {
    for (int32_t x = 0; x < 3; ++x) {
      source->Set(x, y, {static_cast<uint8_t>(x * 40), static_cast<uint8_t>(y * 90), 7, 255});
    }
  }
  {
    PictureReader reader;
    ASSERT_TRUE(reader.GetPictureEditor(Ref(source), true, false));
    ASSERT_NE(reader.picture, Ref(source));
    auto* copy = dynamic_cast<HostPicture*>(env.host.Find(reader.picture, "test"));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(env.host.RefCount(copy), 1);  // the editor's own reference only
    EXPECT_EQ(reader.pixelFormat, 5);
    for (int32_t y = 0; y < 2; ++y) {
      for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(copy->Get(x, y), source->Get(x, y));
    }
    EXPECT_EQ(env.host.RefCount(source), 1);
  }
  EXPECT_EQ(env.host.LiveObjectCount(), 1u);  // the copy went with the reader
  env.host.Unlock(source);
}

FRESH_TEST(CopyAttempt, WithoutDrawingMethodTheCopyStaysAsTheHostMadeIt) {
  HostConfig config = Config(AppKind::Desktop);
  config.unavailable = {
      "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx "
      "as Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)"};
  ModuleHost env(config);
  PictureOptions options;
  options.lockable = false;
  HostPicture* source = env.Picture(2, 2, options);
  source->Set(0, 0, {200, 100, 50, 255});
  {
    PictureReader reader;
    ASSERT_TRUE(reader.GetPictureEditor(Ref(source), true, false));
    auto* copy = dynamic_cast<HostPicture*>(env.host.Find(reader.picture, "test"));
    ASSERT_NE(copy, nullptr);
    // Desktop pictures do not lock as console records, so the rows could not be copied.
    EXPECT_EQ(copy->Get(0, 0), (qpxhost::RGBA{0, 0, 0, 255}));
    EXPECT_EQ(copy->clearCacheCount, 0);
  }
  env.host.Unlock(source);
}

FRESH_TEST(CopyAttempt, NotTakenForWritersOrWithoutCopyIfNeeded) {
  ModuleHost env(Config(AppKind::Desktop));
  PictureOptions options;
  options.lockable = false;
  HostPicture* source = env.Picture(2, 2, options);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(source), false, false));
    EXPECT_FALSE(reader.GetPictureEditor(Ref(source), true, true));
  }
  EXPECT_EQ(env.host.LookupCount("newPicture"), 0);
  env.host.Unlock(source);
}

FRESH_TEST(CopyAttempt, NotTakenForPicturesWithAlpha) {
  ModuleHost env(Config(AppKind::Desktop));
  PictureOptions options;
  options.lockable = false;
  options.hasAlpha = true;
  HostPicture* source = env.Picture(2, 2, options);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(source), true, false));
  }
  EXPECT_EQ(env.host.LookupCount("newPicture"), 0);
  env.host.Unlock(source);
}

// A host whose pictures never lock: the copy cannot be opened either, and is not copied again.
FRESH_TEST(CopyAttempt, HostWithoutLockingGivesFalseAfterOneCopy) {
  HostConfig config = Config(AppKind::Desktop);
  config.unavailable = {"REALLockPictureDescription"};
  ModuleHost env(config);
  HostPicture* source = env.Picture(2, 2);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(source), true, false));
  }
  EXPECT_EQ(env.host.LiveObjectCount(), 1u);
  env.host.Unlock(source);
}

// --- Hosts older than 2012.0 get an unlock after a failed lock -----------------------------

void FailedLockOnDesktop(double version, int expectedUnmatched) {
  ModuleHost env(Config(AppKind::Desktop, version));
  PictureOptions options;
  options.lockable = false;
  HostPicture* source = env.Picture(1, 1, options);
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(source), false, false));
  }
  EXPECT_EQ(source->unmatchedUnlocks, expectedUnmatched);
  env.host.Unlock(source);
}

FRESH_TEST(OlderHosts, FailedLockIsFollowedByUnlockBefore2012) {
  FailedLockOnDesktop(2011.9, 1);
}
FRESH_TEST(OlderHosts, FailedLockIsLeftAloneFrom2012) {
  FailedLockOnDesktop(2012.0, 0);
}

// --- Application kind ---------------------------------------------------------------------

FRESH_TEST(ApplicationKind, DesktopFoundWithoutApplicationClassByLocking) {
  HostConfig config = Config(AppKind::Desktop);
  config.unavailable = {"Application"};
  ModuleHost env(config);
  DetectApplicationKind();
  EXPECT_EQ(IsDesktop, 0);
  EXPECT_EQ(IsConsole, 0);
  HostPicture* picture = env.Picture(1, 1);
  {
    PictureReader reader;
    EXPECT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
  }
  EXPECT_EQ(IsDesktop, 1);
  env.host.Unlock(picture);
}

FRESH_TEST(ApplicationKind, WebCountsAsConsole) {
  ModuleHost env(Config(AppKind::Web));
  DetectApplicationKind();
  EXPECT_EQ(IsConsole, 1);
  EXPECT_EQ(IsDesktop, 0);
}

FRESH_TEST(ApplicationKind, UnknownKindLeavesBothFlagsClear) {
  HostConfig config = Config(AppKind::Console);
  config.unavailable = {"ConsoleApplication"};
  ModuleHost env(config);
  DetectApplicationKind();
  EXPECT_EQ(IsConsole, 0);
  EXPECT_EQ(IsDesktop, 0);
}

// --- Writers ---------------------------------------------------------------------------------

void ExpectWriter(AppKind app, bool withAlpha, int32_t width, int32_t height, bool expected,
                  double version = 2013.03) {
  ModuleHost env(Config(app, version));
  {
    PictureWriter writer;
    EXPECT_EQ(writer.NewPictureWriter(withAlpha, width, height), expected)
        << width << " x " << height << (withAlpha ? " with alpha" : "");
    if (expected) {
      EXPECT_EQ(writer.width, width);
      EXPECT_EQ(writer.height, height);
      EXPECT_EQ(writer.hasAlpha, withAlpha);
      EXPECT_EQ(env.host.RefCount(writer.picture), 1);  // the writer's own reference
    }
  }
  EXPECT_EQ(env.host.LiveObjectCount(), 0u);
}

FRESH_TEST(PictureWriter, WithoutAlphaUpTo32767) {
  ExpectWriter(AppKind::Console, false, 32767, 1, true);
  ExpectWriter(AppKind::Console, false, 1, 32767, true);
  ExpectWriter(AppKind::Console, false, 32768, 1, false);
  ExpectWriter(AppKind::Console, false, 1, 32768, false);
  ExpectWriter(AppKind::Console, false, 0, 5, false);
  ExpectWriter(AppKind::Console, false, 5, -1, false);
}

FRESH_TEST(PictureWriter, WithAlphaHasNoUpperBound) {
  ExpectWriter(AppKind::Desktop, true, 40000, 1, true);
  ExpectWriter(AppKind::Desktop, true, 0, 1, false);
}

FRESH_TEST(PictureWriter, WithAlphaNeedsHost2011_04) {
  ExpectWriter(AppKind::Desktop, true, 2, 2, true, 2011.04);
  ExpectWriter(AppKind::Desktop, true, 2, 2, false, 2011.03);
}

FRESH_TEST(PictureWriter, WithAlphaWithoutConstructorFails) {
  HostConfig config = Config(AppKind::Desktop);
  config.unavailable = {"Constructor(width as integer, height as integer)"};
  ModuleHost env(config);
  {
    PictureWriter writer;
    EXPECT_FALSE(writer.NewPictureWriter(true, 2, 2));
  }
}

FRESH_TEST(PictureWriter, RenderGivesExactlyOneReferenceAndClearsTheCache) {
  ModuleHost env(Config(AppKind::Desktop));
  REALpicture result = nullptr;
  {
    PictureWriter writer;
    ASSERT_TRUE(writer.NewPictureWriter(false, 3, 3));
    EXPECT_EQ(writer.pixelFormat, 5);
    for (int32_t y = 0; y < 3; ++y) {
      for (int32_t x = 0; x < 3; ++x) {
        writer.cursor[4 * x] = static_cast<uint8_t>(10 * y + x);
        writer.cursor[4 * x + 3] = 255;
      }
      writer.NextRow();
    }
    EXPECT_EQ(writer.cursor, writer.RowAddress(0));  // past the last row: row 0 again
    result = writer.RenderPictureWriter();
    EXPECT_EQ(writer.picture, nullptr);
  }
  ASSERT_NE(result, nullptr);
  auto* picture = dynamic_cast<HostPicture*>(env.host.Find(result, "test"));
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(env.host.RefCount(picture), 1);
  EXPECT_GE(picture->clearCacheCount, 1);
  EXPECT_EQ(picture->lockCount, 0);
  EXPECT_EQ(picture->Get(2, 1).r, 12);
  env.host.Unlock(picture);
}

FRESH_TEST(PictureWriter, RenderWithoutPictureOrBufferGivesNil) {
  ModuleHost env(Config(AppKind::Console));
  PictureWriter writer;
  EXPECT_EQ(writer.RenderPictureWriter(), nullptr);
}

FRESH_TEST(PictureWriter, RenderBuildsFromTheEditorsOwnBuffer) {
  ModuleHost env(Config(AppKind::Console));
  uint8_t pixels[2 * 4] = {1, 2, 3, 0, 4, 5, 6, 0};
  PictureWriter writer;
  writer.width = 2;
  writer.height = 1;
  writer.rowBytes = 8;
  writer.buffer = pixels;
  REALpicture result = writer.RenderPictureWriter();
  ASSERT_NE(result, nullptr);
  auto* picture = dynamic_cast<HostPicture*>(env.host.Find(result, "test"));
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->Get(1, 0), (qpxhost::RGBA{6, 5, 4, 255}));
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

FRESH_TEST(PictureWriter, ConsoleWriterRowsFollowTheRowTable) {
  ModuleHost env(Config(AppKind::Console));
  PictureWriter writer;
  ASSERT_TRUE(writer.NewPictureWriter(false, 2, 3));
  EXPECT_EQ(writer.pixelFormat, 8);
  auto* picture = dynamic_cast<HostPicture*>(env.host.Find(writer.picture, "test"));
  ASSERT_NE(picture, nullptr);
  for (int32_t y = 0; y < 3; ++y) {
    EXPECT_EQ(writer.cursor, picture->Row(y));
    writer.NextRow();
  }
  EXPECT_EQ(writer.cursor, picture->Row(0));
}

}  // namespace
