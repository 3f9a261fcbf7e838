"""A wheel of the package, the image module inside: CMake builds, setuptools packs.

`pip wheel . --no-build-isolation` in this folder, or with QEL_BUILD=FOLDER from what a build folder
holds already.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

import setuptools
from setuptools.command.build_py import build_py

ROOT = pathlib.Path(__file__).resolve().parent.parent
VERSION = re.search(r"project\(qel VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]


def built_folder(scratch):
    """The build tree to pack, made where none is named."""
    if "QEL_BUILD" in os.environ:
        return pathlib.Path(os.environ["QEL_BUILD"])
    folder = pathlib.Path(scratch, "cmake").resolve()
    subprocess.run(
        ["cmake", "-S", ROOT, "-B", folder, "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_TESTING=OFF",
         f"-DPython_EXECUTABLE={sys.executable}"], check=True)
    subprocess.run(["cmake", "--build", folder, "--parallel", "--target", "python_package"],
                   check=True)
    return folder


class Build(build_py):
    """Takes the package as the build made it."""

    def run(self):
        folder = built_folder(self.get_finalized_command("build").build_temp)
        package = pathlib.Path(self.build_lib, "qel")
        shutil.rmtree(package, ignore_errors=True)
        shutil.copytree(folder / "python" / "qel", package,
                        ignore=shutil.ignore_patterns("__pycache__"))
        shutil.copy(folder / "_binLIN64" / "QELMaths.so", package)
        for library in package.glob("*.so"):
            subprocess.run(["strip", "--strip-unneeded", library], check=True)


class Distribution(setuptools.Distribution):
    """For one interpreter on one architecture."""

    def has_ext_modules(self):
        return True


setuptools.setup(version=VERSION, packages=["qel"], package_data={"qel": ["*"]},
                 cmdclass={"build_py": Build}, distclass=Distribution)
