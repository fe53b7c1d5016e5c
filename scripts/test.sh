#!/usr/bin/env bash
# Builds and runs the whole test suite: once as released, the method tests once more with only
# the plain pixel loops, and the whole suite under AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

scripts/build.sh build -DQPX_BUILD_TESTS=ON
(cd build && ctest --output-on-failure -j "$(nproc)")

# The plain scalar pixel loops alone must pass the method tests too.
cmake -S . -B build-plain -DCMAKE_BUILD_TYPE=Release -DQPX_PLAIN_LOOPS=ON -DQPX_BUILD_TESTS=ON \
  >/dev/null
cmake --build build-plain -j "$(nproc)" --target qpxplugin module_tests method_tests
build-plain/bin/module_tests --gtest_brief=1
build-plain/bin/method_tests --gtest_brief=1

scripts/build.sh build-sanitize -DQPX_SANITIZE=ON -DQPX_BUILD_TESTS=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-sanitize && ctest --output-on-failure -j "$(nproc)")
