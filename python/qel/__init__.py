"""Exact, fast operations on pictures in numpy arrays.

Pictures are arrays of uint8: (h, w) greys, (h, w, 3) colours, (h, w, 4) colours with alpha. Every
operation takes any strides and is `qel.NAME(image, *, ..., out=None, order="rgb")`:

- `out`: an array for the result, of its shape; `out=image` works in place. Without it the result is
  a new array.
- `order`: of the channels, "rgb" or, as OpenCV has them, "bgr".

The interpreter is unlocked while an operation works. Errors are `ArgumentError` (a ValueError),
`ImageMemoryError` (a MemoryError) and `FileError` (an OSError); nothing is written before all
arguments are checked. Two warnings are off by default: `CopyWarning` tells when pixels are copied
first, `NoteWarning` what an operation or a file had to say.

`qel.tiles` cuts large arrays, of dask too; `imread` and `imwrite` know picture files.
"""

from __future__ import annotations

from qel import _module as _module
from qel import tiles as tiles
from qel._errors import ArgumentError as ArgumentError
from qel._errors import CopyWarning as CopyWarning
from qel._errors import FileError as FileError
from qel._errors import ImageMemoryError as ImageMemoryError
from qel._errors import NoteWarning as NoteWarning
from qel._operations import *
from qel._operations import __all__ as _operation_names
from qel._pictures import Image as Image
from qel._pictures import imdecode as imdecode
from qel._pictures import imencode as imencode
from qel._pictures import imread as imread
from qel._pictures import imwrite as imwrite
from qel._pictures import show as show
from qel._version import __version__ as __version__

__all__ = [
    "ArgumentError",
    "CopyWarning",
    "FileError",
    "Image",
    "ImageMemoryError",
    "NoteWarning",
    "__version__",
    "imdecode",
    "imencode",
    "imread",
    "imwrite",
    "show",
    "tiles",
]
__all__ += _operation_names
