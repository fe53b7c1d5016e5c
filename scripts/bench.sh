#!/usr/bin/env bash
# Builds the benchmarks in build-bench and prints, in CPU time, BlurQPX's times next to a plain copy
# of the same pixels, the new picture it returns, OpenCV's cv::blur and Pillow's BoxBlur; ScaleQPX's
# next to OpenCV's, libvips's and Pillow's resizing and to the copy floors of the same jobs; and
# ScalingQPX's seven modes next to Pillow's and libvips's resizes with the same kernels; and
# DrawPictureFQPX's next to cairo drawing the same pictures and to a copy of the receiver's bytes;
# and ScaleImageAndMaskQPX's next to Pillow resizing RGBA images and to ScaleQPX on the picture and
# on its mask plus the copy of the resized mask into the result's. ScalingQPX, DrawPictureFQPX and
# ScaleImageAndMaskQPX (with the ScaleQPX calls it is held against) run on the normal module and on
# one built with plain loops only (in build-bench-plain). Then qpx from file to file beside the
# vips command doing the same jobs, in wall time (bench/end_to_end.py). Exits 1 when a case
# failed (a method returning nil or false, a leak), after printing what it has.
# Tuning through the environment:
#   QPX_BENCH_MIN_TIME    seconds each case runs at least, per repetition (default 1)
#   QPX_BENCH_SCALING_MIN_TIME
#                         the same for ScalingQPX's cases, whose calls are long (default 0.1)
#   QPX_BENCH_REPETITIONS repetitions of each case; the median is reported (default 3)
#   QPX_BENCH_SCALING_REPETITIONS
#                         the same for ScalingQPX's cases, which run shorter (default 5)
#   QPX_BENCH_DRAW_MIN_TIME
#                         seconds each DrawPictureFQPX and cairo case runs at least, per
#                         repetition (default 0.5)
#   QPX_BENCH_MASKED_MIN_TIME
#                         seconds each ScaleImageAndMaskQPX case, and each case it is held
#                         against, runs at least, per repetition (default 0.5)
#   QPX_BENCH_PILLOW_RUNS Pillow runs per case; the best blur and the median resize are
#                         reported (default 5)
set -euo pipefail
cd "$(dirname "$0")/.."

min_time=${QPX_BENCH_MIN_TIME:-1}
scaling_min_time=${QPX_BENCH_SCALING_MIN_TIME:-0.1}
repetitions=${QPX_BENCH_REPETITIONS:-3}
scaling_repetitions=${QPX_BENCH_SCALING_REPETITIONS:-5}
draw_min_time=${QPX_BENCH_DRAW_MIN_TIME:-0.5}
masked_min_time=${QPX_BENCH_MASKED_MIN_TIME:-0.5}
pillow_runs=${QPX_BENCH_PILLOW_RUNS:-5}
out=build-bench
plain_out=build-bench-plain

QPX_WITH_BENCH=1 scripts/install-deps.sh

# The peers are optional: without them their columns read n/a.
optional=()
for p in libopencv-dev libvips-dev libvips-tools libcairo2-dev python3-pil; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || optional+=("$p")
done
if [ ${#optional[@]} -gt 0 ]; then
  echo "installing optional peers: ${optional[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  if ! { "${sudo_cmd[@]}" apt-get update -qq &&
         DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq \
           --no-install-recommends "${optional[@]}" >/dev/null; }; then
    echo "could not install ${optional[*]}; continuing without them" >&2
  fi
fi

cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=Release -DQPX_BUILD_BENCH=ON -DQPX_BUILD_TESTS=OFF \
  | grep 'qpx_bench' || true
cmake --build "$out" -j "$(nproc)" --target qpx_bench qpx
# The same module with its vector loops left out, for the plain path's times.
cmake -S . -B "$plain_out" -DCMAKE_BUILD_TYPE=Release -DQPX_PLAIN_LOOPS=ON \
  -DQPX_BUILD_BENCH=OFF -DQPX_BUILD_TESTS=OFF >/dev/null
cmake --build "$plain_out" -j "$(nproc)" --target qpxplugin

# The repetitions of all cases run interleaved in random order, so that the slow spells of a
# shared machine fall on every case alike rather than on whichever case runs through them.
"$out/bin/qpx_bench" --benchmark_min_time="$min_time" --benchmark_repetitions="$repetitions" \
  --scaling_min_time="$scaling_min_time" --scaling_repetitions="$scaling_repetitions" \
  --draw_min_time="$draw_min_time" --masked_min_time="$masked_min_time" \
  --plain_module="$plain_out/bin/qpxplugin.so" \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
  --benchmark_out="$out/qpx_bench.json" --benchmark_out_format=json

# Debian's Pillow lives in the system Python, which a pyenv python3 on PATH would hide.
# -B: the scripts share a module, whose compiled copy would otherwise land in bench/.
/usr/bin/python3 -B bench/pillow_boxblur.py --runs "$pillow_runs" | tee "$out/pillow.txt" || true
/usr/bin/python3 -B bench/pillow_resize.py --runs "$pillow_runs" | tee "$out/pillow_resize.txt" ||
  true

echo
python=/usr/bin/python3
[ -x "$python" ] || python=python3
"$python" bench/bench_report.py "$out/qpx_bench.json" --pillow-blur "$out/pillow.txt" \
  --pillow-resize "$out/pillow_resize.txt" | tee "$out/report.md"

# qpx from file to file beside the vips command (libvips-tools).
echo
/usr/bin/python3 -B bench/end_to_end.py --qpx "$out/bin/qpx" --runs "$pillow_runs" |
  tee -a "$out/report.md"
