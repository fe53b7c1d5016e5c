// The host's call log and its strictness, service by service: what each call records, how
// objects are named, and what the host reports as misuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host.h"
#include "host_fixture.h"
#include "host_picture.h"
#include "picture_services.h"

namespace {

using qpxhost::AppKind;
using qpxhost::Host;
using qpxhost::HostCall;
using qpxhost::HostConfig;
using qpxhost::HostPicture;
using qpxhost::NewHostPicture;
using qpxtest::HostTest;
using qpxtest::Ref;
using qpxtest::Service;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

REALobject Obj(qpxhost::HostObject* object) {
  return reinterpret_cast<REALobject>(object);
}

HostConfig Desktop(double version = 2013.03) {
  HostConfig config;
  config.app = AppKind::Desktop;
  config.version = version;
  return config;
}

TEST_F(HostTest, LogRecordsLookupsAndCallsInOrder) {
  auto& host = Boot(Desktop(), false);
  HostPicture* picture = NewHostPicture(host, 4, 3);
  auto lock = Service<REALLockObjectFn>("REALLockObject");
  auto unlock = Service<REALUnlockObjectFn>("REALUnlockObject");
  auto width = Service<REALGetPropValueInt32Fn>("REALGetPropValueInt");
  EXPECT_EQ(Host::Resolve("noSuchService"), nullptr);
  lock(Obj(picture));
  int32_t value = 0;
  EXPECT_TRUE(width(Obj(picture), "Width", &value));
  EXPECT_FALSE(width(Obj(picture), "Depth", &value));
  unlock(Obj(picture));
  unlock(Obj(picture));

  const auto& calls = host.log.calls();
  ASSERT_EQ(calls.size(), 9u) << host.log.Print();
  EXPECT_EQ(calls[0].kind, HostCall::Kind::Lookup);
  EXPECT_EQ(calls[0].ToString(), "lookup REALLockObject -> found");
  EXPECT_EQ(calls[3].ToString(), "lookup noSuchService -> missing");
  EXPECT_EQ(calls[4].kind, HostCall::Kind::Service);
  EXPECT_EQ(calls[4].objects, std::vector<uint64_t>{1});
  EXPECT_THAT(host.log.Lines(),
              ElementsAre("REALLockObject(#1)", "REALGetPropValueInt(#1, \"Width\") -> 4",
                          "REALGetPropValueInt(#1, \"Depth\") -> false", "REALUnlockObject(#1)",
                          "REALUnlockObject(#1)"));
  EXPECT_THAT(host.log.Print(4), ::testing::StartsWith("4: REALLockObject(#1)\n"));
}

TEST_F(HostTest, LogNamesDestroyedAndForeignObjects) {
  auto& host = Boot(Desktop(), false);
  HostPicture* picture = NewHostPicture(host, 2, 2);
  const uint64_t serial = picture->serial();
  auto unlock = Service<REALUnlockObjectFn>("REALUnlockObject");
  unlock(Obj(picture));  // destroys it
  unlock(Obj(picture));  // released twice
  int foreign = 0;
  unlock(reinterpret_cast<REALobject>(&foreign));
  const std::vector<std::string> lines = host.log.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "REALUnlockObject(#" + std::to_string(serial) + ")");
  EXPECT_EQ(lines[1], "REALUnlockObject(#" + std::to_string(serial) + " (destroyed))");
  EXPECT_THAT(lines[2], ::testing::MatchesRegex("REALUnlockObject\\(0x[0-9a-f]+\\)"));
  EXPECT_THAT(host.TakeProblems(), ElementsAre("REALUnlockObject: object #1 was already destroyed",
                                               "REALUnlockObject: not a live host object"));
}

TEST_F(HostTest, LogKeepsResultsAndLoadedMethods) {
  auto& host = Boot(Desktop(), false);
  auto newPicture = Service<REALNewPictureFn>("newPicture");
  auto graphicsOf = Service<REALGetPictureGraphicsFn>("pluginPictureGraphicsGetter");
  auto load = Service<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  auto unlock = Service<REALUnlockObjectFn>("REALUnlockObject");
  REALpicture made = newPicture(3, 2, 32);
  REALgraphics graphics = graphicsOf(made);
  auto draw = reinterpret_cast<void (*)(REALgraphics, REALpicture, int32_t, int32_t, int32_t,
                                        int32_t, int32_t, int32_t, int32_t, int32_t)>(
      load(graphics,
           "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as "
           "Integer, sx as Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer "
           "= -10000)"));
  ASSERT_NE(draw, nullptr);
  draw(graphics, made, 0, 0, 3, 2, 0, 0, 3, 2);
  EXPECT_EQ(load(graphics, "Nothing"), nullptr);
  unlock(graphics);
  unlock(reinterpret_cast<REALobject>(made));
  const std::vector<std::string> lines = host.log.Lines();
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[0], "newPicture(3, 2, 32) -> #1");
  EXPECT_EQ(lines[1], "pluginPictureGraphicsGetter(#1) -> #2");
  EXPECT_THAT(lines[2], ::testing::StartsWith("REALLoadObjectMethod(#2, \"DrawPicture(Image"));
  EXPECT_THAT(lines[2], ::testing::EndsWith(" -> true"));
  EXPECT_EQ(lines[3], "Graphics.DrawPicture(#2, #1, 0, 0, 3, 2, 0, 0, 3, 2)");
  EXPECT_EQ(lines[4], "REALLoadObjectMethod(#2, \"Nothing\") -> false");
  for (const HostCall& call : host.log.calls()) {
    if (call.name == "Graphics.DrawPicture") {
      EXPECT_EQ(call.kind, HostCall::Kind::Method);
    }
    if (call.name == "newPicture" && call.kind == HostCall::Kind::Service) {
      EXPECT_EQ(call.resultObject, 1u);
    }
    if (call.name == "pluginPictureGraphicsGetter" && call.kind == HostCall::Kind::Service) {
      EXPECT_EQ(call.resultObject, 2u);
    }
  }
}

TEST_F(HostTest, ALogThatIsOffKeepsNothing) {
  auto& host = Boot(Desktop(), false);
  host.log.Enable(false);
  HostPicture* picture = NewHostPicture(host, 2, 2);
  Service<REALUnlockObjectFn>("REALUnlockObject")(Obj(picture));
  EXPECT_EQ(host.log.size(), 0u);
}

// A picture the host destroys while its description is locked is misuse: the host could never
// free its pixels behind a lock.
TEST_F(HostTest, DestroyingALockedPictureIsReported) {
  auto& host = Boot(Desktop(), false);
  HostPicture* picture = NewHostPicture(host, 2, 2);
  REALpictureDescription description{};
  ASSERT_TRUE(Service<REALLockPictureDescriptionFn>("REALLockPictureDescription")(
      Ref(picture), &description, kPictureTypeBitmapContext));
  host.Unlock(picture);
  EXPECT_THAT(host.TakeProblems(), ElementsAre("picture #1 destroyed with its description locked"));
}

// Hosts older than 2012.0 are unlocked after every failed lock; from 2012.0 on, an unlock
// without a lock is misuse.
TEST_F(HostTest, UnlocksWithoutALockAreReportedFrom2012On) {
  for (double version : {2011.9, 2012.0}) {
    SCOPED_TRACE(version);
    auto& host = Boot(Desktop(version), false);
    HostPicture* picture = NewHostPicture(host, 2, 2);
    Service<REALUnlockPictureDescriptionFn>("unlockPictureDescription")(Ref(picture));
    EXPECT_EQ(picture->unmatchedUnlocks, 1);
    host.Unlock(picture);
    if (version < 2012.0) {
      EXPECT_THAT(host.TakeProblems(), IsEmpty());
    } else {
      EXPECT_THAT(host.TakeProblems(),
                  ElementsAre("unlockPictureDescription(#1): its description is not locked"));
    }
    TearDown();
  }
}

// The bitmap context's functions answer only for a picture whose description is locked.
TEST_F(HostTest, ContextFunctionsNeedALockedDescription) {
  auto& host = Boot(Desktop(), false);
  HostPicture* picture = NewHostPicture(host, 2, 2);
  REALpictureDescription description{};
  auto lock = Service<REALLockPictureDescriptionFn>("REALLockPictureDescription");
  auto unlock = Service<REALUnlockPictureDescriptionFn>("unlockPictureDescription");
  ASSERT_TRUE(lock(Ref(picture), &description, kPictureTypeBitmapContext));
  EXPECT_EQ(CGBitmapContextGetWidth(description.pictureData), 2u);
  EXPECT_THAT(host.problems(), IsEmpty());
  unlock(Ref(picture));
  EXPECT_EQ(CGBitmapContextGetWidth(description.pictureData), 2u);
  EXPECT_THAT(host.TakeProblems(),
              ElementsAre("CGBitmapContextGetWidth(#1): its description is not locked"));
  EXPECT_EQ(host.log.Lines().back(), "CGBitmapContextGetWidth(#1)");
  host.Unlock(picture);
}

// Faulty pictures answer as asked: the other type, no data, another alpha info, extra bits.
TEST_F(HostTest, FaultyPicturesAnswerAsConfigured) {
  auto& host = Boot(Desktop(), false);
  auto lock = Service<REALLockPictureDescriptionFn>("REALLockPictureDescription");
  auto unlock = Service<REALUnlockPictureDescriptionFn>("unlockPictureDescription");
  qpxhost::PictureOptions options;
  options.faults.lockReportsOtherType = true;
  options.faults.lockReportsNullData = true;
  options.faults.alphaInfoExtraBits = 0x2000;
  HostPicture* picture = NewHostPicture(host, 2, 2, options);
  REALpictureDescription description{};
  ASSERT_TRUE(lock(Ref(picture), &description, kPictureTypeBitmapContext));
  EXPECT_EQ(description.pictureType, kPictureTypeConsole);
  EXPECT_EQ(description.pictureData, nullptr);
  EXPECT_EQ(picture->context.alphaInfo, 0x2005u);
  unlock(Ref(picture));
  picture->faults = {};
  picture->faults.alphaInfo = 7;
  ASSERT_TRUE(lock(Ref(picture), &description, kPictureTypeBitmapContext));
  EXPECT_EQ(description.pictureType, kPictureTypeBitmapContext);
  EXPECT_EQ(CGBitmapContextGetAlphaInfo(description.pictureData), 7u);
  unlock(Ref(picture));
  host.Unlock(picture);
}

TEST_F(HostTest, NewPicturesTakeTheConfiguredFaultsSizeAndFill) {
  HostConfig config = Desktop();
  config.newPictureFaults.lockReportsNullData = true;
  config.newPictureSizeChange = -1;
  config.newPixelFill = 0x5A;
  auto& host = Boot(config, false);
  REALpicture made = Service<REALNewPictureFn>("newPicture")(3, 2, 32);
  auto* picture = dynamic_cast<HostPicture*>(host.Find(made, "test"));
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->width, 2);
  EXPECT_EQ(picture->height, 1);
  EXPECT_TRUE(picture->faults.lockReportsNullData);
  EXPECT_EQ(picture->Row(0)[0], 0x5A);
  EXPECT_EQ(picture->Row(0)[7], 0x5A);
  host.Unlock(picture);
  REALpicture empty = Service<REALNewPictureFn>("newPicture")(1, 1, 32);
  auto* none = dynamic_cast<HostPicture*>(host.Find(empty, "test"));
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none->width, 0);
  host.Unlock(none);
}

}  // namespace
