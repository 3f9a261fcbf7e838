"""Pictures and the tool, for all tests of the package. CTest says where they are."""

import functools
import itertools
import os
import shlex
import subprocess

import numpy as np
import pytest
import qel
from qel import _qel

TABLE = _qel.table()
TOOL = os.environ["QEL_TOOL"]
HEIGHT, WIDTH = 71, 93
ROUND = 170  # of memory round arrays


def pytest_configure(config):
    config.addinivalue_line("filterwarnings", "ignore::qel.CopyWarning")
    config.addinivalue_line("filterwarnings", "ignore::qel.NoteWarning")


@functools.cache
def picture(channels, seed=0, height=HEIGHT, width=WIDTH):
    """Noise over gradients, in RGB; greys of one colour and pixels of alpha 0 among them."""
    rng = np.random.default_rng(seed + channels)
    shape = (height, width) if channels == 1 else (height, width, channels)
    pixels = (rng.integers(0, 256, shape) // 2 + np.linspace(0, 127, width).reshape(
        (1, width) + (1,) * (channels > 1))).astype(np.uint8)
    pixels[3:6, 4:9] = 255
    pixels[10:12] = 0
    pixels.setflags(write=False)
    return pixels


def second_pictures(channels):
    mask = (picture(1, 5) > 90).astype(np.uint8) * 255
    return {"other": picture(channels, 9), "mask": mask}


def arguments_of(row, channels):
    """The arguments of the row's example, as one would pass them in Python."""
    seconds = second_pictures(channels)
    text = row["example"]
    call = eval("lambda image, *args, **named: (args, named)")
    names = {"qel": type("Names", (), {row["python"]: staticmethod(call)}), "image": None}
    positional, named = eval(text, {**names, **seconds})
    pictures = [p["python"] for p in row["parameters"] if p["kind"] == "picture"]
    return {**dict(zip(pictures, positional)), **named}


@pytest.fixture(scope="session")
def by_tool(tmp_path_factory):
    """What the tool makes of the example of a row: (row, channels) -> array."""
    folder = tmp_path_factory.mktemp("tool")
    for channels in (1, 3, 4):
        qel.imwrite(folder / f"in{channels}.png", picture(channels))
        qel.imwrite(folder / f"other{channels}.png", picture(channels, 9))
    qel.imwrite(folder / "mask.png", second_pictures(3)["mask"])

    @functools.cache
    def run(name, channels, step):
        out = folder / f"{name}-{channels}.png"
        step = step.replace("other.png", f"other{channels}.png")
        words = shlex.split(step)
        subprocess.run([TOOL, "run", f"in{channels}.png", "-o", out, *words], cwd=folder, check=True,
                       capture_output=True)
        return qel.imread(out)

    return lambda row, channels: run(row["name"], channels, row["step"])


def exchanged(pixels):
    """The same pixels with red and blue exchanged."""
    if pixels.ndim == 2:
        return pixels
    return np.ascontiguousarray(pixels[..., [2, 1, 0, 3][: pixels.shape[2]]])


def room(shape):
    """Arrays of this shape that lie in every way in memory; all round them is `ROUND`."""
    h, w, rest = shape[0], shape[1], shape[2:]
    new = functools.partial(np.full, fill_value=ROUND, dtype=np.uint8)
    yield "packed", new(shape)
    yield "in a larger one", new((h + 4, w + 9) + rest)[2:-2, 4:-5]
    yield "upside down", new((h + 1, w + 3) + rest)[:h, :w][::-1]
    yield "every other column", new((h, 2 * w) + rest)[:, ::2]
    yield "right to left", new(shape)[:, ::-1]
    yield "by columns", np.full(shape, ROUND, np.uint8, order="F")
    if rest:
        yield "channels reversed", new(shape)[..., ::-1]
        yield "apart from alignment", new((h * w * rest[0] + 1,))[1:].reshape(shape)


ROWS = [pytest.param(row, channels, id=f"{row['python']}-{channels}")
        for row, channels in itertools.product(TABLE, (1, 3, 4)) if channels in row["channels"]]
