#!/usr/bin/python3
"""Times Pillow's resizing on the jobs ScaleQPX, ScalingQPX and ScaleImageAndMaskQPX are
measured on.

    shrink        4000 x 3000 -> 1000 x 750: Image.reduce(4), and Image.resize with BOX,
                  BILINEAR, BICUBIC and LANCZOS (their kernels widened to the scale, as
                  ScalingQPX's are)
    enlarge       1000 x 750 -> 4000 x 3000: Image.resize with NEAREST, BOX, BILINEAR, BICUBIC
                  and LANCZOS
    shrink-rgba   the shrink by Image.reduce(4) and Image.resize with BOX, and
    enlarge-rgba  the enlargement by Image.resize with BICUBIC, of an RGBA image: a picture
                  with its mask as the fourth channel, as ScaleImageAndMaskQPX resizes both

on images of noise, RGB but for the -rgba jobs (Pillow keeps RGB pixels in 4 bytes, as the
host keeps a picture's), in one thread. For each job and way it prints the median of N runs,
in the calling thread's CPU time and in wall time, as

    pillow job=J variant=V cpu_ms=T wall_ms=W runs=N version=V

and, when Pillow cannot be imported, one line "pillow unavailable: REASON" (exit status 1).
Run it with the system Python (/usr/bin/python3), where Debian's python3-pil lives.
"""

import argparse
import statistics
import sys

from pillow_timing import import_pillow, noise_image, timed_runs

LARGE, SMALL, THUMB = (4000, 3000), (1000, 750), (400, 300)


def jobs():
    """(job, variant, source mode and size, action on the source) for every measured way."""
    from PIL import Image

    # The Resampling enum is Pillow 9.1's; older versions have the names on Image itself.
    resampling = getattr(Image, "Resampling", Image)

    def resizes(size, names):
        return [(name, resizer(size, getattr(resampling, name))) for name in names]

    reduce4 = [("reduce(4)", lambda image: image.reduce(4))]
    ways = {
        ("shrink", "RGB", LARGE): reduce4 + resizes(SMALL, ("BOX", "BILINEAR", "BICUBIC",
                                                            "LANCZOS")),
        ("thumbnail", "RGB", LARGE): resizes(THUMB, ("BOX", "BILINEAR", "BICUBIC", "LANCZOS")),
        ("enlarge", "RGB", SMALL): resizes(LARGE, ("NEAREST", "BOX", "BILINEAR", "BICUBIC",
                                                    "LANCZOS")),
        ("shrink-rgba", "RGBA", LARGE): reduce4 + resizes(SMALL, ("BOX",)),
        ("enlarge-rgba", "RGBA", SMALL): resizes(LARGE, ("BICUBIC",)),
    }
    return [(job, variant, (mode, size), action)
            for (job, mode, size), actions in ways.items() for variant, action in actions]


def resizer(size, resample):
    return lambda image: image.resize(size, resample)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5, help="runs per way (median is kept)")
    args = parser.parse_args()

    PIL = import_pillow()
    if PIL is None:
        return 1

    seeds = {LARGE: 20261121, SMALL: 20261122}
    sources = {}
    for job, variant, (mode, size), action in jobs():
        if (mode, size) not in sources:
            sources[mode, size] = noise_image(mode, *size, seeds[size])
        source = sources[mode, size]
        cpu, wall = timed_runs(lambda: action(source), args.runs)
        print(f"pillow job={job} variant={variant} cpu_ms={statistics.median(cpu) * 1000:.2f} "
              f"wall_ms={statistics.median(wall) * 1000:.2f} runs={args.runs} "
              f"version={PIL.__version__}", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
