"""What a client tells, its channels and invitations included; each is a dataclass.

Names of events in the library are in brackets.
"""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any, ClassVar

from .records import (
    Attributes,
    ConnectionChangeReason,
    ConnectionState,
    Invitation,
    Member,
    MemberLeftReason,
    Message,
    PeerOnlineStatus,
    UserAttributes,
    attributes_of,
)


class Event:
    """What all events are. `callback` is the name of the library's callback that stands behind it."""

    __slots__ = ()
    callback: ClassVar[str]


class ClientEvent(Event):
    """What the client itself tells."""

    __slots__ = ()


@dataclass(frozen=True, slots=True)
class ConnectionStateChanged(ClientEvent):
    """The connection is made, lost, or ended."""

    callback: ClassVar[str] = "connectionStateChanged"
    state: ConnectionState
    reason: ConnectionChangeReason


@dataclass(frozen=True, slots=True)
class TokenDidExpire(ClientEvent):
    """The token has expired, and the client goes on reconnecting: `Client.renew_token` gives it another."""

    callback: ClassVar[str] = "tokenDidExpire"


@dataclass(frozen=True, slots=True)
class MessageReceived(ClientEvent):
    """A message of another user, `peer_id`; those that the server kept arrive after the login."""

    callback: ClassVar[str] = "messageReceived"
    peer_id: str
    message: Message


@dataclass(frozen=True, slots=True)
class PeersOnlineStatusChanged(ClientEvent):
    """Peers that one is subscribed to came or went."""

    callback: ClassVar[str] = "peersOnlineStatusChanged"
    statuses: tuple[PeerOnlineStatus, ...]


@dataclass(frozen=True, slots=True)
class PeersUserAttributesChanged(ClientEvent):
    """Attributes of peers that one is subscribed to changed; those that did not are not among them."""

    callback: ClassVar[str] = "peersUserAttributesChanged"
    users: tuple[UserAttributes, ...]


@dataclass(frozen=True, slots=True)
class Writable(ClientEvent):
    """There is room again for what is to be sent: at most half of `max_queued_bytes` waits."""

    callback: ClassVar[str] = "onWritable"


@dataclass(frozen=True, slots=True)
class ChannelEvent(Event):
    """What a channel tells."""

    channel_id: str


@dataclass(frozen=True, slots=True)
class MemberJoined(ChannelEvent):
    """A user joined the channel."""

    callback: ClassVar[str] = "memberJoined"
    member: Member


@dataclass(frozen=True, slots=True)
class MemberLeft(ChannelEvent):
    """A member left the channel. `MemberLeftWithReason` tells the same."""

    callback: ClassVar[str] = "memberLeft"
    member: Member


@dataclass(frozen=True, slots=True)
class MemberLeftWithReason(ChannelEvent):
    """A member left the channel, and why."""

    callback: ClassVar[str] = "memberLeftWithReason"
    member: Member
    reason: MemberLeftReason


@dataclass(frozen=True, slots=True)
class ChannelMessageReceived(ChannelEvent):
    """A message of another member."""

    callback: ClassVar[str] = "messageReceived"
    message: Message
    member: Member


@dataclass(frozen=True, slots=True)
class AttributeUpdate(ChannelEvent):
    """The channel's attributes changed; these are all of them."""

    callback: ClassVar[str] = "attributeUpdate"
    attributes: Attributes


@dataclass(frozen=True, slots=True)
class MemberCount(ChannelEvent):
    """The channel has so many members now."""

    callback: ClassVar[str] = "memberCount"
    count: int


@dataclass(frozen=True, slots=True)
class InvitationEvent(Event):
    """What is told of an invitation.

    `label` is what the operations of `Invitations` know it by, or None; `same_object` is false where the label is an
    earlier invitation's between the same two users.
    """

    invitation: Invitation
    label: str | None
    same_object: bool


@dataclass(frozen=True, slots=True)
class InvitationArrived(InvitationEvent):
    """Somebody invites this user. The label is "from:INVITER"."""

    callback: ClassVar[str] = "invitationArrived"


@dataclass(frozen=True, slots=True)
class InvitationCanceled(InvitationEvent):
    """The inviter took it back."""

    callback: ClassVar[str] = "invitationCanceled"


@dataclass(frozen=True, slots=True)
class InvitationAccepted(InvitationEvent):
    """The invitee accepted."""

    callback: ClassVar[str] = "invitationAccept"


@dataclass(frozen=True, slots=True)
class InvitationRefused(InvitationEvent):
    """The invitee refused."""

    callback: ClassVar[str] = "invitationRefused"


@dataclass(frozen=True, slots=True)
class InvitationFailed(InvitationEvent):
    """It was not answered in time, or could not be sent; `error_code` is a KvPimInvitationFailedErrorCode."""

    callback: ClassVar[str] = "invitationFailed"
    error_code: int


def _list_of(record: Any) -> Callable[[Any], Any]:
    return lambda values: tuple(map(record.of, values))


# Each kind of event with what its fields are made by, in their order; the names in the library are the keys.
Field = tuple[str, Callable[[Any], Any]]
_CHANNEL: Field = ("channelId", str)
_MEMBER: Field = ("member", Member.of)
_INVITATION: tuple[Field, ...] = (
    ("invitation", Invitation.of),
    ("label", lambda label: label),
    ("sameObject", bool),
)
EVENTS: dict[str, tuple[type[Event], tuple[Field, ...]]] = {
    "connectionStateChanged": (
        ConnectionStateChanged,
        (("state", ConnectionState), ("reason", ConnectionChangeReason)),
    ),
    "tokenDidExpire": (TokenDidExpire, ()),
    "messageReceived": (MessageReceived, (("peerId", str), ("message", Message.of))),
    "peersOnlineStatusChanged": (PeersOnlineStatusChanged, (("statuses", _list_of(PeerOnlineStatus)),)),
    "peersUserAttributesChanged": (PeersUserAttributesChanged, (("users", _list_of(UserAttributes)),)),
    "onWritable": (Writable, ()),
    "channel.memberJoined": (MemberJoined, (_CHANNEL, _MEMBER)),
    "channel.memberLeft": (MemberLeft, (_CHANNEL, _MEMBER)),
    "channel.memberLeftWithReason": (MemberLeftWithReason, (_CHANNEL, _MEMBER, ("reason", MemberLeftReason))),
    "channel.messageReceived": (ChannelMessageReceived, (_CHANNEL, ("message", Message.of), _MEMBER)),
    "channel.attributeUpdate": (AttributeUpdate, (_CHANNEL, ("attributes", attributes_of))),
    "channel.memberCount": (MemberCount, (_CHANNEL, ("count", int))),
    "invitationArrived": (InvitationArrived, _INVITATION),
    "invitationCanceled": (InvitationCanceled, _INVITATION),
    "invitationAccept": (InvitationAccepted, _INVITATION),
    "invitationRefused": (InvitationRefused, _INVITATION),
    "invitationFailed": (InvitationFailed, (*_INVITATION, ("errorCode", int))),
}


def event_of(line: dict[str, Any]) -> Event | None:
    """The event of a line; None for one that this version of the package does not know."""
    row = EVENTS.get(line["event"])
    if row is None:
        return None
    kind, fields = row
    return kind(*[make(line[name]) for name, make in fields])
