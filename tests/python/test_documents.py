"""What the documents promise: examples in docstrings and tutorials, types."""

import doctest
import inspect
import pathlib
import subprocess
import sys

import numpy as np
import pytest
import qel
from conftest import TABLE, picture

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs" / "python"


@pytest.mark.parametrize("row", TABLE, ids=lambda row: row["python"])
def test_examples_in_docstrings_run(row):
    function = getattr(qel, row["python"])
    channels = 3 if 3 in row["channels"] else row["channels"][-1]
    names = {"qel": qel, "image": picture(channels, 0, 106, 176),
             "other": picture(channels, 1, 106, 176), "mask": picture(1, 0, 106, 176)}
    tests = doctest.DocTestFinder().find(function, row["python"], globs=names)
    runner = doctest.DocTestRunner()
    assert runner.run(tests[0]).attempted == 1 and runner.failures == 0
    parameters = inspect.signature(function).parameters
    assert {p["python"] for p in row["parameters"]} | {"image", "out", "order"} <= set(parameters)


@pytest.mark.parametrize("page", sorted(DOCS.glob("*.md")), ids=lambda page: page.stem)
def test_pages_run_as_they_stand(page, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    qel.imwrite("photo.png", picture(3, 0, 106, 176))
    text = page.read_text()
    blocks = [part.split("```")[0] for part in text.split("```python\n")[1:]]
    assert blocks
    names = {"__name__": "page"}
    for block in blocks:
        needed = [word for word in ("cv2", "PIL", "skimage", "dask") if f"import {word}" in block or
                  f"from {word}" in block]
        if all(module_there(module) for module in needed):
            exec(compile(block, str(page), "exec"), names)


def test_bulk_page_runs_on_a_cluster(tmp_path):
    pytest.importorskip("distributed")
    qel.imwrite(tmp_path / "photo.png", picture(3, 0, 106, 176))
    block = (DOCS.parent / "bulk.md").read_text().split("```python\n")[1].split("```")[0]
    (tmp_path / "bulk.py").write_text(block)
    done = subprocess.run([sys.executable, "bulk.py"], cwd=tmp_path, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    photo = qel.imread(tmp_path / "photo.png")
    np.testing.assert_array_equal(qel.imread(tmp_path / "sharp199.png"), qel.sharpen(photo))
    np.testing.assert_array_equal(qel.imread(tmp_path / "smooth.png"), qel.median(photo, size=5))


def module_there(name):
    try:
        __import__(name)
    except ImportError:
        return False
    return True


def test_types_are_complete(tmp_path):
    pytest.importorskip("mypy")
    (tmp_path / "use.py").write_text(
        "import numpy as np\nimport qel\n"
        "image = np.zeros((4, 5, 3), np.uint8)\n"
        "result: qel.Image = qel.rotate(image, angle=3, method=qel.Method.CUBIC, order='bgr')\n"
        "qel.filter(image, kernel=[[1, 2], [3, 4]], out=result)\n"
        "qel.circle(image, mode='swirling')\n")
    path = f"{pathlib.Path(qel.__file__).parents[1]}:{tmp_path}"
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", tmp_path / "c",
                           "-p", "qel", "-m", "use"], capture_output=True, text=True,
                          env={"MYPYPATH": path, "PATH": "/usr/bin:/bin"})
    lines = [line for line in done.stdout.splitlines() if "error:" in line]
    assert len(lines) == 1 and lines[0].startswith(f"{tmp_path / 'use.py'}:"), done.stdout
    assert "swirling" in lines[0]
