// Binding host services by name: exact service names, caching, neutral results.
#include "host_services.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fresh_process.h"
#include "globals.h"
#include "host.h"

namespace {

using qpxhost::Host;
using qpxhost::HostConfig;

// Calls every wrapper once with harmless arguments.
void CallEveryWrapper() {
  int32_t i = 0;
  uint8_t b = 0;
  REALpictureDescription description{};
  REALLockObject(nullptr);
  REALUnlockObject(nullptr);
  EXPECT_EQ(REALBuildString("x", 1), nullptr);
  REALSetStringEncoding(nullptr, 0);
  REALUnlockString(nullptr);
  EXPECT_EQ(REALnewInstance("RuntimeException"), nullptr);
  EXPECT_FALSE(REALSetPropValueString(nullptr, "Message", nullptr));
  REALRaiseException(nullptr);
  REALYieldToRB();
  EXPECT_EQ(REALGetClassRef("Application"), nullptr);
  EXPECT_FALSE(REALGetPropValueInt32(nullptr, "Width", &i));
  EXPECT_FALSE(REALGetPropValueUInt8(nullptr, "HasAlphaChannel", &b));
  EXPECT_EQ(REALLoadObjectMethod(nullptr, "X()"), nullptr);
  EXPECT_EQ(REALNewPicture(1, 1, 32), nullptr);
  EXPECT_EQ(REALGetPictureGraphics(nullptr), nullptr);
  EXPECT_EQ(REALGetPictureMask(nullptr, false), nullptr);
  EXPECT_FALSE(REALLockPictureDescription(nullptr, &description, 8));
  REALUnlockPictureDescription(nullptr);
  REALPictureClearCache(nullptr);
  EXPECT_EQ(REALBuildPictureFromBuffer(1, 1, 1, nullptr, 4), nullptr);
  REALRegisterClassExtension(nullptr);
}

const std::vector<std::string> kServiceNames = {"REALLockObject",
                                                "REALUnlockObject",
                                                "REALBuildString",
                                                "REALSetStringEncoding",
                                                "REALUnlockString",
                                                "PluginNewInstance",
                                                "REALSetPropValueString",
                                                "RuntimeRaiseException",
                                                "REALYieldToRB",
                                                "pluginObjectType",
                                                "REALGetPropValueInt",
                                                "REALGetPropValueBool",
                                                "REALLoadObjectMethod",
                                                "newPicture",
                                                "pluginPictureGraphicsGetter",
                                                "REALGetPictureMask",
                                                "REALLockPictureDescription",
                                                "unlockPictureDescription",
                                                "REALPictureClearCache",
                                                "REALBuildPictureFromBuffer",
                                                "PluginRegisterClassExtension"};

TEST(HostServices, EachWrapperAsksForItsExactServiceNameAndIsNeutralWhenMissing) {
  EXPECT_IN_FRESH_PROCESS({
    HostConfig config;
    config.unavailable.insert(kServiceNames.begin(), kServiceNames.end());
    Host host(config);
    gResolver = &Host::Resolve;
    CallEveryWrapper();
    for (const std::string& name : kServiceNames) {
      EXPECT_EQ(host.LookupCount(name), 1) << name;
    }
    EXPECT_EQ(host.yieldCount, 0);
  });
}

TEST(HostServices, WithoutResolverEveryWrapperIsNeutral) {
  EXPECT_IN_FRESH_PROCESS({
    Host host;
    gResolver = nullptr;
    CallEveryWrapper();
    EXPECT_EQ(host.LookupCount("REALLockObject"), 0);
  });
}

TEST(HostServices, FoundServiceIsLookedUpOnce) {
  EXPECT_IN_FRESH_PROCESS({
    Host host;
    gResolver = &Host::Resolve;
    for (int i = 0; i < 3; ++i) {
      REALstring text = REALBuildString("abc", 3);
      EXPECT_NE(text, nullptr);
      REALUnlockString(text);
    }
    EXPECT_EQ(host.LookupCount("REALBuildString"), 1);
    EXPECT_EQ(host.LookupCount("REALUnlockString"), 1);
    EXPECT_EQ(host.LiveObjectCount(), 0u);
  });
}

TEST(HostServices, MissingServiceIsSearchedAgainOnEveryCallUntilFound) {
  EXPECT_IN_FRESH_PROCESS({
    HostConfig config;
    config.unavailable = {"REALYieldToRB"};
    Host host(config);
    gResolver = &Host::Resolve;
    REALYieldToRB();
    REALYieldToRB();
    REALYieldToRB();
    EXPECT_EQ(host.LookupCount("REALYieldToRB"), 3);
    EXPECT_EQ(host.yieldCount, 0);
    host.SetUnavailable("REALYieldToRB", false);
    REALYieldToRB();
    REALYieldToRB();
    EXPECT_EQ(host.LookupCount("REALYieldToRB"), 4);
    EXPECT_EQ(host.yieldCount, 2);
    // Found once, it stays bound even if the host would no longer answer.
    host.SetUnavailable("REALYieldToRB", true);
    REALYieldToRB();
    EXPECT_EQ(host.LookupCount("REALYieldToRB"), 4);
    EXPECT_EQ(host.yieldCount, 3);
  });
}

TEST(HostServices, ArgumentsAndResultsPassUnchanged) {
  Host host;
  gResolver = &Host::Resolve;
  REALstring text = REALBuildString("hello", 3);
  ASSERT_NE(text, nullptr);
  auto* string = dynamic_cast<qpxhost::HostString*>(host.Find(text, "test"));
  ASSERT_NE(string, nullptr);
  EXPECT_EQ(string->text, "hel");
  REALSetStringEncoding(text, 0x0600);
  EXPECT_EQ(string->encoding, 0x0600u);
  REALLockObject(reinterpret_cast<REALobject>(text));
  EXPECT_EQ(host.RefCount(text), 2);
  REALUnlockObject(reinterpret_cast<REALobject>(text));
  REALUnlockString(text);
  EXPECT_EQ(host.LiveObjectCount(), 0u);
  EXPECT_TRUE(host.problems().empty());
}

}  // namespace
