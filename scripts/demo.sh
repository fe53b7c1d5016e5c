#!/usr/bin/env bash
# Builds qpx and the module and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh build -DQPX_BUILD_TESTS=OFF
build/bin/qpx info
