#!/usr/bin/env python3
"""Turns qpx_bench's JSON output and the Pillow scripts' lines into Markdown tables.

    bench_report.py BENCH_JSON [--pillow-blur TXT] [--pillow-resize TXT]

Times are milliseconds of CPU time: for qpx_bench the median of the repetitions when it ran
several, else its one figure (the running thread's time; libvips's cases the process's, as its
work runs on a worker thread); for Pillow the figure its script printed (BoxBlur: best run;
resizing: median run).

BlurQPX's table gives its ratios to a plain copy, OpenCV and Pillow (above 1: BlurQPX is
slower), and the time the host spends on the new picture it returns (made, written once and
released, timed apart), which BlurQPX's time includes. A row meets its target when BlurQPX is
no slower than OpenCV and within 4 x the copy. ScaleQPX's table gives, for every row of a job, the ratio to the fastest peer doing
that job and to the copy floor of the job's output; for the shrink also to the floor of the
bytes the box resizer must read and write. A ScaleQPX row meets its target when it is no
slower than every peer and, for the shrink, within 2 x the read-and-write floor.

ScalingQPX's tables, one per job (shrink, the 4000x3000 -> 400x300 thumbnail, enlarge), give for every mode its time on the normal build (vector
loops) and on the build with plain loops, each as a ratio to the fastest Pillow or libvips
resize with the same kernel; a mode meets its target when its normal build is no slower than
that peer. Mode 7 has no peer with its kernel and is held against Lanczos 3's peers, the same
support; mode 4 is shown beside them without a verdict, its time per tap beside Lanczos 3's. OpenCV's rows stand for reference only.

ScaleImageAndMaskQPX's table gives, for the shrink and the cubic enlargement of a picture with
a mask, its time as a ratio to the fastest way Pillow resizes the same as an RGBA image (the
mask as the fourth channel) and to its target: ScaleQPX on the picture alone twice (once for
the picture, once for its mask, a 32-bit picture of the same size), plus the mask made for a
result and the resized mask put into it, timed apart in the same run; the plain loops' time
against theirs the same way. A row meets its target when it takes no longer than that sum.

DrawPictureFQPX's table gives, for a 2000 x 2000 picture and a 64 x 64 sprite drawn onto a
4000 x 3000 receiver, without and with the picture's mask, its time on the normal build and
on the build with plain loops, each as a ratio to the fastest way cairo draws the same and to
a copy of the receiver's rows. The picture meets its target when the normal build is no
slower than cairo; the sprite, which DrawPictureFQPX draws by rewriting the whole receiver,
when it is within 2 x the copy. Exit status 1 when a case failed (its message is printed).
Python standard library only.
"""

import argparse
import json
import re
import sys

APPS = ("console", "desktop")
RADII = (1, 10, 100)
LARGE, SMALL, THUMB = "4000x3000", "1000x750", "400x300"
JOBS = {
    "shrink": "4000x3000 -> 1000x750 (box)",
    "cubic": "1000x750 -> 4000x3000, AntiAlias true",
    "nearest": "1000x750 -> 4000x3000, AntiAlias false",
}
# The resize jobs: what they make from what.
RESIZES = {"shrink": (LARGE, SMALL), "enlarge": (SMALL, LARGE)}
# ScalingQPX's also shrink to a thumbnail, the job its users give it most.
SCALING_RESIZES = {"shrink": (LARGE, SMALL), "thumbnail": (LARGE, THUMB), "enlarge": (SMALL, LARGE)}
# Peers by case name: LIBRARY/WAY/RESIZE[/new-output]; Pillow's come from its script.
SCALE_PEERS = {
    "shrink": ("Pillow/reduce(4)/shrink", "Pillow/BOX/shrink", "OpenCV/area/shrink",
               "OpenCV/area/shrink/new-output", "libvips/box/shrink"),
    "cubic": ("Pillow/BICUBIC/enlarge", "OpenCV/cubic/enlarge", "OpenCV/cubic/enlarge/new-output",
              "libvips/cubic/enlarge"),
    "nearest": ("Pillow/NEAREST/enlarge", "OpenCV/nearest/enlarge",
                "OpenCV/nearest/enlarge/new-output", "libvips/nearest/enlarge"),
}
PEER_TARGET = 1.0  # ScaleQPX, ScalingQPX and DrawPictureFQPX over the fastest peer
READ_WRITE_TARGET = 2.0  # the shrink over the floor of the bytes it must read and write
SPRITE_TARGET = 2.0  # DrawPictureFQPX's sprite over the copy of the receiver's bytes
BLUR_COPY_TARGET = 4.0  # BlurQPX over the copy of the picture's bytes

# ScaleImageAndMaskQPX's jobs, by ScaleQPX's job names: the size of their output, and Pillow's
# resizes of the same as RGBA images.
MASKED_JOBS = {
    "shrink": (SMALL, ("Pillow/reduce(4)/shrink-rgba", "Pillow/BOX/shrink-rgba")),
    "cubic": (LARGE, ("Pillow/BICUBIC/enlarge-rgba",)),
}
MASK_TARGET = 1.0  # ScaleImageAndMaskQPX over two ScaleQPX calls plus the mask copy

# DrawPictureFQPX's jobs, each without and with the picture's mask, and cairo's ways of drawing
# the same, by case name cairo/JOB/SOURCE.
DRAW_JOBS = ("picture", "sprite")
DRAW_MASKS = ("no-mask", "mask")
CAIRO_SOURCES = {
    "no-mask": (("no-mask", "cairo, RGB24 picture"),
                ("no-mask/argb32", "cairo, ARGB32 picture, alpha 255")),
    "mask": (("mask", "cairo, ARGB32 picture, mask's opacity as premultiplied alpha"),),
}

SCALING_MODES = {1: "triangle", 2: "box", 3: "Lanczos 3", 4: "Lanczos 8", 5: "Mitchell",
                 6: "cubic a=-0.75", 7: "6-point cubic"}
# The Pillow and libvips resizes with each mode's kernel, by resize. For the box shrink by 4,
# libvips's shrink computes the same 4 x 4 averages.
SCALING_PEERS = {
    1: {"shrink": ("Pillow/BILINEAR/shrink", "libvips/linear/shrink"),
        "thumbnail": ("Pillow/BILINEAR/thumbnail", "libvips/linear/thumbnail"),
        "enlarge": ("Pillow/BILINEAR/enlarge", "libvips/linear/enlarge")},
    2: {"shrink": ("Pillow/BOX/shrink", "libvips/box/shrink"),
        "thumbnail": ("Pillow/BOX/thumbnail", "libvips/box/thumbnail"),
        "enlarge": ("Pillow/BOX/enlarge",)},
    3: {"shrink": ("Pillow/LANCZOS/shrink", "libvips/lanczos3/shrink"),
        "thumbnail": ("Pillow/LANCZOS/thumbnail", "libvips/lanczos3/thumbnail"),
        "enlarge": ("Pillow/LANCZOS/enlarge", "libvips/cubic/enlarge")},
    5: {"shrink": ("libvips/mitchell/shrink",), "thumbnail": ("libvips/mitchell/thumbnail",),
        "enlarge": ("libvips/cubic/enlarge",)},
    6: {"shrink": ("Pillow/BICUBIC/shrink", "libvips/cubic/shrink"),
        "thumbnail": ("Pillow/BICUBIC/thumbnail", "libvips/cubic/thumbnail"),
        "enlarge": ("Pillow/BICUBIC/enlarge", "libvips/cubic/enlarge")},
}
# Modes without a peer of their own, and the mode whose peers are the closest: Lanczos 3 for
# Lanczos 8, and for the six-point cubic, whose support of 3 gives it as many taps.
SCALING_CLOSEST = {4: 3, 7: 3}
# Modes held to the target against their closest peers' kernel: the six-point cubic has the
# support of Lanczos 3 (3), so as many taps.
SCALING_SAME_SUPPORT = {7}
# Each mode's kernel support, in source pixels at scale 1. A pass samples about 2 x support /
# scale source pixels for each output pixel when shrinking (the kernel widens with the scale),
# 2 x support when enlarging.
SCALING_SUPPORT = {1: 1.0, 2: 0.5, 3: 3.0, 4: 8.0, 5: 2.0, 6: 2.0, 7: 3.0}
# OpenCV, by mode and resize: reference only. Its linear, cubic and Lanczos shrinks keep their
# fixed taps (no anti-aliasing), so they do less work than the others. Pillow's reduce(4), a
# shrink by whole factors only, is shown beside the box shrink for reference too.
SCALING_REFERENCES = {
    1: {"shrink": ("OpenCV/linear/shrink",), "enlarge": ("OpenCV/linear/enlarge",)},
    2: {"shrink": ("Pillow/reduce(4)/shrink", "OpenCV/area/shrink"), "enlarge": ()},
    3: {"shrink": ("OpenCV/lanczos4/shrink",), "enlarge": ("OpenCV/lanczos4/enlarge",)},
    4: {"shrink": ("OpenCV/lanczos4/shrink",), "enlarge": ("OpenCV/lanczos4/enlarge",)},
    6: {"shrink": ("OpenCV/cubic/shrink",), "enlarge": ("OpenCV/cubic/enlarge",)},
}


def label(name):
    """A peer's row label from its case name."""
    library, way, resize, *rest = name.split("/")
    if library == "Pillow":
        text = f"Pillow {way}" if way.startswith("reduce") else f"Pillow resize {way}"
    elif library == "OpenCV":
        text = f"OpenCV INTER_{way.upper()}"
    elif way == "box":
        text = "libvips shrink"
    elif resize in ("shrink", "thumbnail"):
        text = f"libvips reduce {way}"
    elif way == "cubic":
        # libvips enlarges with its bicubic interpolator for every cubic and Lanczos kernel.
        text = "libvips resize cubic, mitchell or lanczos3 (all bicubic)"
    else:
        text = f"libvips resize {way}"
    return text + (", new output" if rest else "")


def load_bench(path):
    """The run's context, times by case name ("Blur/console/1"), and errors by case name."""
    with open(path, encoding="utf-8") as file:
        data = json.load(file)
    singles, medians, errors = {}, {}, {}
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
    for entry in data.get("benchmarks", []):
        # The library appends how a case is timed to its name.
        name = re.sub(r"/(process_time|real_time|min_time:[\d.]+|repeats:\d+)", "",
                      entry.get("run_name", entry["name"]))
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
        lambda match: f"Pillow/{match['variant']}/{match['job']}", "median")


def cell(value):
    """Milliseconds to one decimal; below 0.1 ms (cairo's sprite), to three."""
    if value is None:
        return "n/a"
    return f"{value:.1f}" if value >= 0.1 else f"{value:.3f}"


def quotient(ours, other):
    return None if ours is None or other is None or other == 0 else ours / other


def ratio(ours, other):
    value = quotient(ours, other)
    return "n/a" if value is None else f"{value:.2f}"


def least(values):
    known = [value for value in values if value is not None]
    return min(known) if known else None


def blur_table(context, times, pillow, pillow_note):
    """BlurQPX beside the copy floor, the new picture it has to return (made by the host,
    written once and released: mostly the first touch of 48 MB of fresh pages) and its peers.
    "own" is BlurQPX's time less the new picture's. A row meets its targets when BlurQPX is no
    slower than OpenCV and within BLUR_COPY_TARGET x the copy floor."""
    print(f"{context.get('picture', '4000x3000')} picture, {context.get('date', '')[:10]}, "
          f"{context.get('num_cpus', '?')} x {context.get('mhz_per_cpu', '?')} MHz; "
          f"OpenCV: {context.get('opencv', 'n/a')}; {pillow_note}")
    print()
    print("| case | BlurQPX ms | new picture ms | own ms | copy ms | BlurQPX / copy "
          "| own / copy | OpenCV ms | BlurQPX / OpenCV | Pillow ms | BlurQPX / Pillow | target |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---|")
    for app in APPS:
        copy = times.get(f"Copy/{app}")
        new_picture = times.get(f"NewPicture/{app}/{LARGE}")
        for radius in RADII:
            ours = times.get(f"Blur/{app}/{radius}")
            own = None if ours is None or new_picture is None else ours - new_picture
            opencv = times.get(f"OpenCV/{radius}")
            theirs = pillow.get(radius)
            target = judged(ours, [(opencv, PEER_TARGET, "OpenCV"),
                                   (copy, BLUR_COPY_TARGET, "copy floor")])
            print(f"| {app} r={radius} | {cell(ours)} | {cell(new_picture)} | {cell(own)} "
                  f"| {cell(copy)} | {ratio(ours, copy)} | {ratio(own, copy)} | {cell(opencv)} "
                  f"| {ratio(ours, opencv)} | {cell(theirs)} | {ratio(ours, theirs)} "
                  f"| {target} |")


def job_rows(job, times):
    """The job's rows as (label, ms, copy floor, read-and-write floor, is ScaleQPX), its
    fastest peer as (ms, label), and its floor rows as (label, ms): the copies, and a new
    picture of the output's size made, written once and released, as every ScaleQPX call pays."""
    output = SMALL if job == "shrink" else LARGE
    copy_name = "Copy/{}/" + SMALL if job == "shrink" else "Copy/{}"
    copies = {app: times.get(copy_name.format(app)) for app in APPS}
    read_writes = {app: times.get(f"ReadWrite/{app}/shrink") if job == "shrink" else None
                   for app in APPS}

    peers = [(label(name), times.get(name)) for name in SCALE_PEERS[job]]
    fastest = fastest_of(peers)

    rows = [(f"ScaleQPX {app}", times.get(f"Scale/{app}/{job}"), copies[app], read_writes[app],
             True) for app in APPS]
    rows += [(text, ms, least(copies.values()), least(read_writes.values()), False)
             for text, ms in peers]
    floors = [(f"copy floor, {app}", copies[app]) for app in APPS]
    if job == "shrink":
        floors += [(f"read+write floor, {app}", read_writes[app]) for app in APPS]
    floors += new_picture_floors(times, output)
    return rows, fastest, floors


def fastest_of(peers):
    """The fastest of (label, ms) as (ms, label); (None, None) when none was timed."""
    timed = [(ms, text) for text, ms in peers if ms is not None]
    return min(timed) if timed else (None, None)


def new_picture_floors(times, size):
    return [(f"new picture written once, {app}", times.get(f"NewPicture/{app}/{size}"))
            for app in APPS]


def judged(ms, limits, missing="no peer"):
    """Whether a row of `ms` meets its limits, (denominator ms, target ratio, what it is) each,
    and by how much it misses them; `missing` when no denominator was timed."""
    if ms is None:
        return "not measured"
    known = [(quotient(ms, denominator), target, what) for denominator, target, what in limits
             if quotient(ms, denominator) is not None]
    if not known:
        return missing
    # Judged as printed: a row that reads 1.00 meets a target of 1.
    misses = [f"{value:.2f} x {what}" for value, target, what in known
              if round(value, 2) > target]
    return "missed: " + ", ".join(misses) if misses else "met"


def verdict(ms, fastest, read_write):
    """Whether a ScaleQPX or ScalingQPX row meets its targets, and by how much it misses them."""
    if ms is not None and quotient(ms, fastest[0]) is None:
        return "no peer"
    return judged(ms, [(fastest[0], PEER_TARGET, fastest[1]),
                       (read_write, READ_WRITE_TARGET,
                        f"read+write floor (target {READ_WRITE_TARGET:g})")])


def scale_table(context, times, pillow_note):
    print(f"ScaleQPX and peers, yield 0: OpenCV {context.get('opencv', 'n/a')}, "
          f"libvips {context.get('libvips', 'n/a')}, {pillow_note}; "
          "floors: plain copies of the bytes, and a new output picture written once")
    print()
    print("| job | who | ms | / fastest peer | / copy floor | / read+write floor | target |")
    print("|---|---|---:|---:|---:|---:|---|")
    for job in JOBS:
        rows, fastest, floors = job_rows(job, times)
        for text, ms, copy, read_write, ours in rows:
            target = verdict(ms, fastest, read_write) if ours else ""
            rw = ratio(ms, read_write) if job == "shrink" else ""
            print(f"| {job} | {text} | {cell(ms)} | {ratio(ms, fastest[0])} "
                  f"| {ratio(ms, copy)} | {rw} | {target} |")
        for text, ms in floors:
            print(f"| {job} | {text} | {cell(ms)} | | | | |")
    print()
    for job, description in JOBS.items():
        print(f"- {job}: {description}")


def plain_cells(ours, plain, denominators):
    """The plain loops' cells of a row: their time and its ratios to `denominators`; blank on
    a peer's row."""
    if not ours:
        cells = [""] * (1 + len(denominators))
    elif plain is None:
        cells = ["not run"] + [""] * len(denominators)
    else:
        cells = [cell(plain)] + [ratio(plain, denominator) for denominator in denominators]
    return " | ".join(cells)


def note_miss(misses, what, ms, target):
    """Adds a row of ours that misses its target or was not measured to `misses`."""
    if target.startswith("missed") or target == "not measured":
        misses.append(f"{what}: {cell(ms)} ms, {target.removeprefix('missed: ')}")


def print_misses(misses, method, all_met):
    if misses:
        print(f"{method} rows missing the target or not measured:")
        print()
        for miss in misses:
            print(f"- {miss}")
    else:
        print(all_met)


def scaling_rows(mode, resize, times):
    """The mode's rows as (label, ms, plain loops ms or None, target), its fastest peer as
    (ms, label), for one resize."""
    own = mode not in SCALING_CLOSEST
    peer_names = SCALING_PEERS[SCALING_CLOSEST.get(mode, mode)][resize]
    prefix = "" if own else f"closest, {SCALING_MODES[SCALING_CLOSEST[mode]]}: "
    peers = [(prefix + label(name), times.get(name)) for name in peer_names]
    fastest = fastest_of(peers)

    rows = []
    for app in APPS:
        ms = times.get(f"Scaling/{app}/{resize}/{mode}")
        plain = times.get(f"Scaling/{app}/{resize}/plain/{mode}")
        if not own and mode not in SCALING_SAME_SUPPORT:
            target = "no peer with its kernel"
        else:
            target = verdict(ms, fastest, None)
        rows.append((f"ScalingQPX {app}", ms, plain, target))
    rows += [(text, ms, None, "") for text, ms in peers]
    note = " (reference, no anti-aliasing)" if resize == "shrink" else " (reference)"
    for name in SCALING_REFERENCES.get(mode, {}).get(resize, ()):
        reference = note if name.startswith("OpenCV/") and name != "OpenCV/area/shrink" \
            else " (reference)"
        rows.append((label(name) + reference, times.get(name), None, ""))
    return rows, fastest


def scaling_taps(mode, source, output):
    """About how many taps both passes of `mode` make from `source` to `output` ("WxH")."""
    (sw, sh), (ow, oh) = (tuple(int(v) for v in size.split("x")) for size in (source, output))
    def per_output(inputs, outputs):
        return 2 * SCALING_SUPPORT[mode] * max(inputs / outputs, 1.0)
    return sh * ow * per_output(sw, ow) + oh * ow * per_output(sh, oh)


def scaling_table(context, times, pillow_note):
    print(f"ScalingQPX and peers, yield 0: median of {context.get('scaling_repetitions', '?')} "
          f"repetitions of at least {context.get('scaling_min_time', '?')} s; plain loops from "
          f"{context.get('plain_module', 'n/a')} (desktop only); "
          f"OpenCV {context.get('opencv', 'n/a')}, libvips {context.get('libvips', 'n/a')}, "
          f"{pillow_note}")
    misses = []
    for resize, (source, output) in SCALING_RESIZES.items():
        print()
        print(f"{resize}, {source} -> {output}:")
        print()
        print("| mode | who | ms | new picture ms | own ms | ns per tap | / fastest peer "
              "| plain loops ms | plain / fastest peer | target |")
        print("|---|---|---:|---:|---:|---:|---:|---:|---:|---|")
        for mode, kernel in SCALING_MODES.items():
            rows, fastest = scaling_rows(mode, resize, times)
            for text, ms, plain, target in rows:
                ours = text.startswith("ScalingQPX")
                plain_part = plain_cells(ours, plain, [fastest[0]])
                own_part = " | | "
                if ours:
                    app = text.split()[-1]
                    floor = times.get(f"NewPicture/{app}/{output}")
                    own = ms - floor if ms is not None and floor is not None else None
                    taps = scaling_taps(mode, source, output)
                    per_tap = f"{own * 1e6 / taps:.2f}" if own is not None else "n/a"
                    own_part = f"{cell(floor)} | {cell(own)} | {per_tap}"
                print(f"| {mode} {kernel} | {text} | {cell(ms)} | {own_part} "
                      f"| {ratio(ms, fastest[0])} | {plain_part} | {target} |")
                note_miss(misses, f"{resize} mode {mode} ({kernel}), {text}", ms, target)
        for text, ms in new_picture_floors(times, output):
            print(f"| | {text} | {cell(ms)} | | | | | | | |")
    print()
    print("*new picture*: the host's new picture of the output's size, written once and "
          "released (timed apart); *own*: the call less that; *ns per tap*: own time over the "
          "taps of both passes, about 2 x support / scale (shrink) or 2 x support (enlarge) "
          "source pixels per output pixel and pass.")
    print()
    print_misses(misses, "ScalingQPX", "Every ScalingQPX row with a peer of its kernel meets the "
                 "target.")


def target_of(parts):
    """ScaleImageAndMaskQPX's target from ScaleQPX's time and the mask copy's: ScaleQPX once
    for the picture and once for its mask, which the resizers treat as a picture of that size."""
    scale, mask_copy = parts
    return None if scale is None or mask_copy is None else 2 * scale + mask_copy


def masked_rows(job, times, misses):
    """The table's rows of a job as (who, cells after it): ScaleImageAndMaskQPX's, the parts of
    its targets, and Pillow's. Adds the rows that miss a target to `misses`."""
    output, pillow_names = MASKED_JOBS[job]
    peers = [(label(name) + ", RGBA", times.get(name)) for name in pillow_names]
    fastest = fastest_of(peers)[0]
    what = "2 x ScaleQPX + mask copy"
    rows, parts = [], []
    for app in APPS:
        def part_times(suffix, app=app):
            return [times.get(f"Scale/{app}/{job}{suffix}"), times.get(f"MaskCopy/{app}/{output}")]

        who = f"ScaleImageAndMaskQPX {app}"
        ms, target = times.get(f"ScaleImageAndMask/{app}/{job}"), target_of(part_times(""))
        verdict_text = judged(ms, [(target, MASK_TARGET, what)], "no target")
        note_miss(misses, f"{job}, {who}", ms, verdict_text)
        plain = times.get(f"ScaleImageAndMask/{app}/{job}/plain")
        if plain is None:
            plain_part = ["not run", "", "", ""]
        else:
            plain_target = target_of(part_times("/plain"))
            plain_verdict = judged(plain, [(plain_target, MASK_TARGET, what)], "no target")
            note_miss(misses, f"{job}, {who}, plain loops", plain, plain_verdict)
            verdict_text += f"; plain loops: {plain_verdict}"
            plain_part = [cell(plain), ratio(plain, fastest), cell(plain_target),
                          ratio(plain, plain_target)]
        rows.append((who, [cell(ms), ratio(ms, fastest), cell(target), ratio(ms, target)] +
                     plain_part + [verdict_text]))
        names = ("ScaleQPX on the picture alone (counted twice: picture and mask)",
                 "mask made for the result, resized mask put into it")
        plain_parts = part_times("/plain") if plain is not None else [None] * len(names)
        for text, part, plain_part in zip(names, part_times(""), plain_parts):
            plain_text = "" if plain_part is None else cell(plain_part)
            parts.append((f"{text}, {app}", [cell(part), "", "", "", plain_text, "", "", "", ""]))
    peer_rows = [(text, [cell(ms), ratio(ms, fastest)] + [""] * 7) for text, ms in peers]
    return rows + parts + peer_rows


def masked_table(context, times, pillow_note):
    print(f"ScaleImageAndMaskQPX, yield 0, on a picture of noise with a mask of noise, median of "
          f"repetitions of at least {context.get('masked_min_time', '?')} s, against Pillow "
          f"resizing RGBA images ({pillow_note}); target: 2 x ScaleQPX on the picture alone "
          "(the picture, and its mask of the same size) + the mask made for the result with the "
          "resized mask put into it, timed apart in the same run; plain loops from "
          f"{context.get('plain_module', 'n/a')} (desktop only; the mask copy is the host's, "
          "the same for both builds)")
    print()
    print("| job | who | ms | / fastest Pillow RGBA | target ms | / target | plain loops ms "
          "| plain / fastest Pillow RGBA | plain target ms | plain / plain target | target |")
    print("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---|")
    misses = []
    for job in MASKED_JOBS:
        for who, cells in masked_rows(job, times, misses):
            print(f"| {job} | {who} | " + " | ".join(cells) + " |")
    print()
    for job in MASKED_JOBS:
        print(f"- {job}: {JOBS[job]}")
    print()
    print_misses(misses, "ScaleImageAndMaskQPX", "Every ScaleImageAndMaskQPX row meets its "
                 "target.")


def draw_rows(job, mask, times):
    """The rows of a job with or without mask as (label, ms, copy floor, plain loops ms or
    None, target), and its fastest cairo peer as (ms, label). The whole picture is held
    against cairo; the sprite, which cairo draws by touching its own few pixels while
    DrawPictureFQPX rewrites every pixel of the receiver, against the copy of the receiver."""
    copies = {app: times.get(f"Copy/{app}") for app in APPS}
    peers = [(text, times.get(f"cairo/{job}/{name}")) for name, text in CAIRO_SOURCES[mask]]
    fastest = fastest_of(peers)
    rows = []
    for app in APPS:
        ms = times.get(f"Draw/{app}/{job}/{mask}")
        if job == "sprite":
            target = judged(ms, [(copies[app], SPRITE_TARGET,
                                  f"copy floor (target {SPRITE_TARGET:g})")], "no floor")
        else:
            target = judged(ms, [(fastest[0], PEER_TARGET, fastest[1])])
        rows.append((f"DrawPictureFQPX {app}", ms, copies[app],
                     times.get(f"Draw/{app}/{job}/plain/{mask}"), target))
    rows += [(text, ms, least(copies.values()), None, "") for text, ms in peers]
    return rows, fastest


def draw_table(context, times):
    print(f"DrawPictureFQPX and cairo {context.get('cairo', 'n/a')}, yield 0, alpha 0.5, median "
          f"of repetitions of at least {context.get('draw_min_time', '?')} s, onto a "
          f"{context.get('picture', '4000x3000')} receiver in place: picture "
          f"{context.get('draw_picture', '?')}, sprite {context.get('draw_sprite', '?')}; "
          "floor: every row of the receiver copied into another picture; plain loops from "
          f"{context.get('plain_module', 'n/a')} (desktop only)")
    print()
    print("| job | mask | who | ms | / fastest cairo | / copy floor | plain loops ms "
          "| plain / fastest cairo | plain / copy floor | target |")
    print("|---|---|---|---:|---:|---:|---:|---:|---:|---|")
    misses = []
    for job in DRAW_JOBS:
        for mask in DRAW_MASKS:
            rows, fastest = draw_rows(job, mask, times)
            for text, ms, copy, plain, target in rows:
                plain_part = plain_cells(text.startswith("DrawPictureFQPX"), plain,
                                         [fastest[0], copy])
                print(f"| {job} | {mask} | {text} | {cell(ms)} | {ratio(ms, fastest[0])} "
                      f"| {ratio(ms, copy)} | {plain_part} | {target} |")
                note_miss(misses, f"{job}, {mask}, {text}", ms, target)
        for app in APPS:
            print(f"| {job} | | copy floor, {app} | {cell(times.get(f'Copy/{app}'))} "
                  "| | | | | | |")
    print()
    print(f"Targets: the picture no slower than the fastest cairo way (at most {PEER_TARGET:g} x); "
          f"the sprite within {SPRITE_TARGET:g} x the copy floor of its kind of host.")
    print()
    print_misses(misses, "DrawPictureFQPX", "Every DrawPictureFQPX row meets its target.")


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bench_json")
    parser.add_argument("--pillow-blur", help="pillow_boxblur.py's output")
    parser.add_argument("--pillow-resize", help="pillow_resize.py's output")
    args = parser.parse_args(argv[1:])

    context, times, errors = load_bench(args.bench_json)
    resizes, pillow_note = load_pillow_resize(args.pillow_resize)
    times.update(resizes)
    blur_table(context, times, *load_pillow_blur(args.pillow_blur))
    print()
    scale_table(context, times, pillow_note)
    print()
    scaling_table(context, times, pillow_note)
    print()
    masked_table(context, times, pillow_note)
    print()
    draw_table(context, times)
    for name, message in sorted(errors.items()):
        print(f"\nFAILED {name}: {message}")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
