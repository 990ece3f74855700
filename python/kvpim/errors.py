"""What operations raise."""

from __future__ import annotations

from typing import Any

from . import _library
from .records import Failure


class Error(Exception):
    """An operation failed.

    `operation` is the library's name for it, such as "joinWithCompletion"; `code` its completion code, or None where
    there is none; `name` what the code is called, such as "KvPimJoinChannelErrorTimeout", or None; `text` a sentence
    that says what happened and what to do; `failure` says where and why, where more is known, and is None otherwise.
    The same code means different things in different operations: see the page "Completion codes".
    """

    def __init__(
        self,
        operation: str,
        text: str,
        code: int | None = None,
        name: str | None = None,
        failure: Failure | None = None,
    ) -> None:
        super().__init__(operation, text, code, name, failure)
        self.operation = operation
        self.text = text
        self.code = code
        self.name = name
        self.failure = failure

    def __str__(self) -> str:
        code = "" if self.code is None else f" ({self.code})"
        cause = "" if self.failure is None else f" [{self.failure.stage}: {self.failure.cause}]"
        return f"{self.operation}{code}: {self.text}{cause}"


class NotLoggedIn(Error):
    """The client is not logged in; nothing was sent. Its code is 102."""


class TimedOut(Error):
    """No answer came in time: whether the server has carried it out is not known.

    Not a TimeoutError, which is what `asyncio.timeout` makes of a wait that took too long for its caller.
    """


class NotThere(Error):
    """The channel object or the invitation that the operation is about is not there; nothing was sent. No code."""


class ClosedError(Error):
    """The client was closed, before the operation or before its answer came. No code."""


class CreateError(Error):
    """There is no client of these options, such as one with an API server that is not an address. No code."""


def of_code(operation: str, code: int, text: str, failure: Any) -> Error:
    """The error of an answer that has a code other than 0."""
    names: list[dict[str, Any]] = _library.interface()["codes"].get(operation, [])
    name: str | None = next((row["name"] for row in names if row["code"] == code), None)
    kind = Error
    if code == 102:
        kind = NotLoggedIn
    elif name is not None and name.endswith("Timeout"):
        kind = TimedOut
    return kind(operation, text, code, name, None if failure is None else Failure.of(failure))
