#!/usr/bin/env bash
# Builds and runs the whole test suite: once as released, once more as a 32-bit x86 build (the
# module's original processor; cross-compiled, run natively), the method tests once more with
# only the plain pixel loops, the whole suite under AddressSanitizer and
# UndefinedBehaviorSanitizer, and each fuzz target for a bounded time (QPX_FUZZ_SECONDS, 45).
# scripts/test-arm64.sh runs the ARM64 build's tests under qemu.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

scripts/build.sh build -DQPX_BUILD_TESTS=ON
(cd build && ctest --output-on-failure -j "$(nproc)")

scripts/cross-deps.sh i386
scripts/build.sh build-i386 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-i386.cmake -DQPX_BUILD_TESTS=ON
(cd build-i386 && ctest --output-on-failure -j "$(nproc)")

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

# A bounded run of each fuzz target (clang, ASan and UBSan) on its seed corpus.
for target in fuzz_image_file fuzz_methods; do
  scripts/fuzz.sh "$target" "${QPX_FUZZ_SECONDS:-45}"
done
