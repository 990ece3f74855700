"""What operations and events speak of."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntEnum
from typing import Any, TypeAlias

Attributes: TypeAlias = dict[str, str | None]
"""The attributes of a channel or a user; one without a value has None."""


class ConnectionState(IntEnum):
    """How far a client's connection is."""

    UNKNOWN = 0
    DISCONNECTED = 1
    CONNECTING = 2
    CONNECTED = 3
    RECONNECTING = 4

    @classmethod
    def _missing_(cls, value: object) -> ConnectionState:
        return cls.UNKNOWN


class ConnectionChangeReason(IntEnum):
    """Why the state changed."""

    UNKNOWN = 0
    LOGIN = 1
    LOGIN_SUCCESS = 2
    LOGIN_FAILURE = 3
    LOGIN_TIMEOUT = 4
    INTERRUPTED = 5
    LOGOUT = 6
    REMOTE_LOGIN = 8
    EXPIRED_SESSION = 9

    @classmethod
    def _missing_(cls, value: object) -> ConnectionChangeReason:
        return cls.UNKNOWN


class MemberLeftReason(IntEnum):
    """Why a member left a channel: the member left it, or the member's connection ended."""

    UNKNOWN = 0
    QUIT = 1
    DISCONNECT = 2

    @classmethod
    def _missing_(cls, value: object) -> MemberLeftReason:
        return cls.UNKNOWN


class InvitationState(IntEnum):
    """What became of an invitation. UNKNOWN stands for a state that only the server knows."""

    UNKNOWN = -1
    INITIAL = 0
    FAILED = 1
    PENDING = 2
    CANCELED = 3
    ACCEPTED = 4
    REFUSED = 5

    @classmethod
    def _missing_(cls, value: object) -> InvitationState:
        return cls.UNKNOWN


class Subscription(IntEnum):
    """What one subscribes to, of peers."""

    ONLINE_STATUS = 0
    ATTRIBUTES = 1


@dataclass(frozen=True, slots=True)
class Member:
    """A user in a channel."""

    user_id: str
    channel_id: str

    @classmethod
    def of(cls, value: Any) -> Member:
        return cls(value["userId"], value["channelId"])


@dataclass(frozen=True, slots=True)
class Message:
    """A message that was received: a text, or bytes with or without a text.

    `raw_data` is None in a message of text alone. `server_received_ts` is when the server had it, in milliseconds since
    1970 as the server counts.
    """

    text: str | None
    raw_data: bytes | None
    server_received_ts: int
    is_offline_message: bool

    @classmethod
    def of(cls, value: Any) -> Message:
        return cls(value["text"], value["rawData"], value["serverReceivedTs"], value["isOfflineMessage"])


@dataclass(frozen=True, slots=True)
class Attribute:
    """An attribute of a user that has changed; `value` is None, and `deleted` true, when it is gone."""

    key: str
    value: str | None
    deleted: bool

    @classmethod
    def of(cls, value: Any) -> Attribute:
        return cls(value["key"], value["value"], value["deleted"])


@dataclass(frozen=True, slots=True)
class UserAttributes:
    """Attributes of one user."""

    user_id: str
    attributes: tuple[Attribute, ...]

    @classmethod
    def of(cls, value: Any) -> UserAttributes:
        return cls(value["userId"], tuple(map(Attribute.of, value["attributes"])))


@dataclass(frozen=True, slots=True)
class PeerOnlineStatus:
    """Whether a peer is online."""

    peer_id: str
    is_online: bool

    @classmethod
    def of(cls, value: Any) -> PeerOnlineStatus:
        return cls(value["peerId"], value["isOnline"])


@dataclass(frozen=True, slots=True)
class ChannelMemberCount:
    """How many members a channel has."""

    channel_id: str
    count: int

    @classmethod
    def of(cls, value: Any) -> ChannelMemberCount:
        return cls(value["channelId"], value["count"])


@dataclass(frozen=True, slots=True)
class Invitation:
    """A call-style invitation of one user by another, as it was at that moment. Absent texts are None."""

    inviter: str
    invitee: str
    request_info: str | None
    response_info: str | None
    state: InvitationState

    @classmethod
    def of(cls, value: Any) -> Invitation:
        infos = value["requestInfo"], value["responseInfo"]
        return cls(value["inviter"], value["invitee"], *infos, InvitationState(value["state"]))


@dataclass(frozen=True, slots=True)
class State:
    """What a client knows of its session: whether it is logged in, as whom, and how far its connection is."""

    login: bool
    state: ConnectionState
    user_id: str
    app_id: str

    @classmethod
    def of(cls, value: Any) -> State:
        return cls(value["login"], ConnectionState(value["state"]), value["userId"], value["appId"])


@dataclass(frozen=True, slots=True)
class Failure:
    """Where and why an operation failed, in words that may be shown and logged: never with a token or a password.

    `stage` is one of "address", "name", "tcp", "proxy", "tls", "discovery", "upgrade", "session", "login" and
    "request". `server_words` and `advice` are empty where there are none. `goes_on`: the client tries again by itself.
    """

    stage: str
    cause: str
    server_words: str
    advice: str
    goes_on: bool

    @classmethod
    def of(cls, value: Any) -> Failure:
        words = value.get("serverWords", ""), value.get("advice", "")
        return cls(value["stage"], value["cause"], *words, value.get("goesOn", False))


def attributes_of(value: Any) -> Attributes:
    """[{"key", "value"}] as a dictionary."""
    return {attribute["key"]: attribute["value"] for attribute in value}
