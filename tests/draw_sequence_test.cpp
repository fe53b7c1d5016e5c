// DrawPictureFQPX's conversation with the host, call by call. A nil receiver or picture raises
// "NilObjectException" (or "RuntimeException" where the host has no such class) through the
// exception sequence: the message built and marked ASCII, the exception made, its "Message"
// set, raised, and both released. Otherwise the picture's mask is asked for (without making
// one), the editors open in the order mask (to drop the host's cache on release), destination
// (the same), picture; one yield before the rows, one per row and one at the end; then the
// editors are cleared in the order picture, destination, mask, and the mask's reference is
// dropped. An editor that cannot open ends the call with false, before any yield, and the
// editors already open are released in the same order. Every call passes INT32_MIN as its yield
// argument, so each yield check shows as one "REALYieldToRB".
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "call_sequence.h"
#include "differential.h"
#include "host_fixture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace {

using namespace qpxtest::method_test_names;
using namespace qpxtest::skeleton;

const Lines kSkeleton = {"REALGetPictureMask",
                         "REALLockPictureDescription",
                         "unlockPictureDescription",
                         "REALPictureClearCache",
                         "REALLockObject",
                         "REALUnlockObject",
                         "REALYieldToRB"};

// An editor that cannot open `object`: its description locks with null data and is unlocked.
Lines Refused(const HostObject* object, const HostConfig& config) {
  return {"REALLockPictureDescription(" + Name(object) + ", " + LockType(config) + ") -> true",
          "unlockPictureDescription(" + Name(object) + ")"};
}

qpxhost::Value PictureValue(HostObject* picture) {
  return picture;
}

bool CallDraw(Host& host, HostObject* destination, HostObject* picture) {
  return host
      .Call("DrawPictureFQPX", destination,
            {PictureValue(picture), 0.5, 0.25, 1.0, kYieldEveryCall})
      .boolean;
}

std::string CallLine(const HostObject* destination, const HostObject* picture) {
  return "call DrawPictureFQPX(" + Name(destination) + ", " + Name(picture) + ", 0.5, 0.25, 1, " +
         std::to_string(kYieldEveryCall) + ")";
}

PictureOptions Faulty() {
  PictureOptions options;
  options.faults.lockReportsNullData = true;
  return options;
}

class DrawSequenceTest : public qpxtest::ConsoleAndDesktopTest {};

// The lines of one exception raised with `message`, its string and exception being the host's
// objects `string` and `exception` (the next two it makes); `fallback` when the host lacks
// "NilObjectException".
Lines Raised(const std::string& message, uint64_t string, uint64_t exception, bool fallback) {
  const std::string s = qpxhost::ObjectName(string), e = qpxhost::ObjectName(exception);
  Lines lines = {
      "REALBuildString(\"" + message + "\", " + std::to_string(message.size()) + ") -> " + s,
      "REALSetStringEncoding(" + s + ", 0x0600)"};
  if (fallback) {
    lines.push_back("PluginNewInstance(\"NilObjectException\") -> nil");
    lines.push_back("PluginNewInstance(\"RuntimeException\") -> " + e);
  } else {
    lines.push_back("PluginNewInstance(\"NilObjectException\") -> " + e);
  }
  lines.insert(lines.end(), {"REALSetPropValueString(" + e + ", " + s + ", \"Message\")",
                             "RuntimeRaiseException(" + e + ")", "REALUnlockObject(" + e + ")",
                             "REALUnlockString(" + s + ")"});
  return lines;
}

// A nil receiver raises "source is nil", even when the picture is nil too; a nil picture raises
// "picture is nil" before its mask is asked for. Nothing else is asked of the host, and the
// exception and its message are gone once the call returns.
TEST_F(DrawSequenceTest, NilArgumentsRaiseTheExceptionSequenceAndNothingElse) {
  for (bool fallback : {false, true}) {
    HostConfig base;
    if (fallback) base.unavailable = {"NilObjectException"};
    SCOPED_TRACE(fallback ? "without NilObjectException" : "with NilObjectException");
    ForConsoleAndDesktop(
        [&](Host& host, const HostConfig&) {
          HostPicture* destination = qpxhost::NewHostPicture(host, 4, 3);  // #1
          HostPicture* picture = qpxhost::NewHostPicture(host, 2, 2);      // #2
          picture->mask = qpxhost::NewHostMask(host, *picture);            // #3
          struct Case {
            HostObject* destination;
            HostObject* picture;
            const char* message;
          };
          uint64_t next = 4;  // the host's next serial number
          for (const Case& c :
               {Case{nullptr, picture, "source is nil"}, Case{nullptr, nullptr, "source is nil"},
                Case{destination, nullptr, "picture is nil"}}) {
            SCOPED_TRACE(CallLine(c.destination, c.picture));
            const size_t from = host.log.size();
            const size_t raisedBefore = host.raisedExceptions.size();
            EXPECT_FALSE(CallDraw(host, c.destination, c.picture));
            const Lines expected = Join({{CallLine(c.destination, c.picture)},
                                         Raised(c.message, next, next + 1, fallback),
                                         {"return DrawPictureFQPX() -> False"}});
            EXPECT_EQ(Calls(host, from), expected);
            next += 2;
            ASSERT_EQ(host.raisedExceptions.size(), raisedBefore + 1);
            const qpxhost::RaisedException& raised = host.raisedExceptions.back();
            EXPECT_EQ(raised.className, fallback ? "RuntimeException" : "NilObjectException");
            EXPECT_EQ(raised.message, c.message);
            EXPECT_EQ(raised.messageEncoding, 0x0600u);
          }
          EXPECT_EQ(host.LookupCount("REALGetPictureMask"), 0);
          EXPECT_EQ(host.yieldCount, 0);
          host.Unlock(destination);
          host.Unlock(picture);
        },
        base);
  }
}

// The whole skeleton of a drawing, with and without a mask, for several heights.
TEST_F(DrawSequenceTest, EditorsOpenMaskDestinationPictureAndCloseInTheOtherOrder) {
  ForConsoleAndDesktop([](Host& host, const HostConfig& config) {
    for (bool masked : {true, false}) {
      for (int32_t height : {1, 4}) {
        SCOPED_TRACE(testing::Message() << (masked ? "mask" : "no mask") << ", height " << height);
        HostPicture* destination = qpxhost::NewHostPicture(host, 5, height);
        HostPicture* picture = qpxhost::NewHostPicture(host, 2, 3);
        HostPicture* mask = nullptr;
        if (masked) mask = picture->mask = qpxhost::NewHostMask(host, *picture);
        const size_t from = host.log.size();
        const int yieldsBefore = host.yieldCount;
        EXPECT_TRUE(CallDraw(host, destination, picture));
        Lines expected;
        if (masked) {
          expected = Join({{"REALGetPictureMask(" + Name(picture) + ", 0) -> " + Name(mask)},
                           Open(mask, config),
                           Open(destination, config),
                           Open(picture, config),
                           Yields(1 + height + 1),
                           Release(picture, false),
                           Release(destination, true),
                           Release(mask, true),
                           {"REALUnlockObject(" + Name(mask) + ")"}});
        } else {
          expected = Join({{"REALGetPictureMask(" + Name(picture) + ", 0) -> nil"},
                           Open(destination, config),
                           Open(picture, config),
                           Yields(1 + height + 1),
                           Release(picture, false),
                           Release(destination, true)});
        }
        EXPECT_EQ(CallsOf(host, kSkeleton, from), expected);
        EXPECT_EQ(host.yieldCount - yieldsBefore, height + 2);
        const Lines calls = Calls(host, from);
        EXPECT_EQ(calls.front(), CallLine(destination, picture));
        EXPECT_EQ(calls.back(), "return DrawPictureFQPX() -> True");
        EXPECT_EQ(host.RefCount(destination), 1);
        EXPECT_EQ(host.RefCount(picture), 1);
        if (mask != nullptr) {
          EXPECT_EQ(host.RefCount(mask), 1);  // the picture's own
        }
        EXPECT_EQ(destination->clearCacheCount, 1);
        EXPECT_EQ(picture->clearCacheCount, 0);
        EXPECT_THAT(host.raisedExceptions, ::testing::IsEmpty());
        host.Unlock(destination);
        host.Unlock(picture);
      }
    }
  });
}

// Without the mask service the picture draws unmasked: no mask editor, nothing to drop.
TEST_F(DrawSequenceTest, WithoutTheMaskServiceOnlyTwoEditorsOpen) {
  HostConfig lacking;
  lacking.unavailable = {"REALGetPictureMask"};
  ForConsoleAndDesktop(
      [](Host& host, const HostConfig& config) {
        HostPicture* destination = qpxhost::NewHostPicture(host, 3, 2);
        HostPicture* picture = qpxhost::NewHostPicture(host, 2, 2);
        picture->mask = qpxhost::NewHostMask(host, *picture);
        const size_t from = host.log.size();
        EXPECT_TRUE(CallDraw(host, destination, picture));
        EXPECT_EQ(CallsOf(host, kSkeleton, from),
                  Join({Open(destination, config), Open(picture, config), Yields(2 + 2),
                        Release(picture, false), Release(destination, true)}));
        host.Unlock(destination);
        host.Unlock(picture);
      },
      lacking);
}

// Each editor that cannot open ends the call with false before any yield; the destination keeps
// its bytes; the editors opened before it are released picture, destination, mask, and the
// mask's reference is dropped last.
TEST_F(DrawSequenceTest, EditorThatCannotOpenGivesFalseWithTheReleaseOrderKept) {
  enum class Failing { Mask, Destination, Picture };
  struct Case {
    const char* name;
    Failing failing;
    bool masked;
  };
  const std::vector<Case> cases = {{"mask", Failing::Mask, true},
                                   {"destination, with mask", Failing::Destination, true},
                                   {"destination", Failing::Destination, false},
                                   {"picture, with mask", Failing::Picture, true},
                                   {"picture", Failing::Picture, false}};
  ForConsoleAndDesktop([&](Host& host, const HostConfig& config) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      auto options = [&](Failing which) {
        return c.failing == which ? Faulty() : PictureOptions{};
      };
      HostPicture* destination = qpxhost::NewHostPicture(host, 4, 3, options(Failing::Destination));
      destination->FillPixels(0x33);
      const RawPicture before = ReadRaw(*destination);
      HostPicture* picture = qpxhost::NewHostPicture(host, 2, 2, options(Failing::Picture));
      HostPicture* mask = nullptr;
      if (c.masked) {
        mask = qpxhost::NewHostPicture(host, 2, 2, options(Failing::Mask));
        picture->mask = mask;
      }
      const size_t from = host.log.size();
      EXPECT_FALSE(CallDraw(host, destination, picture));

      Lines expected = {"REALGetPictureMask(" + Name(picture) + ", 0) -> " + Name(mask)};
      auto add = [&](const Lines& lines) { expected = Join({expected, lines}); };
      // Opening, up to the editor that fails.
      if (mask != nullptr)
        add(c.failing == Failing::Mask ? Refused(mask, config) : Open(mask, config));
      if (c.failing != Failing::Mask) {
        add(c.failing == Failing::Destination ? Refused(destination, config)
                                              : Open(destination, config));
      }
      if (c.failing == Failing::Picture) add(Refused(picture, config));
      // Releasing what opened: picture (never open here), destination, mask; then the mask.
      if (c.failing == Failing::Picture) add(Release(destination, true));
      if (mask != nullptr && c.failing != Failing::Mask) add(Release(mask, true));
      if (mask != nullptr) add({"REALUnlockObject(" + Name(mask) + ")"});

      EXPECT_EQ(CallsOf(host, kSkeleton, from), expected);
      EXPECT_EQ(Calls(host, from).back(), "return DrawPictureFQPX() -> False");
      EXPECT_EQ(host.yieldCount, 0);
      EXPECT_TRUE(qpxtest::SamePixels(before, ReadRaw(*destination)));
      EXPECT_EQ(host.RefCount(destination), 1);
      EXPECT_EQ(host.RefCount(picture), 1);
      if (mask != nullptr) {
        EXPECT_EQ(host.RefCount(mask), 1);
      }
      host.Unlock(destination);
      host.Unlock(picture);
    }
  });
}

}  // namespace
