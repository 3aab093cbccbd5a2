"""Lets functions and methods of the native part go to other processes: engines of clusters hand them over by pickle."""

import copyreg
import operator
from typing import Any, Callable

from . import _core


def _named(name: str) -> Any:
    return operator.attrgetter(name)(_core)


def _reduced(function: Callable[..., Any]) -> Any:
    return _named, (function.__qualname__,)


for _function in (_core.set_threads, _core.Image.load):
    copyreg.pickle(type(_function), _reduced)
