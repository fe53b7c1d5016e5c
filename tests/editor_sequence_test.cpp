// The host calls made by opening, releasing and making pictures, and by copying and drawing
// whole pictures, call by call in the order the host sees them.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "application_kind.h"
#include "call_sequence.h"
#include "module_host.h"
#include "picture_copy.h"
#include "picture_editor.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostCall;
using qpxhost::HostConfig;
using qpxhost::HostObject;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxtest::Calls;
using qpxtest::Config;
using qpxtest::InOrder;
using qpxtest::ModuleHost;
using qpxtest::Name;
using qpxtest::Ref;

constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
constexpr const char* kConstructor = "Constructor(width as integer, height as integer)";

// --- Expected calls -------------------------------------------------------------------------

// Expected calls, step by step. The calls of one step may come in any order among themselves;
// the steps come in the order given.
class Sequence {
 public:
  Sequence& Then(std::string line) {
    steps_.push_back({std::move(line)});
    return *this;
  }
  Sequence& ThenAnyOrder(std::vector<std::string> lines) {
    steps_.push_back(std::move(lines));
    return *this;
  }
  Sequence& Then(const Sequence& more) {
    steps_.insert(steps_.end(), more.steps_.begin(), more.steps_.end());
    return *this;
  }
  const std::vector<std::vector<std::string>>& steps() const { return steps_; }

 private:
  std::vector<std::vector<std::string>> steps_;
};

std::string Listing(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "  " + line + "\n";
  return text;
}

std::string Listing(const Sequence& sequence) {
  std::string text;
  for (const auto& step : sequence.steps()) {
    if (step.size() == 1) {
      text += "  " + step[0] + "\n";
    } else {
      text += "  (any order)\n";
      for (const std::string& line : step) text += "    " + line + "\n";
    }
  }
  return text;
}

// Whether `calls` are exactly the expected ones, step after step, and nothing else.
::testing::AssertionResult Follows(const std::vector<std::string>& calls,
                                   const Sequence& expected) {
  size_t at = 0;
  for (const auto& step : expected.steps()) {
    std::vector<std::string> want = step;
    std::vector<std::string> got(
        calls.begin() + static_cast<ptrdiff_t>(std::min(at, calls.size())),
        calls.begin() + static_cast<ptrdiff_t>(std::min(at + step.size(), calls.size())));
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    if (got != want) {
      return ::testing::AssertionFailure() << "from call " << at << " on, expected:\n"
                                           << Listing(step) << "got:\n"
                                           << Listing(got) << "all calls:\n"
                                           << Listing(calls) << "all expected:\n"
                                           << Listing(expected);
    }
    at += step.size();
  }
  if (at != calls.size()) {
    return ::testing::AssertionFailure() << "calls after the last expected one; all calls:\n"
                                         << Listing(calls) << "all expected:\n"
                                         << Listing(expected);
  }
  return ::testing::AssertionSuccess();
}

std::string Serial(uint64_t serial) {
  return qpxhost::ObjectName(serial);
}
std::string Named(REALpicture picture) {
  return Name(reinterpret_cast<const HostObject*>(picture));
}
std::string Flag(bool value) {
  return value ? "true" : "false";
}

std::string LockDescription(const std::string& picture, int type, bool locked) {
  return "REALLockPictureDescription(" + picture + ", " + std::to_string(type) + ") -> " +
         Flag(locked);
}
std::string UnlockDescription(const std::string& picture) {
  return "unlockPictureDescription(" + picture + ")";
}
std::string AddRef(const std::string& object) {
  return "REALLockObject(" + object + ")";
}
std::string DropRef(const std::string& object) {
  return "REALUnlockObject(" + object + ")";
}
std::string ClearCache(const std::string& picture) {
  return "REALPictureClearCache(" + picture + ")";
}
std::string HasAlpha(const std::string& picture, bool value) {
  return "REALGetPropValueBool(" + picture + ", \"HasAlphaChannel\") -> " +
         (value ? "True" : "False");
}
std::string Property(const std::string& picture, const char* name, int32_t value) {
  return "REALGetPropValueInt(" + picture + ", \"" + name + "\") -> " + std::to_string(value);
}
std::string NewPicture(int32_t width, int32_t height, const std::string& made) {
  return "newPicture(" + std::to_string(width) + ", " + std::to_string(height) + ", 32) -> " + made;
}
std::string GraphicsOf(const std::string& picture, const std::string& graphics) {
  return "pluginPictureGraphicsGetter(" + picture + ") -> " + graphics;
}
std::string LoadMethod(const std::string& object, const char* declaration, bool found) {
  return "REALLoadObjectMethod(" + object + ", \"" + declaration + "\") -> " + Flag(found);
}
std::string Draw(const std::string& graphics, const std::string& source, int32_t w, int32_t h) {
  const std::string size = std::to_string(w) + ", " + std::to_string(h);
  return "Graphics.DrawPicture(" + graphics + ", " + source + ", 0, 0, " + size + ", 0, 0, " +
         size + ")";
}

// The six reads of a locked bitmap context, in no particular order.
std::vector<std::string> ContextReads(const std::string& picture) {
  std::vector<std::string> reads;
  for (const char* function : {"CGBitmapContextGetData", "CGBitmapContextGetBitsPerPixel",
                               "CGBitmapContextGetWidth", "CGBitmapContextGetHeight",
                               "CGBitmapContextGetBytesPerRow", "CGBitmapContextGetAlphaInfo"}) {
    reads.push_back(std::string(function) + "(" + picture + ")");
  }
  return reads;
}

// The three application classes asked for on the first open of a process.
Sequence Detection(AppKind app) {
  return Sequence().ThenAnyOrder(
      {"pluginObjectType(\"Application\") -> " + Flag(app == AppKind::Desktop),
       "pluginObjectType(\"WebApplication\") -> " + Flag(app == AppKind::Web),
       "pluginObjectType(\"ConsoleApplication\") -> " + Flag(app == AppKind::Console)});
}

// A picture opened as a bitmap context: its alpha flag read, its description locked as type 8,
// the context read, one reference taken.
Sequence DesktopOpen(const std::string& picture, bool hasAlpha = false) {
  return Sequence()
      .Then(HasAlpha(picture, hasAlpha))
      .Then(LockDescription(picture, 8, true))
      .ThenAnyOrder(ContextReads(picture))
      .Then(AddRef(picture));
}

// A picture opened through the console record (type 10).
Sequence ConsoleOpen(const std::string& picture, bool hasAlpha = false) {
  return Sequence()
      .Then(HasAlpha(picture, hasAlpha))
      .Then(LockDescription(picture, 10, true))
      .Then(AddRef(picture));
}

// An open editor let go: its description unlocked, the host told of changes (writers only),
// its reference dropped.
Sequence Release(const std::string& picture, bool clearCache) {
  Sequence sequence;
  sequence.Then(UnlockDescription(picture));
  if (clearCache) sequence.Then(ClearCache(picture));
  return sequence.Then(DropRef(picture));
}

// A writer's picture handed back: a reference for the caller, the host told of the new pixels,
// then the writer released.
Sequence Render(const std::string& picture) {
  return Sequence().Then(AddRef(picture)).Then(ClearCache(picture)).Then(Release(picture, true));
}

// OwnCopy's calls between two console pictures that both lock.
Sequence CopyRows(const std::string& destination, const std::string& source) {
  return Sequence()
      .Then(LockDescription(source, 10, true))
      .Then(LockDescription(destination, 10, true))
      .Then(UnlockDescription(destination))
      .Then(UnlockDescription(source))
      .Then(ClearCache(destination));
}

// A failed lock; hosts older than 2012.0 are sent an unlock after it.
Sequence FailedLock(const std::string& picture, int type, double version) {
  Sequence sequence;
  sequence.Then(LockDescription(picture, type, false));
  if (version < 2012.0) sequence.Then(UnlockDescription(picture));
  return sequence;
}

PictureOptions Unlockable() {
  PictureOptions options;
  options.lockable = false;
  return options;
}

PictureOptions WithAlpha() {
  PictureOptions options;
  options.hasAlpha = true;
  return options;
}

// --- Opening --------------------------------------------------------------------------------

FRESH_TEST(EditorSequence, DesktopReaderLocksTheBitmapContextReadsItAndHoldsThePicture) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(4, 3);
  const std::string p = Name(picture);
  {
    PictureReader reader;
    size_t from = env.host.log.size();
    ASSERT_TRUE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_TRUE(Follows(Calls(env.host, from), Detection(AppKind::Desktop).Then(DesktopOpen(p))));
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
      EXPECT_TRUE(Follows(Calls(env.host, from), Detection(app).Then(ConsoleOpen(p))));
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
    EXPECT_TRUE(Follows(Calls(env.host, from),
                        Release(Name(first), false).Then(ConsoleOpen(Name(second)))));
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
                                  .ThenAnyOrder({Property(s, "Width", 4), Property(s, "Height", 3)})
                                  .Then(NewPicture(4, 3, copy))
                                  .Then(GraphicsOf(copy, graphics))
                                  .Then(LoadMethod(graphics, kDrawPicture, true))
                                  .Then(Draw(graphics, s, 4, 3))
                                  .Then(DropRef(graphics))
                                  .Then(DesktopOpen(copy))
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
                                  .ThenAnyOrder({Property(s, "Width", 4), Property(s, "Height", 3)})
                                  .Then(NewPicture(4, 3, copy))
                                  .Then(GraphicsOf(copy, graphics))
                                  .Then(LoadMethod(graphics, kDrawPicture, false))
                                  .Then(LockDescription(s, 10, false))
                                  .Then(DropRef(graphics))
                                  .Then(DesktopOpen(copy))
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
                                  .ThenAnyOrder({Property(s, "Width", 4), Property(s, "Height", 3)})
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
      expected.ThenAnyOrder({Property(p, "Width", width), Property(p, "Height", height)});
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
                                                   .Then(Detection(AppKind::Desktop))
                                                   .Then(DesktopOpen(made))
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
                                                   .Then(Detection(AppKind::Console))
                                                   .Then(ConsoleOpen(made))
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
                                           .Then(Detection(AppKind::Desktop))
                                           .Then(DesktopOpen(made, true))
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
    EXPECT_TRUE(Follows(Calls(env.host, from), Detection(AppKind::Desktop).Then(DesktopOpen(p))));
    EXPECT_EQ(reader.pixelFormat, 5);
  }
  env.host.Unlock(picture);
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
