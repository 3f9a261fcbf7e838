"""Large arrays in blocks, on threads or with dask, with the same bytes as the whole."""

from __future__ import annotations

import concurrent.futures
import functools
import importlib
import os
from collections.abc import Callable
from typing import Any, NamedTuple

import numpy as np
from numpy.typing import NDArray

from qel import _qel
from qel._errors import ArgumentError
from qel._operations import ROWS

Image = NDArray[np.uint8]


def border(
    function: Callable[..., Image], image: Image, **arguments: Any
) -> tuple[int | None, int | None]:
    """The rows and columns of neighbours that a pixel of `function(image, **arguments)` needs.

    None for rows means the whole picture, None for columns whole rows.
    """
    _row(function)
    order = arguments.pop("order", "rgb")
    arguments.pop("out", None)
    position = arguments.pop("map", None)
    known = _parameters(function)
    for name in arguments:
        if name not in known:
            raise TypeError(f"{function.__name__}() got an unexpected keyword argument {name!r}")
    values = [arguments.get(name, default) for name, default in known.items()]
    return _qel.border(ROWS[function], image, None, order, position, *values)


@functools.cache
def _table() -> list[dict[str, Any]]:
    """Described once: that takes longer than many an operation."""
    return _qel.table()


def _row(function: Callable[..., Image]) -> dict[str, Any]:
    """The row of the table that an operation stands for."""
    if function not in ROWS:
        raise ArgumentError(f"{function!r} is no operation of qel")
    return _table()[ROWS[function]]


def _parameters(function: Callable[..., Image]) -> dict[str, Any]:
    """The parameters in the order of the table, with their defaults."""
    defaults = function.__kwdefaults__ or {}
    return {each["python"]: defaults.get(each["python"]) for each in _row(function)["parameters"]}


class _Block(NamedTuple):
    """A block of the result and what it is made of."""

    place: tuple[slice, slice]
    source: tuple[slice, slice]
    inner: tuple[slice, slice]  # where the block lies in its source
    needs_corner: bool


def _plan(needs: tuple[int, int | None], heights: list[int], widths: list[int]) -> list[_Block]:
    return [_Block(*block) for block in _qel.blocks(*needs, heights, widths)]


def _with_corner(part: Image, corner: Image) -> Image:
    """What stands outside a picture, an operation reads from its first pixel."""
    part = np.array(part)
    part[0, 0] = corner
    return part


def _run_block(
    function: Callable[..., Image],
    block: _Block,
    parts: list[Image],
    corners: list[Image],
    names: list[str],
    options: dict[str, Any],
    out: Image | None = None,
) -> Image:
    """One block from the parts of the pictures that it is made of."""
    if block.needs_corner:
        parts = [_with_corner(*each) for each in zip(parts, corners, strict=True)]
    seconds = dict(zip(names, parts[1:], strict=True))
    if out is None:
        return function(parts[0], **seconds, **options)[block.inner]
    if out.shape[:2] == parts[0].shape[:2]:
        return function(parts[0], out=out, **seconds, **options)
    out[...] = function(parts[0], **seconds, **options)[block.inner]
    return out


def _check_sizes(seconds: dict[str, Any], shape: tuple[int, ...]) -> None:
    for name, value in seconds.items():
        if value.shape[:2] != shape[:2]:
            raise ArgumentError(
                f"{name} has {value.shape[:2]} pixels and must have {shape[:2]} to be cut alike"
            )


def _needs(
    function: Callable[..., Image], sample: Image, arguments: dict[str, Any]
) -> tuple[int, int | None]:
    rows, columns = border(function, sample, **arguments)
    if rows is None:
        raise ArgumentError(
            f"{function.__name__} depends on the whole picture and cannot be cut into blocks"
        )
    return rows, columns


def map_blocks(
    function: Callable[..., Image],
    array: Any,
    *,
    block: tuple[int, int] = (1024, 4096),
    threads: int | None = None,
    **arguments: Any,
) -> Any:
    """`function(array, **arguments)` block by block, byte for byte what the whole gives.

    function: an operation of qel whose pixels depend on a neighbourhood.
    array: pixels as numpy or dask has them.
    block: rows and columns of the blocks. A dask array keeps its chunks.
    threads: for numpy arrays; default: as many as there are processors.
    arguments: those of the operation; second pictures have the size of the array.

    Returns: a new array of the same kind, or `out`. Dask computes it when asked to.

    Raises ArgumentError for operations that need the whole picture, such as rotate, for second
    pictures of another size, and for an `out` that has another shape or overlaps the array.

    >>> bool((qel.tiles.map_blocks(qel.median, image, size=5) == qel.median(image, size=5)).all())
    True
    """
    if hasattr(array, "dask"):
        return _map_dask(function, array, arguments)
    if np.shape(block) != (2,) or min(block) < 1:
        raise ArgumentError(f"block takes rows and columns of at least 1, not {block!r}")
    if threads is not None and threads < 1:
        raise ArgumentError(f"threads takes a number of at least 1, not {threads!r}")
    needs = _needs(function, array, arguments)
    out = arguments.pop("out", None)
    seconds, options = _apart(function, arguments)
    _check_sizes(seconds, array.shape)
    height, width = array.shape[:2]
    blocks = _plan(needs, _sizes(height, block[0]), _sizes(width, block[1]))
    arrays = [array, *seconds.values()]
    corners = [one[0, 0] for one in arrays]

    def run(part: _Block, target: Image | None) -> Image:
        parts = [one[part.source] for one in arrays]
        return _run_block(function, part, parts, corners, list(seconds), options, target)

    first = run(blocks[0], None)
    shape = (height, width) + first.shape[2:]
    if out is None:
        out = np.empty(shape, np.uint8)
    elif out.shape != shape or out.dtype != np.uint8:
        raise ArgumentError(f"out is {out.dtype} of {out.shape}, the result uint8 of {shape}")
    elif np.may_share_memory(out, array):
        raise ArgumentError("out overlaps the array; blocks need their neighbours unchanged")
    out[blocks[0].place] = first
    with concurrent.futures.ThreadPoolExecutor(threads or os.cpu_count()) as pool:
        for future in [pool.submit(run, part, out[part.place]) for part in blocks[1:]]:
            future.result()
    return out


def _sizes(size: int, step: int) -> list[int]:
    """The sizes of blocks that go on over `size` pixels."""
    return [min(step, size - start) for start in range(0, size, step)]


def _apart(
    function: Callable[..., Image], arguments: dict[str, Any]
) -> tuple[dict[str, Any], dict[str, Any]]:
    """The second pictures among the arguments, and the others."""
    parameters = _row(function)["parameters"]
    pictures = {each["python"] for each in parameters if each["kind"] == "picture"}
    seconds = {n: value for n, value in arguments.items() if n in pictures and value is not None}
    return seconds, {n: value for n, value in arguments.items() if n not in seconds}


def _map_dask(function: Callable[..., Image], array: Any, arguments: dict[str, Any]) -> Any:
    da: Any = importlib.import_module("dask.array")
    delayed: Any = importlib.import_module("dask").delayed
    seconds, options = _apart(function, arguments)
    _check_sizes(seconds, array.shape)
    # Arguments are checked now, on a sample, rather than on a worker later.
    sample = np.zeros((8, 8) + array.shape[2:], array.dtype)
    others = {n: np.zeros((8, 8) + one.shape[2:], np.uint8) for n, one in seconds.items()}
    needs = _needs(function, sample, {**options, **others})
    channels = function(sample, **others, **options).shape[2:]
    arrays = [array, *seconds.values()]
    corners = [one[0, 0] for one in arrays]

    def lazy(block: _Block) -> Any:
        parts = [one[block.source] for one in arrays]
        made = delayed(_run_block)(function, block, parts, corners, list(seconds), options)
        rows, columns = block.place
        size = (rows.stop - rows.start, columns.stop - columns.start)
        return da.from_delayed(made, size + channels, np.uint8)

    rows: dict[int, list[Any]] = {}
    for block in _plan(needs, list(array.chunks[0]), list(array.chunks[1])):
        rows.setdefault(block.place[0].start, []).append(lazy(block))
    return da.concatenate([da.concatenate(row, axis=1) for row in rows.values()], axis=0)
