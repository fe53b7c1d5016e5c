// A booted emulated host for one test, checked for leaks and misuse when the test ends.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "host.h"

namespace qpxtest {

class HostTest : public ::testing::Test {
 protected:
  // Boots a host; with `load`, loads a fresh copy of the module into it.
  qpxhost::Host& Boot(qpxhost::HostConfig config = {}, bool load = true) {
    host_ = std::make_unique<qpxhost::Host>(std::move(config));
    if (load) host_->LoadPlugin(QPX_PLUGIN_PATH);
    return *host_;
  }
  qpxhost::Host& host() { return *host_; }

  // Every object the host made is gone and nothing was misused.
  void ExpectBalanced() {
    if (!host_) return;
    EXPECT_EQ(host_->LiveObjectCount(), 0u) << "host objects leaked";
    EXPECT_THAT(host_->problems(), ::testing::IsEmpty());
  }
  void TearDown() override {
    ExpectBalanced();
    host_.reset();
  }

 private:
  std::unique_ptr<qpxhost::Host> host_;
};

// A service of the booted host, as a module would bind it.
template <typename Fn>
Fn Service(const char* name) {
  return reinterpret_cast<Fn>(qpxhost::Host::Resolve(name));
}

inline REALpicture Ref(qpxhost::HostObject* object) {
  return reinterpret_cast<REALpicture>(object);
}

}  // namespace qpxtest
