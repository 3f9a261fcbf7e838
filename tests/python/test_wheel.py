"""The wheel, built offline from the build tree and installed into an empty environment."""

import os
import pathlib
import shutil
import subprocess
import sys
import venv

import pytest
import qel

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(qel.__file__).resolve().parents[2]


def test_wheel_installs_and_works_by_itself(tmp_path):
    for module in ("wheel", "setuptools", "pip"):
        pytest.importorskip(module)
    shutil.copytree(SOURCE / "python", tmp_path / "source" / "python")
    shutil.copy(SOURCE / "CMakeLists.txt", tmp_path / "source")

    def run(*words):
        environment = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path), "QEL_BUILD": str(BUILD)}
        done = subprocess.run(words, env=environment, cwd=tmp_path, capture_output=True, text=True)
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    run(sys.executable, "-m", "pip", "wheel", "source/python", "--no-build-isolation", "--no-deps",
        "--no-index", "-w", "wheels")
    wheel, = (tmp_path / "wheels").glob("qel-*.whl")
    assert "linux_x86_64" in wheel.name or os.uname().machine in wheel.name
    # numpy and pip come from the system, since there is no network.
    venv.create(tmp_path / "venv", system_site_packages=True)
    python = tmp_path / "venv" / "bin" / "python"
    run(python, "-m", "pip", "install", "--no-index", "--no-deps", *(tmp_path / "wheels").iterdir())
    where = run(python, "-c", "import numpy, qel\n"
                "print(qel.__file__, qel.median(numpy.zeros((5, 6, 3), numpy.uint8)).shape)")
    assert str(tmp_path / "venv") in where and "(5, 6, 3)" in where
