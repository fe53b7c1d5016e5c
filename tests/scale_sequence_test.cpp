// ScaleQPX as the host sees it: every host call of each path, call by call, from the host's
// call of the method to its return, through the loaded module: the same size, the box resizer,
// the anti-aliased enlargement, and every way to nil. ScaleImageAndMaskQPX is in
// scale_mask_sequence_test.cpp.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "call_sequence.h"
#include "host.h"
#include "picture_services.h"

namespace {

using namespace qpxtest;
using namespace qpxtest::method_test_names;

constexpr const char* kScale = "ScaleQPX";

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
    HostObject* result = Run(kScale, picture, 4, 3, antiAlias, kYieldEveryCall);
    EXPECT_EQ(result, picture);
    EXPECT_TRUE(Follows(Calls(host(), from),
                        Sequence()
                            .Then(HostCallOf(kScale, p, 4, 3, antiAlias, kYieldEveryCall))
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
  HostObject* result = Run(kScale, picture, 2, 5, false, kYieldEveryCall);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 5, false, kYieldEveryCall))
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
  HostObject* result = Run(kScale, picture, 5, 3, true, kYieldEveryCall);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 5, 3, true, kYieldEveryCall))
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
  HostObject* result = Run(kScale, picture, 4, 2, true, kYieldEveryCall);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 4, 2, true, kYieldEveryCall))
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
                                               .Then(Release(p, false))
                                               .Then(ReturnOf(kScale, boxMade))));
  HostObject* smooth = Run(kScale, picture, 3, 3, true, 0);
  const std::string smoothMade = Serial(3);
  EXPECT_TRUE(Follows(Calls(host(), from), Sequence()
                                               .Then(HostCallOf(kScale, p, 3, 3, true, 0))
                                               .Then(ReadSize(p, 2, 2))
                                               .Then(Open(AppKind::Console, p, false))
                                               .Then(Writer(AppKind::Console, smoothMade, 3, 3))
                                               .Then(Render(smoothMade))
                                               .Then(Release(p, false))
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
  HostObject* result = Run(kScale, picture, 4, 3, true, kYieldEveryCall);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 4, 3, true, kYieldEveryCall))
                                       .Then(ReadSize(p, 2, 2))
                                       // the enlargement
                                       .Then(Open(AppKind::Console, p, true))
                                       .Then(RefusedWriter(first, 4, 3))
                                       .Then(Release(p, false))
                                       // the box resizer
                                       .Then(Open(AppKind::Console, p, false))
                                       .Then(RefusedWriter(second, 4, 3))
                                       .Then(Release(p, false))
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
    HostObject* result = Run(kScale, nullptr, 2, 2, antiAlias, kYieldEveryCall);
    EXPECT_EQ(result, nullptr);
    std::vector<std::string> calls = Calls(host(), from);
    std::erase_if(calls, [](const std::string& line) {
      return line.starts_with("REALGetPropValueInt(nil, ");
    });
    EXPECT_TRUE(
        Follows(calls, Sequence()
                           .Then(HostCallOf(kScale, "nil", 2, 2, antiAlias, kYieldEveryCall))
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
  HostObject* result = test.Run(kScale, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_EQ(result, nullptr);
  const Sequence expected = Sequence()
                                .Then(HostCallOf(kScale, p, 2, 2, false, kYieldEveryCall))
                                .Then(ReadSize(p, 4, 3))
                                .Then(Detection(AppKind::Console))
                                .Then(HasAlpha(p, false))
                                .Then(FailedLock(p, 10, version))
                                .Then(kYield)
                                .Then(ReturnOf(kScale, "nil"));
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
  HostObject* result = Run(kScale, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 2, false, kYieldEveryCall))
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
                                       .Then(Release(copy, false))
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
    HostObject* result = Run(kScale, picture, target.width, target.height, false, kYieldEveryCall);
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(Follows(
        Calls(host(), from),
        Sequence()
            .Then(HostCallOf(kScale, p, target.width, target.height, false, kYieldEveryCall))
            .Then(ReadSize(p, 4, 3))
            .Then(Open(AppKind::Console, p, first))
            .Then(Release(p, false))
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
  HostObject* result = Run(kScale, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 2, false, kYieldEveryCall))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(Open(AppKind::Console, p, true))
                                       .Then(NewPicture(2, 2, made))
                                       .Then(HasAlpha(made, false))
                                       .Then(LockDescription(made, 10, true))
                                       .Then(UnlockDescription(made))
                                       .Then(DropRef(made))
                                       .Then(Release(p, false))
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
  HostObject* result = Run(kScale, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScale, p, 2, 2, false, kYieldEveryCall))
                                       .Then(ReadSize(p, 4, 3))
                                       .Then(Open(AppKind::Desktop, p, true))
                                       .Then(NewPicture(2, 2, made))
                                       .Then(HasAlpha(made, false))
                                       .Then(LockDescription(made, 8, true))
                                       .ThenAnyOrder(ContextReads(made))
                                       .Then(DropRef(made))
                                       .Then(Release(p, false))
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
  HostObject* result = test.Run(kScale, picture, 2, 2, false, kYieldEveryCall);
  Sequence expected = Sequence()
                          .Then(HostCallOf(kScale, p, 2, 2, false, kYieldEveryCall))
                          .Then(ReadSize(p, 4, 3))
                          .Then(Open(AppKind::Desktop, p, true, true));
  if (offered) {
    expected.Then(AlphaWriter(made, 2, 2)).Then(Yields(2)).Then(Render(made));
  }
  expected.Then(Release(p, false)).Then(kYield).Then(ReturnOf(kScale, offered ? made : "nil"));
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

}  // namespace
