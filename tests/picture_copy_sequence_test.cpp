// The host calls of a picture copied: a desktop picture that does not lock, opened by an editor
// through a 32-bit copy the host draws (and every case in which it is not copied), OwnCopy's
// locks between two console pictures, and GraphicsDrawPicture drawing through the host's
// graphics or copying row by row. Call by call, in the order the host sees them.
#include <cstdint>
#include <string>
#include <vector>

#include "call_sequence.h"
#include "module_host.h"
#include "picture_copy.h"
#include "picture_editor.h"

namespace {

using namespace qpxtest;
using namespace qpxtest::method_test_names;
using qpxhost::HostCall;

// --- Opening through a copy -----------------------------------------------------------------

// A desktop picture whose pixels cannot be had directly is drawn by the host into a new 32-bit
// picture, which is opened instead; the module keeps no reference to the copy but the
// editor's.
void ExpectOpenedThroughACopy(double version) {
  ModuleHost env(Config(AppKind::Desktop, version));
  HostPicture* source = env.Picture(4, 3, Unlockable());
  source->Set(1, 2, {10, 20, 30, 255});
  const std::string s = Name(source);
  const std::string copy = Serial(2), graphics = Serial(3);
  {
    PictureReader reader;
    size_t from = env.host.log.size();
    ASSERT_TRUE(reader.GetPictureEditor(Ref(source), true, false));
    const Sequence expected = Detection(AppKind::Desktop)
                                  .Then(HasAlpha(s, false))
                                  .Then(FailedLock(s, 8, version))
                                  .Then(ReadSize(s, 4, 3))
                                  .Then(NewPicture(4, 3, copy))
                                  .Then(GraphicsOf(copy, graphics))
                                  .Then(LoadMethod(graphics, kDrawPicture, true))
                                  .Then(Draw(graphics, s, 4, 3))
                                  .Then(DropRef(graphics))
                                  .Then(Open(AppKind::Desktop, copy, false))
                                  .Then(DropRef(copy));
    EXPECT_TRUE(Follows(Calls(env.host, from), expected));
    ASSERT_EQ(Named(reader.picture), copy);
    auto* made = reinterpret_cast<HostPicture*>(reader.picture);
    EXPECT_EQ(env.host.RefCount(made), 1);  // the editor's own
    EXPECT_EQ(made->Get(1, 2), (qpxhost::RGBA{10, 20, 30, 255}));
    EXPECT_EQ(env.host.RefCount(source), 1);
    EXPECT_EQ(source->unmatchedUnlocks, version < 2012.0 ? 1 : 0);

    // Releasing the reader lets the copy go.
    from = env.host.log.size();
    reader.clear();
    EXPECT_TRUE(Follows(Calls(env.host, from), Release(copy, false)));
    EXPECT_FALSE(env.host.IsLive(made));
  }
  env.host.Unlock(source);
}

FRESH_TEST(EditorSequence, UnlockablePictureIsOpenedThroughACopy) {
  ExpectOpenedThroughACopy(2013.03);
}

FRESH_TEST(EditorSequence, UnlockablePictureIsOpenedThroughACopyOnTheFirstHostWithoutUnlock) {
  ExpectOpenedThroughACopy(2012.0);
}

FRESH_TEST(EditorSequence, UnlockablePictureIsOpenedThroughACopyAfterAnUnlockOnOlderHosts) {
  ExpectOpenedThroughACopy(2011.99);
}

FRESH_TEST(EditorSequence, CopyIsMadeByOwnCopyWhenTheHostCannotDraw) {
  HostConfig config = Config(AppKind::Desktop);
  config.unavailable.insert(kDrawPicture);
  ModuleHost env(config);
  HostPicture* source = env.Picture(4, 3, Unlockable());
  const std::string s = Name(source);
  const std::string copy = Serial(2), graphics = Serial(3);
  {
    PictureReader reader;
    const size_t from = env.host.log.size();
    ASSERT_TRUE(reader.GetPictureEditor(Ref(source), true, false));
    // OwnCopy asks for the source's console record, which a desktop picture does not have: the
    // copy stays unfilled, and is opened all the same.
    const Sequence expected = Detection(AppKind::Desktop)
                                  .Then(HasAlpha(s, false))
                                  .Then(LockDescription(s, 8, false))
                                  .Then(ReadSize(s, 4, 3))
                                  .Then(NewPicture(4, 3, copy))
                                  .Then(GraphicsOf(copy, graphics))
                                  .Then(LoadMethod(graphics, kDrawPicture, false))
                                  .Then(LockDescription(s, 10, false))
                                  .Then(DropRef(graphics))
                                  .Then(Open(AppKind::Desktop, copy, false))
                                  .Then(DropRef(copy));
    EXPECT_TRUE(Follows(Calls(env.host, from), expected));
    EXPECT_EQ(Named(reader.picture), copy);
  }
  env.host.Unlock(source);
}

// A copy that does not open either is given up after its failed lock: the editor never copies a
// copy of its own, so a host whose pictures never lock cannot send it copying for ever, and the
// copy's size is not even read.
void ExpectCopyThatDoesNotOpen() {
  HostConfig config = Config(AppKind::Desktop);
  config.newPictureSizeChange = -4;  // the 4 x 3 copy comes out 0 x 0
  ModuleHost env(config);
  HostPicture* source = env.Picture(4, 3, Unlockable());
  const std::string s = Name(source);
  const std::string copy = Serial(2), graphics = Serial(3);
  {
    PictureReader reader;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(reader.GetPictureEditor(Ref(source), true, false));
    const Sequence expected = Detection(AppKind::Desktop)
                                  .Then(HasAlpha(s, false))
                                  .Then(LockDescription(s, 8, false))
                                  .Then(ReadSize(s, 4, 3))
                                  .Then(NewPicture(4, 3, copy))
                                  .Then(GraphicsOf(copy, graphics))
                                  .Then(LoadMethod(graphics, kDrawPicture, true))
                                  .Then(Draw(graphics, s, 4, 3))
                                  .Then(DropRef(graphics))
                                  .Then(HasAlpha(copy, false))
                                  .Then(LockDescription(copy, 8, false))
                                  .Then(DropRef(copy));
    EXPECT_TRUE(Follows(Calls(env.host, from), expected));
  }
  env.host.Unlock(source);
}

TEST(EditorSequence, CopyThatDoesNotOpenIsNotCopiedAgain) {
  EXPECT_IN_FRESH_PROCESS(ExpectCopyThatDoesNotOpen());
}

// The cases in which a desktop picture that does not lock is not copied: the editor gives up
// after the failed lock (or, for a picture without pixels, after reading its size).
void ExpectNotCopied(const PictureOptions& options, int32_t width, int32_t height,
                     bool copyIfNeeded, bool clearCacheOnRelease) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(width, height, options);
  const std::string p = Name(picture);
  {
    PictureEditor editor;
    const size_t from = env.host.log.size();
    EXPECT_FALSE(editor.GetPictureEditor(Ref(picture), copyIfNeeded, clearCacheOnRelease));
    Sequence expected = Detection(AppKind::Desktop)
                            .Then(HasAlpha(p, options.hasAlpha))
                            .Then(LockDescription(p, 8, false));
    if (width < 1 || height < 1) {
      expected.Then(ReadSize(p, width, height));
    }
    EXPECT_TRUE(Follows(Calls(env.host, from), expected));
    EXPECT_EQ(editor.picture, nullptr);
  }
  EXPECT_EQ(env.host.RefCount(picture), 1);
  env.host.Unlock(picture);
}

FRESH_TEST(EditorSequence, PictureWithAlphaChannelIsNotCopied) {
  PictureOptions options = Unlockable();
  options.hasAlpha = true;
  ExpectNotCopied(options, 4, 3, true, false);
}

FRESH_TEST(EditorSequence, PictureIsNotCopiedWithoutCopyIfNeeded) {
  ExpectNotCopied(Unlockable(), 4, 3, false, false);
}

FRESH_TEST(EditorSequence, PictureIsNotCopiedForAnEditorThatClearsTheCache) {
  ExpectNotCopied(Unlockable(), 4, 3, true, true);
}

FRESH_TEST(EditorSequence, PictureWithoutPixelsIsNotCopied) {
  ExpectNotCopied({}, 0, 0, true, false);
}

FRESH_TEST(EditorSequence, PictureWithoutRowsIsNotCopied) {
  ExpectNotCopied({}, 5, 0, true, false);
}

// --- OwnCopy --------------------------------------------------------------------------------

FRESH_TEST(OwnCopySequence, LocksSourceThenDestinationAndUnlocksInReverse) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  const size_t from = env.host.log.size();
  EXPECT_TRUE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3));
  EXPECT_TRUE(Follows(Calls(env.host, from), CopyRows(Name(destination), Name(source))));
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopySequence, NilPicturesAndScalingMakeNoCall) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  const size_t from = env.host.log.size();
  EXPECT_FALSE(OwnCopy(nullptr, Ref(source), 0, 0, 4, 3, 0, 0, 4, 3));
  EXPECT_FALSE(OwnCopy(Ref(destination), nullptr, 0, 0, 4, 3, 0, 0, 4, 3));
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 2, 3));
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 2));
  EXPECT_EQ(env.host.log.size(), from) << env.host.log.Print(from);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

// A source that does not lock: nothing further, not even the destination's cache.
void ExpectSourceNotLocked(double version) {
  ModuleHost env(Config(AppKind::Console, version));
  HostPicture* source = env.Picture(4, 3, Unlockable());
  HostPicture* destination = env.Picture(4, 3);
  const size_t from = env.host.log.size();
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3));
  EXPECT_TRUE(Follows(Calls(env.host, from), FailedLock(Name(source), 10, version)));
  EXPECT_EQ(destination->clearCacheCount, 0);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopySequence, SourceThatDoesNotLockEndsTheCopyBefore2012) {
  ExpectSourceNotLocked(2011.99);
}

FRESH_TEST(OwnCopySequence, SourceThatDoesNotLockEndsTheCopyFrom2012On) {
  ExpectSourceNotLocked(2012.0);
}

// A destination that does not lock: the source is unlocked and the destination's cache
// cleared all the same.
void ExpectDestinationNotLocked(double version) {
  ModuleHost env(Config(AppKind::Console, version));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3, Unlockable());
  const std::string s = Name(source), d = Name(destination);
  const size_t from = env.host.log.size();
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3));
  EXPECT_TRUE(Follows(Calls(env.host, from), Sequence()
                                                 .Then(LockDescription(s, 10, true))
                                                 .Then(FailedLock(d, 10, version))
                                                 .Then(UnlockDescription(s))
                                                 .Then(ClearCache(d))));
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopySequence, DestinationThatDoesNotLockBefore2012) {
  ExpectDestinationNotLocked(2011.99);
}

FRESH_TEST(OwnCopySequence, DestinationThatDoesNotLockFrom2012On) {
  ExpectDestinationNotLocked(2012.0);
}

FRESH_TEST(OwnCopySequence, PicturesOfDifferentSizesAreLockedAndUnlockedButNotCopied) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(3, 3);
  const size_t from = env.host.log.size();
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 3, 3, 0, 0, 3, 3));
  EXPECT_TRUE(Follows(Calls(env.host, from), CopyRows(Name(destination), Name(source))));
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(OwnCopySequence, DesktopPicturesHaveNoConsoleRecord) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  const size_t from = env.host.log.size();
  EXPECT_FALSE(OwnCopy(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3));
  EXPECT_TRUE(Follows(Calls(env.host, from), FailedLock(Name(source), 10, 2013.03)));
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

// --- GraphicsDrawPicture --------------------------------------------------------------------

FRESH_TEST(DrawPictureSequence, DesktopDrawsThroughTheGraphicsAndDropsThem) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  source->Set(3, 2, {1, 2, 3, 255});
  const std::string s = Name(source), d = Name(destination), graphics = Serial(3);
  const size_t from = env.host.log.size();
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3);
  EXPECT_TRUE(Follows(Calls(env.host, from), Sequence()
                                                 .Then(GraphicsOf(d, graphics))
                                                 .Then(LoadMethod(graphics, kDrawPicture, true))
                                                 .Then(Draw(graphics, s, 4, 3))
                                                 .Then(DropRef(graphics))));
  EXPECT_EQ(destination->Get(3, 2), (qpxhost::RGBA{1, 2, 3, 255}));
  EXPECT_EQ(env.host.RefCount(destination), 1);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(DrawPictureSequence, ConsolePicturesHaveNoGraphicsAndAreCopiedRowByRow) {
  ModuleHost env(Config(AppKind::Console));
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  const std::string s = Name(source), d = Name(destination);
  const size_t from = env.host.log.size();
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3);
  EXPECT_TRUE(
      Follows(Calls(env.host, from), Sequence().Then(GraphicsOf(d, "nil")).Then(CopyRows(d, s))));
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(DrawPictureSequence, WithoutTheGraphicsServiceThePicturesAreCopiedRowByRow) {
  HostConfig config = Config(AppKind::Console);
  config.unavailable.insert("pluginPictureGraphicsGetter");
  ModuleHost env(config);
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  const size_t from = env.host.log.size();
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3);
  EXPECT_TRUE(Follows(Calls(env.host, from), CopyRows(Name(destination), Name(source))));
  EXPECT_GE(env.host.LookupCount("pluginPictureGraphicsGetter"), 1);
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(DrawPictureSequence, NilSourceDrawsNothingAndDropsTheGraphics) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* destination = env.Picture(4, 3);
  const std::string d = Name(destination), graphics = Serial(2);
  const size_t from = env.host.log.size();
  GraphicsDrawPicture(Ref(destination), nullptr, 0, 0, 4, 3, 0, 0, 4, 3);
  EXPECT_TRUE(Follows(Calls(env.host, from),
                      Sequence().Then(GraphicsOf(d, graphics)).Then(DropRef(graphics))));
  env.host.Unlock(destination);
}

// Without the host's drawing method the rows are copied by the module (which fails for desktop
// pictures); a host older than 2012.0 is first asked for its runtime drawing service.
void ExpectDrawingMethodMissing(double version) {
  HostConfig config = Config(AppKind::Desktop, version);
  config.unavailable.insert(kDrawPicture);
  ModuleHost env(config);
  HostPicture* source = env.Picture(4, 3);
  HostPicture* destination = env.Picture(4, 3);
  const std::string s = Name(source), d = Name(destination), graphics = Serial(3);
  const size_t from = env.host.log.size();
  GraphicsDrawPicture(Ref(destination), Ref(source), 0, 0, 4, 3, 0, 0, 4, 3);
  EXPECT_TRUE(Follows(Calls(env.host, from), Sequence()
                                                 .Then(GraphicsOf(d, graphics))
                                                 .Then(LoadMethod(graphics, kDrawPicture, false))
                                                 .Then(FailedLock(s, 10, version))
                                                 .Then(DropRef(graphics))));

  // Where the runtime service is asked for, lookups included.
  std::vector<std::string> all;
  for (size_t i = from; i < env.host.log.size(); ++i) {
    const HostCall& call = env.host.log.calls()[i];
    if (call.kind == HostCall::Kind::Lookup && call.name != "RuntimeGraphicsDrawPicture") continue;
    all.push_back(call.kind == HostCall::Kind::Lookup ? "lookup " + call.name : call.ToString());
  }
  if (version < 2012.0) {
    EXPECT_TRUE(InOrder(all, {LoadMethod(graphics, kDrawPicture, false),
                              "lookup RuntimeGraphicsDrawPicture", LockDescription(s, 10, false)}));
    EXPECT_EQ(env.host.LookupCount("RuntimeGraphicsDrawPicture"), 1);
  } else {
    EXPECT_EQ(env.host.LookupCount("RuntimeGraphicsDrawPicture"), 0);
  }
  env.host.Unlock(source);
  env.host.Unlock(destination);
}

FRESH_TEST(DrawPictureSequence, MissingDrawingMethodAsksForTheRuntimeServiceBefore2012) {
  ExpectDrawingMethodMissing(2011.99);
}

FRESH_TEST(DrawPictureSequence, MissingDrawingMethodGoesStraightToTheCopyFrom2012On) {
  ExpectDrawingMethodMissing(2012.0);
}

}  // namespace
