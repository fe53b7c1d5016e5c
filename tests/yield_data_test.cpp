// Cooperative yielding against clocks the tests set by hand.
#include "yield_data.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <thread>

#include "clock.h"
#include "fresh_process.h"
#include "globals.h"
#include "host.h"
#include "module_host.h"
#include "picture_methods.h"

namespace {

using qpxhost::AppKind;
using qpxhost::Host;

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

int32_t fakeTicks = 0;
int32_t fakeMilliseconds = 0;
int tickReads = 0;
int millisecondReads = 0;

int32_t FakeTicks() {
  ++tickReads;
  return fakeTicks;
}
int32_t FakeMilliseconds() {
  ++millisecondReads;
  return fakeMilliseconds;
}

// A booted host the wrappers resolve against, with the yield clocks under the test's control.
class YieldTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gResolver = &Host::Resolve;
    fakeTicks = fakeMilliseconds = 0;
    tickReads = millisecondReads = 0;
    yieldTickClock = &FakeTicks;
    yieldMillisecondClock = &FakeMilliseconds;
  }
  void TearDown() override {
    yieldTickClock = &ClockTicks;
    yieldMillisecondClock = &ClockMilliseconds;
    EXPECT_TRUE(host.problems().empty());
  }
  Host host;
};

TEST(YieldClocks, ThePlatformClocksAreUsedUnlessReplaced) {
  EXPECT_EQ(yieldTickClock, &ClockTicks);
  EXPECT_EQ(yieldMillisecondClock, &ClockMilliseconds);
}

TEST_F(YieldTest, FirstCallYieldsAtOnceInTicks) {
  fakeTicks = 1000;
  YieldData state{5, 0};
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, 1000);
}

TEST_F(YieldTest, FirstCallYieldsAtOnceInMilliseconds) {
  fakeMilliseconds = 123456;
  YieldData state{-250, 0};
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, 123456);
}

TEST_F(YieldTest, PositiveIntervalWaitsThatManyTicks) {
  YieldData state{5, 1000};
  for (int32_t now = 1000; now < 1005; ++now) {
    fakeTicks = now;
    state.DoYield();
  }
  EXPECT_EQ(host.yieldCount, 0);
  EXPECT_EQ(state.lastYield, 1000);
  fakeTicks = 1005;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, 1005);
}

TEST_F(YieldTest, NegativeIntervalWaitsThatManyMilliseconds) {
  YieldData state{-40, 500};
  fakeMilliseconds = 539;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
  fakeMilliseconds = 540;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, 540);
}

TEST_F(YieldTest, PositiveIntervalReadsOnlyTheTickClock) {
  fakeMilliseconds = 999999;  // would yield if it were read
  YieldData state{3, 0};
  state.DoYield();  // the ticks stand at 0: not due
  EXPECT_EQ(host.yieldCount, 0);
  EXPECT_EQ(millisecondReads, 0);
  EXPECT_EQ(tickReads, 1);
}

TEST_F(YieldTest, NegativeIntervalReadsOnlyTheMillisecondClock) {
  fakeTicks = 999999;  // would yield if it were read
  YieldData state{-3, 0};
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
  EXPECT_EQ(tickReads, 0);
  EXPECT_EQ(millisecondReads, 1);
}

TEST_F(YieldTest, IntervalOneYieldsAtMostOncePerTick) {
  YieldData state{1, 0};
  fakeTicks = 50;
  for (int i = 0; i < 4; ++i) state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  fakeTicks = 51;
  for (int i = 0; i < 4; ++i) state.DoYield();
  EXPECT_EQ(host.yieldCount, 2);
  fakeTicks = 53;
  for (int i = 0; i < 4; ++i) state.DoYield();
  EXPECT_EQ(host.yieldCount, 3);
}

TEST_F(YieldTest, IntervalMinusOneYieldsAtMostOncePerMillisecond) {
  YieldData state{-1, 0};
  fakeMilliseconds = 7000;
  for (int i = 0; i < 4; ++i) state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  fakeMilliseconds = 7001;
  for (int i = 0; i < 4; ++i) state.DoYield();
  EXPECT_EQ(host.yieldCount, 2);
}

// Its negation wraps back to itself, and no elapsed time is below it.
TEST_F(YieldTest, SmallestIntervalYieldsOnEveryCall) {
  YieldData state{kMin, 0};
  for (int i = 0; i < 5; ++i) state.DoYield();  // the clock stands still at 0
  EXPECT_EQ(host.yieldCount, 5);
  fakeMilliseconds = kMin;  // even half the clock's range away
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 6);
  EXPECT_EQ(tickReads, 0);
}

TEST_F(YieldTest, LargestMillisecondIntervalNeedsTheWholePositiveRange) {
  YieldData state{kMin + 1, 0};  // kMax milliseconds
  fakeMilliseconds = kMax - 1;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
  fakeMilliseconds = kMax;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
}

TEST_F(YieldTest, TimeSpentInTheHostDoesNotCount) {
  fakeTicks = 1000;
  host.onYield = [] { fakeTicks += 100; };
  YieldData state{10, 0};
  state.DoYield();
  ASSERT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, 1100);
  fakeTicks = 1109;  // 109 ticks after the clock was first read, 9 after the host returned
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  fakeTicks = 1110;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 2);
  EXPECT_EQ(state.lastYield, 1210);
}

TEST_F(YieldTest, TimeSpentInTheHostDoesNotCountInMilliseconds) {
  fakeMilliseconds = 1000;
  host.onYield = [] { fakeMilliseconds += 70; };
  YieldData state{-20, 0};
  state.DoYield();
  EXPECT_EQ(state.lastYield, 1070);
  fakeMilliseconds = 1089;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  fakeMilliseconds = 1090;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 2);
}

TEST_F(YieldTest, ClockGoingBackwardsCountsAsElapsedTime) {
  YieldData state{5, 1000};
  fakeTicks = 996;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
  fakeTicks = 995;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, 995);
}

TEST_F(YieldTest, ClockWrappingAroundCountsTheShortWay) {
  YieldData state{4, kMax - 1};
  fakeTicks = kMin + 1;  // 3 ticks later
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
  fakeTicks = kMin + 2;  // 4 ticks later
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(state.lastYield, kMin + 2);

  // And backwards across the wrap.
  YieldData back{-3, kMin + 1};
  fakeMilliseconds = kMax;  // 2 milliseconds earlier
  back.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  fakeMilliseconds = kMax - 1;  // 3 milliseconds earlier
  back.DoYield();
  EXPECT_EQ(host.yieldCount, 2);
}

// The absolute value of the most negative difference stays negative in 32 bits.
TEST_F(YieldTest, HalfTheClockRangeAwayReadsAsNoTimeAtAll) {
  YieldData state{1, 0};
  fakeTicks = kMin;
  state.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
  YieldData milliseconds{-1, 5};
  fakeMilliseconds = kMin + 5;
  milliseconds.DoYield();
  EXPECT_EQ(host.yieldCount, 0);
}

TEST_F(YieldTest, SharedStateWorksLikeAnyOther) {
  const YieldData saved = yield;
  yield.interval = 2;
  yield.lastYield = 0;
  fakeTicks = 9;
  yield.DoYield();
  yield.DoYield();
  EXPECT_EQ(host.yieldCount, 1);
  EXPECT_EQ(yield.lastYield, 9);
  yield = saved;
}

void ExpectLastYieldMovesWithoutTheService(Host& host) {
  host.SetUnavailable("REALYieldToRB");
  fakeTicks = 300;
  YieldData state{5, 0};
  state.DoYield();
  EXPECT_EQ(state.lastYield, 300);
  fakeTicks = 304;
  state.DoYield();  // 4 ticks since the missed yield: not due
  EXPECT_EQ(tickReads, 3);
  fakeMilliseconds = 4000;
  YieldData milliseconds{-10, 0};
  milliseconds.DoYield();
  EXPECT_EQ(milliseconds.lastYield, 4000);
  EXPECT_EQ(host.yieldCount, 0);
  EXPECT_GE(host.LookupCount("REALYieldToRB"), 1);
}

TEST_F(YieldTest, MissingYieldServiceStillMovesTheLastYield) {
  EXPECT_IN_FRESH_PROCESS(ExpectLastYieldMovesWithoutTheService(host));
}

// Methods test the interval themselves: with 0 they never call DoYield, which would
// otherwise yield on every call.
FRESH_TEST(YieldInMethods, IntervalZeroNeverYieldsAndOthersFollowTheRule) {
  {
    qpxtest::ModuleHost env(qpxtest::Config(AppKind::Console));
    yieldTickClock = &FakeTicks;
    fakeTicks = 100;
    qpxhost::HostPicture* picture = env.Picture(6, 4);
    REALpicture quiet = BlurQPX(qpxtest::Ref(picture), 2.0, 0);
    ASSERT_NE(quiet, nullptr);
    EXPECT_EQ(env.host.yieldCount, 0);
    // The clock stands still: only the first of the call's 1 + 4 + 4 + 1 chances yields.
    REALpicture once = BlurQPX(qpxtest::Ref(picture), 2.0, 1);
    ASSERT_NE(once, nullptr);
    EXPECT_EQ(env.host.yieldCount, 1);
    REALpicture always = BlurQPX(qpxtest::Ref(picture), 2.0, kMin);
    ASSERT_NE(always, nullptr);
    EXPECT_EQ(env.host.yieldCount, 1 + 10);
    for (REALpicture result : {quiet, once, always}) {
      env.host.Unlock(reinterpret_cast<qpxhost::HostObject*>(result));
    }
    env.host.Unlock(picture);
  }
}

// ScaleQPX and ScaleImageAndMaskQPX share one yield state, which each sets as it starts; a
// nil receiver sets it in ScaleQPX but is turned away by ScaleImageAndMaskQPX before that.
FRESH_TEST(YieldInMethods, NilReceiverLeavesTheSharedStateToScaleImageAndMask) {
  qpxtest::ModuleHost env(qpxtest::Config(AppKind::Console));
  yield = YieldData{7, 1234};
  EXPECT_EQ(PictureResizeImageAndMaskQPX(nullptr, 5, 5, 0, 99), nullptr);
  EXPECT_EQ(yield.interval, 7);
  EXPECT_EQ(yield.lastYield, 1234);
  // A nil receiver reads as 0 x 0, so this ScaleQPX call ends at its same-size test.
  EXPECT_EQ(PictureResizeQPX(nullptr, 0, 0, 0, 99), nullptr);
  EXPECT_EQ(yield.interval, 99);
  EXPECT_EQ(yield.lastYield, 0);
}

TEST(YieldClocks, MillisecondsAreTruncatedAndWrapAround) {
  EXPECT_EQ(MillisecondsFromNanoseconds(0), 0);
  EXPECT_EQ(MillisecondsFromNanoseconds(999999), 0);
  EXPECT_EQ(MillisecondsFromNanoseconds(1000000), 1);
  EXPECT_EQ(MillisecondsFromNanoseconds(1999999), 1);
  EXPECT_EQ(MillisecondsFromNanoseconds(uint64_t{2147483647} * 1000000), kMax);
  EXPECT_EQ(MillisecondsFromNanoseconds(uint64_t{2147483648} * 1000000), kMin);
  EXPECT_EQ(MillisecondsFromNanoseconds(uint64_t{4294967301} * 1000000 + 999999), 5);
}

// The elapsed reading of two clock values, as DoYield takes it.
int32_t Elapsed(int32_t from, int32_t to) {
  return static_cast<int32_t>(static_cast<uint32_t>(to) - static_cast<uint32_t>(from));
}

TEST(YieldClocks, PlatformClocksRunAtTheirRates) {
  const int32_t ticks = ClockTicks(), milliseconds = ClockMilliseconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  const int32_t tickSpan = Elapsed(ticks, ClockTicks());
  const int32_t millisecondSpan = Elapsed(milliseconds, ClockMilliseconds());
  EXPECT_GE(millisecondSpan, 119);
  EXPECT_LT(millisecondSpan, 5000);
  EXPECT_GE(tickSpan, 6);  // 7.2 ticks, give or take the tick boundaries
  EXPECT_LT(tickSpan, 300);
}

TEST(YieldClocks, PlatformClocksNeverGoBackwards) {
  int32_t ticks = ClockTicks(), milliseconds = ClockMilliseconds();
  for (int i = 0; i < 10000; ++i) {
    const int32_t nextTicks = ClockTicks(), nextMilliseconds = ClockMilliseconds();
    ASSERT_GE(Elapsed(ticks, nextTicks), 0);
    ASSERT_GE(Elapsed(milliseconds, nextMilliseconds), 0);
    ticks = nextTicks;
    milliseconds = nextMilliseconds;
  }
}

}  // namespace
