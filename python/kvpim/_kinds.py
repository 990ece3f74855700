"""The types of arguments and options, by the names that the library has for them: what is taken for one, as JSON."""

from __future__ import annotations

import re
from collections.abc import Callable, Iterable, Mapping
from typing import Any

from .events import ChannelEvent, ClientEvent, Event, InvitationEvent


def camel(name: str) -> str:
    """ "user_id" is "userId" in the library."""
    return re.sub("_([a-z])", lambda match: match[1].upper(), name)


def snake(name: str) -> str:
    """ "userId" is "user_id" here."""
    return re.sub("(?<=[a-z])[A-Z]+", lambda match: "_" + match[0], name).lower()


class Wrong(TypeError):
    """What the value should be; who knows its name says so."""


def _one(words: str, *types: type) -> Callable[[Any], Any]:
    def check(value: Any) -> Any:
        if not isinstance(value, types) or (isinstance(value, bool) and bool not in types):
            raise Wrong(words)
        return value

    return check


def _each(words: str, value: Any) -> list[Any]:
    if isinstance(value, (str, bytes, Mapping)) or not isinstance(value, Iterable):
        raise Wrong(words)
    return list(value)


def _texts(value: Any) -> list[str]:
    texts = _each("several str", value)
    if not all(isinstance(text, str) for text in texts):
        raise Wrong("several str")
    return texts


def _attributes(value: Any) -> list[dict[str, Any]]:
    if not isinstance(value, Mapping):
        raise Wrong("a mapping of str to str")
    if not all(isinstance(key, str) and (text is None or isinstance(text, str)) for key, text in value.items()):
        raise Wrong("a mapping of str to str")
    return [{"key": key, "value": text} for key, text in value.items()]


def _headers(value: Any) -> dict[str, Any]:
    return {header["key"]: _one("a mapping of str to str", str)(header["value"]) for header in _attributes(value)}


def _callbacks(of: type[Event]) -> Callable[[Any], list[str]]:
    words = f"several kinds of {of.__name__}"

    def check(value: Any) -> list[str]:
        kinds = _each(words, value)
        if not all(isinstance(kind, type) and issubclass(kind, of) and hasattr(kind, "callback") for kind in kinds):
            raise Wrong(words)
        return [kind.callback for kind in kinds]

    return check


def _engine(value: Any) -> Any:
    return camel(_one("a str", str)(value))


KINDS: dict[str, Callable[[Any], Any]] = {
    "text": _one("a str", str),
    "number": _one("an int", int),
    "size": _one("an int", int),
    "flag": _one("a bool", bool),
    "seconds": _one("a number of seconds", int, float),
    "data": _one("bytes", bytes, bytearray, memoryview),
    "texts": _texts,
    "attributes": _attributes,
    "headers": _headers,
    "engine": _engine,
    "tlsVersion": _one("a str", str),
    "clientCallbacks": _callbacks(ClientEvent),
    "channelCallbacks": _callbacks(ChannelEvent),
    "invitationCallbacks": _callbacks(InvitationEvent),
}


def checked(kind: str, value: Any, name: str) -> Any:
    """The value as JSON takes it (data as it is); raises TypeError with the name."""
    try:
        return KINDS[kind](value)
    except Wrong as wrong:
        raise TypeError(f"{name} must be {wrong}, not {type(value).__name__}") from None
