#!/usr/bin/env bash
# Builds and runs the whole test suite, in phases:
#   x86-64    the release build, every test
#   i386      the 32-bit x86 build (the module's original processor; cross-compiled, run
#             natively), every test
#   arm64     the ARM64 build (cross-compiled), every test under qemu user-mode emulation
#   plain     the module with only the plain scalar pixel loops: module_tests and method_tests
#   sanitize  AddressSanitizer and UndefinedBehaviorSanitizer (clang): every test program
#   fuzz      each fuzz target for a bounded time (QPX_FUZZ_SECONDS, 45), from the same tree
# A phase that fails does not stop the later ones; the script ends with each phase's time and
# test counts, and exits non-zero when any phase failed. QPX_PHASES="x86-64 arm64" runs some.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
results=build-results
rm -rf "$results"
mkdir -p "$results"

# Runs ctest in build tree DIR for phase NAME with further ctest options, and writes the phase's
# counts.
run_ctest() {
  local name=$1 dir=$2
  shift 2
  local report=$PWD/$results/$name.xml
  local status=0
  rm -rf "$dir/gtest-results"
  (cd "$dir" && ctest --output-on-failure --no-tests=error -j "$jobs" --output-junit "$report" \
    "$@") || status=$?
  test_counts "$report" "$dir/gtest-results" >"$results/$name.counts"
  return "$status"
}

# The value of attribute $2 in the XML element $1.
attribute() { sed -n "s/.* $2=\"\([^\"]*\)\".*/\1/p" <<<"$1"; }

# "P passed, F failed, S skipped" from ctest's JUnit report $1. A ctest test that ran a whole
# test program, or a shard of one (PROGRAM.shardN, under an emulator), is counted by the tests in
# gtest's report of it, $2/PROGRAM.shardN.xml; one that left no report counts as one failure.
test_counts() {
  local passed=0 failed=0 skipped=0 status name gtest suite tests failures disabled skips
  [ -f "$1" ] || { echo "no test report"; return; }
  while read -r status name; do
    if [[ "$name" =~ \.shard[0-9]+$ ]]; then
      gtest=$2/$name.xml
      if [ ! -f "$gtest" ]; then
        failed=$((failed + 1))
        continue
      fi
      suite=$(tr '\n\t' '  ' <"$gtest" | grep -o -m1 '<testsuites [^>]*>')
      tests=$(attribute "$suite" tests)
      failures=$(attribute "$suite" failures)
      disabled=$(attribute "$suite" disabled)
      skips=$(grep -c 'result="skipped"' "$gtest" || true)
      passed=$((passed + tests - failures - disabled - skips))
      failed=$((failed + failures))
      skipped=$((skipped + disabled + skips))
      continue
    fi
    case $status in
      run) passed=$((passed + 1)) ;;
      fail) failed=$((failed + 1)) ;;
      *) skipped=$((skipped + 1)) ;;
    esac
  done < <(tr '\n\t' '  ' <"$1" | grep -o '<testcase [^>]*>' |
    sed -n 's/^<testcase name="\([^"]*\)".* status="\([a-z]*\)".*/\2 \1/p')
  echo "$passed passed, $failed failed, $skipped skipped"
}

phase_x86-64() {
  scripts/build.sh build -DQPX_BUILD_TESTS=ON
  run_ctest x86-64 build
}

phase_i386() {
  scripts/cross-deps.sh i386
  scripts/build.sh build-i386 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-i386.cmake \
    -DQPX_BUILD_TESTS=ON
  run_ctest i386 build-i386
}

phase_arm64() {
  scripts/cross-deps.sh arm64
  scripts/build.sh build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-arm64.cmake \
    -DQPX_BUILD_TESTS=ON
  run_ctest arm64 build-arm64
}

# The plain scalar pixel loops alone must pass the tests of the module's insides and of its
# methods.
phase_plain() {
  scripts/build.sh build-plain -DQPX_PLAIN_LOOPS=ON -DQPX_BUILD_TESTS=ON -- \
    qpxplugin module_tests method_tests
  run_ctest plain build-plain -L '^(module_tests|method_tests)$'
}

# Every test program under the sanitizers (qpx_info, which only prints, is left to the others),
# built in the fuzz targets' tree, which the fuzz phase then finds built.
phase_sanitize() {
  scripts/sanitized-build.sh qpxplugin qpx module_tests host_tests method_tests image_file_test \
    cli_test fuzz_image_file fuzz_methods
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  run_ctest sanitize "${QPX_FUZZ_BUILD_DIR:-build-fuzz}" -L '^(module_tests|host_tests|method_tests|image_file_test|cli_test)$'
}

# A bounded run of each fuzz target on its seed corpus.
phase_fuzz() {
  local target line=""
  for target in fuzz_image_file fuzz_methods; do
    scripts/fuzz.sh "$target" "${QPX_FUZZ_SECONDS:-45}" | tee "$results/$target.stats"
    line+="$target $(sed -n 's/^stat::number_of_executed_units: *//p' "$results/$target.stats")"
    line+=" runs, "
  done
  echo "${line}no findings" >"$results/fuzz.counts"
}

all_phases=(x86-64 i386 arm64 plain sanitize fuzz)
read -r -a phases <<<"${QPX_PHASES:-${all_phases[*]}}"
declare -A seconds=() cpu=() outcome=()
children_seconds=0
started=$(date +%s)
current=
current_start=0

summary() {
  local name line failed=0
  echo
  echo "=== scripts/test.sh: $jobs processors, load $(cut -d' ' -f1-3 /proc/loadavg) ==="
  printf '%-9s %7s %7s  %s\n' phase time cpu tests
  for name in setup "${phases[@]}"; do
    [ -n "${outcome[$name]:-}" ] || continue
    line=${outcome[$name]}
    if [ -f "$results/$name.counts" ]; then
      line="$line: $(cat "$results/$name.counts")"
    elif [ "$line" = failed ]; then
      line="$line before its tests ran"
    fi
    [ "${outcome[$name]}" = failed ] && failed=1
    printf '%-9s %7s %7s  %s\n' "$name" "$(duration "${seconds[$name]}")" \
      "$(duration "${cpu[$name]}")" "$line"
  done
  if [ -n "$current" ]; then
    printf '%-9s %7s %7s  %s\n' "$current" "$(duration $(($(date +%s) - current_start)))" "" \
      interrupted
    failed=1
  fi
  children_cpu
  printf '%-9s %7s %7s  %s\n' total "$(duration $(($(date +%s) - started)))" \
    "$(duration "$children_seconds")" "$([ "$failed" = 0 ] && echo ok || echo FAILED)"
}

# The processor seconds this script's finished children took, in user and system mode: on a
# machine shared with other work, a phase's time tells less than its processor time.
# Sets children_seconds (times must run in this shell, not in a subshell of its own).
children_cpu() {
  times >"$results/times"
  children_seconds=$(awk 'NR == 2 { split($1, u, /[ms]/); split($2, s, /[ms]/)
                                    printf "%d\n", u[1] * 60 + u[2] + s[1] * 60 + s[2] }' \
    "$results/times")
}

# "12m05s" for a number of seconds.
duration() { printf '%dm%02ds' $(($1 / 60)) $(($1 % 60)); }

run_phase() {
  local name=$1 start status cpu_start
  start=$(date +%s)
  children_cpu
  cpu_start=$children_seconds
  current=$name
  current_start=$start
  echo "=== $name ==="
  set +e
  (
    set -e
    "phase_$name"
  )
  status=$?
  set -e
  seconds[$name]=$(($(date +%s) - start))
  children_cpu
  cpu[$name]=$((children_seconds - cpu_start))
  current=
  if [ "$status" = 0 ]; then outcome[$name]=ok; else outcome[$name]=failed; fi
}

phase_setup() {
  scripts/install-deps.sh
  QPX_WITH_FUZZ=1 scripts/install-deps.sh
  echo "no tests" >"$results/setup.counts"
}

for name in "${phases[@]}"; do
  declare -F "phase_$name" >/dev/null || { echo "unknown phase '$name'" >&2; exit 2; }
done
trap summary EXIT
run_phase setup
for name in "${phases[@]}"; do
  run_phase "$name"
done
for name in setup "${phases[@]}"; do
  [ "${outcome[$name]}" = ok ] || exit 1
done
