// ScaleImageAndMaskQPX as the host sees it: every host call of each path, call by call, from
// the host's call of the method to its return, through the loaded module: the image and then its
// mask resized, an alpha channel turned into a mask first, and every way to nil or to a result
// without mask. The ScaleSequenceInKind tests here run in the hosts of the instantiation in
// scale_sequence_test.cpp.
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
constexpr const char* kScaleMask = "ScaleImageAndMaskQPX";
constexpr const char* kCopyMask = "CopyMask as Picture";
constexpr const char* kSetMask = "Mask(assigns newMask As Picture)";

// The picture's mask asked for, made when `create`.
std::string GetMask(const std::string& picture, bool create, const std::string& mask) {
  return "REALGetPictureMask(" + picture + ", " + (create ? "1" : "0") + ") -> " + mask;
}

// --- ScaleImageAndMaskQPX -------------------------------------------------------------------

TEST_F(ScaleSequence, MaskMethodOnNilMakesNoCallAtAll) {
  Boot();
  HostObject* result = Run(kScaleMask, nullptr, 2, 2, true, kYieldEveryCall);
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, "nil", 2, 2, true, kYieldEveryCall))
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
  HostObject* result = Run(kScale, picture, 2, 3, false, kYieldEveryCall);
  host().onYield = nullptr;
  const Sequence resize = BoxResize(AppKind::Console, p, made, 2, 3, true);
  // The nested call comes right after the first yield, that of the first row.
  Sequence expected = Sequence()
                          .Then(HostCallOf(kScale, p, 2, 3, false, kYieldEveryCall))
                          .Then(ReadSize(p, 4, 3))
                          .Then(Open(AppKind::Console, p, true))
                          .Then(Writer(AppKind::Console, made, 2, 3))
                          .Then(kYield)
                          .Then(HostCallOf(kScaleMask, "nil", 2, 2, false, 0))
                          .Then(ReturnOf(kScaleMask, "nil"))
                          .Then(Yields(2))
                          .Then(Render(made))
                          .Then(Release(p, false))
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
  HostObject* result = Run(kScaleMask, picture, 4, 3, true, kYieldEveryCall);
  EXPECT_EQ(result, picture);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 4, 3, true, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 3, 4, true, kYieldEveryCall);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 3, 4, true, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 3, 3, true, kYieldEveryCall);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 3, 3, true, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  EXPECT_EQ(Run(kScaleMask, picture, 4, 3, true, kYieldEveryCall), nullptr);
  EXPECT_TRUE(
      Follows(Calls(host(), from), Sequence()
                                       .Then(HostCallOf(kScaleMask, p, 4, 3, true, kYieldEveryCall))
                                       .Then(ReadSize(p, 2, 2))
                                       .Then(HasAlpha(p, false))
                                       // the enlargement
                                       .Then(Open(AppKind::Console, p, true))
                                       .Then(RefusedWriter(first, 4, 3))
                                       .Then(Release(p, false))
                                       // the box resizer
                                       .Then(Open(AppKind::Console, p, false))
                                       .Then(RefusedWriter(second, 4, 3))
                                       .Then(Release(p, false))
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
  HostObject* result = test.Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_EQ(result, nullptr);
  const Sequence expected = Sequence()
                                .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
                                .Then(ReadSize(p, 4, 3))
                                .Then(HasAlpha(p, false))
                                .Then(Detection(AppKind::Console))
                                .Then(HasAlpha(p, false))
                                .Then(FailedLock(p, 10, version))
                                .Then(kYield)
                                .Then(ReturnOf(kScaleMask, "nil"));
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
  HostObject* result = Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
                          .Then(Release(p, false))
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
  EXPECT_EQ(Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall), nullptr);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
                          .Then(ReadSize(p, 4, 3))
                          .Then(HasAlpha(p, true))
                          .Then(ReturnOf(kScaleMask, "nil"))));
  host().Unlock(picture);
}

TEST_F(ScaleSequence, AlphaPathWithANewPictureTooLargeForTheHostGivesNilAtOnce) {
  Boot();
  HostPicture* picture = Picture(4, 3, WithAlpha());
  const std::string p = Name(picture);
  EXPECT_EQ(Run(kScaleMask, picture, 40000, 40000, false, kYieldEveryCall), nullptr);
  EXPECT_TRUE(Follows(Calls(host(), from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 40000, 40000, false, kYieldEveryCall))
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
  HostObject* result = test.Run(kScaleMask, picture, 2, 2, false, kYieldEveryCall);
  const Sequence drawFails = Sequence()
                                 .Then(GraphicsOf(intermediate, graphics))
                                 .Then(LoadMethod(graphics, kDrawPicture, false))
                                 .Then(FailedLock(p, 10, version))
                                 .Then(DropRef(graphics));
  const Sequence maskDrawFails = Sequence()
                                     .Then(GraphicsOf(target, maskGraphics))
                                     .Then(LoadMethod(maskGraphics, kDrawPicture, false))
                                     .Then(FailedLock(resizedMask, 10, version))
                                     .Then(DropRef(maskGraphics));
  EXPECT_TRUE(Follows(Calls(host, test.from),
                      Sequence()
                          .Then(HostCallOf(kScaleMask, p, 2, 2, false, kYieldEveryCall))
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
