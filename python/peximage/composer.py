"""Composers: pages of image, text and shape layers with guides that layers snap to. They are plain values that draw
nothing; an application shows them.

    page = Composer(name="Poster", layers=[Layer("text", text=Text("Hello"))])
    page.snap(page.layers[0], at=(0.004, 0.1), shown=(960, 540))        # (0.0, None): the middle is near

Coordinates count canvas widths from the canvas' centre on both axes, colours from 0 to 1. Which way y grows is up to
who draws.
"""

from __future__ import annotations

from dataclasses import dataclass, field, replace
from typing import Iterable, Literal, Mapping, Optional

from . import _core, _documents
from ._errors import InvalidArgument


def _fresh_id() -> str:
    return _core._new_id("")


@dataclass
class Color:
    """Channels from 0 to 1."""

    red: float
    green: float
    blue: float
    alpha: float = 1


@dataclass
class Resource:
    """Where a layer's picture is."""

    url: Optional[str] = None
    share_app_id: Optional[str] = None
    ingested_id: Optional[str] = None


@dataclass
class Picture:
    """What an image layer shows; `type` says which field of `resource` counts."""

    type: Literal["url", "shareApp", "ingested"] = "shareApp"
    #: Width divided by height.
    ratio: float = 1
    resource: Resource = field(default_factory=Resource, metadata=_documents.key("resourceAccess"))


@dataclass
class Style:
    """How a shape is drawn; a stroke of width 0 is none."""

    stroke_width: float = 0
    fill: bool = True
    fill_style: Literal["color"] = "color"
    fill_color: Color = field(default_factory=lambda: Color(0.5, 0.5, 0.5))


@dataclass
class Shape:
    type: Literal["rectangle", "circle"] = "rectangle"
    style: Style = field(default_factory=Style)


@dataclass
class Font:
    """A font's name, and its size in points."""

    name: str = "Courier"
    size: float = 64


@dataclass
class Text:
    text: str = ""
    font: Font = field(default_factory=Font)
    alignment: Literal["left", "center", "right"] = "left"
    color: Color = field(default_factory=lambda: Color(1, 1, 1))


@dataclass
class Scale:
    """Factors along both axes."""

    x: float = 1
    y: float = 1


@dataclass
class Transform:
    """Where a layer's centre is, and how large and opaque (0 to 1) it is. The rotation's unit is the application's."""

    location: tuple[float, float] = (0.0, 0.0)
    scale: Scale = field(default_factory=Scale)
    rotation: float = 0
    opacity: float = 1


@dataclass
class Layer:
    """Carries all three payloads; `type` says which one shows."""

    type: Literal["image", "text", "shape"] = field(metadata=_documents.key("layerType"))
    image: Picture = field(default_factory=Picture)
    shape: Shape = field(default_factory=Shape)
    text: Text = field(default_factory=Text)
    transform: Transform = field(default_factory=Transform)
    id: str = field(default_factory=_fresh_id)

    def copy(self) -> Layer:
        """The same with an identifier of its own."""
        return replace(_documents.parsed(Layer, _documents.written(self)), id=_fresh_id())


@dataclass
class Guide:
    """A line across the canvas: x of a vertical one, y of a horizontal one. `intrinsic` ones are the composer's own,
    others were placed by the user or lie along layers."""

    orientation: Literal["horizontal", "vertical"] = "horizontal"
    location: float = 0
    intrinsic: bool = False
    id: str = field(default_factory=_fresh_id)


@dataclass
class Composer:
    """A page: a canvas of a shape and colour, layers, and the guides that the user placed."""

    name: str = "Composer"
    #: Width divided by height.
    ratio: float = 16 / 9
    layers: list[Layer] = field(default_factory=list, metadata=_documents.key("layerList"))
    guides: list[Guide] = field(default_factory=list, metadata=_documents.key("guideList_"))
    background: Color = field(default_factory=lambda: Color(0.5, 0.5, 0.5), metadata=_documents.key("bgColor"))
    selected_layer_id: Optional[str] = None
    should_be_deleted: bool = False
    id: str = field(default_factory=_fresh_id)

    def all_guides(self, margins: Iterable[float] = ()) -> list[Guide]:
        """Those of the user, the centre lines, for each margin (a fraction of the width or height) the four lines so far
        inside the edges, and the lines of every layer."""
        return _documents.parsed(list[Guide], _core._composer_guides(_documents.written(self), list(margins)))

    def layer_guides(self, layer: Layer) -> tuple[list[float], list[float]]:
        """The positions x and y at which other layers can align with this one."""
        return _core._composer_layer_guides(_documents.written(self), self._index(layer))

    def snap(
        self, layer: Layer, at: tuple[float, float], shown: tuple[float, float]
    ) -> tuple[Optional[float], Optional[float]]:
        """The x and y to which the layer's centre snaps when it is dragged to `at` on a canvas shown in (width, height)
        pixels: the nearest within 10 pixels that puts its centre, or a picture's edge, on a guide. None where no guide
        is near."""
        return _core._composer_snap(_documents.written(self), self._index(layer), at, shown)

    def replaced(self, texts: Mapping[str, str]) -> Composer:
        """A copy in whose texts each key, whatever its case, gives way to its value, one after the other."""
        document = _documents.written(self)
        for search, by in texts.items():
            document = _core._composer_replaced(document, search, by)
        return _documents.parsed(Composer, document)

    def to_json(self) -> str:
        """The composer as a document."""
        return _core._composer_document(_documents.written(self))

    @staticmethod
    def from_json(document: str) -> Composer:
        """The composer of a document. Raises `InvalidArgument`, which says where the document is wrong."""
        return _documents.parsed(Composer, _core._composer_document(document))

    def _index(self, layer: Layer) -> int:
        for index, own in enumerate(self.layers):
            if own.id == layer.id:
                return index
        raise InvalidArgument("the layer is not of this composer")


class ComposerStore:
    """An application's composers on disk: change `composers` and `selected_id`, then `save`. Nobody's work is written
    over: what somebody else saved meanwhile makes `save` raise `ChangedElsewhere`. One thread at a time."""

    composers: list[Composer]
    #: The `id` of the selected one.
    selected_id: Optional[str]

    def __init__(self, app_name: str) -> None:
        self._store = _core._ComposerStore(app_name)
        self._take()

    @property
    def problem(self) -> str:
        """Why the stored document could not be read, or the last `save` did not save; empty if all is well."""
        return self._store.problem

    def save(self, *, take_over: bool = False) -> None:
        """Saves whole or not at all. `take_over` saves even if somebody else has; theirs is kept under another name."""
        self._store.save(_documents.written(self.composers), self.selected_id, take_over)

    def reload(self) -> None:
        """Drops what was not saved, and takes what is stored."""
        self._store.reload()
        self._take()

    def _take(self) -> None:
        self.composers = _documents.parsed(list[Composer], self._store.composers)
        self.selected_id = self._store.selected
