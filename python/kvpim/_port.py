"""One client of the C library in one event loop: requests go out, answers and events come in."""

from __future__ import annotations

import asyncio
import os
import weakref
from collections.abc import Callable
from typing import Any, Literal

from . import _library, errors
from ._operations import OPERATIONS, request_of
from .events import Event, event_of
from .streams import EventStream

_AT_ONCE = 256  # messages that are taken before the loop's other callbacks have their turn


class _Pending(asyncio.Future[Any]):
    """The end of an operation. Who stops waiting for it hears nothing more of it."""

    def __init__(self, port: Port, number: int, operation: str, then: Callable[[Any], Any] | None) -> None:
        super().__init__(loop=port.loop)
        self.operation = operation
        self._port = port
        self._number = number
        self._then = then

    def cancel(self, msg: Any | None = None) -> bool:
        self._port.pending.pop(self._number, None)
        return super().cancel(msg)

    def answer(self, line: dict[str, Any]) -> None:
        if self.done():
            return
        try:
            if "error" in line:
                raise errors.NotThere(self.operation, line["error"])
            if line.get("code", 0) != 0:
                raise errors.of_code(self.operation, line["code"], line["text"], line.get("failure"))
            result = OPERATIONS[self.operation].result(line)
            self.set_result(result if self._then is None else self._then(result))
        except Exception as error:
            self.set_exception(error)


class Port:
    """Belongs to the running loop and its thread. The loop holds it, and it holds what waits for it; not its client."""

    def __init__(self, options: str) -> None:
        self.loop = asyncio.get_running_loop()
        self.pending: dict[int, _Pending] = {}
        self._streams: list[weakref.ref[EventStream[Any]]] = []
        self._waiting: set[EventStream[Any]] = set()
        self._last = 0
        self._pid = os.getpid()
        self.is_open = True
        try:
            self._handle = _library.create(options)
        except _library.Problem as problem:
            raise _error_of(problem, "create") from None
        self._descriptor = _library.descriptor(self._handle)
        self.loop.add_reader(self._descriptor, self._take)

    def check(self) -> None:
        """Raises RuntimeError where the port cannot be used from here."""
        if os.getpid() != self._pid:
            raise RuntimeError("this client belongs to the process that was forked: fork first, then make clients")
        try:
            loop = asyncio.get_running_loop()
        except RuntimeError:
            raise RuntimeError("a client is used inside the event loop that it was opened in") from None
        if loop is not self.loop:
            raise RuntimeError("this client belongs to another event loop: make one for each")

    def begin(self, operation: str, values: dict[str, Any], then: Callable[[Any], Any] | None) -> asyncio.Future[Any]:
        """Begins an operation; its future has what `then` makes of its result."""
        self.check()
        self._last += 1
        text, data = request_of(self._last, operation, values)
        if not self.is_open:
            raise errors.ClosedError(operation, "the client is closed")
        try:
            _library.request(self._handle, text, data)
        except _library.Problem as problem:
            raise _error_of(problem, operation) from None
        pending = self.pending[self._last] = _Pending(self, self._last, operation, then)
        return pending

    def stream(
        self, accepts: Callable[[Event], bool], limit: int, drop: Literal["oldest", "newest"]
    ) -> EventStream[Any]:
        stream: EventStream[Any] = EventStream(self.loop, self._waiting, accepts, limit, drop)
        if self.is_open:
            self._streams.append(weakref.ref(stream, self._streams.remove))
        else:
            stream.close()
        return stream

    def close(self) -> None:
        """Ends what is pending with ClosedError, and the streams. In the loop's thread."""
        if not self.is_open or os.getpid() != self._pid:
            return
        self.is_open = False
        if not self.loop.is_closed():
            self.loop.remove_reader(self._descriptor)
        _library.destroy(self._handle)
        pending, self.pending = self.pending, {}
        for waits in pending.values():
            if not waits.done() and not self.loop.is_closed():
                waits.set_exception(errors.ClosedError(waits.operation, "the client was closed before the answer came"))
        for reference in self._streams:
            if (stream := reference()) is not None:
                stream.close()

    def abandon(self) -> None:
        """The same from any thread, soon."""
        try:
            is_here = asyncio.get_running_loop() is self.loop
        except RuntimeError:
            is_here = not self.loop.is_running()
        if is_here:
            self.close()
        else:
            self.loop.call_soon_threadsafe(self.close)

    def _take(self) -> None:
        for _ in range(_AT_ONCE):
            line = _library.receive(self._handle) if self.is_open else None
            if line is None:
                return
            if "event" in line:
                self._tell(line)
            else:
                self._answer(line)

    def _answer(self, line: dict[str, Any]) -> None:
        # A login that was not connected to in time goes on, and is answered once more. Whatever else is answered twice
        # has ended with the first.
        if line.get("failure", {}).get("goesOn") and line["op"] == "loginByToken":
            return
        pending = self.pending.pop(line["id"], None)
        if pending is not None:
            pending.answer(line)

    def _tell(self, line: dict[str, Any]) -> None:
        event = event_of(line) if self._streams else None
        if event is not None:
            for reference in tuple(self._streams):
                if (stream := reference()) is not None:
                    stream._push(event)


def _error_of(problem: _library.Problem, operation: str) -> Exception:
    text = str(problem)
    if problem.kind == _library.ARGUMENT:
        return ValueError(text)
    if problem.kind == _library.CREATE:
        return errors.CreateError(operation, text)
    if problem.kind == _library.ENDED:
        return errors.ClosedError(operation, text)
    return RuntimeError(text) if problem.kind == _library.FORKED else OSError(text)
