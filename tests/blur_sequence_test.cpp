// BlurQPX's conversation with the host, call by call. A radius below 1 only adds a reference to
// the receiver. Otherwise the reader opens the receiver, a new 32-bit picture of its size is made
// and its writer opened, the creation reference dropped; then the yields: one before the passes,
// one per row of each pass and one at the end (1 + 2H + 1); then the result is handed over and
// the reader released. A receiver too large for a new picture, or a host that makes none, gives
// nil without a yield; working buffers that cannot be had give the new picture unblurred, with
// the final yield only. Every call passes INT32_MIN as its yield argument, so each yield check
// shows as one "REALYieldToRB".
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "call_sequence.h"
#include "differential.h"
#include "host_fixture.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace {

using namespace qpxtest::method_test_names;
using namespace qpxtest::skeleton;

const Lines kSkeleton = {"REALLockPictureDescription",
                         "unlockPictureDescription",
                         "newPicture",
                         "PluginNewInstance",
                         "REALPictureClearCache",
                         "REALLockObject",
                         "REALUnlockObject",
                         "REALYieldToRB"};

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::string CallLine(const HostObject* receiver, double radius) {
  return "call BlurQPX(" + Name(receiver) + ", " + Number(radius) + ", " +
         std::to_string(kYieldEveryCall) + ")";
}

HostObject* CallBlur(Host& host, HostObject* receiver, double radius) {
  return host.Call("BlurQPX", receiver, {radius, kYieldEveryCall}).picture;
}

class BlurSequenceTest : public qpxtest::ConsoleAndDesktopTest {};

const std::vector<double> kBelowOne = {0.99, 0.0, -5.0, std::numeric_limits<double>::quiet_NaN(),
                                       3e9};

// A radius below 1 hands the receiver back with one reference added, and asks nothing else of
// the host.
TEST_F(BlurSequenceTest, RadiusBelowOneOnlyLocksTheReceiver) {
  ForConsoleAndDesktop([](Host& host, const HostConfig&) {
    HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
    for (double radius : kBelowOne) {
      SCOPED_TRACE(radius);
      const size_t from = host.log.size();
      HostObject* result = CallBlur(host, receiver, radius);
      EXPECT_EQ(result, receiver);
      EXPECT_EQ(Calls(host, from),
                (Lines{CallLine(receiver, radius), "REALLockObject(" + Name(receiver) + ")",
                       "return BlurQPX() -> " + Name(receiver)}));
      EXPECT_EQ(host.RefCount(receiver), 2);
      host.Unlock(receiver);
    }
    EXPECT_EQ(host.yieldCount, 0);
    host.Unlock(receiver);
  });
}

// Without "REALLockObject" the receiver comes back without the added reference; a nil receiver
// gives nil. Neither asks anything of the host.
TEST_F(BlurSequenceTest, RadiusBelowOneWithoutLockObjectOrWithNilReceiverCallsNothing) {
  HostConfig lacking;
  lacking.unavailable = {"REALLockObject"};
  ForConsoleAndDesktop(
      [](Host& host, const HostConfig&) {
        HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
        for (double radius : kBelowOne) {
          SCOPED_TRACE(radius);
          size_t from = host.log.size();
          EXPECT_EQ(CallBlur(host, receiver, radius), receiver);
          EXPECT_EQ(Calls(host, from),
                    (Lines{CallLine(receiver, radius), "return BlurQPX() -> " + Name(receiver)}));
          EXPECT_EQ(host.RefCount(receiver), 1);
          from = host.log.size();
          EXPECT_EQ(CallBlur(host, nullptr, radius), nullptr);
          EXPECT_EQ(host.log.size() - from, 2u) << host.log.Print(from);
          EXPECT_EQ(Calls(host, from),
                    (Lines{CallLine(nullptr, radius), "return BlurQPX() -> nil"}));
        }
        EXPECT_EQ(host.yieldCount, 0);
        host.Unlock(receiver);
      },
      lacking);
}

// A nil receiver with a radius of 1 or more: nil, and no reference taken, no picture made.
TEST_F(BlurSequenceTest, NilReceiverWithARadiusGivesNilWithoutAPictureOrYield) {
  ForConsoleAndDesktop([](Host& host, const HostConfig&) {
    const size_t from = host.log.size();
    EXPECT_EQ(CallBlur(host, nullptr, 2.0), nullptr);
    EXPECT_THAT(CallsOf(host, kSkeleton, from), ::testing::IsEmpty());
    EXPECT_EQ(Calls(host, from).back(), "return BlurQPX() -> nil");
  });
}

TEST_F(BlurSequenceTest, BlurOpensMakesTheDestinationYieldsPerRowAndHandsItOver) {
  ForConsoleAndDesktop([](Host& host, const HostConfig& config) {
    for (int32_t height : {1, 3, 6}) {
      SCOPED_TRACE(height);
      HostPicture* receiver = qpxhost::NewHostPicture(host, 5, height);
      for (double radius : {1.0, 2.75, 40.0}) {
        SCOPED_TRACE(radius);
        const size_t from = host.log.size();
        const int yieldsBefore = host.yieldCount;
        HostObject* result = CallBlur(host, receiver, radius);
        HostObject* made = qpxtest::LastResultOf(host, "newPicture", from);
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(result, made);
        const Lines expected = Join({
            Open(receiver, config),
            {"newPicture(5, " + std::to_string(height) + ", 32) -> " + Name(made)},
            Open(made, config),
            {"REALUnlockObject(" + Name(made) + ")"},  // the creation reference
            Yields(1 + 2 * height + 1),
            Render(made),
            Release(receiver, false),
        });
        EXPECT_EQ(CallsOf(host, kSkeleton, from), expected);
        EXPECT_EQ(host.yieldCount - yieldsBefore, 2 * height + 2);
        const Lines calls = Calls(host, from);
        EXPECT_EQ(calls.front(), CallLine(receiver, radius));
        EXPECT_EQ(calls.back(), "return BlurQPX() -> " + Name(made));
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(host.RefCount(result), 1);
        EXPECT_FALSE(dynamic_cast<HostPicture*>(result)->hasAlpha);
        host.Unlock(result);
      }
      EXPECT_EQ(host.RefCount(receiver), 1);
      host.Unlock(receiver);
    }
  });
}

// A receiver with an alpha channel still gets a destination without one, from "newPicture".
TEST_F(BlurSequenceTest, AlphaReceiverGetsAnOpaqueNewPicture) {
  Host& host = Boot(qpxtest::AppHost(AppKind::Desktop));
  PictureOptions alpha;
  alpha.hasAlpha = true;
  HostPicture* receiver = qpxhost::NewHostPicture(host, 3, 2, alpha);
  const size_t from = host.log.size();
  HostObject* result = CallBlur(host, receiver, 1.0);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(CallsOf(host, {"newPicture", "PluginNewInstance"}, from),
            (Lines{"newPicture(3, 2, 32) -> " + Name(result)}));
  EXPECT_EQ(host.RefCount(result), 1);
  EXPECT_FALSE(dynamic_cast<HostPicture*>(result)->hasAlpha);
  host.Unlock(result);
  host.Unlock(receiver);
}

// A receiver wider or taller than 32767 pixels: nil once the reader has opened it, without a
// new picture and without a yield.
TEST_F(BlurSequenceTest, ReceiverAbove32767GivesNilWithoutNewPictureOrYield) {
  ForConsoleAndDesktop([](Host& host, const HostConfig& config) {
    for (auto [width, height] : {std::pair{32768, 1}, std::pair{1, 32768}}) {
      SCOPED_TRACE(testing::Message() << width << " x " << height);
      HostPicture* receiver = qpxhost::NewHostPicture(host, width, height);
      const size_t from = host.log.size();
      EXPECT_EQ(CallBlur(host, receiver, 1.0), nullptr);
      EXPECT_EQ(CallsOf(host, kSkeleton, from),
                Join({Open(receiver, config), Release(receiver, false)}));
      EXPECT_EQ(Calls(host, from).back(), "return BlurQPX() -> nil");
      EXPECT_EQ(host.yieldCount, 0);
      host.Unlock(receiver);
    }
  });
}

// A host without "newPicture", or one whose "newPicture" gives nil: nil, no yield, the reader
// released.
TEST_F(BlurSequenceTest, NoNewPictureGivesNilWithoutAYield) {
  HostConfig lacking;
  lacking.unavailable = {"newPicture"};
  HostConfig tooLarge;  // new pictures past the host's largest: nil
  tooLarge.newPictureSizeChange = 70000;
  struct Case {
    const char* name;
    HostConfig config;
    Lines made;  // how the attempt shows
  };
  for (const Case& c : {Case{"without newPicture", lacking, {}},
                        Case{"newPicture gives nil", tooLarge, {"newPicture(3, 2, 32) -> nil"}}}) {
    SCOPED_TRACE(c.name);
    ForConsoleAndDesktop(
        [&](Host& host, const HostConfig& config) {
          HostPicture* receiver = qpxhost::NewHostPicture(host, 3, 2);
          const size_t from = host.log.size();
          EXPECT_EQ(CallBlur(host, receiver, 1.0), nullptr);
          EXPECT_EQ(CallsOf(host, kSkeleton, from),
                    Join({Open(receiver, config), c.made, Release(receiver, false)}));
          EXPECT_GE(host.LookupCount("newPicture"), 1);
          EXPECT_EQ(Calls(host, from).back(), "return BlurQPX() -> nil");
          EXPECT_EQ(host.yieldCount, 0);
          host.Unlock(receiver);
        },
        c.config);
  }
}

// A new picture whose writer cannot be opened: its creation reference is dropped all the same,
// and the call gives nil without a yield.
TEST_F(BlurSequenceTest, WriterThatCannotOpenGivesNilWithoutAYield) {
  HostConfig nullData;
  nullData.newPictureFaults.lockReportsNullData = true;
  ForConsoleAndDesktop(
      [](Host& host, const HostConfig& config) {
        HostPicture* receiver = qpxhost::NewHostPicture(host, 3, 2);
        const size_t from = host.log.size();
        EXPECT_EQ(CallBlur(host, receiver, 1.0), nullptr);
        const std::string made = "#2";  // the host's second object: the new picture
        EXPECT_EQ(
            CallsOf(host, kSkeleton, from),
            Join({Open(receiver, config),
                  {"newPicture(3, 2, 32) -> " + made,
                   "REALLockPictureDescription(" + made + ", " + LockType(config) + ") -> true",
                   "unlockPictureDescription(" + made + ")", "REALUnlockObject(" + made + ")"},
                  Release(receiver, false)}));
        EXPECT_EQ(host.yieldCount, 0);
        EXPECT_EQ(host.FindSerial(2), nullptr) << "the new picture outlived the call";
        host.Unlock(receiver);
      },
      nullData);
}

// A radius whose division table fails the size test: the new picture comes back as the host
// made it (every byte still the host's fill), after the final yield only.
TEST_F(BlurSequenceTest, BuffersThatCannotBeHadGiveTheUnblurredPictureAfterTheFinalYield) {
  HostConfig filled;
  filled.newPixelFill = 0x5A;
  ForConsoleAndDesktop(
      [](Host& host, const HostConfig& config) {
        HostPicture* receiver = qpxhost::NewHostPicture(host, 4, 3);
        for (double radius : {1e9, 2097152.0, 2147483647.0}) {
          SCOPED_TRACE(Number(radius));
          const size_t from = host.log.size();
          const int yieldsBefore = host.yieldCount;
          HostObject* result = CallBlur(host, receiver, radius);
          HostObject* made = qpxtest::LastResultOf(host, "newPicture", from);
          ASSERT_NE(made, nullptr);
          EXPECT_EQ(result, made);
          EXPECT_EQ(CallsOf(host, kSkeleton, from), Join({Open(receiver, config),
                                                          {"newPicture(4, 3, 32) -> " + Name(made)},
                                                          Open(made, config),
                                                          {"REALUnlockObject(" + Name(made) + ")"},
                                                          Yields(1),
                                                          Render(made),
                                                          Release(receiver, false)}));
          EXPECT_EQ(host.yieldCount - yieldsBefore, 1);
          ASSERT_NE(result, nullptr);
          EXPECT_EQ(host.RefCount(result), 1);
          EXPECT_EQ(qpxtest::RowsWritten(*dynamic_cast<HostPicture*>(result), 0x5A), 0)
              << "the picture was written";
          host.Unlock(result);
        }
        host.Unlock(receiver);
      },
      filled);
}

}  // namespace
