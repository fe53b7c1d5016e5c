// The emulated host itself: ledger, resolver, classes, exceptions and method calls.
#include "host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "host_fixture.h"
#include "plugin_module.h"

namespace {

using qpxhost::Host;
using qpxhost::HostConfig;
using qpxhost::HostObject;
using qpxtest::HostTest;
using qpxtest::Ref;
using qpxtest::Service;

TEST_F(HostTest, LedgerCountsReferencesAndDestroysAtZero) {
  auto& host = Boot({}, false);
  auto* string = host.Adopt(std::make_unique<qpxhost::HostString>("x"));
  EXPECT_EQ(host.RefCount(string), 1);
  host.Lock(string);
  EXPECT_EQ(host.RefCount(string), 2);
  host.Unlock(string);
  host.Unlock(string);
  EXPECT_FALSE(host.IsLive(string));
  EXPECT_EQ(host.RefCount(string), 0);
}

TEST_F(HostTest, ReleasingADeadObjectIsReportedNotFatal) {
  auto& host = Boot({}, false);
  auto* string = host.Adopt(std::make_unique<qpxhost::HostString>("x"));
  host.Unlock(string);
  Service<REALUnlockObjectFn>("REALUnlockObject")(reinterpret_cast<REALobject>(string));
  EXPECT_EQ(host.problems().size(), 1u);
  host.Lock(string);
  EXPECT_EQ(host.problems().size(), 2u);
  // Not a leak: the test ends with the two problems it expected.
  EXPECT_THAT(host.TakeProblems(),
              ::testing::ElementsAre("REALUnlockObject: object #1 was already destroyed",
                                     "reference added to an object that is not live"));
}

TEST_F(HostTest, ExceptionHoldsItsMessageUntilItDies) {
  auto& host = Boot({}, false);
  auto newInstance = Service<REALnewInstanceFn>("PluginNewInstance");
  auto buildString = Service<REALBuildStringFn>("REALBuildString");
  auto setString = Service<REALSetPropValueStringFn>("REALSetPropValueString");
  auto unlock = Service<REALUnlockObjectFn>("REALUnlockObject");
  REALobject exception = newInstance("NilObjectException");
  ASSERT_NE(exception, nullptr);
  REALstring message = buildString("boom", 4);
  EXPECT_TRUE(setString(exception, "Message", message));
  EXPECT_FALSE(setString(exception, "Reason", message));
  EXPECT_EQ(host.RefCount(message), 2);
  unlock(reinterpret_cast<REALobject>(message));
  EXPECT_EQ(host.RefCount(message), 1);
  unlock(exception);
  EXPECT_FALSE(host.IsLive(message));
}

TEST_F(HostTest, RaiseRecordsClassAndMessage) {
  auto& host = Boot({}, false);
  REALobject exception = Service<REALnewInstanceFn>("PluginNewInstance")("RuntimeException");
  Service<REALRaiseExceptionFn>("RuntimeRaiseException")(exception);
  ASSERT_EQ(host.raisedExceptions.size(), 1u);
  EXPECT_EQ(host.raisedExceptions[0].className, "RuntimeException");
  EXPECT_FALSE(host.raisedExceptions[0].message.has_value());
  host.Unlock(host.Find(exception, "test"));
}

TEST_F(HostTest, UnknownOrUnavailableClassesCannotBeMade) {
  HostConfig config;
  config.unavailable = {"RuntimeException"};
  Boot(config, false);
  auto newInstance = Service<REALnewInstanceFn>("PluginNewInstance");
  EXPECT_EQ(newInstance("RuntimeException"), nullptr);
  EXPECT_EQ(newInstance("Dictionary"), nullptr);
  EXPECT_EQ(newInstance(nullptr), nullptr);
}

struct AppCase {
  qpxhost::AppKind app;
  const char* present;
};

class ApplicationClass : public HostTest, public ::testing::WithParamInterface<AppCase> {};

TEST_P(ApplicationClass, OnlyTheRunningKindExists) {
  HostConfig config;
  config.app = GetParam().app;
  Boot(config, false);
  auto classRef = Service<REALGetClassRefFn>("pluginObjectType");
  for (const char* name : {"Application", "ConsoleApplication", "WebApplication"}) {
    EXPECT_EQ(classRef(name) != nullptr, std::strcmp(name, GetParam().present) == 0) << name;
  }
  EXPECT_NE(classRef("Picture"), nullptr);
  EXPECT_EQ(classRef("Picture"), classRef("Picture"));
  EXPECT_EQ(classRef("NoSuchClass"), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ApplicationClass,
                         ::testing::Values(AppCase{qpxhost::AppKind::Desktop, "Application"},
                                           AppCase{qpxhost::AppKind::Console, "ConsoleApplication"},
                                           AppCase{qpxhost::AppKind::Web, "WebApplication"}));

TEST_F(HostTest, ResolverLogsEveryLookupAndHonoursUnavailability) {
  HostConfig config;
  config.unavailable = {"REALYieldToRB"};
  config.version = std::nullopt;
  auto& host = Boot(config, false);
  EXPECT_EQ(Host::Resolve("REALYieldToRB"), nullptr);
  EXPECT_EQ(Host::Resolve("REALYieldToRB"), nullptr);
  EXPECT_EQ(Host::Resolve("REALGetRBVersion"), nullptr);
  EXPECT_EQ(Host::Resolve("NoSuchService"), nullptr);
  EXPECT_NE(Host::Resolve("REALLockObject"), nullptr);
  EXPECT_EQ(host.LookupCount("REALYieldToRB"), 2);
  EXPECT_EQ(host.LookupCount("REALGetRBVersion"), 1);
  EXPECT_EQ(host.LookupCount("NoSuchService"), 1);
}

TEST_F(HostTest, VersionServiceAnswersTheConfiguredVersion) {
  HostConfig config;
  config.version = 2012.5;
  Boot(config, false);
  EXPECT_EQ(Service<REALGetRBVersionFn>("REALGetRBVersion")(), 2012.5);
}

TEST_F(HostTest, OnlyOneHostIsBootedAtATime) {
  Boot({}, false);
  EXPECT_THROW(Host second, std::logic_error);
  EXPECT_EQ(Host::Current(), &host());
}

// Bitmap contexts of one platform share one byte order: alpha (or the skipped byte) last in
// 1, 3, 5 and 1; first in 2, 4, 6 and 2.
TEST(HostLayouts, PairByByteOrder) {
  for (int32_t layout = 1; layout <= 6; ++layout) {
    EXPECT_EQ(qpxhost::AlphaLayoutPairedWith(layout), layout % 2 == 1 ? 1 : 2) << layout;
  }
  EXPECT_EQ(qpxhost::OpaqueLayoutPairedWith(1), 5);
  EXPECT_EQ(qpxhost::OpaqueLayoutPairedWith(2), 6);
  HostConfig config;
  for (int32_t layout = 0; layout <= 7; ++layout) {
    for (int32_t alphaLayout = 0; alphaLayout <= 3; ++alphaLayout) {
      config.desktopLayout = layout;
      config.desktopAlphaLayout = alphaLayout;
      const bool paired = layout >= 1 && layout <= 6 && alphaLayout == 2 - layout % 2;
      EXPECT_EQ(qpxhost::LayoutsPaired(config), paired) << layout << " " << alphaLayout;
    }
  }
}

TEST(HostLayouts, AHostWithUnpairedLayoutsDoesNotBoot) {
  HostConfig config;
  config.desktopLayout = 5;
  config.desktopAlphaLayout = 2;
  EXPECT_THROW(Host unpaired(config), std::invalid_argument);
  EXPECT_EQ(Host::Current(), nullptr);
}

TEST(HostWithoutBoot, ResolverAnswersNothing) {
  EXPECT_EQ(Host::Resolve("REALLockObject"), nullptr);
}

TEST_F(HostTest, YieldRunsTheEventLoopHook) {
  auto& host = Boot({}, false);
  int loops = 0;
  host.onYield = [&] { ++loops; };
  auto yield = Service<REALYieldToRBFn>("REALYieldToRB");
  yield();
  yield();
  EXPECT_EQ(host.yieldCount, 2);
  EXPECT_EQ(loops, 2);
}

// --- Calling registered methods with the signature their declaration implies --------------

struct Seen {
  void* self = nullptr;
  int32_t integer = 0;
  bool boolean = false;
  double number = 0;
  void* picture = nullptr;
} seen;

bool AllKinds(void* self, int32_t integer, bool boolean, double number, void* picture) {
  seen = {self, integer, boolean, number, picture};
  return integer == 7;
}

void* ReturnsPicture(void* self, double, int32_t) {
  return self;
}

REALmethodDefinition testMethods[] = {
    {reinterpret_cast<void (*)()>(&AllKinds), nullptr,
     "AllKinds(i as integer, b as boolean = true, d as double = 0.5, p as picture = nil) as "
     "boolean",
     0, 0, nullptr},
    {reinterpret_cast<void (*)()>(&ReturnsPicture), nullptr,
     "Same(r as double, y as integer = 0) as picture", 0, 0, nullptr},
};

// The host keeps the record it is given and reads it on every use, as it does a module's
// static record: this one lives for the process too.
REALclassDefinition record;

void RegisterTestClass(REALword version) {
  static REALmethodDefinitionV9 olderRows[2];
  record = {};
  record.version = version;
  record.name = "Picture";
  if (version == 9) {
    for (int i = 0; i < 2; ++i) {
      olderRows[i] = {testMethods[i].function, nullptr, testMethods[i].declaration, 0};
    }
    record.methods = olderRows;
  } else {
    record.methods = testMethods;
  }
  record.methodCount = 2;
  Service<REALRegisterClassExtensionFn>("PluginRegisterClassExtension")(&record);
}

class MethodCall : public HostTest, public ::testing::WithParamInterface<int> {};

TEST_P(MethodCall, PassesEveryArgumentKindAndDefaults) {
  auto& host = Boot({}, false);
  RegisterTestClass(GetParam());
  auto* self = host.Adopt(std::make_unique<qpxhost::HostString>("receiver"));
  auto* other = host.Adopt(std::make_unique<qpxhost::HostString>("argument"));

  auto result = host.Call("AllKinds", self, {int32_t{7}, false, 2.25, other});
  EXPECT_TRUE(result.boolean);
  EXPECT_EQ(seen.self, self);
  EXPECT_EQ(seen.integer, 7);
  EXPECT_FALSE(seen.boolean);
  EXPECT_EQ(seen.number, 2.25);
  EXPECT_EQ(seen.picture, other);

  result = host.Call("AllKinds", nullptr, {int32_t{-3}});
  EXPECT_FALSE(result.boolean);
  EXPECT_EQ(seen.self, nullptr);
  EXPECT_EQ(seen.integer, -3);
  EXPECT_TRUE(seen.boolean);
  EXPECT_EQ(seen.number, 0.5);
  EXPECT_EQ(seen.picture, nullptr);

  result = host.Call("Same", self, {int32_t{2}});  // an integer widens to a double parameter
  EXPECT_EQ(result.picture, self);

  host.Unlock(self);
  host.Unlock(other);
}

TEST_P(MethodCall, RejectsUnknownMethodsAndWrongArguments) {
  auto& host = Boot({}, false);
  RegisterTestClass(GetParam());
  EXPECT_THROW(host.Call("Nope", nullptr), std::invalid_argument);
  EXPECT_THROW(host.Call("AllKinds", nullptr), std::invalid_argument);
  EXPECT_THROW(host.Call("AllKinds", nullptr, {2.5}), std::invalid_argument);
  EXPECT_THROW(host.Call("Same", nullptr, {1.0, int32_t{0}, int32_t{0}}), std::invalid_argument);
}

// The host reads the module's own record whenever it looks a method up: a record changed after
// registration is seen as it is now, and none of it is copied away at registration.
TEST_P(MethodCall, ReadsTheRegisteredRecordInPlace) {
  auto& host = Boot({}, false);
  RegisterTestClass(GetParam());
  auto* self = host.Adopt(std::make_unique<qpxhost::HostString>("receiver"));
  ASSERT_TRUE(host.FindMethod("Picture", "Same"));
  record.methodCount = 1;
  EXPECT_FALSE(host.FindMethod("Picture", "Same"));
  EXPECT_THROW(host.Call("Same", self, {1.0}), std::invalid_argument);
  record.methodCount = 2;
  record.name = "Graphics";
  EXPECT_FALSE(host.FindMethod("Picture", "AllKinds"));
  EXPECT_TRUE(host.FindMethod("Graphics", "AllKinds"));
  record.name = "Picture";
  EXPECT_EQ(host.Call("Same", self, {1.0}).picture, self);
  host.Unlock(self);
}

INSTANTIATE_TEST_SUITE_P(Layouts, MethodCall, ::testing::Values(9, 12));

// Failures to load name the module as the caller gave it, never its private copy, and say why.
std::string LoadFailure(const std::string& path) {
  try {
    qpxhost::PluginModule::Load(path, nullptr);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "(loaded)";
}

TEST(PluginModule, FailuresNameThePathGivenAndTheReason) {
  std::string dir = ::testing::TempDir() + "/qpx_module_XXXXXX";
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  const std::string text = dir + "/text.so", fifo = dir + "/fifo.so";
  std::FILE* file = std::fopen(text.c_str(), "w");
  ASSERT_NE(file, nullptr);
  std::fputs("not a module\n", file);
  std::fclose(file);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);  // opening it for reading would wait for a writer

  EXPECT_EQ(LoadFailure(dir), "cannot load plug-in '" + dir + "': is a directory");
  EXPECT_EQ(LoadFailure(fifo), "cannot load plug-in '" + fifo + "': not a regular file");
  const std::string notModule = LoadFailure(text);
  EXPECT_EQ(notModule.rfind("cannot load plug-in '" + text + "': ", 0), 0u) << notModule;
  EXPECT_THAT(notModule, ::testing::Not(::testing::HasSubstr("qpx-plugin-")));
  EXPECT_EQ(LoadFailure(dir + "/none.so"),
            "cannot load plug-in '" + dir + "/none.so': No such file or directory");
  std::remove(text.c_str());
  std::remove(fifo.c_str());
  rmdir(dir.c_str());
}

}  // namespace
