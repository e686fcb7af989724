"""Waiting for a condition, with a deadline and a message that says what did not happen."""

import time
from typing import Callable, TypeVar

from gi.repository import GLib

T = TypeVar("T")

_PAUSE = 0.005


def dispatch() -> None:
    """Lets the bus connections of this process deliver what has arrived."""
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass


def wait_for(condition: Callable[[], T], seconds: float = 30, what: str = "", seen: Callable[[], object] = None) -> T:
    """Returns the first true value of `condition`. `seen` is called for the failure message."""
    deadline = time.monotonic() + seconds
    while True:
        dispatch()
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            text = f"not within {seconds:g} s: {what or condition.__name__}"
            if seen is not None:
                text += f"\nseen instead: {seen()!r}"
            raise AssertionError(text)
        time.sleep(_PAUSE)
