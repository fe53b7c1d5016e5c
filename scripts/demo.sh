#!/usr/bin/env bash
# Builds qpx and the module and runs the main job: the demo contact sheet in ./qpx-demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$(nproc)" --target qpx qpxplugin
build/bin/qpx demo
