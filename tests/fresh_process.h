// Runs a block in a new process started from this test binary, so the module's process-wide
// state (its bound services among it) starts empty. The block's own assertions decide the
// child's exit status, which the parent checks.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#define EXPECT_IN_FRESH_PROCESS(...)                         \
  do {                                                       \
    GTEST_FLAG_SET(death_test_style, "threadsafe");          \
    EXPECT_EXIT(                                             \
        {                                                    \
          __VA_ARGS__;                                       \
          std::fflush(nullptr);                              \
          std::_Exit(::testing::Test::HasFailure() ? 1 : 0); \
        },                                                   \
        ::testing::ExitedWithCode(0), "");                   \
  } while (0)
