#!/usr/bin/env python3
"""Turns qpx_bench's JSON output and pillow_boxblur.py's lines into one Markdown table.

    bench_report.py BENCH_JSON [PILLOW_TXT]

Times are milliseconds of the running thread's CPU time: for qpx_bench the median of the
repetitions when it ran several, else its one figure; for Pillow its best run. Ratios are BlurQPX's time over the other's (above 1: BlurQPX is slower). Python
standard library only.
"""

import json
import re
import sys

APPS = ("console", "desktop")
RADII = (1, 10, 100)


def load_bench(path):
    """Times by run name ("Blur/console/1"), and errors by run name."""
    with open(path, encoding="utf-8") as file:
        data = json.load(file)
    singles, medians, errors = {}, {}, {}
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
    for entry in data.get("benchmarks", []):
        name = entry.get("run_name", entry["name"])
        if entry.get("error_occurred"):
            errors[name] = entry.get("error_message", "error")
            continue
        ms = entry["cpu_time"] * scale[entry.get("time_unit", "ns")]
        if entry.get("run_type") == "aggregate":
            if entry.get("aggregate_name") == "median":
                medians[name] = ms
        else:
            singles.setdefault(name, []).append(ms)
    times = {name: sorted(values)[len(values) // 2] for name, values in singles.items()}
    times.update(medians)
    return data.get("context", {}), times, errors


def load_pillow(path):
    times, note = {}, None
    if path is None:
        return times, "not run"
    try:
        with open(path, encoding="utf-8") as file:
            lines = file.read().splitlines()
    except OSError:
        return times, "not run"
    pattern = re.compile(r"pillow radius=(\d+) cpu_ms=([\d.]+) \S+ runs=(\d+) version=(\S+)")
    for line in lines:
        match = pattern.match(line)
        if match:
            times[int(match[1])] = float(match[2])
            note = f"Pillow {match[4]}, best of {match[3]}"
        elif line.startswith("pillow unavailable"):
            note = line
    return times, note or "no figures"


def cell(value):
    return "n/a" if value is None else f"{value:.1f}"


def ratio(ours, other):
    return "n/a" if ours is None or other is None or other == 0 else f"{ours / other:.2f}"


def main(argv):
    if len(argv) not in (2, 3):
        print(__doc__, file=sys.stderr)
        return 2
    context, times, errors = load_bench(argv[1])
    pillow, pillow_note = load_pillow(argv[2] if len(argv) == 3 else None)

    print(f"{context.get('picture', '4000x3000')} picture, {context.get('date', '')[:10]}, "
          f"{context.get('num_cpus', '?')} x {context.get('mhz_per_cpu', '?')} MHz; "
          f"OpenCV: {context.get('opencv', 'n/a')}; {pillow_note}")
    print()
    print("| case | BlurQPX ms | copy ms | BlurQPX / copy | OpenCV ms | BlurQPX / OpenCV "
          "| Pillow ms | BlurQPX / Pillow |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|")
    for app in APPS:
        copy = times.get(f"Copy/{app}")
        for radius in RADII:
            ours = times.get(f"Blur/{app}/{radius}")
            opencv = times.get(f"OpenCV/{radius}")
            theirs = pillow.get(radius)
            print(f"| {app} r={radius} | {cell(ours)} | {cell(copy)} | {ratio(ours, copy)} "
                  f"| {cell(opencv)} | {ratio(ours, opencv)} | {cell(theirs)} "
                  f"| {ratio(ours, theirs)} |")
    for name, message in sorted(errors.items()):
        print(f"\n{name}: {message}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
