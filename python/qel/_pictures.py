"""Picture files."""

from __future__ import annotations

import html
import os
from typing import Literal

import numpy as np
from numpy.typing import NDArray

from qel import _module as _module  # loads the image module
from qel import _qel

Image = NDArray[np.uint8]
Order = Literal["rgb", "bgr"]


def imread(path: str | os.PathLike[str], *, order: Order = "rgb") -> Image:
    """Reads a picture: PNG, JPEG, TIFF, WebP, GIF, BMP or PNM, upright.

    Returns: uint8 of shape (h, w) for greys, (h, w, 3) for colours, (h, w, 4) with straight alpha.
    Sixteen bits per channel are reduced to eight, palettes become colours; what else was found, such
    as a colour profile that is not applied, is a NoteWarning.

    Raises FileError for what cannot be read.
    """
    return _qel.imread(os.fsencode(path), order)


def imdecode(data: bytes | bytearray | memoryview, *, order: Order = "rgb") -> Image:
    """Reads a picture from the bytes of its file, in anything that lends them, as `imread` does."""
    return _qel.imdecode(data, order)


def imwrite(
    path: str | os.PathLike[str],
    image: Image,
    *,
    order: Order = "rgb",
    quality: int | None = None,
) -> None:
    """Writes a picture in the format that the extension of `path` names.

    The file appears whole or not at all. `quality` is that of JPEG, from 1 to 100 and 92 by
    default, and of WebP, where 100 is lossless and the default. What the format cannot hold, such
    as alpha in JPEG, is left out with a NoteWarning.

    Raises FileError when the file cannot be written or the format cannot hold the picture.
    """
    _qel.imwrite(os.fsencode(path), image, order, quality)


def imencode(
    extension: str, image: Image, *, order: Order = "rgb", quality: int | None = None
) -> bytes:
    """The bytes of the file that `imwrite` would write: `imencode("png", image)`."""
    return _qel.imencode(extension, image, order, quality)


class Shown:
    """Pictures side by side, as notebooks show them."""

    def __init__(self, images: tuple[Image, ...], order: Order) -> None:
        self._pngs = [imencode(".png", image, order=order) for image in images]

    def _repr_png_(self) -> bytes | None:
        return self._pngs[0] if len(self._pngs) == 1 else None

    def _repr_html_(self) -> str | None:
        if len(self._pngs) == 1:
            return None
        import base64

        sources = (base64.b64encode(png).decode() for png in self._pngs)
        return " ".join(
            f'<img src="data:image/png;base64,{html.escape(source)}">' for source in sources
        )


def show(*images: Image, order: Order = "rgb") -> Shown:
    """What a notebook shows as the picture, or as several beside each other."""
    return Shown(images, order)
