// Checking one call of a picture method against what a reference says it must give: the
// result's identity, references and every pixel byte, the receiver left as it was, and a host
// holding nothing once the test releases what it made.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host.h"
#include "host_fixture.h"
#include "host_picture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace qpxtest {

struct ExpectedPicture {
  enum class Kind {
    Nil,         // nil
    Receiver,    // the receiver itself, with one reference added
    NewPicture,  // a new picture, carrying one reference
  };
  // NewPicture: what is asked of its mask.
  enum class MaskCheck {
    Unchecked,
    Absent,   // it has none
    Present,  // it has one, holding `maskPixels`
  };
  Kind kind = Kind::Nil;
  RawPicture pixels;      // NewPicture: every byte of every row, in the result's layout
  bool hasAlpha = false;  // NewPicture: whether it has an alpha channel
  MaskCheck maskCheck = MaskCheck::Unchecked;
  RawPicture maskPixels;  // Present: every byte of the mask's rows, in its layout

  static ExpectedPicture Nil() { return {}; }
  static ExpectedPicture Receiver() { return {Kind::Receiver, {}, false, {}, {}}; }
  static ExpectedPicture New(RawPicture pixels, bool hasAlpha = false) {
    return {Kind::NewPicture, std::move(pixels), hasAlpha, {}, {}};
  }
  // This new picture, which must have no mask.
  ExpectedPicture WithoutMask() const {
    ExpectedPicture expected = *this;
    expected.maskCheck = MaskCheck::Absent;
    return expected;
  }
  // This new picture, whose mask (carrying only the picture's reference) must hold `mask`.
  ExpectedPicture WithMask(RawPicture mask) const {
    ExpectedPicture expected = *this;
    expected.maskCheck = MaskCheck::Present;
    expected.maskPixels = std::move(mask);
    return expected;
  }
};

// Calls `method` on `receiver` (which may be nil) with `arguments` and checks the result
// against `expected`, and that the receiver and its mask (the same object, references and
// bytes) are as they were. Takes over the caller's reference to `receiver`, releases it and the
// result, and expects the host to hold no objects afterwards and to have seen no misuse.
void CheckPictureCall(qpxhost::Host& host, qpxhost::HostPicture* receiver,
                      const std::string& method, std::vector<qpxhost::Value> arguments,
                      const ExpectedPicture& expected);

// What a method call must give, and how many times it must yield when every yield check hands
// control to the host (a yield argument of 0 never yields).
struct ExpectedResult {
  ExpectedPicture picture;
  int yields = 0;
};

// CheckPictureCall, and the number of times the call yielded.
inline void CheckPictureCallAndYields(qpxhost::Host& host, qpxhost::HostPicture* receiver,
                                      const std::string& method,
                                      std::vector<qpxhost::Value> arguments,
                                      const ExpectedPicture& expected, int yields) {
  const int before = host.yieldCount;
  CheckPictureCall(host, receiver, method, std::move(arguments), expected);
  EXPECT_EQ(host.yieldCount - before, yields) << "yields";
}

// A test run once in each host configuration, with a fresh copy of the module loaded.
class HostVariantTest : public HostTest, public ::testing::WithParamInterface<HostVariant> {
 protected:
  qpxhost::Host& BootVariant() { return Boot(GetParam().config); }
  int32_t NewFormat() const { return NewPictureFormat(GetParam().config); }
};

// Named tests that run in several hosts one after another.
class MultiHostTest : public HostTest {
 protected:
  // Boots `config` afresh, checking the previous host first.
  qpxhost::Host& Reboot(const qpxhost::HostConfig& config) {
    HostTest::TearDown();
    return Boot(config);
  }
  // Runs body(host, config) once in each host of EveryKindOfHost, booted afresh.
  template <typename Body>
  void ForEachKindOfHost(Body body) {
    for (const qpxhost::HostConfig& config : EveryKindOfHost()) {
      SCOPED_TRACE(HostName(config));
      body(Reboot(config), config);
    }
  }
};

// Test names for the variants.
struct HostVariantName {
  std::string operator()(const ::testing::TestParamInfo<HostVariant>& info) const {
    return info.param.name;
  }
};

// The names that every test of a picture method reaches for: the host's objects and settings,
// the hosts to boot, and the checks on a call's result. A test file takes them all with
// `using namespace qpxtest::method_test_names;` in its unnamed namespace.
namespace method_test_names {
using qpxhost::AppKind;
using qpxhost::Host;
using qpxhost::HostConfig;
using qpxhost::HostObject;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxhost::RGBA;
using qpxtest::AppHost;
using qpxtest::CheckPictureCall;
using qpxtest::DesktopHost;
using qpxtest::ExpectedPicture;
using qpxtest::HostName;
using qpxtest::NoiseRecipe;
using qpxtest::RawPicture;
using qpxtest::ReadRaw;
using qpxtest::SamePixels;

// A yield argument that makes every yield check yield: its negation stays negative.
constexpr int32_t kYieldEveryCall = INT32_MIN;
}  // namespace method_test_names

}  // namespace qpxtest
