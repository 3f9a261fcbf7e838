#!/usr/bin/env python3
"""Everyday jobs as whole processes: qel beside libvips and ImageMagick, on 20 megapixels.

Prints a table of milliseconds by the clock, of processor time, and of peak memory; each the least
of several runs, which take turns so that all meet the same load. Missing tools are left out.
With --bands instead: one step on all cores, on JPEG, PNG and TIFF, and on one core.
usage: bench/everyday.py [--bands] [--runs N] [--qel PATH]; needs a release build.
"""
import argparse
import os
import shutil
import subprocess
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))

# All optimise the Huffman tables of small pictures, and take the usual ones for large ones, as qel
# does. Quality 90 keeps colour at full resolution with all but ImageMagick, which does as its input.
JOBS = {
    "JPEG, 1600 pixels wide": {
        "qel": "qel run photo.jpg -o q.jpg --quality 90 resize width=1600",
        "libvips": "vips resize photo.jpg v.jpg[Q=90,optimize-coding] 0.2923976608",
        "ImageMagick": "convert photo.jpg -filter Lanczos -resize 1600x -quality 90 m.jpg",
    },
    "PNG, 200 x 200, middle": {
        "qel": "qel run photo.png -o q.jpg --quality 90 resize width=200 height=200 fit=cover",
        "libvips": "vips thumbnail photo.png v.jpg[Q=90,optimize-coding] 200 --height 200"
                   " --crop centre",
        "ImageMagick": "convert photo.png -filter Lanczos -resize 200x200^ -gravity center"
                       " -extent 200x200 -quality 90 m.jpg",
    },
    "JPEG, logo in the corner": {
        "qel": "qel run photo.jpg -o q.jpg --quality 90 overlay with=logo.png x=20 y=20",
        "libvips": "vips composite2 photo.jpg logo.png v.jpg[Q=90] over"
                   " --x 4972 --y 3308",
        "ImageMagick": "convert photo.jpg logo.png -gravity southeast -geometry +20+20 -composite"
                       " -quality 90 -define jpeg:optimize-coding=false m.jpg",
    },
    "JPEG, turned by 1.5 degrees": {
        "qel": "qel run photo.jpg -o q.jpg --quality 90 turn -1.5 background=white",
        "libvips": "vips rotate photo.jpg v.jpg[Q=90] 1.5 --interpolate bicubic"
                   " --background '255 255 255'",
        "ImageMagick": "convert photo.jpg -background white -rotate 1.5 -quality 90 -define jpeg:optimize-coding=false m.jpg",
    },
    "JPEG, grey": {
        "qel": "qel run photo.jpg -o q.jpg --quality 90 grey",
        "libvips": "vips colourspace photo.jpg v.jpg[Q=90] b-w",
        "ImageMagick": "convert photo.jpg -colorspace Gray -quality 90 -define jpeg:optimize-coding=false m.jpg",
    },
}

# A step here and its nearest there.
STEPS = {
    "light and gamma": ("light brightness=10 gamma 1.2", "linear {} {} 1.1 5"),
    "sharpen": ("sharpen", "sharpen {} {}"),
    "median 5": ("median 5", "rank {} {} 5 5 12"),
    "Gaussian": ("gaussian-blur level=3", "gaussblur {} {} 1"),
    "resize to 1600": ("resize width=1600", "resize {} {} 0.2923976608"),
}


def band_jobs():
    jobs = {}
    for extension, options in (("jpg", "[Q=92]"), ("png", ""), ("tif", "[compression=deflate]")):
        for name, (step, call) in STEPS.items():
            command = f"qel run photo.{extension} -o q.{extension} --no-notes {step}"
            jobs[f"{extension}, {name}"] = {
                "qel": command,
                "qel, one core": command + " --jobs 1",
                "libvips": "vips " + call.format(f"photo.{extension}", f"v.{extension}{options}"),
            }
    return jobs


def outputs(folder):
    names = [name for name in os.listdir(folder) if name.split(".")[0] in ("q", "v", "m")]
    return [os.path.join(folder, name) for name in names]


def run(command, folder):
    """Runs a command; seconds by the clock, of processor time, MiB at its peak, MB of its output."""
    for path in outputs(folder):
        os.remove(path)
    start = time.monotonic()
    process = subprocess.Popen(command, shell=True, cwd=folder, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    elapsed = time.monotonic() - start
    if status != 0:
        raise SystemExit(f"failed: {command}")
    size = sum(os.path.getsize(path) for path in outputs(folder)) / 1e6
    return elapsed, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024, size


def make_pictures(qel, folder):
    """A photo with detail of every size, with grain, and a logo with soft edges."""
    for command in (
            f"{qel} demo -o demo",
            f"{qel} run demo/scene.png -o photo.png --no-notes resize width=5472 height=3648"
            " fit=exact enlarge=yes flatten noise 24",
            f"{qel} convert photo.png -o photo.jpg --quality 92",
            f"{qel} convert photo.png -o photo.tif",
            f"{qel} run demo/scene.png -o logo.png resize width=480"):
        subprocess.run(command, shell=True, cwd=folder, check=True, stdout=subprocess.DEVNULL)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bands", action="store_true")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--qel", default=os.path.join(HERE, "../build/release/bin/qel"))
    options = parser.parse_args()
    qel = os.path.abspath(options.qel)
    programs = {"qel": qel, "qel, one core": qel, "libvips": shutil.which("vips"),
                "ImageMagick": shutil.which("convert")}
    with tempfile.TemporaryDirectory() as folder:
        make_pictures(qel, folder)
        print("| Job | Tool | By the clock, ms | Processor, ms | Peak, MiB | File, MB |")
        print("|---|---|---|---|---|---|")
        for job, commands in (band_jobs() if options.bands else JOBS).items():
            best = {}
            for _ in range(options.runs):
                for tool, command in commands.items():
                    if programs[tool] is None:
                        continue
                    measured = run(f"exec {programs[tool]} {command.split(' ', 1)[1]}", folder)
                    best[tool] = tuple(map(min, measured, best.get(tool, measured)))
            for tool, (elapsed, processor, peak, size) in best.items():
                print(f"| {job} | {tool} | {1000 * elapsed:.0f} | {1000 * processor:.0f}"
                      f" | {peak:.0f} | {size:.1f} |", flush=True)


if __name__ == "__main__":
    main()
