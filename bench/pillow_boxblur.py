#!/usr/bin/python3
"""Times Pillow's ImageFilter.BoxBlur on a 4000 x 3000 RGB image of noise.

Pillow's box blur uses the same (2r + 1)-square box with edge repetition as BlurQPX, in one
thread. For each radius it prints the best of N runs, in the calling thread's CPU time and in
wall time, as

    pillow radius=R cpu_ms=T wall_ms=W runs=N version=V

and, when Pillow cannot be imported, one line "pillow unavailable: REASON" (exit status 1).
Run it with the system Python (/usr/bin/python3), where Debian's python3-pil lives.
"""

import argparse
import sys

from pillow_timing import import_pillow, noise_image, timed_runs

WIDTH, HEIGHT = 4000, 3000


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5, help="runs per radius (best is kept)")
    parser.add_argument("--radii", type=int, nargs="+", default=[1, 10, 100])
    args = parser.parse_args()

    PIL = import_pillow()
    if PIL is None:
        return 1
    from PIL import ImageFilter

    image = noise_image("RGB", WIDTH, HEIGHT, 20261121)
    for radius in args.radii:
        box = ImageFilter.BoxBlur(radius)
        cpu, wall = timed_runs(lambda: image.filter(box), args.runs)
        print(f"pillow radius={radius} cpu_ms={min(cpu) * 1000:.2f} "
              f"wall_ms={min(wall) * 1000:.2f} runs={args.runs} version={PIL.__version__}",
              flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
