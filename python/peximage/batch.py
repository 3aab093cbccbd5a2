"""Jobs over many pictures, one call an item, for any engine that spreads calls over processes and machines (Ray:
`peximage.ray`). A job is a small value that can be pickled. It returns a row of
plain values and never raises for an item: what goes wrong with one is in its row.

Files are read and written on this machine, or through a file system of pyarrow (object stores), which pyarrow is then
needed for.
"""

from __future__ import annotations

import hashlib
import os
import posixpath
import uuid
from dataclasses import dataclass
from typing import TYPE_CHECKING, Dict, Optional, Union

from . import _core
from ._errors import Error
from ._pictures import open as _open
from ._pictures import shrink as _shrink

if TYPE_CHECKING:
    from pyarrow.fs import FileSystem

Row = Dict[str, Union[str, int, float]]


@dataclass(frozen=True)
class Shrinking:
    """Writes each picture into the folder `to` as `peximage.shrink` makes it, under a name that stands for the input's
    bytes, the settings and this package's version: a file that is there already is not made again, wherever an earlier
    run was stopped. Files appear whole or not at all.

    Rows: `path`; `status`, "written", "kept" or "failed"; `output`, `bytes` and, of a written one, `width` and
    `height`; `code` and `message` of a failed one."""

    to: str
    max_side: Optional[float] = None
    max_bytes: Optional[int] = None
    quality: Optional[float] = None
    format: str = "jpeg"
    metadata: str = "keep"
    filesystem: Optional["FileSystem"] = None

    def __call__(self, path: str) -> Row:
        row: Row = dict(path=path, status="failed", output="", bytes=0, width=0, height=0, code="", message="")
        try:
            row.update(self._made(path))
        except Exception as error:  # an item's failure is a row, whatever it is
            row.update(_told(error))
        return row

    def _made(self, path: str) -> Row:
        encoded = _read(path, self.filesystem)
        output = posixpath.join(self.to, self._name(encoded))
        size = _stored_size(output, self.filesystem)
        if size:
            return dict(status="kept", output=output, bytes=size)
        small = _shrink(
            encoded,
            max_side=self.max_side,
            max_bytes=self.max_bytes,
            quality=self.quality,
            format=self.format,
            metadata=self.metadata,
        )
        _write(output, small, self.filesystem)
        width, height = _open(small).size
        return dict(status="written", output=output, bytes=len(small), width=width, height=height)

    def _name(self, encoded: bytes) -> str:
        settings = (_core.__version__, self.max_side, self.max_bytes, self.quality, self.format, self.metadata)
        made_of = hashlib.sha256(repr(settings).encode() + hashlib.sha256(encoded).digest())
        return f"{made_of.hexdigest()[:40]}.{self.format}"


@dataclass(frozen=True)
class Analysis:
    """Tells of each picture `format`, `width`, `height` in pixels, `taken` (the camera's date and time as the file has
    it, or "") and its average colour, `red`, `green` and `blue` from 0 to 255. `status` is "read" or "failed", with
    `code` and `message`."""

    filesystem: Optional["FileSystem"] = None

    def __call__(self, path: str) -> Row:
        row: Row = dict(path=path, status="failed", format="", width=0, height=0, taken="", red=0.0, green=0.0, blue=0.0)
        row.update(code="", message="")
        try:
            row.update(self._seen(path))
        except Exception as error:  # an item's failure is a row, whatever it is
            row.update(_told(error))
        return row

    def _seen(self, path: str) -> Row:
        picture = _open(_read(path, self.filesystem))
        width, height = picture.size
        taken = str(picture.info.get("Exif", {}).get("DateTimeOriginal", ""))
        red, green, blue, _ = picture.average_color()
        colors: Row = dict(red=red, green=green, blue=blue)
        colors.update(status="read", format=picture.format or "", width=width, height=height, taken=taken)
        return colors


Job = Union[Shrinking, Analysis]


def _told(error: Exception) -> Row:
    return dict(code=error.code if isinstance(error, Error) else type(error).__name__, message=str(error))


def _read(path: str, filesystem: Optional["FileSystem"]) -> bytes:
    if filesystem is None:
        with open(path, "rb") as file:
            return file.read()
    with filesystem.open_input_stream(path) as stream:
        return bytes(stream.read())


def _stored_size(path: str, filesystem: Optional["FileSystem"]) -> int:
    """In bytes; 0 where there is no such file."""
    if filesystem is not None:
        return filesystem.get_file_info(path).size or 0
    try:
        return os.stat(path).st_size
    except FileNotFoundError:
        return 0


def _write(path: str, encoded: bytes, filesystem: Optional["FileSystem"]) -> None:
    """Object stores show an object when it is complete; on a disk a temporary file is renamed."""
    if filesystem is not None and filesystem.type_name != "local":
        with filesystem.open_output_stream(path) as stream:
            stream.write(encoded)
        return
    folder, name = os.path.split(path)
    os.makedirs(folder or ".", exist_ok=True)
    unfinished = os.path.join(folder, f".{name}.{uuid.uuid4().hex}")
    try:
        with open(unfinished, "wb") as file:
            file.write(encoded)
        os.replace(unfinished, path)
    except BaseException:
        if os.path.exists(unfinished):
            os.remove(unfinished)
        raise
