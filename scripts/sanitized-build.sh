#!/usr/bin/env bash
# Builds TARGETs in the sanitized tree, build-fuzz (QPX_FUZZ_BUILD_DIR names another):
#   scripts/sanitized-build.sh TARGET...
# clang with AddressSanitizer, UndefinedBehaviorSanitizer and libFuzzer's coverage
# instrumentation, so that the test programs and the fuzz targets share one tree. -O1 with line
# tables compiles in less than half the time of an optimised build with full debug information
# and still names the file and line of every frame in a report.
set -euo pipefail
cd "$(dirname "$0")/.."
QPX_WITH_FUZZ=1 scripts/install-deps.sh
flags="-O1 -gline-tables-only -DNDEBUG"
CC=clang CXX=clang++ scripts/build.sh "${QPX_FUZZ_BUILD_DIR:-build-fuzz}" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_C_FLAGS_RELWITHDEBINFO=$flags" \
  "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=$flags" -DQPX_FUZZ=ON -DQPX_BUILD_TESTS=ON -- "$@"
