"""PexImage: photos in, exactly the picture and the file size wanted out.

    import peximage as pex

    photo = pex.open("photo.jpg")                       # reads the header only
    small = photo.resize(max_side=2000)
    small.save("small.jpg", max_bytes=300_000)          # the best quality whose file fits

Pictures are immutable values: an operation gives a new one. Coordinates count pixels from the top left corner,
colours go from 0 to 255, angles are degrees clockwise. All that can go wrong is a `peximage.Error`.
"""

from . import _ending as _ending
from . import _pickling as _pickling
from . import aio as aio
from ._core import (
    Encoded,
    Image,
    ImageCache,
    Limits,
    Metadata,
    StoredCache,
    __version__,
    get_limits,
    get_threads,
    set_limits,
    set_threads,
)
from ._errors import (
    BudgetTooSmall,
    Cancelled,
    ChangedElsewhere,
    Error,
    FileError,
    InvalidArgument,
    IsAFolder,
    LimitExceeded,
    MissingModule,
    NetworkFailed,
    NoPermission,
    NoSuchFile,
    NotAnImage,
    OutOfMemory,
    PasswordNeeded,
    TimedOut,
    Truncated,
)
from ._pictures import from_array, from_pillow, open, pdf_pages, shrink, to_pillow
from .canvas import Canvas, CanvasLayer
from .composer import Composer, ComposerStore

__all__ = [
    "BudgetTooSmall",
    "Cancelled",
    "Canvas",
    "CanvasLayer",
    "ChangedElsewhere",
    "Composer",
    "ComposerStore",
    "Encoded",
    "Error",
    "FileError",
    "Image",
    "ImageCache",
    "InvalidArgument",
    "IsAFolder",
    "LimitExceeded",
    "Limits",
    "Metadata",
    "MissingModule",
    "NetworkFailed",
    "NoPermission",
    "NoSuchFile",
    "NotAnImage",
    "OutOfMemory",
    "PasswordNeeded",
    "StoredCache",
    "TimedOut",
    "Truncated",
    "__version__",
    "aio",
    "from_array",
    "from_pillow",
    "get_limits",
    "get_threads",
    "open",
    "pdf_pages",
    "set_limits",
    "set_threads",
    "shrink",
    "to_pillow",
]
