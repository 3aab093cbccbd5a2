"""What goes wrong, as exceptions. All are `peximage.Error`; where a file is the reason, also `OSError`."""

from __future__ import annotations

import errno
from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from ._core import Image


class Error(Exception):
    """An operation that gave nothing. `code` is a short word that never changes: "no-such-file"."""

    code: str = "error"

    #: The file concerned, where there is one.
    file: Optional[str] = None


class NotAnImage(Error, ValueError):
    """The bytes are no picture of a known format, or so damaged that nothing of it can be shown."""


class Truncated(Error):
    """A part of the picture is missing. `image` shows what is there: all operations work on it."""

    def __init__(self, message: str, image: Optional["Image"] = None, fraction: float = 0.0) -> None:
        super().__init__(message)
        self.image = image
        #: How much of the picture is there, from 0 to 1.
        self.fraction = fraction


class LimitExceeded(Error):
    """The picture is larger than `peximage.get_limits()` allow."""

    code = "over-limit"


class OutOfMemory(Error, MemoryError):
    """The memory that the operation needs cannot be had."""


class ChangedElsewhere(Error):
    """Somebody else has saved since it was loaded; nothing was saved over that."""


class MissingModule(Error):
    """The format is known, but this build reads or writes it not."""


class PasswordNeeded(Error):
    """The document can be read with a password only."""


class BudgetTooSmall(Error):
    """No size of the picture fits into so few bytes."""


class InvalidArgument(Error, ValueError):
    """Arguments that make no sense together, or out of their range."""

    code = "bad-argument"


class Cancelled(Error):
    """The operation was asked to stop."""


class TimedOut(Error, TimeoutError):
    """The operation took longer than its limit."""


class NetworkFailed(Error, ConnectionError):
    """Something between here and the server went wrong."""


class FileError(Error, OSError):
    """The file system refused; `errno` and `filename` say what."""


class NoSuchFile(FileError, FileNotFoundError):
    """There is no such file."""


class NoPermission(FileError, PermissionError):
    """The file may not be read or written."""


class IsAFolder(FileError, IsADirectoryError):
    """A folder stands where a file was asked for."""


#: Reason codes of the library, with the word for programs, the class, and what an OSError says.
_KINDS: dict[int, tuple[str, type[Error], Optional[int]]] = {
    1: ("no-such-file", NoSuchFile, errno.ENOENT),
    2: ("is-folder", IsAFolder, errno.EISDIR),
    3: ("not-regular-file", FileError, errno.EINVAL),
    4: ("no-permission", NoPermission, errno.EACCES),
    5: ("too-many-open-files", FileError, errno.EMFILE),
    6: ("cannot-read", FileError, errno.EIO),
    7: ("empty-file", NotAnImage, None),
    8: ("not-an-image", NotAnImage, None),
    9: ("missing-module", MissingModule, None),
    10: ("needs-password", PasswordNeeded, None),
    11: ("damaged", NotAnImage, None),
    12: ("over-limit", LimitExceeded, None),
    13: ("out-of-memory", OutOfMemory, None),
    14: ("no-thread", OutOfMemory, None),
    15: ("disk-full", FileError, errno.ENOSPC),
    16: ("cannot-write", FileError, errno.EIO),
    18: ("budget-too-small", BudgetTooSmall, None),
    19: ("network-failed", NetworkFailed, None),
    20: ("timed-out", TimedOut, None),
    21: ("cancelled", Cancelled, None),
    22: ("bad-argument", InvalidArgument, None),
    23: ("changed-elsewhere", ChangedElsewhere, None),
}


def _make(code: int, message: str, file: str) -> Error:
    """The exception of a reason; the native part raises what this returns."""
    word, kind, number = _KINDS.get(code, ("cannot-encode", Error, None))
    made: Error
    if number is not None:
        made = kind(number, message, file) if file else kind(number, message)
    else:
        made = kind(f"{file}: {message}" if file else message)
    made.code = word
    made.file = file or None
    return made


def _make_truncated(image: "Image", fraction: float, file: str) -> Truncated:
    """The exception of a picture that is not whole."""
    what = f"only {fraction:.0%} of the picture is there" if fraction < 1 else "the picture is damaged"
    made = Truncated(f"{file}: {what}" if file else what, image, fraction)
    made.code = "truncated"
    made.file = file or None
    return made
