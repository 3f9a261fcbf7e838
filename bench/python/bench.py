#!/usr/bin/env python3
"""The Python package beside OpenCV (one thread), Pillow and scikit-image, as a Markdown table.

Usage: bench.py [--rounds N]. Libraries that are not installed are left out; results are new arrays
everywhere. Medians of rounds that take turns, in milliseconds.
"""

from __future__ import annotations

import argparse
import concurrent.futures
import importlib
import statistics
import time
from collections.abc import Callable
from typing import Any

import numpy as np
import qel


def optional(name: str) -> Any:
    try:
        return importlib.import_module(name)
    except ImportError:
        return None


cv2 = optional("cv2")
pil = optional("PIL.Image")
filters = optional("PIL.ImageFilter")
ops = optional("PIL.ImageOps")
skimage = optional("skimage")
if cv2 is not None:
    cv2.setNumThreads(1)

IMAGE = np.random.default_rng(1).integers(0, 256, (1080, 1920, 3), np.uint8)
# As photographs: noise over areas that are smooth.
IMAGE[:] = IMAGE // 8 + (np.mgrid[:1080, :1920].sum(0) // 12 % 224)[..., None].astype(np.uint8)
SHARP = np.array([[-1, -1, -1], [-1, 15, -1], [-1, -1, -1]])
GAUSS = np.array([[2, 4, 5, 4, 2], [4, 9, 12, 9, 4], [5, 12, 15, 12, 5], [4, 9, 12, 9, 4],
                  [2, 4, 5, 4, 2]])
TABLE = (np.arange(256) * 7 % 256).astype(np.uint8)
SQUARE = np.ones((5, 5), np.uint8)


def rows() -> list[tuple[str, dict[str, Callable[[], Any]]]]:
    """Name of the task, and who does it how."""
    table: list[tuple[str, dict[str, Callable[[], Any]]]] = [
        ("negative", {"qel": lambda: qel.negative(IMAGE)}),
        ("lut", {"qel": lambda: qel.lut(IMAGE, table=TABLE)}),
        ("blur 3 x 3", {"qel": lambda: qel.blur(IMAGE)}),
        ("sharpen", {"qel": lambda: qel.sharpen(IMAGE)}),
        ("Gaussian 5 x 5", {"qel": lambda: qel.gaussian_blur(IMAGE, level=3)}),
        ("median 5, bgr", {"qel": lambda: qel.median(IMAGE, size=5, order="bgr")}),
        ("erode 5", {"qel": lambda: qel.erode(IMAGE, size=5)}),
        ("flip", {"qel": lambda: qel.flip(IMAGE)}),
        ("quarter turn", {"qel": lambda: qel.rotate(IMAGE, angle=90)}),
        ("half the size", {"qel": lambda: qel.resample(IMAGE, width="50%")}),
    ]
    peers: list[tuple[str, list[Callable[[], Any] | None]]] = []
    if cv2 is not None:
        peers.append(("OpenCV", [
            lambda: cv2.bitwise_not(IMAGE), lambda: cv2.LUT(IMAGE, TABLE),
            lambda: cv2.blur(IMAGE, (3, 3)), lambda: cv2.filter2D(IMAGE, -1, SHARP / 7),
            lambda: cv2.filter2D(IMAGE, -1, GAUSS / 159), lambda: cv2.medianBlur(IMAGE, 5),
            lambda: cv2.erode(IMAGE, SQUARE), lambda: cv2.flip(IMAGE, 0),
            lambda: cv2.rotate(IMAGE, cv2.ROTATE_90_CLOCKWISE),
            lambda: cv2.resize(IMAGE, None, fx=0.5, fy=0.5, interpolation=cv2.INTER_AREA)]))
    if pil is not None:
        photo = pil.fromarray(IMAGE)
        peers.append(("Pillow", [
            lambda: ops.invert(photo), lambda: photo.point(TABLE.tolist() * 3),
            lambda: photo.filter(filters.BoxBlur(1)),
            lambda: photo.filter(filters.Kernel((3, 3), SHARP.ravel().tolist(), 7)),
            lambda: photo.filter(filters.Kernel((5, 5), GAUSS.ravel().tolist(), 159)),
            lambda: photo.filter(filters.MedianFilter(5)),
            lambda: photo.filter(filters.MinFilter(5)),
            lambda: photo.transpose(pil.Transpose.FLIP_TOP_BOTTOM),
            lambda: photo.transpose(pil.Transpose.ROTATE_270), lambda: photo.reduce(2)]))
    if skimage is not None:
        util, morphology = optional("skimage.util"), optional("skimage.morphology")
        ndimage, transform = optional("scipy.ndimage"), optional("skimage.transform")
        peers.append(("scikit-image", [
            lambda: util.invert(IMAGE), lambda: TABLE[IMAGE],
            lambda: ndimage.uniform_filter(IMAGE, (3, 3, 1)),
            lambda: ndimage.convolve(IMAGE, SHARP[..., None] / 7),
            lambda: optional("skimage.filters").gaussian(IMAGE, 1, channel_axis=2), None,
            lambda: np.dstack([morphology.erosion(IMAGE[..., c], SQUARE) for c in range(3)]),
            lambda: IMAGE[::-1].copy(), lambda: np.rot90(IMAGE, -1).copy(),
            lambda: transform.downscale_local_mean(IMAGE, (2, 2, 1))]))
    for name, calls in peers:
        for (_, who), call in zip(table, calls, strict=True):
            if call is not None:
                who[name] = call
    return table


def seconds(call: Callable[[], Any]) -> float:
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def measure(calls: dict[str, Callable[[], Any]], rounds: int) -> dict[str, float]:
    """Medians of calls that take turns; slow ones get fewer turns."""
    times: dict[str, list[float]] = {name: [seconds(call)] for name, call in calls.items()}
    for turn in range(rounds):
        for name, call in calls.items():
            if times[name][0] < 0.2 or turn < 2:
                times[name].append(seconds(call))
    return {name: statistics.median(each[1:]) for name, each in times.items()}


def overhead(call: Callable[[], Any]) -> float:
    """Seconds of one of many calls: the least of several series."""
    def series() -> float:
        start = time.perf_counter()
        for _ in range(2000):
            call()
        return (time.perf_counter() - start) / 2000
    return min(series() for _ in range(15))


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rounds", type=int, default=15)
    rounds = parser.parse_args().rounds
    names = list(dict.fromkeys(name for _, calls in rows() for name in calls))
    print("| 1920 x 1080 x 3, ms | " + " | ".join(names) + " |")
    print("|---|" + "---:|" * len(names))
    for task, calls in rows():
        times = measure(calls, rounds)
        cells = [f"{1000 * times[name]:.2f}" if name in times else "" for name in names]
        print(f"| {task} | " + " | ".join(cells) + " |", flush=True)

    small = np.zeros((8, 8, 3), np.uint8)
    out = small.copy()
    print("\n| 8 x 8 x 3, microseconds a call | qel | OpenCV |\n|---|---:|---:|")
    pairs = [("negative", lambda: qel.negative(small), lambda: cv2.bitwise_not(small)),
             ("negative into out", lambda: qel.negative(small, out=out),
              lambda: cv2.bitwise_not(small, dst=out)),
             ("blur 3 x 3", lambda: qel.blur(small), lambda: cv2.blur(small, (3, 3))),
             ("erode 5", lambda: qel.erode(small, size=5), lambda: cv2.erode(small, SQUARE))]
    for name, ours, theirs in pairs:
        other = f"{1e6 * overhead(theirs):.2f}" if cv2 is not None else ""
        print(f"| {name} | {1e6 * overhead(ours):.2f} | {other} |")

    def repeat(count: int) -> None:
        for _ in range(count):
            qel.median(IMAGE, size=5, order="bgr")

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        one = min(seconds(lambda: repeat(20)) for _ in range(3))
        two = min(seconds(lambda: list(pool.map(repeat, [10, 10]))) for _ in range(3))
    print(f"\nTwo threads: {one / two:.2f} times one (median 5).")


if __name__ == "__main__":
    main()
