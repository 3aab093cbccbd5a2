"""Pictures laid over each other on a canvas, drawn into one.

    canvas = pex.Canvas((1080, 1350))
    canvas.add(photo)                                                   # fills the canvas
    canvas.add(logo, position=(0.9, 0.1), conforming="none", opacity=0.8)
    canvas.draw().save("post.jpg")
"""

from __future__ import annotations

import operator
from dataclasses import dataclass, field
from typing import Any, Literal, Optional, get_args

from . import _core, _documents
from ._core import Image
from ._errors import InvalidArgument

Conforming = Literal["none", "fit", "fill"]


@dataclass
class CanvasLayer:
    """One picture of a canvas: given as it is, or by the `url` of a file or of a server."""

    image: Optional[Image] = None
    url: Optional[str] = None
    #: Where its centre goes, in fractions of the canvas from the bottom left corner.
    position: tuple[float, float] = (0.5, 0.5)
    #: A factor on the size that `conforming` gives.
    scale: float = 1
    #: From 0, invisible, to 1, opaque.
    opacity: float = 1
    #: "fill" covers the canvas, "fit" shows all of the picture, "none" keeps its size in pixels.
    conforming: Conforming = "fill"
    #: Kept in documents; drawing does not use it.
    anchor: tuple[float, float] = (0.5, 0.5)
    #: A file shared between applications, in place of a `url`.
    share_app_id: Optional[str] = None
    id: str = field(default_factory=lambda: _core._new_id("pexcl"))


@dataclass
class Canvas:
    """A size in pixels and layers, the first one lowest. `draw` gives the picture."""

    size: tuple[int, int]
    layers: list[CanvasLayer] = field(default_factory=list)

    def add(self, image: Image, **placing: Any) -> CanvasLayer:
        """Lays a picture over the others; the arguments are the fields of `CanvasLayer`."""
        layer = CanvasLayer(image, **placing)
        self.layers.append(layer)
        return layer

    def draw(self) -> Image:
        """The layers in one picture, transparent where there are none. Raises `InvalidArgument` where a layer's picture
        cannot be had."""
        return _core._draw_canvas(_documents.written(_document(self)), [layer.image for layer in self.layers])

    def to_json(self) -> str:
        """The canvas as a document, which names the files of its layers; pictures in memory are not in it."""
        return _core._canvas_document(_documents.written(_document(self)))

    @staticmethod
    def from_json(document: str) -> Canvas:
        """The canvas of a document. What is missing takes its default."""
        read = _documents.parsed(_Canvas, _core._canvas_document(document))
        return Canvas((read.size.width, read.size.height), [_layer(layer) for layer in read.layers])


@dataclass
class _Size:
    width: int
    height: int


@dataclass
class _Source:
    identification: str
    url: Optional[str] = None
    share_app_id: Optional[str] = None


@dataclass
class _Transform:
    anchor: tuple[float, float]
    position: tuple[float, float]
    scale: float
    opacity: float


@dataclass
class _Layer:
    id: str
    source: _Source
    spatial_conforming: str
    transform: _Transform
    type: str = "Image"


@dataclass
class _Canvas:
    size: _Size
    layers: list[_Layer] = field(metadata=_documents.key("layerList"))


def _document(canvas: Canvas) -> _Canvas:
    width, height = map(operator.index, canvas.size)
    if not (0 < width < 2**31 and 0 < height < 2**31):
        raise InvalidArgument("a canvas has at least one pixel, and fewer than two thousand million a side")
    return _Canvas(_Size(width, height), [_layer_document(layer) for layer in canvas.layers])


def _layer_document(layer: CanvasLayer) -> _Layer:
    if layer.conforming not in get_args(Conforming):
        raise InvalidArgument("conforming is " + ", ".join(get_args(Conforming)))
    by = "image" if layer.image is not None else "url" if layer.share_app_id is None else "shareAppId"
    transform = _Transform(_point(layer.anchor), _point(layer.position), float(layer.scale), float(layer.opacity))
    return _Layer(layer.id, _Source(by, layer.url, layer.share_app_id), layer.conforming.capitalize(), transform)


def _point(point: tuple[float, float]) -> tuple[float, float]:
    x, y = point
    return float(x), float(y)


def _layer(read: _Layer) -> CanvasLayer:
    place = read.transform
    return CanvasLayer(
        url=read.source.url,
        position=place.position,
        scale=place.scale,
        opacity=place.opacity,
        conforming=read.spatial_conforming.lower(),  # type: ignore[arg-type]
        anchor=place.anchor,
        share_app_id=read.source.share_app_id,
        id=read.id,
    )
