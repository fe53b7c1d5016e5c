// ScaleQPX and ScaleImageAndMaskQPX as the host sees them: every host call of each path, call
// by call, from the host's call of the method to its return, through the loaded module.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "call_sequence.h"
#include "host.h"
#include "host_fixture.h"
#include "picture_services.h"

namespace {

using qpxhost::AppKind;
using qpxhost::Host;
using qpxhost::HostConfig;
using qpxhost::HostObject;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxtest::Calls;
using qpxtest::CallsOf;
using qpxtest::InOrder;
using qpxtest::Name;

constexpr const char* kScale = "ScaleQPX";
constexpr const char* kScaleMask = "ScaleImageAndMaskQPX";
// Every yield check hands control to the host with this interval: it is its own negation.
constexpr int32_t kEveryCheck = INT32_MIN;

constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
constexpr const char* kConstructor = "Constructor(width as integer, height as integer)";
constexpr const char* kCopyMask = "CopyMask as Picture";
constexpr const char* kSetMask = "Mask(assigns newMask As Picture)";

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
std::string Flag(bool value) {
  return value ? "true" : "false";
}
std::string Size(int32_t width, int32_t height) {
  return std::to_string(width) + ", " + std::to_string(height);
}

std::string HostCallOf(const char* method, const std::string& self, int32_t width, int32_t height,
                       bool antiAlias, int32_t yieldTicks) {
  return std::string("call ") + method + "(" + self + ", " + Size(width, height) + ", " +
         (antiAlias ? "True" : "False") + ", " + std::to_string(yieldTicks) + ")";
}
std::string ReturnOf(const char* method, const std::string& result) {
  return std::string("return ") + method + "() -> " + result;
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
std::string NewPicture(int32_t width, int32_t height, const std::string& made) {
  return "newPicture(" + Size(width, height) + ", 32) -> " + made;
}
std::string GetMask(const std::string& picture, bool create, const std::string& mask) {
  return "REALGetPictureMask(" + picture + ", " + (create ? "1" : "0") + ") -> " + mask;
}
std::string LoadMethod(const std::string& object, const char* declaration, bool found) {
  return "REALLoadObjectMethod(" + object + ", \"" + declaration + "\") -> " + Flag(found);
}
const std::string kYield = "REALYieldToRB()";

// Width and Height of the receiver, read in either order.
Sequence ReadSize(const std::string& picture, int32_t width, int32_t height) {
  return Sequence().ThenAnyOrder(
      {"REALGetPropValueInt(" + picture + ", \"Width\") -> " + std::to_string(width),
       "REALGetPropValueInt(" + picture + ", \"Height\") -> " + std::to_string(height)});
}

Sequence Yields(int count) {
  Sequence sequence;
  for (int i = 0; i < count; ++i) sequence.Then(kYield);
  return sequence;
}

// The three application classes asked for when the first picture of a run is opened.
Sequence Detection(AppKind app) {
  return Sequence().ThenAnyOrder(
      {"pluginObjectType(\"Application\") -> " + Flag(app == AppKind::Desktop),
       "pluginObjectType(\"WebApplication\") -> " + Flag(app == AppKind::Web),
       "pluginObjectType(\"ConsoleApplication\") -> " + Flag(app == AppKind::Console)});
}

std::vector<std::string> ContextReads(const std::string& picture) {
  std::vector<std::string> reads;
  for (const char* function : {"CGBitmapContextGetData", "CGBitmapContextGetBitsPerPixel",
                               "CGBitmapContextGetWidth", "CGBitmapContextGetHeight",
                               "CGBitmapContextGetBytesPerRow", "CGBitmapContextGetAlphaInfo"}) {
    reads.push_back(std::string(function) + "(" + picture + ")");
  }
  return reads;
}

// A picture opened by an editor: a bitmap context on the desktop, the console record elsewhere;
// the application classes asked for first when `detect`.
Sequence Open(AppKind app, const std::string& picture, bool detect, bool hasAlpha = false) {
  Sequence sequence;
  if (detect) sequence.Then(Detection(app));
  sequence.Then(HasAlpha(picture, hasAlpha));
  if (app == AppKind::Desktop) {
    sequence.Then(LockDescription(picture, 8, true)).ThenAnyOrder(ContextReads(picture));
  } else {
    sequence.Then(LockDescription(picture, 10, true));
  }
  return sequence.Then(AddRef(picture));
}

// A new 32-bit picture made and opened for writing; only the editor's reference stays.
Sequence Writer(AppKind app, const std::string& made, int32_t width, int32_t height) {
  return Sequence()
      .Then(NewPicture(width, height, made))
      .Then(Open(app, made, false))
      .Then(DropRef(made));
}

// A new desktop picture with an alpha channel, made by the "Picture" constructor.
Sequence AlphaWriter(const std::string& made, int32_t width, int32_t height) {
  return Sequence()
      .Then("PluginNewInstance(\"Picture\") -> " + made)
      .Then(LoadMethod(made, kConstructor, true))
      .Then("Picture.Constructor(" + made + ", " + Size(width, height) + ")")
      .Then(Open(AppKind::Desktop, made, false, true))
      .Then(DropRef(made));
}

// The writer's picture handed back with one reference for the caller, then the writer let go.
Sequence Render(const std::string& made) {
  return Sequence()
      .Then(AddRef(made))
      .Then(ClearCache(made))
      .Then(UnlockDescription(made))
      .Then(ClearCache(made))
      .Then(DropRef(made));
}

// The reader let go.
Sequence ReleaseReader(const std::string& picture) {
  return Sequence().Then(UnlockDescription(picture)).Then(DropRef(picture));
}

// The box resizer that succeeds: reader, writer, a yield per row, the result rendered, the
// reader released after it, one more yield.
Sequence BoxResize(AppKind app, const std::string& source, const std::string& made, int32_t width,
                   int32_t height, bool detect) {
  return Open(app, source, detect)
      .Then(Writer(app, made, width, height))
      .Then(Yields(height))
      .Then(Render(made))
      .Then(ReleaseReader(source))
      .Then(kYield);
}

// The anti-aliased enlargement that succeeds: three yield checks before the rows, one per row
// and byte after, none at the end.
Sequence Enlarge(AppKind app, const std::string& source, const std::string& made, int32_t width,
                 int32_t height, bool detect) {
  return Open(app, source, detect)
      .Then(Writer(app, made, width, height))
      .Then(Yields(3 + 4 * height))
      .Then(Render(made))
      .Then(ReleaseReader(source));
}

// `source` (width x height) put whole into `target`: drawn through the target's graphics on the
// desktop, copied row by row elsewhere. `graphics` names the graphics object on the desktop.
Sequence DrawWhole(AppKind app, const std::string& target, const std::string& source, int32_t width,
                   int32_t height, const std::string& graphics) {
  if (app == AppKind::Desktop) {
    const std::string size = Size(width, height);
    return Sequence()
        .Then("pluginPictureGraphicsGetter(" + target + ") -> " + graphics)
        .Then(LoadMethod(graphics, kDrawPicture, true))
        .Then("Graphics.DrawPicture(" + graphics + ", " + source + ", 0, 0, " + size + ", 0, 0, " +
              size + ")")
        .Then(DropRef(graphics));
  }
  return Sequence()
      .Then("pluginPictureGraphicsGetter(" + target + ") -> nil")
      .Then(LockDescription(source, 10, true))
      .Then(LockDescription(target, 10, true))
      .Then(UnlockDescription(target))
      .Then(UnlockDescription(source))
      .Then(ClearCache(target));
}

std::vector<qpxhost::Value> Arguments(int32_t width, int32_t height, bool antiAlias,
                                      int32_t yieldTicks) {
  return {width, height, antiAlias, yieldTicks};
}

HostConfig ConfigFor(AppKind app, double version = 2013.03) {
  HostConfig config;
  config.app = app;
  config.version = version;
  return config;
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

class ScaleSequence : public qpxtest::HostTest {
 public:
  HostPicture* Picture(int32_t width, int32_t height, const PictureOptions& options = {}) {
    return qpxhost::NewHostPicture(host(), width, height, options);
  }
  // A picture with a mask of its own size (held by the picture).
  HostPicture* MaskedPicture(int32_t width, int32_t height) {
    HostPicture* picture = Picture(width, height);
    picture->mask = qpxhost::NewHostMask(host(), *picture);
    return picture;
  }
  // Calls `method` on `receiver`; the calls it made are then in Calls(host(), from).
  HostObject* Run(const char* method, HostObject* receiver, int32_t width, int32_t height,
                  bool antiAlias, int32_t yieldTicks) {
    from = host().log.size();
    return host().Call(method, receiver, Arguments(width, height, antiAlias, yieldTicks)).picture;
  }
  // The result carries exactly the caller's reference; released here.
  void ExpectOwnedAndRelease(HostObject* result) {
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(host().RefCount(result), 1);
    host().Unlock(result);
  }
  size_t from = 0;
};

class ScaleSequenceInKind : public ScaleSequence, public ::testing::WithParamInterface<AppKind> {};

std::string KindName(const ::testing::TestParamInfo<AppKind>& info) {
  return qpxhost::AppKindName(info.param);
}

// --- ScaleQPX -------------------------------------------------------------------------------

TEST_F(ScaleSequence, SameSizeReadsTheSizeAndAddsAReferenceToTheReceiver) {
  Boot();
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture);
  for (const bool antiAlias : {false, true}) {
    SCOPED_TRACE(antiAlias ? "AntiAlias" : "no AntiAlias");
    HostObject* result = Run(kScale, picture, 4, 3, antiAlias, kEveryCheck);
    EXPECT_EQ(result, picture);
    EXPECT_TRUE(
        Follows(Calls(host(), from), Sequence()
                                         .Then(HostCallOf(kScale, p, 4, 3, antiAlias, kEveryCheck))
                                         .Then(ReadSize(p, 4, 3))
                                         .Then(AddRef(p))
                                         .Then(ReturnOf(kScale, p))));
    EXPECT_EQ(host().RefCount(picture), 2);
    host().Unlock(picture);
  }
  host().Unlock(picture);
}

TEST_P(ScaleSequenceInKind, BoxResizerOpensWritesYieldsPerRowRendersAndReleases) {
  const AppKind app = GetParam();
  Boot(ConfigFor(app));
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = Run(kScale, picture, 2, 5, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 5, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(BoxResize(app, p, made, 2, 5, true))
                                       .Then(ReturnOf(kScale, made))));
  // The writer's description is let go when its picture is rendered, the reader's after that.
  EXPECT_EQ(CallsOf(host(), {"unlockPictureDescription"}, from),
            (std::vector<std::string>{UnlockDescription(made), UnlockDescription(p)}));
  EXPECT_TRUE(InOrder(Calls(host(), from), {ClearCache(made), DropRef(made), UnlockDescription(p),
                                            DropRef(p), kYield, ReturnOf(kScale, made)}));
  EXPECT_EQ(Name(result), made);
  ExpectOwnedAndRelease(result);
  EXPECT_EQ(host().RefCount(picture), 1);
  host().Unlock(picture);
}

TEST_P(ScaleSequenceInKind, EnlargementYieldsThreeTimesThenFourTimesPerRowAndNotAtTheEnd) {
  const AppKind app = GetParam();
  Boot(ConfigFor(app));
  HostPicture* picture = Picture(2, 2);
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = Run(kScale, picture, 5, 3, true, kEveryCheck);
  EXPECT_TRUE(Follows(Calls(host(), from), Sequence()
                                               .Then(HostCallOf(kScale, p, 5, 3, true, kEveryCheck))
                                               .Then(ReadSize(p, 2, 2))
                                               .Then(Enlarge(app, p, made, 5, 3, true))
                                               .Then(ReturnOf(kScale, made))));
  EXPECT_EQ(CallsOf(host(), {"unlockPictureDescription"}, from),
            (std::vector<std::string>{UnlockDescription(made), UnlockDescription(p)}));
  EXPECT_EQ(host().yieldCount, 3 + 4 * 3);
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ScaleSequenceInKind,
                         ::testing::Values(AppKind::Desktop, AppKind::Console, AppKind::Web),
                         KindName);

TEST_F(ScaleSequence, EnlargementInOneDirectionOnlyTakesTheBoxResizer) {
  Boot();
  HostPicture* picture = Picture(2, 2);
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = Run(kScale, picture, 4, 2, true, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 4, 2, true, kEveryCheck))
                                       .Then(ReadSize(p, 2, 2))
                                       .Then(BoxResize(AppKind::Console, p, made, 4, 2, true))
                                       .Then(ReturnOf(kScale, made))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

TEST_F(ScaleSequence, WithoutYieldTicksNeitherResizerYields) {
  Boot();
  HostPicture* picture = Picture(2, 2);
  const std::string p = Name(picture);
  HostObject* box = Run(kScale, picture, 3, 1, false, 0);
  const std::string boxMade = Serial(2);
  EXPECT_TRUE(Follows(Calls(host(), from), Sequence()
                                               .Then(HostCallOf(kScale, p, 3, 1, false, 0))
                                               .Then(ReadSize(p, 2, 2))
                                               .Then(Open(AppKind::Console, p, true))
                                               .Then(Writer(AppKind::Console, boxMade, 3, 1))
                                               .Then(Render(boxMade))
                                               .Then(ReleaseReader(p))
                                               .Then(ReturnOf(kScale, boxMade))));
  HostObject* smooth = Run(kScale, picture, 3, 3, true, 0);
  const std::string smoothMade = Serial(3);
  EXPECT_TRUE(Follows(Calls(host(), from), Sequence()
                                               .Then(HostCallOf(kScale, p, 3, 3, true, 0))
                                               .Then(ReadSize(p, 2, 2))
                                               .Then(Open(AppKind::Console, p, false))
                                               .Then(Writer(AppKind::Console, smoothMade, 3, 3))
                                               .Then(Render(smoothMade))
                                               .Then(ReleaseReader(p))
                                               .Then(ReturnOf(kScale, smoothMade))));
  EXPECT_EQ(host().yieldCount, 0);
  ExpectOwnedAndRelease(box);
  ExpectOwnedAndRelease(smooth);
  host().Unlock(picture);
}

// A new picture that does not open makes the enlargement give up before its first yield; the
// box resizer is then tried and gives up the same way, and only its final yield is made.
TEST_F(ScaleSequence, FailedEnlargementFallsBackToTheBoxResizer) {
  HostConfig config = ConfigFor(AppKind::Console);
  config.newPictureFaults.lockReportsNullData = true;
  Boot(config);
  HostPicture* picture = Picture(2, 2);
  const std::string p = Name(picture), first = Serial(2), second = Serial(3);
  auto failedWriter = [](const std::string& made) {
    return Sequence()
        .Then(NewPicture(4, 3, made))
        .Then(HasAlpha(made, false))
        .Then(LockDescription(made, 10, true))
        .Then(UnlockDescription(made))
        .Then(DropRef(made));
  };
  HostObject* result = Run(kScale, picture, 4, 3, true, kEveryCheck);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(Follows(Calls(host(), from), Sequence()
                                               .Then(HostCallOf(kScale, p, 4, 3, true, kEveryCheck))
                                               .Then(ReadSize(p, 2, 2))
                                               // the enlargement
                                               .Then(Open(AppKind::Console, p, true))
                                               .Then(failedWriter(first))
                                               .Then(ReleaseReader(p))
                                               // the box resizer
                                               .Then(Open(AppKind::Console, p, false))
                                               .Then(failedWriter(second))
                                               .Then(ReleaseReader(p))
                                               .Then(kYield)
                                               .Then(ReturnOf(kScale, "nil"))));
  host().Unlock(picture);
}

// A nil receiver reads as 0 x 0: the enlargement (when asked for) and the box resizer both
// fail to open it without a call, and the box resizer's final yield is still made. Whether the
// size is asked of the host for a nil receiver is left open.
TEST_F(ScaleSequence, NilReceiverGivesNilAfterTheFinalYield) {
  Boot();
  for (const bool antiAlias : {false, true}) {
    SCOPED_TRACE(antiAlias ? "AntiAlias" : "no AntiAlias");
    HostObject* result = Run(kScale, nullptr, 2, 2, antiAlias, kEveryCheck);
    EXPECT_EQ(result, nullptr);
    std::vector<std::string> calls = Calls(host(), from);
    std::erase_if(calls, [](const std::string& line) {
      return line.starts_with("REALGetPropValueInt(nil, ");
    });
    EXPECT_TRUE(Follows(calls, Sequence()
                                   .Then(HostCallOf(kScale, "nil", 2, 2, antiAlias, kEveryCheck))
                                   .Then(kYield)
                                   .Then(ReturnOf(kScale, "nil"))));
  }
}

TEST_F(ScaleSequence, NilReceiverWithoutYieldTicksMakesNoYield) {
  Boot();
  EXPECT_EQ(Run(kScale, nullptr, 2, 2, false, 0), nullptr);
  std::vector<std::string> calls = Calls(host(), from);
  std::erase_if(
      calls, [](const std::string& line) { return line.starts_with("REALGetPropValueInt(nil, "); });
  EXPECT_TRUE(Follows(
      calls,
      Sequence().Then(HostCallOf(kScale, "nil", 2, 2, false, 0)).Then(ReturnOf(kScale, "nil"))));
}

// A receiver whose pixels cannot be had gives nil after the final yield; hosts older than
// 2012.0 are sent an unlock after the failed lock.
void ExpectReceiverNotOpened(ScaleSequence& test, Host& host, double version) {
  HostPicture* picture = qpxhost::NewHostPicture(host, 4, 3, Unlockable());
  const std::string p = Name(picture);
  HostObject* result = test.Run(kScale, picture, 2, 2, false, kEveryCheck);
  EXPECT_EQ(result, nullptr);
  Sequence expected = Sequence()
                          .Then(HostCallOf(kScale, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(Detection(AppKind::Console))
                          .Then(HasAlpha(p, false))
                          .Then(LockDescription(p, 10, false));
  if (version < 2012.0) expected.Then(UnlockDescription(p));
  expected.Then(kYield).Then(ReturnOf(kScale, "nil"));
  EXPECT_TRUE(Follows(Calls(host, test.from), expected));
  host.Unlock(picture);
}

TEST_F(ScaleSequence, ReceiverThatDoesNotOpenGivesNilAfterTheFinalYield) {
  ExpectReceiverNotOpened(*this, Boot(ConfigFor(AppKind::Console, 2013.03)), 2013.03);
}

TEST_F(ScaleSequence, ReceiverThatDoesNotOpenOn2012IsNotUnlocked) {
  ExpectReceiverNotOpened(*this, Boot(ConfigFor(AppKind::Console, 2012.0)), 2012.0);
}

TEST_F(ScaleSequence, ReceiverThatDoesNotOpenBefore2012IsUnlockedAfterTheFailedLock) {
  ExpectReceiverNotOpened(*this, Boot(ConfigFor(AppKind::Console, 2011.99)), 2011.99);
}

// On the desktop such a receiver is drawn into a 32-bit copy, which is read instead.
TEST_F(ScaleSequence, DesktopReceiverThatDoesNotLockIsReadThroughACopy) {
  Boot(ConfigFor(AppKind::Desktop));
  HostPicture* picture = Picture(4, 3, Unlockable());
  const std::string p = Name(picture), copy = Serial(2), graphics = Serial(3), made = Serial(4);
  HostObject* result = Run(kScale, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(Detection(AppKind::Desktop))
                                       .Then(HasAlpha(p, false))
                                       .Then(LockDescription(p, 8, false))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(NewPicture(4, 3, copy))
                                       .Then(DrawWhole(AppKind::Desktop, copy, p, 4, 3, graphics))
                                       .Then(Open(AppKind::Desktop, copy, false))
                                       .Then(DropRef(copy))
                                       .Then(Writer(AppKind::Desktop, made, 2, 2))
                                       .Then(Yields(2))
                                       .Then(Render(made))
                                       .Then(ReleaseReader(copy))
                                       .Then(kYield)
                                       .Then(ReturnOf(kScale, made))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// Sizes no writer takes: the reader is opened and released, and the final yield made, without
// any call for the writer.
TEST_F(ScaleSequence, SizeTheWriterRefusesGivesNilWithoutAWriterCall) {
  struct Target {
    int32_t width, height;
  };
  Boot();
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture);
  bool first = true;
  for (const Target target :
       {Target{0, 2}, Target{2, 0}, Target{-3, 2}, Target{32768, 2}, Target{2, 32768}}) {
    SCOPED_TRACE(Size(target.width, target.height));
    HostObject* result = Run(kScale, picture, target.width, target.height, false, kEveryCheck);
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(
        Follows(Calls(host(), from),
                Sequence()
                    .Then(HostCallOf(kScale, p, target.width, target.height, false, kEveryCheck))
                    .Then(ReadSize(p, 4, 3))
                    .Then(Open(AppKind::Console, p, first))
                    .Then(ReleaseReader(p))
                    .Then(kYield)
                    .Then(ReturnOf(kScale, "nil"))));
    first = false;
  }
  host().Unlock(picture);
}

TEST_F(ScaleSequence, NewPictureThatDoesNotOpenIsDroppedAndGivesNil) {
  HostConfig config = ConfigFor(AppKind::Console);
  config.newPictureFaults.lockReportsOtherType = true;
  Boot(config);
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = Run(kScale, picture, 2, 2, false, kEveryCheck);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(Open(AppKind::Console, p, true))
                                       .Then(NewPicture(2, 2, made))
                                       .Then(HasAlpha(made, false))
                                       .Then(LockDescription(made, 10, true))
                                       .Then(UnlockDescription(made))
                                       .Then(DropRef(made))
                                       .Then(ReleaseReader(p))
                                       .Then(kYield)
                                       .Then(ReturnOf(kScale, "nil"))));
  host().Unlock(picture);
}

// A new desktop picture whose bitmap layout the editor refuses keeps its description locked:
// the module drops it so, and the host sees it go locked.
TEST_F(ScaleSequence, NewPictureWithAnUnknownLayoutIsDroppedStillLocked) {
  HostConfig config = ConfigFor(AppKind::Desktop);
  config.newPictureFaults.alphaInfo = 0;
  Boot(config);
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = Run(kScale, picture, 2, 2, false, kEveryCheck);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(Open(AppKind::Desktop, p, true))
                                       .Then(NewPicture(2, 2, made))
                                       .Then(HasAlpha(made, false))
                                       .Then(LockDescription(made, 8, true))
                                       .ThenAnyOrder(ContextReads(made))
                                       .Then(DropRef(made))
                                       .Then(ReleaseReader(p))
                                       .Then(kYield)
                                       .Then(ReturnOf(kScale, "nil"))));
  EXPECT_THAT(host().TakeProblems(),
              ::testing::ElementsAre("picture " + made + " destroyed with its description locked"));
  host().Unlock(picture);
}

// A receiver with an alpha channel gets a writer with one, made through the "Picture"
// constructor, which hosts before 2011.04 do not offer.
void ExpectAlphaWriter(ScaleSequence& test, Host& host, bool offered) {
  HostPicture* picture = qpxhost::NewHostPicture(host, 4, 3, WithAlpha());
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = test.Run(kScale, picture, 2, 2, false, kEveryCheck);
  Sequence expected = Sequence()
                          .Then(HostCallOf(kScale, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(Open(AppKind::Desktop, p, true, true));
  if (offered) {
    expected.Then(AlphaWriter(made, 2, 2)).Then(Yields(2)).Then(Render(made));
  }
  expected.Then(ReleaseReader(p)).Then(kYield).Then(ReturnOf(kScale, offered ? made : "nil"));
  EXPECT_TRUE(Follows(Calls(host, test.from), expected));
  if (offered) {
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(dynamic_cast<HostPicture&>(*result).hasAlpha);
    test.ExpectOwnedAndRelease(result);
  } else {
    EXPECT_EQ(result, nullptr);
  }
  host.Unlock(picture);
}

TEST_F(ScaleSequence, AlphaWriterOn2011r4IsMadeThroughTheConstructor) {
  ExpectAlphaWriter(*this, Boot(ConfigFor(AppKind::Desktop, 2011.04)), true);
}

TEST_F(ScaleSequence, AlphaWriterBefore2011r4IsNotMade) {
  ExpectAlphaWriter(*this, Boot(ConfigFor(AppKind::Desktop, 2011.03)), false);
}

// --- ScaleImageAndMaskQPX -------------------------------------------------------------------

TEST_F(ScaleSequence, MaskMethodOnNilMakesNoCallAtAll) {
  Boot();
  HostObject* result = Run(kScaleMask, nullptr, 2, 2, true, kEveryCheck);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, "nil", 2, 2, true, kEveryCheck))
                                       .Then(ReturnOf(kScaleMask, "nil"))));
}

// Called on nil from inside a yield of ScaleQPX, the method leaves the shared yield state
// alone: the outer call goes on yielding after every row.
TEST_F(ScaleSequence, MaskMethodOnNilLeavesTheYieldStateOfTheCallerAlone) {
  Boot();
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture), made = Serial(2);
  bool inner = false;
  host().onYield = [&] {
    if (inner) return;
    inner = true;
    EXPECT_EQ(host().Call(kScaleMask, nullptr, Arguments(2, 2, false, 0)).picture, nullptr);
  };
  HostObject* result = Run(kScale, picture, 2, 3, false, kEveryCheck);
  host().onYield = nullptr;
  const Sequence resize = BoxResize(AppKind::Console, p, made, 2, 3, true);
  // The nested call comes right after the first yield, that of the first row.
  Sequence expected = Sequence()
                          .Then(HostCallOf(kScale, p, 2, 3, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(Open(AppKind::Console, p, true))
                          .Then(Writer(AppKind::Console, made, 2, 3))
                          .Then(kYield)
                          .Then(HostCallOf(kScaleMask, "nil", 2, 2, false, 0))
                          .Then(ReturnOf(kScaleMask, "nil"))
                          .Then(Yields(2))
                          .Then(Render(made))
                          .Then(ReleaseReader(p))
                          .Then(kYield)
                          .Then(ReturnOf(kScale, made));
  EXPECT_TRUE(Follows(Calls(host(), from), expected));
  EXPECT_EQ(host().yieldCount, 4);
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

TEST_F(ScaleSequence, MaskMethodAtTheSameSizeAddsAReferenceAndLeavesTheMaskAlone) {
  Boot();
  HostPicture* picture = MaskedPicture(4, 3);
  const std::string p = Name(picture);
  HostObject* result = Run(kScaleMask, picture, 4, 3, true, kEveryCheck);
  EXPECT_EQ(result, picture);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 4, 3, true, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(AddRef(p))
                                       .Then(ReturnOf(kScaleMask, p))));
  EXPECT_EQ(host().RefCount(picture), 2);
  host().Unlock(picture);
  host().Unlock(picture);
}

TEST_F(ScaleSequence, MaskMethodWithoutMaskResizesTheImageAndAsksForTheMaskOnce) {
  Boot();
  HostPicture* picture = Picture(4, 3);
  const std::string p = Name(picture), made = Serial(2);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(HasAlpha(p, false))
                                       .Then(BoxResize(AppKind::Console, p, made, 2, 2, true))
                                       .Then(GetMask(p, false, "nil"))
                                       .Then(ReturnOf(kScaleMask, made))));
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(dynamic_cast<HostPicture&>(*result).mask, nullptr);
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// The image, then its mask, each through the box resizer; the resized mask is put into the
// result's own mask, and the target, the resized mask and the mask are released in that order.
TEST_P(ScaleSequenceInKind, MaskMethodResizesImageThenMaskAndDrawsItIntoTheResultsMask) {
  const AppKind app = GetParam();
  Boot(ConfigFor(app));
  HostPicture* picture = MaskedPicture(4, 3);
  const std::string p = Name(picture), mask = Name(picture->mask);
  const std::string image = Serial(3), resizedMask = Serial(4), target = Serial(5),
                    graphics = Serial(6);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(HasAlpha(p, false))
                                       .Then(BoxResize(app, p, image, 2, 2, true))
                                       .Then(GetMask(p, false, mask))
                                       .Then(BoxResize(app, mask, resizedMask, 2, 2, false))
                                       .Then(GetMask(image, true, target))
                                       .Then(DrawWhole(app, target, resizedMask, 2, 2, graphics))
                                       .Then(DropRef(target))
                                       .Then(DropRef(resizedMask))
                                       .Then(DropRef(mask))
                                       .Then(ReturnOf(kScaleMask, image))));
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(Name(dynamic_cast<HostPicture&>(*result).mask), target);
  EXPECT_EQ(host().RefCount(picture->mask), 1);  // the receiver's own
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// Enlarged both ways with AntiAlias, the image and the mask both take the enlargement.
TEST_P(ScaleSequenceInKind, MaskMethodEnlargesImageAndMaskSmoothly) {
  const AppKind app = GetParam();
  Boot(ConfigFor(app));
  HostPicture* picture = MaskedPicture(2, 2);
  const std::string p = Name(picture), mask = Name(picture->mask);
  const std::string image = Serial(3), resizedMask = Serial(4), target = Serial(5),
                    graphics = Serial(6);
  HostObject* result = Run(kScaleMask, picture, 3, 4, true, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 3, 4, true, kEveryCheck))
                                       .Then(ReadSize(p, 2, 2))
                                       .Then(HasAlpha(p, false))
                                       .Then(Enlarge(app, p, image, 3, 4, true))
                                       .Then(GetMask(p, false, mask))
                                       .Then(Enlarge(app, mask, resizedMask, 3, 4, false))
                                       .Then(GetMask(image, true, target))
                                       .Then(DrawWhole(app, target, resizedMask, 3, 4, graphics))
                                       .Then(DropRef(target))
                                       .Then(DropRef(resizedMask))
                                       .Then(DropRef(mask))
                                       .Then(ReturnOf(kScaleMask, image))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// A picture with an alpha channel is drawn into a new picture of the requested size, which is
// given a copy of its mask; that picture and its mask are then resized, and let go at the end.
TEST_P(ScaleSequenceInKind, MaskMethodTurnsAnAlphaChannelIntoAMaskFirst) {
  const AppKind app = GetParam();
  Boot(ConfigFor(app));
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture);
  // Desktop pictures are drawn through a graphics object, which takes a serial number.
  const uint64_t g = app == AppKind::Desktop ? 1 : 0;
  const std::string intermediate = Serial(2), drawGraphics = Serial(3);
  const std::string copiedMask = Serial(3 + g), image = Serial(4 + g), resizedMask = Serial(5 + g),
                    target = Serial(6 + g), maskGraphics = Serial(7 + g);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, true))
                          .Then(NewPicture(2, 2, intermediate))
                          .Then(DrawWhole(app, intermediate, p, 2, 2, drawGraphics))
                          .Then(LoadMethod(p, kCopyMask, true))
                          .Then("Picture.CopyMask(" + p + ") -> " + copiedMask)
                          .Then(LoadMethod(intermediate, kSetMask, true))
                          .Then("Picture.Mask(" + intermediate + ", " + copiedMask + ")")
                          .Then(DropRef(copiedMask))
                          .Then(BoxResize(app, intermediate, image, 2, 2, true))
                          .Then(GetMask(intermediate, false, copiedMask))
                          .Then(BoxResize(app, copiedMask, resizedMask, 2, 2, false))
                          .Then(GetMask(image, true, target))
                          .Then(DrawWhole(app, target, resizedMask, 2, 2, maskGraphics))
                          .Then(DropRef(target))
                          .Then(DropRef(resizedMask))
                          .Then(DropRef(copiedMask))
                          .Then(DropRef(intermediate))
                          .Then(ReturnOf(kScaleMask, image))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

TEST_F(ScaleSequence, MaskMethodWithoutGetPictureMaskGivesTheImageAlone) {
  Boot();
  host().SetUnavailable("REALGetPictureMask");
  HostPicture* picture = MaskedPicture(4, 3);
  const std::string p = Name(picture), image = Serial(3);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(HasAlpha(p, false))
                                       .Then(BoxResize(AppKind::Console, p, image, 2, 2, true))
                                       .Then(ReturnOf(kScaleMask, image))));
  EXPECT_GE(host().LookupCount("REALGetPictureMask"), 1);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(dynamic_cast<HostPicture&>(*result).mask, nullptr);
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// A mask the enlargement cannot open leaves the result without mask: the mask is not tried
// with the box resizer, only let go.
TEST_F(ScaleSequence, MaskThatTheEnlargementCannotOpenIsOnlyReleased) {
  Boot();
  HostPicture* picture = MaskedPicture(2, 2);
  picture->mask->lockable = false;
  const std::string p = Name(picture), mask = Name(picture->mask), image = Serial(3);
  HostObject* result = Run(kScaleMask, picture, 3, 3, true, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 3, 3, true, kEveryCheck))
                                       .Then(ReadSize(p, 2, 2))
                                       .Then(HasAlpha(p, false))
                                       .Then(Enlarge(AppKind::Console, p, image, 3, 3, true))
                                       .Then(GetMask(p, false, mask))
                                       .Then(HasAlpha(mask, false))
                                       .Then(LockDescription(mask, 10, false))
                                       .Then(DropRef(mask))
                                       .Then(ReturnOf(kScaleMask, image))));
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(dynamic_cast<HostPicture&>(*result).mask, nullptr);
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// The same through the box resizer: its final yield is made, and the mask let go.
TEST_F(ScaleSequence, MaskThatTheBoxResizerCannotOpenIsReleasedAfterTheFinalYield) {
  Boot();
  HostPicture* picture = MaskedPicture(4, 3);
  picture->mask->lockable = false;
  const std::string p = Name(picture), mask = Name(picture->mask), image = Serial(3);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(HasAlpha(p, false))
                                       .Then(BoxResize(AppKind::Console, p, image, 2, 2, true))
                                       .Then(GetMask(p, false, mask))
                                       .Then(HasAlpha(mask, false))
                                       .Then(LockDescription(mask, 10, false))
                                       .Then(kYield)
                                       .Then(DropRef(mask))
                                       .Then(ReturnOf(kScaleMask, image))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// An image the enlargement cannot make goes to the box resizer; when that fails too, the mask
// is never asked for.
TEST_F(ScaleSequence, MaskMethodFallsBackToTheBoxResizerWhenTheEnlargementFails) {
  HostConfig config = ConfigFor(AppKind::Console);
  config.newPictureFaults.lockReportsNullData = true;
  Boot(config);
  HostPicture* picture = MaskedPicture(2, 2);
  const std::string p = Name(picture), first = Serial(3), second = Serial(4);
  auto failedWriter = [](const std::string& made) {
    return Sequence()
        .Then(NewPicture(4, 3, made))
        .Then(HasAlpha(made, false))
        .Then(LockDescription(made, 10, true))
        .Then(UnlockDescription(made))
        .Then(DropRef(made));
  };
  EXPECT_EQ(Run(kScaleMask, picture, 4, 3, true, kEveryCheck), nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 4, 3, true, kEveryCheck))
                                       .Then(ReadSize(p, 2, 2))
                                       .Then(HasAlpha(p, false))
                                       // the enlargement
                                       .Then(Open(AppKind::Console, p, true))
                                       .Then(failedWriter(first))
                                       .Then(ReleaseReader(p))
                                       // the box resizer
                                       .Then(Open(AppKind::Console, p, false))
                                       .Then(failedWriter(second))
                                       .Then(ReleaseReader(p))
                                       .Then(kYield)
                                       .Then(ReturnOf(kScaleMask, "nil"))));
  host().Unlock(picture);
}

// A receiver that cannot be opened gives nil before its mask is asked for; hosts older than
// 2012.0 are sent an unlock after the failed lock.
void ExpectMaskMethodReceiverNotOpened(ScaleSequence& test, Host& host, double version) {
  HostPicture* picture = qpxhost::NewHostPicture(host, 4, 3, Unlockable());
  picture->mask = qpxhost::NewHostMask(host, *picture);
  const std::string p = Name(picture);
  HostObject* result = test.Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_EQ(result, nullptr);
  Sequence expected = Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, false))
                          .Then(Detection(AppKind::Console))
                          .Then(HasAlpha(p, false))
                          .Then(LockDescription(p, 10, false));
  if (version < 2012.0) expected.Then(UnlockDescription(p));
  expected.Then(kYield).Then(ReturnOf(kScaleMask, "nil"));
  EXPECT_TRUE(Follows(Calls(host, test.from), expected));
  host.Unlock(picture);
}

TEST_F(ScaleSequence, MaskMethodReceiverThatDoesNotOpenOn2012GivesNil) {
  ExpectMaskMethodReceiverNotOpened(*this, Boot(ConfigFor(AppKind::Console, 2012.0)), 2012.0);
}

TEST_F(ScaleSequence, MaskMethodReceiverThatDoesNotOpenBefore2012IsUnlockedAndGivesNil) {
  ExpectMaskMethodReceiverNotOpened(*this, Boot(ConfigFor(AppKind::Console, 2011.99)), 2011.99);
}

// Without "CopyMask" the intermediate picture keeps no mask: it is resized alone.
TEST_F(ScaleSequence, AlphaPathWithoutCopyMaskResizesTheIntermediatePictureAlone) {
  HostConfig config = ConfigFor(AppKind::Desktop);
  config.unavailable.insert(kCopyMask);
  Boot(config);
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture), intermediate = Serial(2), graphics = Serial(3),
                    image = Serial(4);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, true))
                          .Then(NewPicture(2, 2, intermediate))
                          .Then(DrawWhole(AppKind::Desktop, intermediate, p, 2, 2, graphics))
                          .Then(LoadMethod(p, kCopyMask, false))
                          .Then(BoxResize(AppKind::Desktop, intermediate, image, 2, 2, true))
                          .Then(GetMask(intermediate, false, "nil"))
                          .Then(DropRef(intermediate))
                          .Then(ReturnOf(kScaleMask, image))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// Without "REALLoadObjectMethod" the console intermediate is filled row by row, and no mask is
// copied.
TEST_F(ScaleSequence, AlphaPathWithoutLoadObjectMethodCopiesRowsAndNoMask) {
  Boot();
  host().SetUnavailable("REALLoadObjectMethod");
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture), intermediate = Serial(2), image = Serial(3);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, true))
                          .Then(NewPicture(2, 2, intermediate))
                          .Then(DrawWhole(AppKind::Console, intermediate, p, 2, 2, ""))
                          .Then(BoxResize(AppKind::Console, intermediate, image, 2, 2, true))
                          .Then(GetMask(intermediate, false, "nil"))
                          .Then(DropRef(intermediate))
                          .Then(ReturnOf(kScaleMask, image))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// Without a way to read "HasAlphaChannel" a picture counts as having none: no intermediate
// picture, and writers without alpha channel.
TEST_F(ScaleSequence, MaskMethodWithoutHasAlphaChannelTakesTheOpaquePath) {
  Boot();
  host().SetUnavailable("REALGetPropValueBool");
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture), image = Serial(2);
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(Detection(AppKind::Console))
                                       .Then(LockDescription(p, 10, true))
                                       .Then(AddRef(p))
                                       .Then(NewPicture(2, 2, image))
                                       .Then(LockDescription(image, 10, true))
                                       .Then(AddRef(image))
                                       .Then(DropRef(image))
                                       .Then(Yields(2))
                                       .Then(Render(image))
                                       .Then(ReleaseReader(p))
                                       .Then(kYield)
                                       .Then(GetMask(p, false, "nil"))
                                       .Then(ReturnOf(kScaleMask, image))));
  ExpectOwnedAndRelease(result);
  host().Unlock(picture);
}

// On the alpha path a new picture that cannot be had gives nil at once.
TEST_F(ScaleSequence, AlphaPathWithoutNewPictureGivesNilAtOnce) {
  Boot();
  host().SetUnavailable("newPicture");
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture);
  EXPECT_EQ(Run(kScaleMask, picture, 2, 2, false, kEveryCheck), nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(HasAlpha(p, true))
                                       .Then(ReturnOf(kScaleMask, "nil"))));
  host().Unlock(picture);
}

TEST_F(ScaleSequence, AlphaPathWithANewPictureTooLargeForTheHostGivesNilAtOnce) {
  Boot();
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture);
  EXPECT_EQ(Run(kScaleMask, picture, 40000, 40000, false, kEveryCheck), nullptr);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 40000, 40000, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, true))
                          .Then(NewPicture(40000, 40000, "nil"))
                          .Then(ReturnOf(kScaleMask, "nil"))));
  host().Unlock(picture);
}

// A desktop host without the drawing method: the alpha channel picture is copied row by row,
// which fails for desktop pictures; hosts older than 2012.0 are asked for their runtime drawing
// service first and get an unlock after the failed lock.
void ExpectAlphaPathWithoutDrawing(ScaleSequence& test, Host& host, double version) {
  HostPicture* picture = qpxhost::NewHostPicture(host, 4, 3, WithAlpha());
  const std::string p = Name(picture), intermediate = Serial(2), graphics = Serial(3);
  const std::string copiedMask = Serial(4), image = Serial(5), resizedMask = Serial(6),
                    target = Serial(7), maskGraphics = Serial(8);
  HostObject* result = test.Run(kScaleMask, picture, 2, 2, false, kEveryCheck);
  Sequence drawFails = Sequence()
                           .Then("pluginPictureGraphicsGetter(" + intermediate + ") -> " + graphics)
                           .Then(LoadMethod(graphics, kDrawPicture, false))
                           .Then(LockDescription(p, 10, false));
  if (version < 2012.0) drawFails.Then(UnlockDescription(p));
  drawFails.Then(DropRef(graphics));
  Sequence maskDrawFails =
      Sequence()
          .Then("pluginPictureGraphicsGetter(" + target + ") -> " + maskGraphics)
          .Then(LoadMethod(maskGraphics, kDrawPicture, false))
          .Then(LockDescription(resizedMask, 10, false));
  if (version < 2012.0) maskDrawFails.Then(UnlockDescription(resizedMask));
  maskDrawFails.Then(DropRef(maskGraphics));
  EXPECT_TRUE(Follows(Calls(host, test.from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kEveryCheck))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, true))
                          .Then(NewPicture(2, 2, intermediate))
                          .Then(drawFails)
                          .Then(LoadMethod(p, kCopyMask, true))
                          .Then("Picture.CopyMask(" + p + ") -> " + copiedMask)
                          .Then(LoadMethod(intermediate, kSetMask, true))
                          .Then("Picture.Mask(" + intermediate + ", " + copiedMask + ")")
                          .Then(DropRef(copiedMask))
                          .Then(BoxResize(AppKind::Desktop, intermediate, image, 2, 2, true))
                          .Then(GetMask(intermediate, false, copiedMask))
                          .Then(BoxResize(AppKind::Desktop, copiedMask, resizedMask, 2, 2, false))
                          .Then(GetMask(image, true, target))
                          .Then(maskDrawFails)
                          .Then(DropRef(target))
                          .Then(DropRef(resizedMask))
                          .Then(DropRef(copiedMask))
                          .Then(DropRef(intermediate))
                          .Then(ReturnOf(kScaleMask, image))));
  const int runtimeLookups = host.LookupCount("RuntimeGraphicsDrawPicture");
  EXPECT_EQ(runtimeLookups, version < 2012.0 ? 2 : 0);
  test.ExpectOwnedAndRelease(result);
  host.Unlock(picture);
}

TEST_F(ScaleSequence, AlphaPathWithoutDrawingMethodOn2012) {
  HostConfig config = ConfigFor(AppKind::Desktop, 2012.0);
  config.unavailable.insert(kDrawPicture);
  ExpectAlphaPathWithoutDrawing(*this, Boot(config), 2012.0);
}

TEST_F(ScaleSequence, AlphaPathWithoutDrawingMethodBefore2012) {
  HostConfig config = ConfigFor(AppKind::Desktop, 2011.99);
  config.unavailable.insert(kDrawPicture);
  ExpectAlphaPathWithoutDrawing(*this, Boot(config), 2011.99);
}

}  // namespace
