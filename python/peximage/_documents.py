"""Dataclasses as the library's JSON documents, and back."""

from __future__ import annotations

import dataclasses
import json
import math
from typing import Any, Type, TypeVar, get_args, get_origin, get_type_hints

T = TypeVar("T")


def key(name: str) -> dict[str, str]:
    """For a field whose key in documents is not its name in camel case."""
    return {"key": name}


def written(value: Any) -> str:
    """The document of a dataclass or a list of them. What documents cannot hold raises TypeError."""
    return json.dumps(_plain(value), default=_number)


def parsed(kind: Type[T], document: str) -> T:
    """What the library wrote, as a value of a dataclass."""
    return _value(kind, json.loads(document))  # type: ignore[no-any-return]


def _key(field: "dataclasses.Field[Any]") -> str:
    first, *rest = field.name.split("_")
    return str(field.metadata.get("key", first + "".join(word.capitalize() for word in rest)))


def _plain(value: Any) -> Any:
    if dataclasses.is_dataclass(value):
        fields = [(_key(field), getattr(value, field.name)) for field in dataclasses.fields(value)]
        return {name: _plain(member) for name, member in fields if member is not None}
    if isinstance(value, (list, tuple)):
        return [_plain(member) for member in value]
    if isinstance(value, float) and not math.isfinite(value):
        return {"nonFinite": str(value)}
    return value


def _number(value: Any) -> float:
    """Of a number that is not Python's own."""
    return int(value) if hasattr(value, "__index__") else float(value)


def _value(kind: Any, plain: Any) -> Any:
    if dataclasses.is_dataclass(kind):
        hints = get_type_hints(kind)
        fields = [(field.name, _key(field)) for field in dataclasses.fields(kind)]
        return kind(**{name: _value(hints[name], plain[named]) for name, named in fields if named in plain})  # type: ignore[operator]
    if get_origin(kind) is list:
        return [_value(get_args(kind)[0], member) for member in plain]
    if isinstance(plain, list):
        return tuple(_value(float, member) for member in plain)
    if isinstance(plain, dict):
        return float(plain["nonFinite"])
    return float(plain) if kind is float else plain
