#!/usr/bin/env bash
# Builds a libFuzzer target in the sanitized tree (scripts/sanitized-build.sh: clang,
# AddressSanitizer, UndefinedBehaviorSanitizer; build-fuzz) and runs it for SECONDS on a fresh
# copy of its seed corpus:
#   scripts/fuzz.sh fuzz_image_file|fuzz_methods SECONDS [libFuzzer options...]
# Exits non-zero when the run finds a crash, a leak or a sanitizer report; the input is then
# left in build-fuzz/findings/TARGET/ (run the target on that file to see the case again).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -lt 2 ] || [[ ! "$1" =~ ^(fuzz_image_file|fuzz_methods)$ ]] || [[ ! "$2" =~ ^[0-9]+$ ]]; then
  echo "usage: scripts/fuzz.sh fuzz_image_file|fuzz_methods SECONDS [libFuzzer options...]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
dir=${QPX_FUZZ_BUILD_DIR:-build-fuzz}

scripts/sanitized-build.sh "$target"

corpus=$dir/corpus/$target
findings=$dir/findings/$target
rm -rf "$corpus" "$findings"
mkdir -p "$corpus" "$findings"
cp tests/fuzz/corpus/"$target"/* "$corpus"/

# Frames in the module name a deleted private copy (/tmp/qpx-plugin-XXXXXX+0xOFFSET):
# llvm-symbolizer --obj=build-fuzz/bin/qpxplugin.so 0xOFFSET names them.
if [ -z "${ASAN_SYMBOLIZER_PATH:-}" ] && ! command -v llvm-symbolizer >/dev/null; then
  for symbolizer in /usr/lib/llvm-*/bin/llvm-symbolizer; do
    [ -x "$symbolizer" ] && export ASAN_SYMBOLIZER_PATH=$symbolizer
  done
fi
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
echo "fuzzing $target for $seconds s"
"$dir/bin/$target" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
  -print_funcs=0 -artifact_prefix="$findings/" -print_final_stats=1 "$@" "$corpus" \
  2>"$dir/$target.log" || {
  status=$?
  tail -n 60 "$dir/$target.log" >&2
  echo "$target: finding kept in $findings/ (log: $dir/$target.log)" >&2
  exit "$status"
}
grep -E '^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)' \
  "$dir/$target.log"
