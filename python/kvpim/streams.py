"""Events, one after the other."""

from __future__ import annotations

import asyncio
from collections import deque
from collections.abc import Callable
from typing import Any, Generic, Literal, TypeVar

from .events import Event

E = TypeVar("E", bound=Event, covariant=True)


class EventStream(Generic[E]):
    """What a client, a channel or the invitations tell, from the moment at which the stream is opened:

        async for event in client.events(): ...

    Any number of streams may be open, and one task at a time may read each. A stream keeps what nobody has read yet:
    `limit` events, beyond which it loses the oldest, or with `drop="newest"` those that come; `dropped` counts them. It
    ends, with what it has still got, when its client is closed or when `close` is called.
    """

    def __init__(
        self,
        loop: asyncio.AbstractEventLoop,
        waiting: set[EventStream[Any]],
        accepts: Callable[[Event], bool],
        limit: int,
        drop: Literal["oldest", "newest"],
    ) -> None:
        if not isinstance(limit, int) or isinstance(limit, bool):
            raise TypeError(f"limit must be an int, not {type(limit).__name__}")
        if limit < 1 or drop not in ("oldest", "newest"):
            raise ValueError('limit is 1 or more; drop is "oldest" or "newest"')
        self.dropped = 0
        """How many events were lost so far because nobody read them in time."""
        self._loop = loop
        self._waiting = waiting  # keeps alive who waits, as the loop does with what waits for a descriptor
        self._accepts = accepts
        self._limit = limit
        self._keeps_newest = drop == "oldest"
        self._events: deque[Any] = deque()
        self._waiter: asyncio.Future[None] | None = None
        self._is_over = False

    def __len__(self) -> int:
        """How many wait to be read."""
        return len(self._events)

    def __bool__(self) -> bool:
        return True

    def __aiter__(self) -> EventStream[E]:
        return self

    async def __anext__(self) -> E:
        if self._waiter is not None:
            raise RuntimeError("another task reads this stream")
        if asyncio.get_running_loop() is not self._loop:
            raise RuntimeError("this stream belongs to another event loop")
        while not self._events:
            if self._is_over:
                raise StopAsyncIteration
            self._waiter = self._loop.create_future()
            self._waiting.add(self)
            try:
                await self._waiter
            finally:
                self._waiter = None
                self._waiting.discard(self)
        event: E = self._events.popleft()
        return event

    def close(self) -> None:
        """Ends it, with what it has still got; who waits is told."""
        self._is_over = True
        self._wake()

    def _push(self, event: Event) -> None:
        if self._is_over or not self._accepts(event):
            return
        if len(self._events) >= self._limit:
            self.dropped += 1
            if not self._keeps_newest:
                return
            self._events.popleft()
        self._events.append(event)
        self._wake()

    def _wake(self) -> None:
        if self._waiter is not None and not self._waiter.done():
            self._waiter.set_result(None)
