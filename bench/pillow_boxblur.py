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
import random
import sys
import time

WIDTH, HEIGHT = 4000, 3000


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5, help="runs per radius (best is kept)")
    parser.add_argument("--radii", type=int, nargs="+", default=[1, 10, 100])
    args = parser.parse_args()

    try:
        import PIL
        from PIL import Image, ImageFilter
    except ImportError as error:
        print(f"pillow unavailable: {error}")
        return 1

    # Noise, made once: nothing the filter could take a shortcut on.
    noise = random.Random(20261121).randbytes(WIDTH * HEIGHT * 3)
    image = Image.frombytes("RGB", (WIDTH, HEIGHT), noise)
    image.load()

    for radius in args.radii:
        box = ImageFilter.BoxBlur(radius)
        image.filter(box)  # warm-up run, not counted
        best_cpu = best_wall = float("inf")
        for _ in range(args.runs):
            start_cpu, start_wall = time.thread_time(), time.perf_counter()
            result = image.filter(box)
            best_wall = min(best_wall, time.perf_counter() - start_wall)
            best_cpu = min(best_cpu, time.thread_time() - start_cpu)
            del result
        print(f"pillow radius={radius} cpu_ms={best_cpu * 1000:.2f} "
              f"wall_ms={best_wall * 1000:.2f} runs={args.runs} version={PIL.__version__}",
              flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
