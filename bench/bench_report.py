#!/usr/bin/env python3
"""Turns qpx_bench's JSON output and the Pillow scripts' lines into Markdown tables.

    bench_report.py BENCH_JSON [--pillow-blur TXT] [--pillow-resize TXT]

Times are milliseconds of CPU time: for qpx_bench the median of the repetitions when it ran
several, else its one figure (the running thread's time; libvips's cases the process's, as its
work runs on a worker thread); for Pillow the figure its script printed (BoxBlur: best run;
resizing: median run).

BlurQPX's table gives its ratios to a plain copy, OpenCV and Pillow (above 1: BlurQPX is
slower). ScaleQPX's table gives, for every row of a job, the ratio to the fastest peer doing
that job and to the copy floor of the job's output; for the shrink also to the floor of the
bytes the box resizer must read and write. A ScaleQPX row meets its target when it is no
slower than every peer and, for the shrink, within 2 x the read-and-write floor. Exit status 1
when a case failed (its message is printed). Python standard library only.
"""

import argparse
import json
import re
import sys

APPS = ("console", "desktop")
RADII = (1, 10, 100)
LARGE, SMALL = "4000x3000", "1000x750"
JOBS = {
    "shrink": "4000x3000 -> 1000x750 (box)",
    "cubic": "1000x750 -> 4000x3000, AntiAlias true",
    "nearest": "1000x750 -> 4000x3000, AntiAlias false",
}
# Peers in qpx_bench, by job: (run name, label).
BENCH_PEERS = {
    "shrink": (("OpenCV/shrink", "OpenCV INTER_AREA"),
               ("OpenCV/shrink/new-output", "OpenCV INTER_AREA, new output"),
               ("libvips/shrink", "libvips shrink")),
    "cubic": (("OpenCV/cubic", "OpenCV INTER_CUBIC"),
              ("OpenCV/cubic/new-output", "OpenCV INTER_CUBIC, new output"),
              ("libvips/cubic", "libvips resize cubic")),
    "nearest": (("OpenCV/nearest", "OpenCV INTER_NEAREST"),
                ("OpenCV/nearest/new-output", "OpenCV INTER_NEAREST, new output"),
                ("libvips/nearest", "libvips resize nearest")),
}
PEER_TARGET = 1.0  # ScaleQPX over the fastest peer
READ_WRITE_TARGET = 2.0  # the shrink over the floor of the bytes it must read and write


def load_bench(path):
    """The run's context, times by run name ("Blur/console/1"), and errors by run name."""
    with open(path, encoding="utf-8") as file:
        data = json.load(file)
    singles, medians, errors = {}, {}, {}
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
    for entry in data.get("benchmarks", []):
        # Cases that count the process's CPU time carry that in their name.
        name = re.sub(r"/(process_time|real_time)$", "", entry.get("run_name", entry["name"]))
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


def load_pillow(path, pattern, key, summary):
    """Times by key(match) from a Pillow script's lines, and a note on the run ("Pillow 9.4.0,
    best of 5" with `summary` "best")."""
    times, note = {}, None
    if path is None:
        return times, "Pillow not run"
    try:
        with open(path, encoding="utf-8") as file:
            lines = file.read().splitlines()
    except OSError:
        return times, "Pillow not run"
    for line in lines:
        match = re.match(pattern, line)
        if match:
            times[key(match)] = float(match["ms"])
            note = f"Pillow {match['version']}, {summary} of {match['runs']}"
        elif line.startswith("pillow unavailable"):
            note = line
    return times, note or "Pillow: no figures"


def load_pillow_blur(path):
    return load_pillow(
        path, r"pillow radius=(?P<radius>\d+) cpu_ms=(?P<ms>[\d.]+) \S+ runs=(?P<runs>\d+) "
        r"version=(?P<version>\S+)", lambda match: int(match["radius"]), "best")


def load_pillow_resize(path):
    return load_pillow(
        path, r"pillow job=(?P<job>\S+) variant=(?P<variant>\S+) cpu_ms=(?P<ms>[\d.]+) \S+ "
        r"runs=(?P<runs>\d+) version=(?P<version>\S+)",
        lambda match: (match["job"], match["variant"]), "median")


def cell(value):
    return "n/a" if value is None else f"{value:.1f}"


def quotient(ours, other):
    return None if ours is None or other is None or other == 0 else ours / other


def ratio(ours, other):
    value = quotient(ours, other)
    return "n/a" if value is None else f"{value:.2f}"


def least(values):
    known = [value for value in values if value is not None]
    return min(known) if known else None


def blur_table(context, times, pillow, pillow_note):
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


def job_rows(job, times, pillow):
    """The job's rows as (label, ms, copy floor, read-and-write floor, is ScaleQPX), its
    fastest peer as (ms, label), and its floor rows as (label, ms): the copies, and a new
    picture of the output's size made, written once and released, as every ScaleQPX call pays."""
    output = SMALL if job == "shrink" else LARGE
    copy_name = "Copy/{}/" + SMALL if job == "shrink" else "Copy/{}"
    copies = {app: times.get(copy_name.format(app)) for app in APPS}
    read_writes = {app: times.get(f"ReadWrite/{app}/shrink") if job == "shrink" else None
                   for app in APPS}

    peers = [(f"Pillow {variant if variant.startswith('reduce') else 'resize ' + variant}", ms)
             for (pillow_job, variant), ms in pillow.items() if pillow_job == job]
    peers += [(label, times.get(name)) for name, label in BENCH_PEERS[job]]
    timed = [(ms, label) for label, ms in peers if ms is not None]
    fastest = min(timed) if timed else (None, None)

    rows = [(f"ScaleQPX {app}", times.get(f"Scale/{app}/{job}"), copies[app], read_writes[app],
             True) for app in APPS]
    rows += [(label, ms, least(copies.values()), least(read_writes.values()), False)
             for label, ms in peers]
    floors = [(f"copy floor, {app}", copies[app]) for app in APPS]
    if job == "shrink":
        floors += [(f"read+write floor, {app}", read_writes[app]) for app in APPS]
    floors += [(f"new picture written once, {app}", times.get(f"NewPicture/{app}/{output}"))
               for app in APPS]
    return rows, fastest, floors


def verdict(ms, fastest, read_write):
    """Whether a ScaleQPX row meets its targets, and by how much it misses them."""
    if ms is None:
        return "not measured"
    to_peer = quotient(ms, fastest[0])
    to_floor = quotient(ms, read_write)
    if to_peer is None:
        return "no peer"
    misses = []
    if to_peer > PEER_TARGET:
        misses.append(f"{to_peer:.2f} x {fastest[1]}")
    if to_floor is not None and to_floor > READ_WRITE_TARGET:
        misses.append(f"{to_floor:.2f} x read+write floor (target {READ_WRITE_TARGET:g})")
    return "missed: " + ", ".join(misses) if misses else "met"


def scale_table(context, times, pillow, pillow_note):
    print(f"ScaleQPX and peers, yield 0: OpenCV {context.get('opencv', 'n/a')}, "
          f"libvips {context.get('libvips', 'n/a')}, {pillow_note}; "
          "floors: plain copies of the bytes, and a new output picture written once")
    print()
    print("| job | who | ms | / fastest peer | / copy floor | / read+write floor | target |")
    print("|---|---|---:|---:|---:|---:|---|")
    for job in JOBS:
        rows, fastest, floors = job_rows(job, times, pillow)
        for label, ms, copy, read_write, ours in rows:
            target = verdict(ms, fastest, read_write) if ours else ""
            rw = ratio(ms, read_write) if job == "shrink" else ""
            print(f"| {job} | {label} | {cell(ms)} | {ratio(ms, fastest[0])} "
                  f"| {ratio(ms, copy)} | {rw} | {target} |")
        for label, ms in floors:
            print(f"| {job} | {label} | {cell(ms)} | | | | |")
    print()
    for job, description in JOBS.items():
        print(f"- {job}: {description}")


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bench_json")
    parser.add_argument("--pillow-blur", help="pillow_boxblur.py's output")
    parser.add_argument("--pillow-resize", help="pillow_resize.py's output")
    args = parser.parse_args(argv[1:])

    context, times, errors = load_bench(args.bench_json)
    blur_table(context, times, *load_pillow_blur(args.pillow_blur))
    print()
    scale_table(context, times, *load_pillow_resize(args.pillow_resize))
    for name, message in sorted(errors.items()):
        print(f"\nFAILED {name}: {message}")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
