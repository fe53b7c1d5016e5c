#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh DIR [cmake options...] [-- TARGET...]
# Without targets it builds everything. Compiles through ccache when it is installed.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1
shift
options=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
  options+=("$1")
  shift
done
[ $# -gt 0 ] && shift
targets=()
for target in "$@"; do targets+=(--target "$target"); done
source scripts/compiler-cache.sh
# Ninja keeps both processors busy to the end: it compiles any target's sources as soon as a
# processor is free, where make waits for a target's dependencies to be linked first. A tree
# made with make stays with make.
generator=()
if [ ! -f "$dir/CMakeCache.txt" ] && command -v ninja >/dev/null; then generator=(-G Ninja); fi
cmake -S . -B "$dir" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release "${QPX_CACHE_OPTIONS[@]}" \
  "${options[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)" "${targets[@]}"
