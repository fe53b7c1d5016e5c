// Raising host exceptions.
#include "raise_exception.h"

#include <gtest/gtest.h>

#include "fresh_process.h"
#include "globals.h"
#include "host.h"

namespace {

using qpxhost::Host;
using qpxhost::HostConfig;

class RaiseExceptionTest : public ::testing::Test {
 protected:
  void Boot(HostConfig config = {}) {
    host_ = std::make_unique<Host>(std::move(config));
    gResolver = &Host::Resolve;
  }
  void TearDown() override {
    EXPECT_EQ(host_->LiveObjectCount(), 0u);
    EXPECT_TRUE(host_->problems().empty());
  }
  std::unique_ptr<Host> host_;
};

TEST_F(RaiseExceptionTest, RaisesTheClassWithAnAsciiMessage) {
  Boot();
  RaiseException("NilObjectException", "source is nil", 0);
  ASSERT_EQ(host_->raisedExceptions.size(), 1u);
  EXPECT_EQ(host_->raisedExceptions[0].className, "NilObjectException");
  EXPECT_EQ(host_->raisedExceptions[0].message, "source is nil");
  EXPECT_EQ(host_->raisedExceptions[0].messageEncoding, 0x0600u);
}

TEST_F(RaiseExceptionTest, EmptyMessageGivesNilMessage) {
  Boot();
  RaiseException("NilObjectException", "", 0);
  ASSERT_EQ(host_->raisedExceptions.size(), 1u);
  EXPECT_EQ(host_->raisedExceptions[0].className, "NilObjectException");
  EXPECT_FALSE(host_->raisedExceptions[0].message.has_value());
}

TEST_F(RaiseExceptionTest, NullMessageGivesNilMessage) {
  Boot();
  RaiseException("NilObjectException", nullptr, 0);
  ASSERT_EQ(host_->raisedExceptions.size(), 1u);
  EXPECT_FALSE(host_->raisedExceptions[0].message.has_value());
}

TEST_F(RaiseExceptionTest, FallsBackToRuntimeExceptionWithTheSameMessage) {
  HostConfig config;
  config.unavailable = {"NilObjectException"};
  Boot(config);
  RaiseException("NilObjectException", "picture is nil", 0);
  ASSERT_EQ(host_->raisedExceptions.size(), 1u);
  EXPECT_EQ(host_->raisedExceptions[0].className, "RuntimeException");
  EXPECT_EQ(host_->raisedExceptions[0].message, "picture is nil");
}

TEST_F(RaiseExceptionTest, NoExceptionClassRaisesNothingAndReleasesTheMessage) {
  HostConfig config;
  config.unavailable = {"NilObjectException", "RuntimeException"};
  Boot(config);
  RaiseException("NilObjectException", "picture is nil", 0);
  EXPECT_TRUE(host_->raisedExceptions.empty());
}

TEST(RaiseExceptionServices, WithoutStringServiceTheMessageIsNil) {
  EXPECT_IN_FRESH_PROCESS({
    HostConfig config;
    config.unavailable = {"REALBuildString"};
    Host host(config);
    gResolver = &Host::Resolve;
    RaiseException("NilObjectException", "source is nil", 0);
    ASSERT_EQ(host.raisedExceptions.size(), 1u);
    EXPECT_FALSE(host.raisedExceptions[0].message.has_value());
    EXPECT_EQ(host.LiveObjectCount(), 0u);
  });
}

TEST(RaiseExceptionServices, WithoutRaiseServiceTheInstanceIsStillReleased) {
  EXPECT_IN_FRESH_PROCESS({
    HostConfig config;
    config.unavailable = {"RuntimeRaiseException"};
    Host host(config);
    gResolver = &Host::Resolve;
    RaiseException("NilObjectException", "source is nil", 0);
    EXPECT_TRUE(host.raisedExceptions.empty());
    EXPECT_EQ(host.LiveObjectCount(), 0u);
    EXPECT_TRUE(host.problems().empty());
  });
}

}  // namespace
