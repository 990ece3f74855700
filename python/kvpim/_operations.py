"""The operations of the library, and the methods that they are here. Their arguments are in the library's own table."""

from __future__ import annotations

import functools
import json
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from . import _library
from ._kinds import checked, snake
from .records import ChannelMemberCount, Invitation, Member, PeerOnlineStatus, State, UserAttributes, attributes_of


@dataclass(frozen=True)
class Operation:
    """The method, and what it returns: a field of the answer, made into what `convert` makes of it."""

    method: str
    field: str | None = None
    convert: Callable[[Any], Any] = lambda value: value

    def result(self, line: dict[str, Any]) -> Any:
        return None if self.field is None else self.convert(line[self.field])


def _list_of(record: Any) -> Callable[[Any], Any]:
    return lambda values: list(map(record.of, values))


OPERATIONS: dict[str, Operation] = {
    "loginByToken": Operation("Client.login"),
    "logoutWithCompletion": Operation("Client.logout"),
    "renewToken": Operation("Client.renew_token", "token"),
    "createChannelWithId": Operation("Client.create_channel", "result"),
    "destroyChannelWithId": Operation("Channel.destroy", "result"),
    "joinWithCompletion": Operation("Channel.join"),
    "leaveWithCompletion": Operation("Channel.leave"),
    "getMembersWithCompletion": Operation("Channel.members", "members", _list_of(Member)),
    "sendMessage": Operation("Channel.send"),
    "sendMessageToPeer": Operation("Client.send_to_peer"),
    "setChannelAttributes": Operation("Client.set_channel_attributes"),
    "addOrUpdateChannelAttributes": Operation("Client.add_or_update_channel_attributes"),
    "deleteChannelAttributesByKeys": Operation("Client.delete_channel_attributes_by_keys"),
    "clearChannelAttributes": Operation("Client.clear_channel_attributes"),
    "getChannelAttributes": Operation("Client.get_channel_attributes", "attributes", attributes_of),
    "getChannelAttributesByKeys": Operation("Client.get_channel_attributes_by_keys", "attributes", attributes_of),
    "getChannelMemberCount": Operation("Client.get_channel_member_count", "counts", _list_of(ChannelMemberCount)),
    "setLocalUserAttributes": Operation("Client.set_local_user_attributes"),
    "addOrUpdateLocalUserAttributes": Operation("Client.add_or_update_local_user_attributes"),
    "deleteLocalUserAttributesByKeys": Operation("Client.delete_local_user_attributes_by_keys"),
    "clearLocalUserAttributesWithCompletion": Operation("Client.clear_local_user_attributes"),
    "getUserAttributes": Operation("Client.get_user_attributes", "attributes", attributes_of),
    "getUserAttributesByKeys": Operation("Client.get_user_attributes_by_keys", "attributes", attributes_of),
    "subscribePeersUserAttribes": Operation("Client.subscribe_peers_user_attributes"),
    "unsubscribePeersUserAttribes": Operation("Client.unsubscribe_peers_user_attributes"),
    "getPeersUserAttributes": Operation("Client.get_peers_user_attributes", "users", _list_of(UserAttributes)),
    "getPeersUserAttributesByKeys": Operation(
        "Client.get_peers_user_attributes_by_keys", "users", _list_of(UserAttributes)
    ),
    "subscribePeersOnlineStatus": Operation("Client.subscribe_peers_online_status"),
    "unsubscribePeersOnlineStatus": Operation("Client.unsubscribe_peers_online_status"),
    "queryPeersOnlineStatus": Operation("Client.query_peers_online_status", "statuses", _list_of(PeerOnlineStatus)),
    "queryPeersBySubscriptionOption": Operation("Client.query_peers_by_subscription_option", "peerIds"),
    "getPimInvitationKit": Operation("Client.invitations"),
    "newInvitation": Operation("Invitations.new"),
    "sendInvitation": Operation("Invitations.send", "invitation", Invitation.of),
    "cancelInvitation": Operation("Invitations.cancel", "invitation", Invitation.of),
    "acceptInvitation": Operation("Invitations.accept", "invitation", Invitation.of),
    "refuseInvitation": Operation("Invitations.refuse", "invitation", Invitation.of),
    "invitation": Operation("Invitations.get", "result", Invitation.of),
    "bytesQueued": Operation("Client.bytes_queued", "result"),
    "metrics": Operation("Client.metrics", "result"),
    "openMetricsText": Operation("Client.open_metrics_text", "result"),
    "getDebugInfo": Operation("Client.get_debug_info", "result"),
    "getSDKVersion": Operation("Client.get_sdk_version", "result"),
    "setParameters": Operation("Client.set_parameters", "result"),
    "setLogFile": Operation("Client.set_log_file"),
    "setLogFilters": Operation("Client.set_log_filters"),
    "state": Operation("Client.state", "result", State.of),
}


@functools.cache
def _arguments_of(operation: str) -> list[tuple[str, str, str, bool]]:
    rows: list[dict[str, Any]] = _library.interface()["operations"]
    found = next(row for row in rows if row["name"] == operation)
    return [(row["name"], snake(row["name"]), row["type"], row["optional"]) for row in found["arguments"]]


_encode = json.JSONEncoder(ensure_ascii=False, check_circular=False).encode


def request_of(number: int, operation: str, values: dict[str, Any]) -> tuple[str, bytes | None]:
    """The text of a request, and the data beside it; raises TypeError for a value of a wrong type."""
    line: dict[str, Any] = {"op": operation, "id": number}
    data = None
    for name, name_here, kind, is_optional in _arguments_of(operation):
        value = values.get(name)
        if value is None and is_optional:
            continue
        value = checked(kind, value, name_here)
        if kind == "data":
            data = bytes(value)
        else:
            line[name] = value
    return _encode(line), data
