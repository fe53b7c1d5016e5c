// Tests of the module's insides (its static library) against the emulated host. The module's
// process-wide state (bound services, application kind) sticks for the life of a process, so
// each such test runs in a fresh process.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fresh_process.h"
#include "globals.h"
#include "host.h"
#include "host_fixture.h"
#include "picture_services.h"

namespace qpxtest {

// A booted host that the module's wrappers resolve against, with the module's host version
// set as REALPluginMain would set it. Checks the ledger when it goes.
class ModuleHost {
 public:
  explicit ModuleHost(qpxhost::HostConfig config = {}) : host(std::move(config)) {
    gResolver = &qpxhost::Host::Resolve;
    rbversion_rbversion = host.config().version.value_or(0.0);
  }
  ~ModuleHost() {
    EXPECT_EQ(host.LiveObjectCount(), 0u) << "host objects leaked";
    EXPECT_THAT(host.problems(), ::testing::IsEmpty());
  }
  qpxhost::HostPicture* Picture(int32_t width, int32_t height,
                                const qpxhost::PictureOptions& options = {}) {
    return qpxhost::NewHostPicture(host, width, height, options);
  }
  qpxhost::Host host;
};

inline qpxhost::HostConfig Config(qpxhost::AppKind app, double version = 2013.03) {
  qpxhost::HostConfig config;
  config.app = app;
  config.version = version;
  return config;
}

}  // namespace qpxtest

// A test whose body runs in a fresh process.
#define FRESH_TEST(suite, name)                       \
  static void suite##_##name##_Body();                \
  TEST(suite, name) {                                 \
    EXPECT_IN_FRESH_PROCESS(suite##_##name##_Body()); \
  }                                                   \
  static void suite##_##name##_Body()
