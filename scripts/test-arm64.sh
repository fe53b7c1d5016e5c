#!/usr/bin/env bash
# Builds the ARM64 tree (build-arm64) with Debian's cross compiler and runs its whole test suite
# under qemu user-mode emulation: the arm64 phase of scripts/test.sh alone.
set -euo pipefail
cd "$(dirname "$0")/.."
QPX_PHASES=arm64 exec scripts/test.sh
