"""Loads the image module that belongs to this package."""

from __future__ import annotations

import os
import pathlib
import sysconfig
import warnings

from qel import _errors, _qel


def _module_path() -> str:
    """Beside the package (wheel), in the build tree, or where Debian puts it."""
    named = os.environ.get("QEL_MODULE")
    if named:
        return named
    package = pathlib.Path(__file__).resolve().parent
    architecture = sysconfig.get_config_var("MULTIARCH") or ""
    places = [
        package / "QELMaths.so",
        package.parent.parent / "_binLIN64" / "QELMaths.so",
        pathlib.Path("/usr/lib", architecture, "qel/_binLIN64/QELMaths.so"),
    ]
    for place in places:
        if place.exists():
            return str(place)
    raise ImportError(
        "the image module QELMaths.so is in none of "
        + ", ".join(str(place.parent) for place in places)
        + "; name it with the environment variable QEL_MODULE"
    )


_qel.use_errors_of(_errors)
_qel.load(_module_path())
# Behind the user's own filters, whenever they are set.
for _category in (_errors.CopyWarning, _errors.NoteWarning):
    warnings.simplefilter("ignore", _category, append=True)
