"""What takes long, for `await`: the same names and arguments, on threads of the event loop's own pool. Methods of
pictures take the picture first.

    small = await pex.aio.resize(await pex.aio.open("photo.jpg"), max_side=2000)
    await pex.aio.save(small, "small.jpg", max_bytes=300_000)
"""

from __future__ import annotations

import asyncio
import functools
from typing import Any, Callable, Coroutine, ParamSpec, TypeVar

from . import _pictures
from ._core import Image
from .canvas import Canvas

P = ParamSpec("P")
R = TypeVar("R")


def _awaitable(function: Callable[P, R]) -> Callable[P, Coroutine[Any, Any, R]]:
    @functools.wraps(function)
    async def call(*args: P.args, **kwargs: P.kwargs) -> R:
        return await asyncio.to_thread(function, *args, **kwargs)

    return call


open = _awaitable(_pictures.open)
shrink = _awaitable(_pictures.shrink)
load = _awaitable(Image.load)
encode = _awaitable(Image.encode)
save = _awaitable(Image.save)
resize = _awaitable(Image.resize)
turn = _awaitable(Image.turn)
rotate = _awaitable(Image.rotate)
straighten = _awaitable(Image.straighten)
join = _awaitable(Image.join)
watermark = _awaitable(Image.watermark)
key = _awaitable(Image.key)
mask = _awaitable(Image.mask)
convolve = _awaitable(Image.convolve)
sharpen = _awaitable(Image.sharpen)
exposure = _awaitable(Image.exposure)
apply_lut = _awaitable(Image.apply_lut)
fill = _awaitable(Image.fill)
average_color = _awaitable(Image.average_color)
color_grid = _awaitable(Image.color_grid)
draw = _awaitable(Canvas.draw)
