// ScalingQPX's conversation with the host, call by call: what it asks of the host on the way to
// a result and on every way to nil, in which order, and where it yields. Every call passes
// INT32_MIN as its yield argument, so each yield check shows as one "REALYieldToRB".
//
// The road of a call that succeeds: the reader opens the receiver (its description locked and a
// reference taken); four yields follow (after the setup, the horizontal contributor lists, the
// horizontal pass and the vertical lists); only then is the new picture made and its writer
// opened, its creation reference dropped; one yield per output row and one after the last row;
// the result is handed over (a reference for the caller, the host's cache dropped, the writer
// released); one yield; the reader is released; one final yield.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "call_sequence.h"
#include "differential.h"
#include "host_fixture.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace {

using namespace qpxtest::method_test_names;
using namespace qpxtest::skeleton;

// The calls that take, drop and lock pictures, make them, and yield: the skeleton of a call.
const Lines kSkeleton = {"REALLockPictureDescription",
                         "unlockPictureDescription",
                         "newPicture",
                         "PluginNewInstance",
                         "Picture.Constructor",
                         "REALPictureClearCache",
                         "REALLockObject",
                         "REALUnlockObject",
                         "REALYieldToRB"};

std::string CallLine(const HostObject* receiver, int32_t mode, int32_t width, int32_t height) {
  return "call ScalingQPX(" + Name(receiver) + ", " + std::to_string(mode) + ", " +
         std::to_string(width) + ", " + std::to_string(height) + ", " +
         std::to_string(kYieldEveryCall) + ")";
}

HostObject* CallScaling(Host& host, HostObject* receiver, int32_t mode, int32_t width,
                        int32_t height) {
  return host.Call("ScalingQPX", receiver, {mode, width, height, kYieldEveryCall}).picture;
}

// A new picture that carries only the caller's reference, released here.
void ExpectNewResultAndRelease(Host& host, HostObject* result, HostObject* receiver) {
  ASSERT_NE(result, nullptr);
  EXPECT_NE(result, receiver);
  EXPECT_EQ(host.RefCount(result), 1);
  host.Unlock(result);
}

class ScalingSequenceTest : public qpxtest::ConsoleAndDesktopTest {};

// A nil receiver, a mode outside 1 to 7 and a size below 1 are refused before the method asks
// anything of the host: not a look-up, not a yield.
TEST_F(ScalingSequenceTest, NilReceiverAndBadArgumentsGiveNilWithoutAnyHostCall) {
  ForConsoleAndDesktop([](Host& host, const HostConfig&) {
    HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
    struct Case {
      HostObject* receiver;
      int32_t mode, width, height;
    };
    const std::vector<Case> cases = {
        {nullptr, 1, 2, 2},   {receiver, 0, 2, 2},  {receiver, 8, 2, 2},
        {receiver, -1, 2, 2}, {receiver, 1, 0, 2},  {receiver, 1, 2, 0},
        {receiver, 3, -5, 2}, {receiver, 3, 2, -5}, {nullptr, 0, 0, 0}};
    for (const Case& c : cases) {
      SCOPED_TRACE(CallLine(c.receiver, c.mode, c.width, c.height));
      const size_t from = host.log.size();
      EXPECT_EQ(CallScaling(host, c.receiver, c.mode, c.width, c.height), nullptr);
      EXPECT_EQ(host.log.size() - from, 2u) << host.log.Print(from);  // no look-up either
      EXPECT_EQ(Calls(host, from), (Lines{CallLine(c.receiver, c.mode, c.width, c.height),
                                          "return ScalingQPX() -> nil"}));
    }
    EXPECT_EQ(host.RefCount(receiver), 1);
    host.Unlock(receiver);
  });
}

// A receiver whose pixels cannot be had: nil, before any yield, picture or buffer.
TEST_F(ScalingSequenceTest, ReaderThatCannotOpenGivesNilWithoutAYield) {
  ForConsoleAndDesktop([](Host& host, const HostConfig& config) {
    PictureOptions faulty;
    faulty.faults.lockReportsNullData = true;
    HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3, faulty);
    const size_t from = host.log.size();
    EXPECT_EQ(CallScaling(host, receiver, 1, 6, 5), nullptr);
    EXPECT_EQ(CallsOf(host, kSkeleton, from),
              (Lines{"REALLockPictureDescription(" + Name(receiver) + ", " + LockType(config) +
                         ") -> true",
                     "unlockPictureDescription(" + Name(receiver) + ")"}));
    EXPECT_EQ(Calls(host, from).back(), "return ScalingQPX() -> nil");
    EXPECT_EQ(host.yieldCount, 0);
    EXPECT_EQ(host.RefCount(receiver), 1);
    host.Unlock(receiver);
  });
}

// The whole skeleton of a call that succeeds, for enlarging, shrinking and mixed sizes.
TEST_F(ScalingSequenceTest, SuccessOpensYieldsFourTimesThenWritesRowByRow) {
  ForConsoleAndDesktop([](Host& host, const HostConfig& config) {
    HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
    struct Case {
      int32_t mode, width, height;
    };
    for (const Case& c : {Case{1, 6, 5}, Case{2, 2, 2}, Case{4, 9, 1}, Case{7, 1, 7}}) {
      SCOPED_TRACE(CallLine(receiver, c.mode, c.width, c.height));
      const size_t from = host.log.size();
      const int yieldsBefore = host.yieldCount;
      HostObject* result = CallScaling(host, receiver, c.mode, c.width, c.height);
      HostObject* made = qpxtest::LastResultOf(host, "newPicture", from);
      ASSERT_NE(made, nullptr);
      EXPECT_EQ(result, made);
      const Lines expected = Join({
          Open(receiver, config),
          Yields(4),
          {"newPicture(" + std::to_string(c.width) + ", " + std::to_string(c.height) + ", 32) -> " +
           Name(made)},
          Open(made, config),
          {"REALUnlockObject(" + Name(made) + ")"},  // the creation reference
          Yields(c.height),                          // one per output row
          Yields(1),                                 // after the last row
          Render(made),
          Yields(1),
          Release(receiver, false),
          Yields(1),
      });
      EXPECT_EQ(CallsOf(host, kSkeleton, from), expected);
      EXPECT_EQ(host.yieldCount - yieldsBefore, c.height + 7);
      const Lines calls = Calls(host, from);
      EXPECT_EQ(calls.front(), CallLine(receiver, c.mode, c.width, c.height));
      EXPECT_EQ(calls.back(), "return ScalingQPX() -> " + Name(made));
      EXPECT_THAT(host.raisedExceptions, ::testing::IsEmpty());
      ExpectNewResultAndRelease(host, result, receiver);
    }
    host.Unlock(receiver);
  });
}

// On a desktop the reader reads the bitmap context of a type-8 description; a console host's
// pictures lock as type 10 and have no bitmap context to ask.
TEST_F(ScalingSequenceTest, DesktopReadsTheBitmapContextConsoleDoesNot) {
  const Lines contextCalls = {"CGBitmapContextGetData",        "CGBitmapContextGetBitsPerPixel",
                              "CGBitmapContextGetWidth",       "CGBitmapContextGetHeight",
                              "CGBitmapContextGetBytesPerRow", "CGBitmapContextGetAlphaInfo"};
  ForConsoleAndDesktop([&](Host& host, const HostConfig& config) {
    HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
    const size_t from = host.log.size();
    HostObject* result = CallScaling(host, receiver, 5, 3, 2);
    ASSERT_NE(result, nullptr);
    const Lines locks = CallsOf(host, {"REALLockPictureDescription"}, from);
    const std::string type = LockType(config);
    EXPECT_EQ(locks,
              (Lines{"REALLockPictureDescription(" + Name(receiver) + ", " + type + ") -> true",
                     "REALLockPictureDescription(" + Name(result) + ", " + type + ") -> true"}));
    const Lines context = CallsOf(host, contextCalls, from);
    if (config.app == AppKind::Desktop) {
      // Each editor asks all six, of its own picture, while its description is locked.
      EXPECT_EQ(context.size(), 12u);
      for (const std::string& function : contextCalls) {
        EXPECT_TRUE(InOrder(
            context, {function + "(" + Name(receiver) + ")", function + "(" + Name(result) + ")"}))
            << function;
      }
    } else {
      EXPECT_THAT(context, ::testing::IsEmpty());
    }
    ExpectNewResultAndRelease(host, result, receiver);
    host.Unlock(receiver);
  });
}

// A writer that cannot be made: nil once the horizontal work and its four yields are done; the
// new picture's creation reference is dropped, the buffers are freed, the reader is released
// and the final yield still comes.
TEST_F(ScalingSequenceTest, WriterThatCannotBeMadeGivesNilAfterTheHorizontalWork) {
  struct Fault {
    const char* name;
    HostConfig config;
    bool lockSucceeds;  // the new picture's description locks, with null data
  };
  HostConfig nullData;
  nullData.newPictureFaults.lockReportsNullData = true;
  HostConfig empty;  // new pictures come out 0 x 0 and do not lock
  empty.newPictureSizeChange = -100;
  for (const Fault& fault : {Fault{"null data", nullData, true}, Fault{"0 x 0", empty, false}}) {
    SCOPED_TRACE(fault.name);
    ForConsoleAndDesktop(
        [&](Host& host, const HostConfig& config) {
          HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
          const size_t from = host.log.size();
          EXPECT_EQ(CallScaling(host, receiver, 3, 6, 5), nullptr);
          const std::string picture = "#2";  // the host's second object: the new picture
          const std::string lock =
              "REALLockPictureDescription(" + picture + ", " + LockType(config) + ") -> ";
          Lines opening = {lock + (fault.lockSucceeds ? "true" : "false")};
          if (fault.lockSucceeds) opening.push_back("unlockPictureDescription(" + picture + ")");
          const Lines expected = Join({
              Open(receiver, config),
              Yields(4),
              {"newPicture(6, 5, 32) -> " + picture},
              opening,
              {"REALUnlockObject(" + picture + ")"},
              Release(receiver, false),
              Yields(1),
          });
          EXPECT_EQ(CallsOf(host, kSkeleton, from), expected);
          EXPECT_EQ(Calls(host, from).back(), "return ScalingQPX() -> nil");
          EXPECT_FALSE(host.FindSerial(2)) << "the new picture outlived the call";
          EXPECT_EQ(host.RefCount(receiver), 1);
          host.Unlock(receiver);
        },
        fault.config);
  }
}

// A receiver with an alpha channel gets its result through "PluginNewInstance" and the picture
// constructor, from host version 2011.04 on; an older host cannot make such a writer, and the
// call gives nil after the horizontal work, without asking for any new picture.
TEST_F(ScalingSequenceTest, AlphaReceiverMakesItsResultThroughTheConstructor) {
  for (double version : {2011.04, 2013.03}) {
    HostConfig config = qpxtest::AppHost(AppKind::Desktop);
    config.version = version;
    SCOPED_TRACE(version);
    Host& host = Reboot(config);
    PictureOptions alpha;
    alpha.hasAlpha = true;
    HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3, alpha);
    const size_t from = host.log.size();
    HostObject* result = CallScaling(host, receiver, 6, 5, 2);
    HostObject* made = qpxtest::LastResultOf(host, "PluginNewInstance", from);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(result, made);
    const Lines expected = Join({
        Open(receiver, config),
        Yields(4),
        {"PluginNewInstance(\"Picture\") -> " + Name(made),
         "Picture.Constructor(" + Name(made) + ", 5, 2)"},
        Open(made, config),
        {"REALUnlockObject(" + Name(made) + ")"},
        Yields(2 + 1),
        Render(made),
        Yields(1),
        Release(receiver, false),
        Yields(1),
    });
    EXPECT_EQ(CallsOf(host, kSkeleton, from), expected);
    EXPECT_TRUE(InOrder(Calls(host, from),
                        {"PluginNewInstance(\"Picture\") -> " + Name(made),
                         "REALLoadObjectMethod(" + Name(made) +
                             ", \"Constructor(width as integer, height as integer)\") -> true",
                         "Picture.Constructor(" + Name(made) + ", 5, 2)"}));
    EXPECT_THAT(CallsOf(host, {"newPicture"}, from), ::testing::IsEmpty());
    EXPECT_TRUE(dynamic_cast<HostPicture*>(result)->hasAlpha);
    ExpectNewResultAndRelease(host, result, receiver);
    host.Unlock(receiver);
  }
}

TEST_F(ScalingSequenceTest, AlphaReceiverOnAHostBefore2011_04GivesNilAfterTheHorizontalWork) {
  HostConfig config = qpxtest::AppHost(AppKind::Desktop);
  config.version = 2011.03;
  Host& host = Boot(config);
  PictureOptions alpha;
  alpha.hasAlpha = true;
  HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3, alpha);
  const size_t from = host.log.size();
  EXPECT_EQ(CallScaling(host, receiver, 6, 5, 2), nullptr);
  EXPECT_EQ(CallsOf(host, kSkeleton, from),
            Join({Open(receiver, config), Yields(4), Release(receiver, false), Yields(1)}));
  EXPECT_THAT(CallsOf(host, {"REALLoadObjectMethod"}, from), ::testing::IsEmpty());
  EXPECT_EQ(Calls(host, from).back(), "return ScalingQPX() -> nil");
  host.Unlock(receiver);
}

}  // namespace
