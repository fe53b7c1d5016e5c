// The host calls the picture editors make, call by call in the order the host sees them:
// opening a picture (and asking once which kind of application runs), releasing it, making new
// pictures for writing, and every way an opening fails. Opening through a copy, OwnCopy and
// GraphicsDrawPicture are in picture_copy_sequence_test.cpp.
#include <cstdint>
#include <string>
#include <vector>

#include "application_kind.h"
#include "call_sequence.h"
#include "module_host.h"
#include "picture_editor.h"

namespace {

using namespace qpxtest;
using namespace qpxtest::method_test_names;

// --- Opening --------------------------------------------------------------------------------

FRESH_TEST(EditorSequence, DesktopReaderLocksTheBitmapContextReadsItAndHoldsThePicture) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(4, 3);
  const std::string p = Name(picture);
  {
    PictureReader reader;
    size_t from = env.host.log.size();
    ASSERT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_TRUE(Follows(Calls(env.host, from), Open(AppKind::Desktop, p, true)));
    EXPECT_EQ(env.host.RefCount(picture), 2);
    EXPECT_EQ(picture->lockCount, 1);
    EXPECT_EQ(IsDesktop, 1);
    EXPECT_EQ(IsConsole, 0);

    // A reader leaves the picture as it found it: no cache clearing.
    from = env.host.log.size();
    reader.clear();
    EXPECT_TRUE(Follows(Calls(env.host, from), Release(p, false)));
    EXPECT_EQ(env.host.RefCount(picture), 1);
    EXPECT_EQ(picture->lockCount, 0);
  }
  env.host.Unlock(picture);
}

class ConsoleKindSequence : public ::testing::TestWithParam<AppKind> {};

TEST_P(ConsoleKindSequence, ReaderLocksTheConsoleRecordAndHoldsThePicture) {
  const AppKind app = GetParam();
  EXPECT_IN_FRESH_PROCESS({
    ModuleHost env(Config(app));
    HostPicture* picture = env.Picture(3, 5);
    const std::string p = Name(picture);
    {
      PictureReader reader;
      size_t from = env.host.log.size();
      ASSERT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
      // Once the application is known not to be a desktop one, no bitmap context is asked for.
      EXPECT_TRUE(Follows(Calls(env.host, from), Open(app, p, true)));
      EXPECT_EQ(env.host.RefCount(picture), 2);
      EXPECT_EQ(IsConsole, 1);
      EXPECT_EQ(IsDesktop, 0);
      from = env.host.log.size();
      reader.clear();
      EXPECT_TRUE(Follows(Calls(env.host, from), Release(p, false)));
    }
    env.host.Unlock(picture);
  });
}

INSTANTIATE_TEST_SUITE_P(Kinds, ConsoleKindSequence,
                         ::testing::Values(AppKind::Console, AppKind::Web));

FRESH_TEST(EditorSequence, TheKindOfApplicationIsAskedForOnlyOnce) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* first = env.Picture(2, 2);
  HostPicture* second = env.Picture(2, 2);
  {
    PictureReader reader;
    ASSERT_TRUE(reader.GetPictureEditor(Ref(first), true, false));
    const size_t from = env.host.log.size();
    // Opening another picture first releases the one held, then opens without asking again.
    ASSERT_TRUE(reader.GetPictureEditor(Ref(second), true, false));
    EXPECT_TRUE(
        Follows(Calls(env.host, from),
                Release(Name(first), false).Then(Open(AppKind::Console, Name(second), false))));
  }
  env.host.Unlock(first);
  env.host.Unlock(second);
}

FRESH_TEST(EditorSequence, DestroyingAnOpenEditorReleasesIt) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(2, 3);
  size_t from = 0;
  {
    PictureWriter writer;
    ASSERT_TRUE(writer.GetPictureEditor(Ref(picture), false, true));
    from = env.host.log.size();
  }
  EXPECT_TRUE(Follows(Calls(env.host, from), Release(Name(picture), true)));
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

// --- Releasing ------------------------------------------------------------------------------

FRESH_TEST(EditorSequence, EditorThatClearsTheCacheTellsTheHostBetweenUnlockAndRelease) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* picture = env.Picture(3, 3);
  const std::string p = Name(picture);
  {
    PictureEditor editor;
    ASSERT_TRUE(editor.GetPictureEditor(Ref(picture), false, true));
    const size_t from = env.host.log.size();
    editor.clear();
    EXPECT_TRUE(Follows(Calls(env.host, from), Release(p, true)));
    EXPECT_EQ(picture->clearCacheCount, 1);
  }
  env.host.Unlock(picture);
}

FRESH_TEST(EditorSequence, EditorHoldingNothingReleasesWithoutACall) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* picture = env.Picture(3, 3, Unlockable());
  {
    PictureEditor editor;
    EXPECT_FALSE(editor.GetPictureEditor(Ref(picture), false, true));
    const size_t from = env.host.log.size();
    editor.clear();
    editor.clear();
    // Nothing held: no unlock, no cache clearing, no reference dropped.
    EXPECT_EQ(env.host.log.size(), from) << env.host.log.Print(from);
    EXPECT_EQ(editor.RenderPictureWriter(), nullptr);
    EXPECT_EQ(env.host.log.size(), from) << env.host.log.Print(from);
  }
  env.host.Unlock(picture);
}

// --- Writers --------------------------------------------------------------------------------

FRESH_TEST(EditorSequence, DesktopWriterMakesOpensAndDropsTheCreationReference) {
  ModuleHost env(Config(AppKind::Desktop));
  const std::string made = Serial(1);
  {
    PictureWriter writer;
    size_t from = env.host.log.size();
    ASSERT_TRUE(writer.NewPictureWriter(false, 3, 2));
    EXPECT_TRUE(Follows(Calls(env.host, from), Sequence()
                                                   .Then(NewPicture(3, 2, made))
                                                   .Then(Open(AppKind::Desktop, made, true))
                                                   .Then(DropRef(made))));
    ASSERT_EQ(Named(writer.picture), made);
    EXPECT_EQ(env.host.RefCount(reinterpret_cast<HostObject*>(writer.picture)), 1);

    from = env.host.log.size();
    REALpicture result = writer.RenderPictureWriter();
    EXPECT_TRUE(Follows(Calls(env.host, from), Render(made)));
    ASSERT_EQ(Named(result), made);
    auto* picture = reinterpret_cast<HostPicture*>(result);
    EXPECT_EQ(env.host.RefCount(picture), 1);
    EXPECT_EQ(picture->lockCount, 0);
    EXPECT_EQ(writer.picture, nullptr);
    env.host.Unlock(picture);
  }
}

FRESH_TEST(EditorSequence, ConsoleWriterMakesOpensAndDropsTheCreationReference) {
  ModuleHost env(Config(AppKind::Console));
  const std::string made = Serial(1);
  {
    PictureWriter writer;
    size_t from = env.host.log.size();
    ASSERT_TRUE(writer.NewPictureWriter(false, 32767, 1));
    EXPECT_TRUE(Follows(Calls(env.host, from), Sequence()
                                                   .Then(NewPicture(32767, 1, made))
                                                   .Then(Open(AppKind::Console, made, true))
                                                   .Then(DropRef(made))));
    from = env.host.log.size();
    REALpicture result = writer.RenderPictureWriter();
    EXPECT_TRUE(Follows(Calls(env.host, from), Render(made)));
    auto* picture = reinterpret_cast<HostPicture*>(result);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(env.host.RefCount(picture), 1);
    env.host.Unlock(picture);
  }
}

// A writer with an alpha channel is made through the "Picture" constructor.
void ExpectAlphaWriter(double version) {
  ModuleHost env(Config(AppKind::Desktop, version));
  const std::string made = Serial(1);
  {
    PictureWriter writer;
    size_t from = env.host.log.size();
    ASSERT_TRUE(writer.NewPictureWriter(true, 3, 2));
    EXPECT_TRUE(
        Follows(Calls(env.host, from), Sequence()
                                           .Then("PluginNewInstance(\"Picture\") -> " + made)
                                           .Then(LoadMethod(made, kConstructor, true))
                                           .Then("Picture.Constructor(" + made + ", 3, 2)")
                                           .Then(Open(AppKind::Desktop, made, true, true))
                                           .Then(DropRef(made))));
    EXPECT_TRUE(writer.hasAlpha);
    EXPECT_TRUE(writer.alphaOpened);
    EXPECT_EQ(writer.width, 3);
    EXPECT_EQ(writer.height, 2);
    from = env.host.log.size();
    REALpicture result = writer.RenderPictureWriter();
    EXPECT_TRUE(Follows(Calls(env.host, from), Render(made)));
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(env.host.RefCount(reinterpret_cast<HostObject*>(result)), 1);
    env.host.Unlock(reinterpret_cast<HostObject*>(result));
  }
}

FRESH_TEST(EditorSequence, AlphaWriterIsMadeThroughTheConstructor) {
  ExpectAlphaWriter(2013.03);
}

FRESH_TEST(EditorSequence, AlphaWriterIsMadeThroughTheConstructorFrom2011r4On) {
  ExpectAlphaWriter(2011.04);
}

FRESH_TEST(EditorSequence, AlphaWriterIsRefusedBefore2011r4WithoutACall) {
  ModuleHost env(Config(AppKind::Desktop, 2011.03));
  PictureWriter writer;
  const size_t from = env.host.log.size();
  EXPECT_FALSE(writer.NewPictureWriter(true, 3, 2));
  EXPECT_EQ(env.host.log.size(), from) << env.host.log.Print(from);
}

FRESH_TEST(EditorSequence, WriterSizesOutsideTheLimitsAreRefusedWithoutACall) {
  ModuleHost env(Config(AppKind::Console));
  struct Size {
    bool alpha;
    int32_t width, height;
  };
  for (const Size size :
       {Size{false, 0, 2}, Size{false, 3, 0}, Size{false, -1, 2}, Size{false, 32768, 2},
        Size{false, 3, 32768}, Size{true, 0, 2}, Size{true, 3, -5}}) {
    SCOPED_TRACE(std::to_string(size.width) + " x " + std::to_string(size.height) +
                 (size.alpha ? " with alpha" : ""));
    PictureWriter writer;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(writer.NewPictureWriter(size.alpha, size.width, size.height));
    EXPECT_EQ(env.host.log.size(), from) << env.host.log.Print(from);
  }
}

FRESH_TEST(EditorSequence, WriterWhosePictureDoesNotOpenDropsIt) {
  HostConfig config = Config(AppKind::Console);
  config.newPictureFaults.lockReportsNullData = true;
  ModuleHost env(config);
  const std::string made = Serial(1);
  PictureWriter writer;
  const size_t from = env.host.log.size();
  EXPECT_FALSE(writer.NewPictureWriter(false, 2, 2));
  EXPECT_TRUE(Follows(Calls(env.host, from), Sequence()
                                                 .Then(NewPicture(2, 2, made))
                                                 .Then(Detection(AppKind::Console))
                                                 .Then(HasAlpha(made, false))
                                                 .Then(LockDescription(made, 10, true))
                                                 .Then(UnlockDescription(made))
                                                 .Then(DropRef(made))));
  EXPECT_EQ(env.host.LiveObjectCount(), 0u);
}

// --- Opening failures -----------------------------------------------------------------------

FRESH_TEST(EditorSequence, NilPictureMakesNoCallAtAll) {
  ModuleHost env(Config(AppKind::Desktop));
  PictureReader reader;
  const size_t from = env.host.log.size();
  EXPECT_FALSE(reader.GetPictureEditor(nullptr, true, false));
  EXPECT_EQ(env.host.log.size(), from) << env.host.log.Print(from);
}

// A picture that does not lock gives false; hosts older than 2012.0 are sent an unlock after
// the failed lock, later hosts are not.
void ExpectFailedLock(AppKind app, double version) {
  ModuleHost env(Config(app, version));
  HostPicture* picture = env.Picture(3, 3, Unlockable());
  const std::string p = Name(picture);
  const int type = app == AppKind::Desktop ? 8 : 10;
  {
    // No copy: a desktop picture would otherwise be opened through one.
    PictureReader reader;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), false, false));
    EXPECT_TRUE(
        Follows(Calls(env.host, from),
                Detection(app).Then(HasAlpha(p, false)).Then(FailedLock(p, type, version))));
  }
  EXPECT_EQ(picture->unmatchedUnlocks, version < 2012.0 ? 1 : 0);
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

FRESH_TEST(EditorSequence, FailedConsoleLockIsFollowedByAnUnlockBefore2012) {
  ExpectFailedLock(AppKind::Console, 2011.99);
}

FRESH_TEST(EditorSequence, FailedConsoleLockIsNotFollowedByAnUnlockFrom2012On) {
  ExpectFailedLock(AppKind::Console, 2012.0);
}

FRESH_TEST(EditorSequence, FailedDesktopLockIsFollowedByAnUnlockBefore2012) {
  ExpectFailedLock(AppKind::Desktop, 2011.99);
}

FRESH_TEST(EditorSequence, FailedDesktopLockIsNotFollowedByAnUnlockFrom2012On) {
  ExpectFailedLock(AppKind::Desktop, 2012.0);
}

// A lock that succeeds with a description the editor cannot use: unlocked, nothing held.
void ExpectUnlockedAfterRefusal(AppKind app, const PictureOptions& options, bool readsContext) {
  ModuleHost env(Config(app));
  HostPicture* picture = env.Picture(3, 2, options);
  const std::string p = Name(picture);
  const int type = app == AppKind::Desktop ? 8 : 10;
  {
    PictureReader reader;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
    Sequence expected =
        Detection(app).Then(HasAlpha(p, false)).Then(LockDescription(p, type, true));
    if (readsContext) expected.ThenAnyOrder(ContextReads(p));
    expected.Then(UnlockDescription(p));
    EXPECT_TRUE(Follows(Calls(env.host, from), expected));
    EXPECT_EQ(reader.picture, nullptr);
  }
  EXPECT_EQ(picture->lockCount, 0);
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

PictureOptions Faulty(void (*spoil)(qpxhost::PictureFaults&)) {
  PictureOptions options;
  spoil(options.faults);
  return options;
}

FRESH_TEST(EditorSequence, DesktopDescriptionOfTheWrongTypeIsUnlocked) {
  ExpectUnlockedAfterRefusal(
      AppKind::Desktop, Faulty([](qpxhost::PictureFaults& f) { f.lockReportsOtherType = true; }),
      false);
}

FRESH_TEST(EditorSequence, DesktopDescriptionWithoutDataIsUnlocked) {
  ExpectUnlockedAfterRefusal(
      AppKind::Desktop, Faulty([](qpxhost::PictureFaults& f) { f.lockReportsNullData = true; }),
      false);
}

FRESH_TEST(EditorSequence, DesktopContextOfAnotherDepthIsUnlockedAfterItIsRead) {
  PictureOptions options;
  options.depth = 16;
  ExpectUnlockedAfterRefusal(AppKind::Desktop, options, true);
}

FRESH_TEST(EditorSequence, ConsoleDescriptionOfTheWrongTypeIsUnlocked) {
  ExpectUnlockedAfterRefusal(
      AppKind::Console, Faulty([](qpxhost::PictureFaults& f) { f.lockReportsOtherType = true; }),
      false);
}

FRESH_TEST(EditorSequence, ConsoleDescriptionWithoutDataIsUnlocked) {
  ExpectUnlockedAfterRefusal(
      AppKind::Console, Faulty([](qpxhost::PictureFaults& f) { f.lockReportsNullData = true; }),
      false);
}

FRESH_TEST(EditorSequence, ConsolePictureOfAnotherDepthDoesNotLock) {
  ModuleHost env(Config(AppKind::Console));
  PictureOptions options;
  options.depth = 8;
  HostPicture* picture = env.Picture(3, 2, options);
  const std::string p = Name(picture);
  {
    PictureReader reader;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_TRUE(Follows(
        Calls(env.host, from),
        Detection(AppKind::Console).Then(HasAlpha(p, false)).Then(LockDescription(p, 10, false))));
  }
  env.host.Unlock(picture);
}

// A bitmap context whose alpha layout the editor does not take: it gives up at once after
// reading the context, without unlocking, and the host later sees the picture go locked.
void ExpectLeftLocked(const PictureOptions& options) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(3, 2, options);
  const std::string p = Name(picture);
  {
    PictureReader reader;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_TRUE(Follows(Calls(env.host, from), Detection(AppKind::Desktop)
                                                   .Then(HasAlpha(p, options.hasAlpha))
                                                   .Then(LockDescription(p, 8, true))
                                                   .ThenAnyOrder(ContextReads(p))));
    EXPECT_EQ(reader.picture, nullptr);
    EXPECT_FALSE(reader.descriptionLocked);
  }
  EXPECT_EQ(picture->lockCount, 1);
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
  EXPECT_THAT(env.host.TakeProblems(),
              ::testing::ElementsAre("picture " + p + " destroyed with its description locked"));
}

FRESH_TEST(EditorSequence, AlphaInfoZeroIsRefusedWithTheDescriptionLeftLocked) {
  ExpectLeftLocked(Faulty([](qpxhost::PictureFaults& f) { f.alphaInfo = 0; }));
}

FRESH_TEST(EditorSequence, AlphaInfoSevenIsRefusedWithTheDescriptionLeftLocked) {
  ExpectLeftLocked(Faulty([](qpxhost::PictureFaults& f) { f.alphaInfo = 7; }));
}

FRESH_TEST(EditorSequence, AlphaChannelInAnUnpremultipliedLayoutIsRefusedWithItLeftLocked) {
  PictureOptions options = WithAlpha();
  options.layout = 3;
  ExpectLeftLocked(options);
}

FRESH_TEST(EditorSequence, AlphaChannelWithoutAlphaLayoutIsRefusedWithItLeftLocked) {
  PictureOptions options = WithAlpha();
  options.faults.alphaInfo = 5;
  ExpectLeftLocked(options);
}

FRESH_TEST(EditorSequence, OnlyTheLowThreeBitsOfTheAlphaInfoCount) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture =
      env.Picture(3, 2, Faulty([](qpxhost::PictureFaults& f) { f.alphaInfoExtraBits = 0x2000; }));
  const std::string p = Name(picture);
  {
    PictureReader reader;
    const size_t from = env.host.log.size();
    ASSERT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_TRUE(Follows(Calls(env.host, from), Open(AppKind::Desktop, p, true)));
    EXPECT_EQ(reader.pixelFormat, 5);
  }
  env.host.Unlock(picture);
}

}  // namespace
