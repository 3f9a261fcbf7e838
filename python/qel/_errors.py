"""What goes wrong, and what is slower than it need be."""

from __future__ import annotations


class ArgumentError(ValueError):
    """An argument that does not fit, or a call that the image module refused.

    `operation` and `argument` name what it is about, `code` is the module's result code; each may
    be None. Nothing has been written.
    """

    operation: str | None = None
    argument: str | None = None
    code: int | None = None


class ImageMemoryError(MemoryError):
    """There is no memory for an image."""

    operation: str | None = None
    argument: str | None = None
    code: int | None = None


class FileError(OSError):
    """A picture file that cannot be read or written; the message says why."""

    operation: str | None = None
    argument: str | None = None
    code: int | None = None


class CopyWarning(Warning):
    """Pixels had to be copied first, which costs time.

    Off by default; `warnings.simplefilter("always", qel.CopyWarning)` shows each copy with its
    reason.
    """


class NoteWarning(Warning):
    """What an operation found while it worked, such as letters that no font has, or a file lost.

    Off by default. What may surprise of an operation whatever it finds stands in its docstring.
    """
