"""Large arrays in blocks, on threads or with dask, with the same bytes as the whole."""

from __future__ import annotations

import concurrent.futures
import importlib
import os
from collections.abc import Callable, Iterator
from typing import Any

import numpy as np
from numpy.typing import NDArray

from qel import _qel
from qel._errors import ArgumentError
from qel._operations import ROWS

Image = NDArray[np.uint8]
_ALPHA_OUTSIDE = 1


def border(
    function: Callable[..., Image], image: Image, **arguments: Any
) -> tuple[int | None, int | None]:
    """The rows and columns of neighbours that a pixel of `function(image, **arguments)` needs.

    None for rows means the whole picture, None for columns whole rows.
    """
    if function not in ROWS:
        raise ArgumentError(f"{function!r} is no operation of qel")
    order = arguments.pop("order", "rgb")
    arguments.pop("out", None)
    position = arguments.pop("map", None)
    known = _parameters(function)
    for name in arguments:
        if name not in known:
            raise TypeError(f"{function.__name__}() got an unexpected keyword argument {name!r}")
    values = [arguments.get(name, default) for name, default in known.items()]
    return _qel.border(ROWS[function], image, None, order, position, *values)


def _parameters(function: Callable[..., Image]) -> dict[str, Any]:
    """The parameters in the order of the table, with their defaults."""
    table = _qel.table()[ROWS[function]]["parameters"]
    defaults = function.__kwdefaults__ or {}
    return {row["python"]: defaults.get(row["python"]) for row in table}


def _outside(corner: Image) -> Image:
    """What stands outside a picture with this top-left pixel."""
    outside = np.array(corner, np.uint8)
    if outside.ndim == 1 and outside.shape[0] == 4:
        outside[3] = _ALPHA_OUTSIDE
    return outside


def _padded(block: Image, corner: Image, widths: list[tuple[int, int]]) -> Image:
    if not any(before or after for before, after in widths):
        return block
    shape = tuple(
        size + before + after for size, (before, after) in zip(block.shape, widths, strict=False)
    )
    padded = np.empty(shape + block.shape[2:], np.uint8)
    padded[:] = _outside(corner)
    inner = tuple(
        slice(before, before + size)
        for size, (before, _) in zip(block.shape, widths, strict=False)
    )
    padded[inner] = block
    return padded


def _starts(size: int, step: int) -> Iterator[tuple[int, int]]:
    for start in range(0, size, step):
        yield start, min(start + step, size)


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

    Raises ArgumentError for operations that need the whole picture, such as rotate.

    >>> bool((qel.tiles.map_blocks(qel.median, image, size=5) == qel.median(image, size=5)).all())
    True
    """
    if hasattr(array, "dask"):
        return _map_dask(function, array, arguments)
    rows, needed_columns = _needs(function, array, arguments)
    height, width = array.shape[:2]
    pads = needed_columns is not None
    columns = needed_columns or 0
    if not pads:
        block = (block[0], width)
    corner = array[0, 0]
    out = arguments.pop("out", None)
    seconds, options = _apart(function, arguments)
    _check_sizes(seconds, array.shape)

    def run(part: tuple[int, int, int, int], target: Image | None) -> Image:
        top, bottom, left, right = part
        y0, y1 = max(0, top - rows), min(height, bottom + rows)
        x0, x1 = max(0, left - columns), min(width, right + columns)
        widths = [
            (rows - (top - y0), rows - (y1 - bottom)),
            (columns - (left - x0), columns - (x1 - right)),
        ]
        if not pads:
            widths = [(0, 0), (0, 0)]
        place = (slice(y0, y1), slice(x0, x1))
        padded = _padded(array[place], corner, widths)
        here = {
            name: _padded(second[place], second[0, 0], widths) for name, second in seconds.items()
        }
        above = top - y0 + widths[0][0]
        before = left - x0 + widths[1][0]
        exact = rows == 0 and columns == 0
        if exact and target is not None:
            return function(padded, out=target[top:bottom, left:right], **here, **options)
        result = function(padded, **here, **options)
        result = result[above : above + bottom - top, before : before + right - left]
        if target is not None:
            target[top:bottom, left:right] = result
        return result

    parts = [
        (top, bottom, left, right)
        for top, bottom in _starts(height, block[0])
        for left, right in _starts(width, block[1])
    ]
    first = run(parts[0], None)
    if out is None:
        out = np.empty((height, width) + first.shape[2:], np.uint8)
    elif np.may_share_memory(out, array):
        raise ArgumentError("out overlaps the array; blocks need their neighbours unchanged")
    top, bottom, left, right = parts[0]
    out[top:bottom, left:right] = first
    with concurrent.futures.ThreadPoolExecutor(threads or os.cpu_count()) as pool:
        for future in [pool.submit(run, part, out) for part in parts[1:]]:
            future.result()
    return out


def _apart(
    function: Callable[..., Image], arguments: dict[str, Any]
) -> tuple[dict[str, Any], dict[str, Any]]:
    """The second pictures among the arguments, and the others."""
    table = _qel.table()[ROWS[function]]["parameters"]
    pictures = {row["python"] for row in table if row["kind"] == "picture"}
    seconds = {n: value for n, value in arguments.items() if n in pictures and value is not None}
    return seconds, {n: value for n, value in arguments.items() if n not in seconds}


def _run_chunk(
    chunk: Image,
    *others: Image,
    function: Callable[..., Image],
    names: tuple[str, ...],
    corners: list[Image],
    depth: tuple[int, int],
    pads: bool,
    options: dict[str, Any],
    block_info: Any = None,
) -> Image:
    """One chunk with its neighbours; the edges of the picture are padded here."""
    info = block_info[0]
    widths = []
    for axis in range(2):
        index, count = info["chunk-location"][axis], info["num-chunks"][axis]
        reach = depth[axis] if pads else 0
        widths.append((reach if index == 0 else 0, reach if index == count - 1 else 0))
    blocks = [
        _padded(np.asarray(one), np.asarray(corner), widths)
        for one, corner in zip((chunk, *others), corners, strict=True)
    ]
    seconds = [one[..., 0] if one.ndim == 3 and one.shape[2] == 1 else one for one in blocks[1:]]
    result = function(blocks[0], **dict(zip(names, seconds, strict=True)), **options)
    inner = []
    for axis in range(2):
        index, count = info["chunk-location"][axis], info["num-chunks"][axis]
        before = depth[axis] if pads or index > 0 else 0
        after = depth[axis] if pads or index < count - 1 else 0
        inner.append(slice(before, result.shape[axis] - after))
    return result[tuple(inner)]


def _map_dask(function: Callable[..., Image], array: Any, arguments: dict[str, Any]) -> Any:
    da: Any = importlib.import_module("dask.array")
    pictures, options = _apart(function, arguments)
    _check_sizes(pictures, array.shape)
    names = tuple(pictures)
    # Arguments are checked now, on a sample, rather than on a worker later.
    sample = np.zeros((8, 8) + array.shape[2:], array.dtype)
    seconds = {n: np.zeros((8, 8) + pictures[n].shape[2:], np.uint8) for n in names}
    rows, columns = _needs(function, sample, {**options, **seconds})
    result = function(sample, **seconds, **options)
    pads = columns is not None
    if array.ndim == 3:
        array = array.rechunk({2: -1})
    if columns is None:
        array, columns = array.rechunk({1: -1}), 0
    depth = (rows, columns)
    arrays = [array]
    for name in names:
        second = pictures[name]
        chunks = array.chunks[:2] + tuple((size,) for size in second.shape[2:])
        second = (
            second.rechunk(chunks) if hasattr(second, "dask") else da.from_array(second, chunks)
        )
        # Blocks are matched from the last axis: masks get one for the channels.
        arrays.append(second[..., None] if second.ndim < array.ndim else second)
    corners = [one[0, 0] for one in arrays]
    kept = array
    if rows or columns:
        arrays = [
            da.overlap.overlap(one, {0: rows, 1: columns}, boundary="none") for one in arrays
        ]
        kept = _without_overlap(arrays[0], depth)
    chunks = kept.chunks[:2] + tuple((size,) for size in result.shape[2:])
    axes = {}
    if result.ndim < array.ndim:
        axes["drop_axis"] = list(range(result.ndim, array.ndim))
    elif result.ndim > array.ndim:
        axes["new_axis"] = list(range(array.ndim, result.ndim))
    return da.map_blocks(
        _run_chunk,
        *arrays,
        function=function,
        names=names,
        corners=corners,
        depth=depth,
        pads=pads,
        options=options,
        chunks=chunks,
        dtype=np.uint8,
        meta=np.empty((0,) * result.ndim, np.uint8),
        **axes,
    )


def _without_overlap(array: Any, depth: tuple[int, int]) -> Any:
    """An array with the chunks that `array` had before its chunks got their neighbours."""
    da: Any = importlib.import_module("dask.array")
    chunks = []
    for axis in range(2):
        sizes = array.chunks[axis]
        last = len(sizes) - 1
        chunks.append(
            tuple(
                size - (depth[axis] if i > 0 else 0) - (depth[axis] if i < last else 0)
                for i, size in enumerate(sizes)
            )
        )
    return da.empty(
        tuple(sum(sizes) for sizes in chunks) + array.shape[2:],
        chunks=tuple(chunks) + array.chunks[2:],
        dtype=np.uint8,
    )
