// The five methods against a faulty host: description locks that hand out the other picture
// type or no data, bitmap contexts with alpha info 0 or 7 or with byte-order bits above the
// layout, and new pictures of another size than asked. Each method must answer with its nil or
// false (or, where the fault is harmless, with the very bytes a sound host gives) and never touch
// a byte outside the pictures it was given: every picture carries guard bytes, and the host
// reports any that changed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "differential.h"
#include "host_fixture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxhost::PictureFaults;
using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

// One call of a method as a host program makes it. DrawPictureFQPX draws a sound picture of
// the test's into the receiver; the others make a new picture from the receiver.
struct MethodCase {
  std::string name;
  std::vector<qpxhost::Value> arguments;  // after `pic` for DrawPictureFQPX
  std::string description;
  bool draws = false;
};

std::vector<MethodCase> EveryMethod() {
  return {
      {"ScaleQPX", {int32_t{5}, int32_t{3}, false, kYieldEveryCall}, "box"},
      {"ScaleQPX", {int32_t{19}, int32_t{15}, true, kYieldEveryCall}, "enlarged smoothly"},
      {"ScaleImageAndMaskQPX", {int32_t{5}, int32_t{3}, false, kYieldEveryCall}, "box"},
      {"ScaleImageAndMaskQPX", {int32_t{19}, int32_t{15}, true, kYieldEveryCall}, "smoothly"},
      {"ScalingQPX", {int32_t{3}, int32_t{5}, int32_t{3}, kYieldEveryCall}, "Lanczos 3"},
      {"ScalingQPX", {int32_t{5}, int32_t{19}, int32_t{15}, kYieldEveryCall}, "Mitchell"},
      {"BlurQPX", {2.0, kYieldEveryCall}, "r 2"},
      {"DrawPictureFQPX", {1.25, -0.5, 0.75, kYieldEveryCall}, "masked", true},
  };
}

// What a call gave: whether it answered (a picture, or True), the result's bytes and its mask's,
// and the receiver's bytes before and after.
struct Outcome {
  bool answered = false;
  std::optional<RawPicture> result;
  std::optional<RawPicture> resultMask;
  RawPicture receiverBefore;
  RawPicture receiverAfter;
};

// Calls `method` on a 9 x 7 receiver with `receiverFaults` (with a mask for
// ScaleImageAndMaskQPX, unless it has an alpha channel) and returns what it gave, having
// released everything the test made.
Outcome CallMethod(Host& host, const MethodCase& method, const PictureFaults& receiverFaults,
                   bool receiverHasAlpha) {
  qpxtest::PictureRecipe recipe = NoiseRecipe(9, 7, qpxtest::SeedOf(method.description));
  recipe.hasAlpha = receiverHasAlpha;
  HostPicture* receiver = qpxtest::MakePicture(host, recipe);
  receiver->faults = receiverFaults;
  if (method.name == "ScaleImageAndMaskQPX" && !receiverHasAlpha) {
    receiver->mask = qpxhost::NewHostMask(host, *receiver);
    qpxtest::WriteRaw(*receiver->mask, ReadRaw(*receiver));
  }
  std::vector<qpxhost::Value> arguments = method.arguments;
  HostPicture* drawn = nullptr;
  if (method.draws) {
    drawn = qpxtest::MakePicture(host, NoiseRecipe(4, 3, 5));
    drawn->mask = qpxhost::NewHostMask(host, *drawn);
    HostPicture* noise = qpxtest::MakePicture(host, NoiseRecipe(4, 3, 6));
    qpxtest::WriteRaw(*drawn->mask, ReadRaw(*noise));
    host.Unlock(noise);
    arguments.insert(arguments.begin(), static_cast<HostObject*>(drawn));
  }

  Outcome outcome;
  outcome.receiverBefore = ReadRaw(*receiver);
  const qpxhost::CallResult called = host.Call(method.name, receiver, arguments);
  outcome.receiverAfter = ReadRaw(*receiver);
  if (method.draws) {
    outcome.answered = called.boolean;
  } else if (called.picture != nullptr) {
    outcome.answered = true;
    auto* result = dynamic_cast<HostPicture*>(called.picture);
    EXPECT_NE(result, receiver);
    EXPECT_EQ(host.RefCount(result), 1);
    outcome.result = ReadRaw(*result);
    if (result->mask != nullptr) outcome.resultMask = ReadRaw(*result->mask);
    EXPECT_TRUE(result->GuardBytesIntact());
    host.Unlock(result);
  }
  EXPECT_TRUE(receiver->GuardBytesIntact());
  host.Unlock(receiver);
  if (drawn != nullptr) host.Unlock(drawn);
  return outcome;
}

class FaultyHost : public qpxtest::HostTest {
 protected:
  // Boots `config` with guard bytes on every picture, checking the previous host first.
  Host& Reboot(HostConfig config) {
    HostTest::TearDown();
    config.guardBytes = true;
    return Boot(config);
  }

  // The method in a sound host of the same kind.
  Outcome Sound(HostConfig config, const MethodCase& method, bool receiverHasAlpha) {
    config.newPictureFaults = {};
    config.newPictureSizeChange = 0;
    return CallMethod(Reboot(config), method, {}, receiverHasAlpha);
  }

  // The method in `config` with the receiver's faults. `destroyedLocked`: the host sees pictures
  // destroyed with their description locked, which it then must have and nothing else (the
  // editor leaves a description locked when it refuses a bitmap context's alpha info; the host
  // program would keep such a picture locked for good); otherwise it sees no misuse at all.
  Outcome Faulty(const HostConfig& config, const MethodCase& method,
                 const PictureFaults& receiverFaults, bool receiverHasAlpha, bool destroyedLocked) {
    Host& host = Reboot(config);
    const Outcome outcome = CallMethod(host, method, receiverFaults, receiverHasAlpha);
    const std::vector<std::string> problems = host.TakeProblems();
    if (destroyedLocked) {
      EXPECT_THAT(problems,
                  Each(MatchesRegex("picture #[0-9]+ destroyed with its description locked")));
      EXPECT_THAT(problems, Not(IsEmpty()));
    } else {
      EXPECT_THAT(problems, IsEmpty());
    }
    return outcome;
  }
};

std::string Trace(const HostConfig& config, const MethodCase& method, bool alpha) {
  return HostName(config) + " " + method.name + " " + method.description +
         (alpha ? " with alpha" : "");
}

void ExpectRefused(const Outcome& outcome) {
  EXPECT_FALSE(outcome.answered);
  EXPECT_FALSE(outcome.result.has_value());
  EXPECT_EQ(outcome.receiverAfter.bytes, outcome.receiverBefore.bytes) << "receiver changed";
}

void ExpectSame(const Outcome& outcome, const Outcome& sound) {
  EXPECT_EQ(outcome.answered, sound.answered);
  ASSERT_EQ(outcome.result.has_value(), sound.result.has_value());
  if (outcome.result) {
    EXPECT_EQ(outcome.result->bytes, sound.result->bytes);
  }
  ASSERT_EQ(outcome.resultMask.has_value(), sound.resultMask.has_value());
  if (outcome.resultMask) {
    EXPECT_EQ(outcome.resultMask->bytes, sound.resultMask->bytes);
  }
  EXPECT_EQ(outcome.receiverAfter.bytes, sound.receiverAfter.bytes);
}

std::vector<HostConfig> EveryKind() {
  return {DesktopHost(5, 8), DesktopHost(2, 4), AppHost(AppKind::Console), AppHost(AppKind::Web)};
}

// A description lock that hands out the other picture type, or no data: the receiver does not
// open, so every method gives nil, or false with the receiver as it was.
TEST_F(FaultyHost, AReceiverWhoseLockHandsOutTheWrongThingDoesNotOpen) {
  for (const HostConfig& config : EveryKind()) {
    for (const MethodCase& method : EveryMethod()) {
      for (bool nullData : {false, true}) {
        SCOPED_TRACE(Trace(config, method, false) + (nullData ? ": null data" : ": other type"));
        PictureFaults faults;
        faults.lockReportsOtherType = !nullData;
        faults.lockReportsNullData = nullData;
        ExpectRefused(Faulty(config, method, faults, false, false));
      }
    }
  }
}

// Alpha info 0 or 7 names no layout: the receiver does not open (its description stays locked,
// as the editor has always left it), and every method gives nil or false.
TEST_F(FaultyHost, AReceiverWhoseContextNamesNoLayoutDoesNotOpen) {
  for (const HostConfig& config : {DesktopHost(5, 8), DesktopHost(2, 4)}) {
    for (const MethodCase& method : EveryMethod()) {
      for (uint32_t alphaInfo : {0u, 7u, 0x2007u}) {
        SCOPED_TRACE(Trace(config, method, false) + ": alpha info " + std::to_string(alphaInfo));
        PictureFaults faults;
        faults.alphaInfo = alphaInfo;
        ExpectRefused(Faulty(config, method, faults, false, true));
      }
    }
  }
}

// Byte-order bits above the low three leave the layout as it is: every method gives the bytes a
// sound host gives.
TEST_F(FaultyHost, ByteOrderBitsAboveTheLayoutChangeNothing) {
  for (const HostConfig& config : {DesktopHost(5, 8), DesktopHost(2, 4), DesktopHost(3, 0)}) {
    for (const MethodCase& method : EveryMethod()) {
      for (bool alpha : {false, true}) {
        for (uint32_t bits : {0x2000u, 0x4000u, 0xFFFFFFF8u}) {
          SCOPED_TRACE(Trace(config, method, alpha) + ": extra bits " + std::to_string(bits));
          HostConfig faulty = config;
          faulty.newPictureFaults.alphaInfoExtraBits = bits;
          PictureFaults faults;
          faults.alphaInfoExtraBits = bits;
          ExpectSame(Faulty(faulty, method, faults, alpha, false), Sound(config, method, alpha));
        }
      }
    }
  }
}

// New pictures whose lock hands out the wrong thing, or whose context names no layout: no method
// that makes a picture can fill one, so each gives nil; DrawPictureFQPX makes none and draws as in
// a sound host.
TEST_F(FaultyHost, NewPicturesThatDoNotOpenGiveNil) {
  for (const HostConfig& config : EveryKind()) {
    for (int fault = 0; fault < 4; ++fault) {
      const bool desktop = config.app == AppKind::Desktop;
      if (fault >= 2 && !desktop) continue;  // alpha info is the bitmap context's
      HostConfig faulty = config;
      faulty.newPictureFaults.lockReportsOtherType = fault == 0;
      faulty.newPictureFaults.lockReportsNullData = fault == 1;
      if (fault >= 2) faulty.newPictureFaults.alphaInfo = fault == 2 ? 0u : 7u;
      for (const MethodCase& method : EveryMethod()) {
        for (bool alpha : {false, true}) {
          SCOPED_TRACE(Trace(config, method, alpha) + ": fault " + std::to_string(fault));
          const Outcome outcome = Faulty(faulty, method, {}, alpha, fault >= 2 && !method.draws);
          if (method.draws) {
            ExpectSame(outcome, Sound(config, method, alpha));
          } else {
            ExpectRefused(outcome);
          }
        }
      }
    }
  }
}

// A new picture of another size than asked, by "newPicture" or by the picture constructor: the
// writer refuses it, so the method gives nil rather than a picture of the wrong size or a write
// past its rows.
TEST_F(FaultyHost, NewPicturesOfAnotherSizeGiveNil) {
  for (const HostConfig& config : EveryKind()) {
    for (int32_t change : {1, -1, 40}) {
      HostConfig faulty = config;
      faulty.newPictureSizeChange = change;
      for (const MethodCase& method : EveryMethod()) {
        for (bool alpha : {false, true}) {
          SCOPED_TRACE(Trace(config, method, alpha) + ": size change " + std::to_string(change));
          const Outcome outcome = Faulty(faulty, method, {}, alpha, false);
          if (method.draws) {
            ExpectSame(outcome, Sound(config, method, alpha));
          } else {
            ExpectRefused(outcome);
          }
        }
      }
    }
  }
}

}  // namespace
