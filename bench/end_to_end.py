"""qpx from file to file beside the vips command doing the same job, wall time.

Makes a 4000 x 3000 JPEG photo-like picture at quality 90 (Pillow: smoothed noise over a
gradient), then times, interleaved, each pair of commands `--runs` times and prints a Markdown
table of the medians (wall ms) with qpx's ratio to vips:

  resample to 1000 x 750, Lanczos 3, as PNG    qpx resample          vips resize 0.25 lanczos3
  the same as JPEG (quality 85 on both)        qpx resample          vips resize ...[Q=85]
  convert JPEG to PNG                          qpx convert           vips copy
  16 such JPEGs to 1000 x 750 JPEG thumbnails  qpx resample -o DIR   a shell loop of vips resize

qpx's batch uses its default worker count (one per processor); the loop runs one vips command
after another, each with libvips's own threads. vipsthumbnail is left out: it decodes JPEGs at a
reduced scale, so it never sees the whole picture.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def make_photo(path):
    from PIL import Image, ImageFilter
    size = (4000, 3000)
    noise = Image.effect_noise(size, 60).convert("L")
    gradient = Image.linear_gradient("L").resize(size)
    picture = Image.merge("RGB", (noise, noise.rotate(90), gradient))
    picture.filter(ImageFilter.GaussianBlur(2)).save(path, quality=90)


def run(command):
    """Wall seconds of one run of a shell command."""
    start = time.perf_counter()
    if subprocess.run(command, shell=True, stdout=subprocess.DEVNULL).returncode != 0:
        sys.exit(f"failed: {command}")
    return time.perf_counter() - start


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--qpx", required=True)
    parser.add_argument("--runs", type=int, default=5)
    args = parser.parse_args()
    vips = shutil.which("vips")
    if vips is None:
        print("end to end: no vips command (Debian's libvips-tools); not measured")
        return
    version = subprocess.run([vips, "--version"], capture_output=True, text=True).stdout.strip()
    with tempfile.TemporaryDirectory() as work:
        photo = os.path.join(work, "photo.jpg")
        make_photo(photo)
        photos = []
        for i in range(16):
            copy = os.path.join(work, "photos", f"p{i:02d}.jpg")
            os.makedirs(os.path.dirname(copy), exist_ok=True)
            shutil.copyfile(photo, copy)
            photos.append(copy)
        out = os.path.join(work, "out")
        os.makedirs(out)
        qpx = args.qpx
        resample = f"{qpx} resample --mode lanczos3 --width 1000 --height 750"
        loop = "; ".join(f"{vips} resize {p} {out}/v{i:02d}.jpg[Q=85] 0.25 --kernel lanczos3"
                         for i, p in enumerate(photos))
        jobs = [
            ("resample 4000x3000 JPEG to 1000x750 PNG, Lanczos 3",
             f"{resample} {photo} {out}/q.png",
             f"{vips} resize {photo} {out}/v.png 0.25 --kernel lanczos3"),
            ("resample 4000x3000 JPEG to 1000x750 JPEG (quality 85), Lanczos 3",
             f"{resample} {photo} {out}/q.jpg",
             f"{vips} resize {photo} {out}/v.jpg[Q=85] 0.25 --kernel lanczos3"),
            ("convert 4000x3000 JPEG to PNG (compression 6)",
             f"{qpx} convert {photo} {out}/c.png", f"{vips} copy {photo} {out}/vc.png"),
            ("16 JPEGs to 1000x750 JPEG thumbnails, Lanczos 3",
             f"{resample} -o {out}/batch/ {' '.join(photos)}", loop),
        ]
        times = {}
        for _ in range(args.runs):
            for name, ours, theirs in jobs:
                for who, command in (("qpx", ours), ("vips", theirs)):
                    times.setdefault((name, who), []).append(run(command))
    print(f"End to end, median wall time of {args.runs} runs, interleaved ({version}, "
          f"{os.cpu_count()} processors):")
    print()
    print("| job | qpx ms | vips ms | qpx / vips | target |")
    print("|---|---:|---:|---:|---|")
    for name, _, _ in jobs:
        ms = statistics.median(times[(name, "qpx")]) * 1000
        vips_ms = statistics.median(times[(name, "vips")]) * 1000
        ratio = ms / vips_ms
        verdict = "met" if ratio <= 1.0 else f"missed: {ratio:.2f} x"
        print(f"| {name} | {ms:.0f} | {vips_ms:.0f} | {ratio:.2f} | {verdict} |")


if __name__ == "__main__":
    main()
