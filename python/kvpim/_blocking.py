"""What `kvpim.sync` is made of: an event loop that runs while a call waits, and only then."""

from __future__ import annotations

import asyncio
from collections.abc import Awaitable, Callable
from typing import Generic, TypeVar

from .events import Event
from .streams import EventStream

T = TypeVar("T")
E = TypeVar("E", bound=Event)


class Waiter:
    """Runs what it is given, in its own event loop, and waits for it."""

    def __init__(self) -> None:
        self._runner = asyncio.Runner()

    def call(self, function: Callable[[], T]) -> T:
        async def inside() -> T:
            return function()

        return self._runner.run(inside())

    def wait(self, begin: Callable[[], Awaitable[T]]) -> T:
        async def inside() -> T:
            return await begin()

        return self._runner.run(inside())

    def close(self) -> None:
        self._runner.close()


class Events(Generic[E]):
    """Events, one after the other: `for event in client.events(timeout=5): ...`

    It hears what is told from the moment at which it was made. The loop over it ends when the client is closed, or when
    no event has come for `timeout` seconds; another loop goes on where this one ended.
    """

    def __init__(self, waiter: Waiter, stream: EventStream[E], timeout: float | None) -> None:
        if timeout is not None and not isinstance(timeout, (int, float)):
            raise TypeError(f"timeout must be a number of seconds, not {type(timeout).__name__}")
        self._waiter = waiter
        self._stream = stream
        self._timeout = timeout

    @property
    def dropped(self) -> int:
        """How many events were lost so far because nobody read them in time."""
        return self._stream.dropped

    def __len__(self) -> int:
        """How many wait to be read, of those that were received."""
        return len(self._stream)

    def __bool__(self) -> bool:
        return True

    def __iter__(self) -> Events[E]:
        return self

    def __next__(self) -> E:
        event = self._waiter.wait(self._next)
        if event is None:
            raise StopIteration
        return event

    def close(self) -> None:
        """Ends it, with what it has still got."""
        self._stream.close()

    async def _next(self) -> E | None:
        try:
            async with asyncio.timeout(self._timeout):
                return await anext(self._stream, None)
        except TimeoutError:
            return None
