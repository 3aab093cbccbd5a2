"""What is left to do when Python ends or forks."""

import atexit
import os
import time

from . import _core


def _await_interrupted() -> None:
    """A call that Ctrl-C interrupted may still be at work; another Ctrl-C ends the waiting."""
    while _core._running():
        time.sleep(0.01)


atexit.register(_await_interrupted)
os.register_at_fork(after_in_child=_core._forget_running)
