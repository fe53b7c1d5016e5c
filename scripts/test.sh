#!/usr/bin/env bash
# Builds and runs the whole test suite: once as released, once under AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

scripts/build.sh build -DQPX_BUILD_TESTS=ON
(cd build && ctest --output-on-failure -j "$(nproc)")

scripts/build.sh build-sanitize -DQPX_SANITIZE=ON -DQPX_BUILD_TESTS=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-sanitize && ctest --output-on-failure -j "$(nproc)")
