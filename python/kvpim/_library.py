"""The C library, as it is: `<KvPim/kvpim.h>` says what its functions do."""

from __future__ import annotations

import ctypes
import functools
import json
from pathlib import Path
from typing import Any

NAME = "libkvpim_c.so.1"
ARGUMENT, CREATE, ENDED, FORKED = 1, 2, 3, 4  # kvpim_error_kind
_RAW = 2  # the type of a message with data


class Handle(ctypes.Structure):
    """A client, by its number."""

    _fields_ = [("number", ctypes.c_uint64)]


class _Reason(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int), ("text", ctypes.c_char * 508)]


class Problem(Exception):
    """Why a function of the library failed."""

    def __init__(self, reason: _Reason) -> None:
        super().__init__(reason.text.decode(errors="replace"))
        self.kind: int = reason.kind


def _load() -> tuple[ctypes.CDLL, ctypes.PyDLL]:
    tried = []
    for name in (str(Path(__file__).parent / NAME), NAME):
        try:
            return ctypes.CDLL(name), ctypes.PyDLL(name)
        except OSError as error:
            tried.append(f"{name} ({error})")
    raise ImportError("kvpim finds no library: " + "; ".join(tried), name="kvpim", path=NAME)


# What may take its time lets other Python threads run; what never waits is not worth it.
_waits, _never_waits = _load()

_Reasons = ctypes.POINTER(_Reason)
_Text, _Size, _Pointer = ctypes.c_char_p, ctypes.c_size_t, ctypes.c_void_p


def _function(library: ctypes.CDLL, name: str, result: Any, *arguments: Any) -> Any:
    function = library[name]
    function.restype, function.argtypes = result, arguments
    return function


_version = _function(_waits, "kvpim_version", _Text)
_interface = _function(_waits, "kvpim_interface", _Text)
_create = _function(_waits, "kvpim_create", ctypes.c_bool, _Text, ctypes.POINTER(Handle), _Reasons)
_destroy = _function(_waits, "kvpim_destroy", None, Handle)
_request = _function(_never_waits, "kvpim_request", ctypes.c_bool, Handle, _Text, _Reasons)
_request_with_data = _function(
    _never_waits, "kvpim_request_with_data", ctypes.c_bool, Handle, _Text, _Text, _Size, _Reasons
)
_receive = _function(
    _never_waits, "kvpim_receive", ctypes.c_int, Handle, ctypes.c_int64, ctypes.POINTER(_Pointer)
)
_text = _function(_never_waits, "kvpim_message_text", _Text, _Pointer)
_data = _function(_never_waits, "kvpim_message_data", _Pointer, _Pointer, ctypes.POINTER(_Size))
_free = _function(_never_waits, "kvpim_message_free", None, _Pointer)
_descriptor = _function(_never_waits, "kvpim_fd", ctypes.c_int, Handle)
LineCallback = ctypes.CFUNCTYPE(None, _Pointer, ctypes.c_int, _Text)
_set_lines = {
    kind: _function(_waits, f"kvpim_set_{kind}_callback", None, LineCallback, _Pointer) for kind in ("log", "console")
}

ignore_line = LineCallback(("kvpim_ignore_line", _waits))

_decode = json.JSONDecoder().raw_decode


def version() -> str:
    """The version of the library, such as "1.0.0"."""
    text: bytes = _version()
    return text.decode()


@functools.cache
def interface() -> dict[str, Any]:
    """What operations, events, options and codes the library has."""
    found: dict[str, Any] = json.loads(_interface())
    return found


def set_lines(kind: str, callback: Any) -> None:
    """Has lines of the "log" or the "console" go to a `LineCallback`, which the library does not keep alive. Nobody is
    inside the former one when it returns.
    """
    _set_lines[kind](callback, None)


def create(options: str) -> Handle:
    """Makes a client; raises Problem."""
    handle, reason = Handle(), _Reason()
    if not _create(options.encode(), ctypes.byref(handle), ctypes.byref(reason)):
        raise Problem(reason)
    return handle


def destroy(handle: Handle) -> None:
    """Ends a client; nothing happens to one that has ended."""
    _destroy(handle)


def request(handle: Handle, line: str, data: bytes | None) -> None:
    """Begins an operation; raises Problem."""
    reason = _Reason()
    if data is None:
        begun = _request(handle, line.encode(), ctypes.byref(reason))
    else:
        begun = _request_with_data(handle, line.encode(), data, len(data), ctypes.byref(reason))
    if not begun:
        raise Problem(reason)


def receive(handle: Handle) -> dict[str, Any] | None:
    """The next answer or event, if there is one now. The raw data of a message stands in it, as bytes."""
    received = _Pointer()
    if _receive(handle, 0, ctypes.byref(received)) != 0:
        return None
    try:
        line: dict[str, Any] = _decode(_text(received).decode())[0]
        message = line.get("message")
        if message is not None and message["type"] == _RAW:
            size = _Size()
            found = _data(received, ctypes.byref(size))
            message["rawData"] = ctypes.string_at(found, size.value) if found else b""
        return line
    finally:
        _free(received)


def descriptor(handle: Handle) -> int:
    """Readable while `receive` has something."""
    number: int = _descriptor(handle)
    return number
