"""Pictures from what Python has, and back."""

from __future__ import annotations

import io
import os
from typing import TYPE_CHECKING, Any, BinaryIO, Iterator, Optional, Protocol, Union

from . import _core
from ._core import Image, Metadata
from ._errors import InvalidArgument, LimitExceeded

if TYPE_CHECKING:
    from PIL.Image import Image as PillowImage

#: A file's name, its bytes, or something to read them from.
Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview, BinaryIO]


class ArrayLike(Protocol):
    """A NumPy array, or another that can be exchanged."""

    def __dlpack__(self) -> Any: ...


def open(source: Source) -> Image:
    """Opens a picture: a path, encoded bytes, or a binary file. Of a path only the header is read until pixels are
    needed, and the file is not kept open. Raises `NotAnImage`, `LimitExceeded`, `MissingModule`, and for what the
    file system refuses an `Error` that is an `OSError`, too."""
    if isinstance(source, (str, os.PathLike)):
        return _core._open_file(_name(source))
    return _core._open_bytes(_encoded(source))


def shrink(
    source: Source,
    *,
    max_side: Optional[float] = None,
    max_bytes: Optional[int] = None,
    quality: Optional[float] = None,
    format: str = "jpeg",
    metadata: Union[str, Metadata] = "keep",
) -> bytes:
    """A picture made smaller, as encoded bytes: at most `max_side` pixels along its longer side, in at most
    `max_bytes` (or at a `quality` from 0 to 1). Bytes that are small enough already come back as they are."""
    if not isinstance(source, (str, os.PathLike)):
        source = _encoded(source)
    picture = open(source)
    if max_side is not None and not max_side >= max(picture.size):
        picture = picture.resize(max_side=max_side)
    elif max_bytes is not None and quality is None and metadata == "keep" and not picture.is_incomplete:
        if picture.format == format and _size(source) <= max_bytes:
            return _bytes(source)
    return picture.encode(format, max_bytes=max_bytes, quality=quality, metadata=metadata).data


def from_array(array: ArrayLike, mode: Optional[str] = None) -> Image:
    """A picture of an array of unsigned bytes, (height, width) or (height, width, channels). `mode` is "L", "RGB",
    "BGR", "RGBX", "RGBA", "BGRA" or "RGBa" (alpha multiplied in); without it the shape tells. "L", "RGBA", "RGBa" and
    "RGBX" are not copied where their rows have no gaps: leave the array as it is while the picture lives."""
    exchanged: Any = array
    if not hasattr(array, "__dlpack__"):
        exchanged = memoryview(exchanged)  # ctypes' own buffers lack strides
    return _core._from_array(exchanged, mode or "")


def from_pillow(image: "PillowImage") -> Image:
    """A picture of a Pillow image's pixels and colour profile; modes other than L, RGB and RGBA are converted by
    Pillow first, and lose the profile."""
    profile = image.info.get("icc_profile") or b""
    if image.mode not in ("L", "RGB", "RGBA"):
        image = image.convert("RGBA" if image.has_transparency_data else "RGB")
        profile = b""
    return _core._from_state((image.mode, image.width, image.height, image.tobytes(), profile, [b""] * 4))


def to_pillow(image: Image) -> "PillowImage":
    """The picture as a Pillow image of the same mode, upright, with its colour profile."""
    from PIL import Image as pillow

    mode, width, height, pixels, profile, _ = image.__getstate__()
    made = pillow.frombytes(mode, (width, height), pixels)
    made.info["icc_profile"] = profile
    return made


def pdf_pages(path: Union[str, "os.PathLike[str]"], dpi: int = 150) -> Iterator[Image]:
    """The pages of a PDF document, drawn one at a time as they are asked for, on a transparent ground. Raises
    `MissingModule` where PDF is not built in."""
    name = _name(path)
    for page in range(_core._pdf_page_count(name)):
        yield _core._pdf_page(name, page, dpi)


def _name(path: Union[str, "os.PathLike[str]"]) -> str:
    name = os.fsdecode(os.fspath(path))
    if "\0" in name:
        raise InvalidArgument("no file's name holds a zero byte")
    return name


def _size(source: Union[str, "os.PathLike[str]", bytes]) -> int:
    return len(source) if isinstance(source, bytes) else os.stat(source).st_size


def _bytes(source: Union[str, "os.PathLike[str]", bytes]) -> bytes:
    if isinstance(source, bytes):
        return source
    with io.open(source, "rb") as file:
        return file.read()


def _encoded(source: Union[bytes, bytearray, memoryview, BinaryIO]) -> bytes:
    if isinstance(source, bytes):
        return source
    if isinstance(source, (bytearray, memoryview)):
        return bytes(source)
    if not hasattr(source, "read"):
        raise TypeError(f"a picture is opened from a path, bytes or a binary file, not from {type(source).__name__}")
    return _read(source)


def _read(file: BinaryIO) -> bytes:
    """All that is left of a file; what is not buffered (pipes, sockets) gives it piece by piece."""
    most = _core.get_limits().max_source_bytes
    pieces: list[bytes] = []
    left = most + 1
    while left > 0 and (piece := file.read(min(left, 1 << 26))) != b"":
        if not isinstance(piece, (bytes, bytearray, memoryview)):
            raise TypeError(f"a picture is read from a binary file that waits for its bytes; this one gave {type(piece).__name__}")
        pieces.append(piece)
        left -= len(piece)
    if left <= 0:
        raise LimitExceeded(f"more than the limit of {most} bytes")
    return b"".join(pieces)
