#!/usr/bin/env python3
"""Writes the functions of the package from the table of operations.

Usage: generate.py PACKAGE_FOLDER VERSION. The folder holds the extension and the other sources.
"""

from __future__ import annotations

import importlib.machinery
import importlib.util
import pathlib
import sys
import textwrap
from typing import Any

HEADER = '''"""The operations of the image module. Written by generate.py from the table of operations."""

from __future__ import annotations

import enum
from collections.abc import Callable, Sequence
from typing import Literal, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from qel import _module as _module  # loads the image module
from qel._qel import call as _call

Image = NDArray[np.uint8]
Order = Literal["rgb", "bgr"]
Color = Union[str, Sequence[int]]
Point = Union[str, tuple[float, float]]
Map = Union[Callable[[float, float], tuple[float, float]], ArrayLike]
'''

TYPES = {
    "integer": "int",
    "number": "float",
    "extent": "int | str",
    "flag": "bool",
    "color": "Color",
    "paint": "Color",
    "numbers": "ArrayLike | str",
    "point": "Point",
    "text": "str",
    "picture": "Image",
}

# What an argument takes, where it is not what a step takes.
VALUES = {
    "flag": "True or False",
    "color": '"#RRGGBB", or (red, green, blue)',
    "paint": "(red, green, blue), with alpha too, or text such as white or #RRGGBB",
    "numbers": "a list or an array of numbers, or text with them",
    "point": '(x, y) in pixels, or text with % of the picture, "10%,25%"',
    "picture": "an array",
}

ORDERS = {
    "alike": "",
    "by arguments": "",
    "alike without alpha": "RGBA pixels are put in the module's order first, which copies them.",
    "blue green red": "RGB pixels are put in the module's order first, which copies them; with "
    'order="bgr" they are not.',
}

CHANNELS = {1: "greys", 3: "colours", 4: "colours with alpha"}


def load_extension(package: pathlib.Path) -> Any:
    """The extension without the package, which is not whole yet."""
    path = next(package.glob("_qel*.so"))
    loader = importlib.machinery.ExtensionFileLoader("qel._qel", str(path))
    spec = importlib.util.spec_from_file_location("qel._qel", path, loader=loader)
    assert spec is not None
    module = importlib.util.module_from_spec(spec)
    sys.modules["qel._qel"] = module  # the package takes this one
    loader.exec_module(module)
    return module


def is_number(text: str) -> bool:
    return text.lstrip("-").replace(".", "", 1).isdigit()


class Enums:
    """One class for each set of labels; named by the parameter when operations share it."""

    def __init__(self, table: list[dict[str, Any]]) -> None:
        users: dict[tuple[str, ...], list[tuple[str, str]]] = {}
        for row in table:
            for parameter in row["parameters"]:
                labels = tuple(label for label, _ in parameter["choices"])
                if labels and not any(is_number(label) for label in labels):
                    users.setdefault(labels, []).append((row["python"], parameter["python"]))
        self.names = {}
        for labels, uses in users.items():
            words = uses[0][1] if len(uses) > 1 else uses[0][0] + "_" + uses[0][1]
            self.names[labels] = "".join(word.capitalize() for word in words.split("_"))

    def name_of(self, parameter: dict[str, Any]) -> str | None:
        return self.names.get(tuple(label for label, _ in parameter["choices"]))

    def source(self) -> str:
        text = ""
        for labels, name in self.names.items():
            text += f"\n\nclass {name}(enum.StrEnum):\n"
            text += f'    """What `{name.lower()}=` names; the plain strings do as well."""\n\n'
            for label in labels:
                constant = label.upper().replace("-", "_")
                text += f'    {constant} = "{label}"\n'
        return text


def type_of(parameter: dict[str, Any], enums: Enums) -> str:
    if parameter["kind"] != "choice":
        return TYPES[parameter["kind"]]
    literals = ", ".join(
        label if is_number(label) else f'"{label}"' for label, _ in parameter["choices"]
    )
    name = enums.name_of(parameter)
    return f"Literal[{literals}]" if name is None else f"{name} | Literal[{literals}]"


def default_of(parameter: dict[str, Any]) -> str:
    standard, kind = parameter["standard"], parameter["kind"]
    if not standard:
        return "None"
    if kind == "flag":
        return str(standard == "yes")
    if kind in ("integer", "number") or (kind in ("choice", "extent") and is_number(standard)):
        return str(float(standard)) if kind == "number" else standard
    return f'"{standard}"'


def takes_map(row: dict[str, Any]) -> bool:
    return any(parameter["python"] == "affine" for parameter in row["parameters"])


def wrapped(text: str, indent: int = 4, hanging: int = 4) -> str:
    return textwrap.fill(
        text,
        99,
        initial_indent=" " * indent,
        subsequent_indent=" " * (indent + hanging),
        break_on_hyphens=False,
    )


def docstring(row: dict[str, Any], shape: str) -> str:
    channels = [CHANNELS[count] for count in row["channels"]]
    lines = [f'    """{row["summary"]}', ""]
    lines.append(wrapped(f"image: uint8, {' or '.join(channels)}; any strides."))
    if takes_map(row):
        lines.append(
            wrapped(
                "map: instead of a formula, a function of x and y that returns the x and y to use, "
                "or an array of shape (h, w, 2) with the x and y of every pixel, which is faster."
            )
        )
    for parameter in row["parameters"]:
        values = VALUES.get(parameter["kind"], parameter["values"])
        text = f"{parameter['python']}: {parameter['help']}: {values}."
        lines.append(wrapped(text))
    lines.append(
        wrapped("out: array for the result, of its shape; may be image itself. Default: a new one.")
    )
    lines.append(wrapped('order: of the channels, "rgb" or "bgr", alpha last.'))
    returned = "of the image's shape" if row["keeps_shape"] else "its shape follows from the arguments"
    lines += ["", wrapped(f"Returns: uint8, {returned}.", hanging=0)]
    for note in (row["note"], ORDERS[row["order"]]):
        if note:
            lines += ["", wrapped("Note: " + note, hanging=0)]
    lines += ["", f"    >>> {row['example']}.shape", f"    {shape}", '    """']
    return "\n".join(lines)


def function(index: int, row: dict[str, Any], enums: Enums, shape: str) -> str:
    """One function, all of whose arguments but pictures are given by name."""
    pictures = [p for p in row["parameters"] if p["kind"] == "picture" and p["required"]]
    named = [p for p in row["parameters"] if p not in pictures]
    parameters = ["image: Image", "/"]
    parameters += [f"{p['python']}: Image" for p in pictures]
    if takes_map(row):
        parameters.append("map: Map | None = None")
    parameters.append("*")
    for p in named:
        default = "" if p["required"] else f" = {default_of(p)}"
        none = "" if p["required"] or p["standard"] else " | None"
        parameters.append(f"{p['python']}: {type_of(p, enums)}{none}{default}")
    parameters += ["out: Image | None = None", 'order: Order = "rgb"']
    map_argument = "map" if takes_map(row) else "None"
    values = "".join(f", {p['python']}" for p in row["parameters"])
    text = f"\n\ndef {row['python']}(\n"
    text += "".join(f"    {parameter},\n" for parameter in parameters)
    text += f") -> Image:\n{docstring(row, shape)}\n"
    # The extension checks everything; what it returns is what the types say.
    text += f"    result: Image = _call({index}, image, out, order, {map_argument}{values})\n"
    return text + "    return result\n"


def write(package: pathlib.Path, table: list[dict[str, Any]], shapes: dict[str, str]) -> None:
    enums = Enums(table)
    names = list(enums.names.values()) + [row["python"] for row in table]
    text = HEADER + "\n__all__ = [\n"
    text += "".join(f'    "{name}",\n' for name in sorted(names)) + "]\n" + enums.source()
    for index, row in enumerate(table):
        text += function(index, row, enums, shapes.get(row["python"], ""))
    text += "\n\n# The rows of the table that the functions stand for.\n"
    text += "ROWS: dict[Callable[..., Image], int] = {\n"
    text += "".join(f"    {row['python']}: {i},\n" for i, row in enumerate(table)) + "}\n"
    (package / "_operations.py").write_text(text)


def example_shapes(table: list[dict[str, Any]]) -> dict[str, str]:
    """What the examples in the docstrings print."""
    import numpy
    import qel

    shapes = {}
    for row in table:
        channels = 3 if 3 in row["channels"] else row["channels"][-1]
        shape = (106, 176, channels)
        image = numpy.zeros(shape, numpy.uint8)
        mask = numpy.zeros(shape[:2], numpy.uint8)
        names = {"qel": qel, "image": image, "other": image.copy(), "mask": mask}
        shapes[row["python"]] = repr(eval(row["example"], names).shape)
    return shapes


def main() -> None:
    package, version = pathlib.Path(sys.argv[1]), sys.argv[2]
    sys.dont_write_bytecode = True
    table = load_extension(package).table()
    (package / "_version.py").write_text(f'__version__ = "{version}"\n')
    write(package, table, {})
    sys.path.insert(0, str(package.parent))
    write(package, table, example_shapes(table))


if __name__ == "__main__":
    main()
