"""What the Pillow timing scripts share: importing Pillow, pictures of noise, timed runs.

Python standard library only; the scripts run with the system Python (/usr/bin/python3), where
Debian's python3-pil lives.
"""

import random
import time


def import_pillow():
    """Pillow's package, or None after printing the line "pillow unavailable: REASON"."""
    try:
        import PIL
        import PIL.Image
        import PIL.ImageFilter  # noqa: F401 (loaded here so that a broken install shows now)
    except ImportError as error:
        print(f"pillow unavailable: {error}")
        return None
    return PIL


def noise_image(mode, width, height, seed):
    """A loaded image of `mode` filled with noise: nothing a filter could take a shortcut on."""
    from PIL import Image

    noise = random.Random(seed).randbytes(width * height * Image.getmodebands(mode))
    image = Image.frombytes(mode, (width, height), noise)
    image.load()
    return image


def timed_runs(action, runs):
    """Thread CPU seconds and wall seconds of each of `runs` calls of `action`, after one
    uncounted warm-up call. Each result is dropped before the next call."""
    action()
    cpu, wall = [], []
    for _ in range(runs):
        start_cpu, start_wall = time.thread_time(), time.perf_counter()
        result = action()
        wall.append(time.perf_counter() - start_wall)
        cpu.append(time.thread_time() - start_cpu)
        del result
    return cpu, wall
