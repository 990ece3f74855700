"""Where the lines go that the library prints and logs."""

from __future__ import annotations

import atexit
from collections.abc import Callable
from typing import Any

from . import _library

_chosen: dict[str, Any] = {}  # the callbacks in use


def set_log(write: Callable[[int, str], None] | None) -> None:
    """Who gets the lines of the log that the filter lets through (`set_log_filters`), instead of standard error and
    the file: called with the level (1 information, 2 a warning, 4 an error, 8 critical) and the line, by any thread;
    it must not use clients. None for standard error and the file again. Of the process.
    """
    _set("log", write, _library.LineCallback(0))


def set_console(write: Callable[[int, str], None] | None) -> None:
    """Who gets the lines that the library prints, instead of standard output and standard error: called with 1 or 2
    for these and the line, by any thread; it must not use clients. None for nobody. Of the process; before the first
    client is opened, so that nothing is printed before.
    """
    _set("console", write, _library.ignore_line)


def _set(kind: str, write: Any, nobody: Any) -> None:
    if write is None:
        callback = nobody
    elif callable(write):
        callback = _library.LineCallback(lambda _, number, line: write(number, line.decode(errors="replace")))
    else:
        raise TypeError("what gets lines is called with a number and a line")
    _library.set_lines(kind, callback)
    if kind not in _chosen:
        # No thread of the library may come in when the interpreter has gone.
        atexit.register(_library.set_lines, kind, _library.ignore_line)
    _chosen[kind] = callback
