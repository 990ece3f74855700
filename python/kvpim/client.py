"""The client for asyncio, its channels and its invitations."""

from __future__ import annotations

import json
import sys
import time
import warnings
from asyncio import Future
from collections.abc import Callable, Iterable, Mapping
from types import TracebackType
from typing import Any, Literal, Union

from . import errors
from ._kinds import checked
from ._port import Port
from .events import ChannelEvent, ChannelMessageReceived, ClientEvent, Event, InvitationEvent, MessageReceived
from .options import Network, Options, Recording, as_json
from .records import (
    Attributes,
    ChannelMemberCount,
    Invitation,
    Member,
    PeerOnlineStatus,
    State,
    Subscription,
    UserAttributes,
)
from .streams import EventStream

Content = Union[str, bytes, bytearray, memoryview]
"""What a message is made of."""
Drop = Literal["oldest", "newest"]
"""Which events a stream loses that nobody reads."""


def _now() -> int:
    return time.time_ns() // 1_000_000


def _content(message: Content, text: str | None) -> dict[str, Any]:
    if not isinstance(message, str):
        return {"rawData": checked("data", message, "message"), "text": text}
    if text is not None:
        raise TypeError("text describes bytes: this message is a text itself")
    return {"text": message}


class Client:
    """One user's connection to the service, in one event loop:

        async with kvpim.Client("demo", api_server="http://127.0.0.1:8600") as client:
            await client.login(token, "alice")
            await client.send_to_peer("bob", "hello")

    `async with` opens and closes it; otherwise `open` and `close` do. Everything else is for the event loop, and the
    thread, in which it was opened: elsewhere, and in a process that was forked later, it raises RuntimeError. An
    operation begins when its method is called, and returns a future to await. Wrong types raise TypeError in the call;
    the future raises `kvpim.Error`, or a kind of it. To stop waiting (`asyncio.timeout`, `Task.cancel`) does not recall
    what was sent. Time stamps are in milliseconds since 1970, and now by default.

    All options but the app id may be left out:

    * `api_server`: the base URL of the API server: http or https, a host name with a dot or an IPv4 address, no path.
    * `collect_server`, `upload_interval`: where and how often (seconds) event reports are uploaded.
    * `application_identifier`: tells this application from the user's others: Python's scripts share an executable.
    * `caches_directory`, `key_store_directory`: where logs and reports, and the device id, are kept.
    * `ca_file`: a PEM file of authorities to trust in addition to the system's.
    * `engine`: "thread" gives the connections a thread of their own; "main_queue" (the default here) does not.
    * `max_queued_bytes`: what may wait to be sent, in bytes.
    * `network`: a `Network`. `record_to`: a `Recording`, or the name of its file.
    * `check_threads`: ends the program when the library itself misuses this client: for those who work on it.
    * `delegate`: which kinds of `ClientEvent` are told; all without it.
    """

    def __init__(
        self,
        app_id: str,
        *,
        api_server: str | None = None,
        collect_server: str | None = None,
        upload_interval: float | None = None,
        application_identifier: str | None = None,
        caches_directory: str | None = None,
        key_store_directory: str | None = None,
        ca_file: str | None = None,
        engine: Literal["thread", "main_queue"] | None = None,
        max_queued_bytes: int | None = None,
        network: Network | None = None,
        check_threads: bool | None = None,
        record_to: Recording | str | None = None,
        delegate: Iterable[type[ClientEvent]] | None = None,
    ) -> None:
        self._port: Port | None = None
        checked("text", app_id, "app_id")
        options = Options(
            app_id=app_id,
            api_server=api_server,
            collect_server=collect_server,
            upload_interval=upload_interval,
            application_identifier=application_identifier,
            caches_directory=caches_directory,
            key_store_directory=key_store_directory,
            ca_file=ca_file,
            engine=engine,
            max_queued_bytes=max_queued_bytes,
            network=network,
            check_threads=check_threads,
            record_to=Recording(file=record_to) if isinstance(record_to, str) else record_to,
            delegate=delegate,
        )
        self._options = json.dumps({**as_json(options), "attachData": True})

    def open(self) -> None:
        """Makes the client, in the running event loop. Nothing is sent.

        Raises `kvpim.CreateError` when there is none of these options, ValueError when an option cannot be read at all,
        RuntimeError when it is open or was, without a running event loop, and in a process that was forked from one with
        clients.
        """
        if self._port is not None:
            raise RuntimeError("a client is opened once")
        self._port = Port(self._options)

    def close(self) -> None:
        """Ends the client, without logging out. Pending operations raise `ClosedError`; streams end. In its loop."""
        if self._port is not None and self._port.is_open:
            self._port.check()
            self._port.close()

    @property
    def is_open(self) -> bool:
        """Whether it was opened, and not closed yet."""
        return self._port is not None and self._port.is_open

    async def __aenter__(self) -> Client:
        self.open()
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        if self._port is not None:
            self._port.close()  # which a process that was forked may leave behind, too

    # At the end of the program the modules are gone, and the library ends its clients itself.
    def __del__(self, _is_program_ending: Callable[[], bool] = sys.is_finalizing) -> None:
        if getattr(self, "_port", None) is not None and not _is_program_ending() and self.is_open:
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self._opened.abandon()

    @property
    def _opened(self) -> Port:
        if self._port is None:
            raise RuntimeError("this client was not opened: async with client")
        return self._port

    def _begin(
        self, operation: str, then: Callable[[Any], Any] | None = None, /, **values: Any
    ) -> Future[Any]:
        return self._opened.begin(operation, values, then)

    # ---- The session

    def login(self, token: str, user_id: str, *, time_stamp: int | None = None) -> Future[None]:
        """Logs in with a token of the application's own server.

        Waits for the outcome, also behind a connection that is not there in time: for less, there is `asyncio.timeout`.
        A connection that is lost later comes back by itself. Codes: KvPimLoginErrorCode.
        """
        return self._begin(
            "loginByToken", token=token, userId=user_id, timeStamp=_now() if time_stamp is None else time_stamp
        )

    def logout(self) -> Future[None]:
        """Ends the session. Channels are forgotten. Codes: KvPimLogoutErrorCode."""
        return self._begin("logoutWithCompletion")

    def renew_token(self, token: str, *, time_stamp: int | None = None) -> Future[str]:
        """Logs in anew with another token, which it returns. Codes: KvPimRenewTokenErrorCode."""
        return self._begin("renewToken", token=token, timeStamp=_now() if time_stamp is None else time_stamp)

    def state(self) -> Future[State]:
        """What the client knows of its session."""
        return self._begin("state")

    # ---- Events

    def events(self, *, limit: int = 1024, drop: Drop = "oldest") -> EventStream[Event]:
        """All that the client, its channels and its invitations tell, from now on."""
        return self._stream(Event, limit, drop)

    def messages(self, *, limit: int = 1024, drop: Drop = "oldest") -> EventStream[MessageReceived]:
        """The messages of other users to this one, from now on."""
        return self._stream(MessageReceived, limit, drop)

    def _stream(self, kind: type[Event], limit: int, drop: Drop, channel_id: str | None = None) -> EventStream[Any]:
        def accepts(event: Event) -> bool:
            return isinstance(event, kind) and channel_id in (None, getattr(event, "channel_id", None))

        return self._opened.stream(accepts, limit, drop)

    # ---- Peers

    def send_to_peer(
        self,
        peer_id: str,
        message: Content,
        *,
        text: str | None = None,
        enable_offline_messaging: bool = False,
        enable_historical_messaging: bool = False,
    ) -> Future[None]:
        """Sends a text, or bytes with or without a text that describes them, to another user.

        At most 32,768 bytes of each. `enable_offline_messaging` asks the server to keep it for one who is offline;
        `enable_historical_messaging` has no effect in this version. A message that is too long raises an error though it
        was sent. Codes: KvPimPeerMessageErrorCode.
        """
        return self._begin(
            "sendMessageToPeer",
            peerId=peer_id,
            enableOfflineMessaging=enable_offline_messaging,
            enableHistoricalMessaging=enable_historical_messaging,
            **_content(message, text),
        )

    def subscribe_peers_online_status(self, peer_ids: Iterable[str]) -> Future[None]:
        """Has `PeersOnlineStatusChanged` told of these users, at once and at each change. Codes: KvPimPeersErrorCode."""
        return self._begin("subscribePeersOnlineStatus", peerIds=peer_ids)

    def unsubscribe_peers_online_status(self, peer_ids: Iterable[str]) -> Future[None]:
        """Ends such subscriptions. Codes: KvPimPeersErrorCode."""
        return self._begin("unsubscribePeersOnlineStatus", peerIds=peer_ids)

    def query_peers_online_status(self, peer_ids: Iterable[str]) -> Future[list[PeerOnlineStatus]]:
        """Who of these is online now, without subscribing. Codes: KvPimPeersErrorCode."""
        return self._begin("queryPeersOnlineStatus", peerIds=peer_ids)

    def query_peers_by_subscription_option(self, option: Subscription | int) -> Future[list[str]]:
        """The users that one is subscribed to in this way. Codes: KvPimPeersErrorCode."""
        return self._begin("queryPeersBySubscriptionOption", option=option)

    def subscribe_peers_user_attributes(self, peer_ids: Iterable[str]) -> Future[None]:
        """Has `PeersUserAttributesChanged` told of these users. Codes: KvPimPeersErrorCode."""
        return self._begin("subscribePeersUserAttribes", peerIds=peer_ids)

    def unsubscribe_peers_user_attributes(self, peer_ids: Iterable[str]) -> Future[None]:
        """Ends such subscriptions. Codes: KvPimPeersErrorCode."""
        return self._begin("unsubscribePeersUserAttribes", peerIds=peer_ids)

    def get_peers_user_attributes(self, peer_ids: Iterable[str]) -> Future[list[UserAttributes]]:
        """The attributes of these users. Codes: KvPimPeersErrorCode."""
        return self._begin("getPeersUserAttributes", peerIds=peer_ids)

    def get_peers_user_attributes_by_keys(
        self, peer_ids: Iterable[str], keys: Iterable[str]
    ) -> Future[list[UserAttributes]]:
        """These attributes of these users. Codes: KvPimPeersErrorCode."""
        return self._begin("getPeersUserAttributesByKeys", peerIds=peer_ids, keys=keys)

    # ---- Attributes of users

    def set_local_user_attributes(self, attributes: Mapping[str, str | None]) -> Future[None]:
        """Replaces all attributes of this user; they go with his session. Codes: KvPimLocalUserAttributesErrorCode."""
        return self._begin("setLocalUserAttributes", attributes=attributes)

    def add_or_update_local_user_attributes(self, attributes: Mapping[str, str | None]) -> Future[None]:
        """Adds or changes attributes of this user. Codes: KvPimLocalUserAttributesErrorCode."""
        return self._begin("addOrUpdateLocalUserAttributes", attributes=attributes)

    def delete_local_user_attributes_by_keys(self, keys: Iterable[str]) -> Future[None]:
        """Removes attributes of this user. Codes: KvPimLocalUserAttributesErrorCode."""
        return self._begin("deleteLocalUserAttributesByKeys", keys=keys)

    def clear_local_user_attributes(self) -> Future[None]:
        """Removes all attributes of this user. Codes: KvPimLocalUserAttributesErrorCode."""
        return self._begin("clearLocalUserAttributesWithCompletion")

    def get_user_attributes(self, user_id: str) -> Future[Attributes]:
        """The attributes of a user. Codes: KvPimUserAttributesErrorCode."""
        return self._begin("getUserAttributes", userId=user_id)

    def get_user_attributes_by_keys(self, user_id: str, keys: Iterable[str]) -> Future[Attributes]:
        """These attributes of a user. Codes: KvPimUserAttributesErrorCode."""
        return self._begin("getUserAttributesByKeys", userId=user_id, keys=keys)

    # ---- Channels

    def join(self, channel_id: str, *, delegate: Iterable[type[ChannelEvent]] | None = None) -> Future[Channel]:
        """Makes the channel and joins it: `create_channel` and `Channel.join` in one.

        Raises `NotThere` when the id is not valid. Codes: KvPimJoinChannelErrorCode.
        """
        made = self._begin("createChannelWithId", channelId=channel_id, delegate=delegate)
        made.add_done_callback(lambda _: None if made.cancelled() else made.exception())
        return self._begin("joinWithCompletion", lambda _: Channel(self, channel_id), channelId=channel_id)

    def create_channel(
        self, channel_id: str, *, delegate: Iterable[type[ChannelEvent]] | None = None
    ) -> Future[Channel]:
        """The channel of an id, without joining it. Nothing is sent.

        `delegate`: which kinds of `ChannelEvent` are told; all without it. The last call counts, for an id that has a
        channel already. Raises `Error` without a code when the id is not valid: 1 to 64 ASCII letters, digits, white
        space and most punctuation.
        """

        def channel(is_made: bool) -> Channel:
            if not is_made:
                raise errors.Error("createChannelWithId", "the channel id is not valid")
            return Channel(self, channel_id)

        return self._begin("createChannelWithId", channel, channelId=channel_id, delegate=delegate)

    def get_channel_member_count(self, channel_ids: Iterable[str]) -> Future[list[ChannelMemberCount]]:
        """How many members these channels have, joined or not; at most 32. Codes: KvPimMemberCountErrorCode."""
        return self._begin("getChannelMemberCount", channelIds=channel_ids)

    def set_channel_attributes(
        self,
        channel_id: str,
        attributes: Mapping[str, str | None],
        *,
        enable_notification_to_channel_members: bool = False,
    ) -> Future[None]:
        """Replaces all attributes of a channel, joined or not. Codes: KvPimChannelAttributesErrorCode.

        `enable_notification_to_channel_members`: whether its members, this one included, are told (`AttributeUpdate`).
        """
        return self._begin(
            "setChannelAttributes",
            channelId=channel_id,
            attributes=attributes,
            enableNotificationToChannelMembers=enable_notification_to_channel_members,
        )

    def add_or_update_channel_attributes(
        self,
        channel_id: str,
        attributes: Mapping[str, str | None],
        *,
        enable_notification_to_channel_members: bool = False,
    ) -> Future[None]:
        """Adds or changes attributes of a channel, like `set_channel_attributes`."""
        return self._begin(
            "addOrUpdateChannelAttributes",
            channelId=channel_id,
            attributes=attributes,
            enableNotificationToChannelMembers=enable_notification_to_channel_members,
        )

    def delete_channel_attributes_by_keys(
        self, channel_id: str, keys: Iterable[str], *, enable_notification_to_channel_members: bool = False
    ) -> Future[None]:
        """Removes attributes of a channel, like `set_channel_attributes`."""
        return self._begin(
            "deleteChannelAttributesByKeys",
            channelId=channel_id,
            keys=keys,
            enableNotificationToChannelMembers=enable_notification_to_channel_members,
        )

    def clear_channel_attributes(
        self, channel_id: str, *, enable_notification_to_channel_members: bool = False
    ) -> Future[None]:
        """Removes all attributes of a channel, like `set_channel_attributes`."""
        return self._begin(
            "clearChannelAttributes",
            channelId=channel_id,
            enableNotificationToChannelMembers=enable_notification_to_channel_members,
        )

    def get_channel_attributes(self, channel_id: str) -> Future[Attributes]:
        """The attributes of a channel, joined or not. Codes: KvPimChannelAttributesErrorCode."""
        return self._begin("getChannelAttributes", channelId=channel_id)

    def get_channel_attributes_by_keys(self, channel_id: str, keys: Iterable[str]) -> Future[Attributes]:
        """These attributes of a channel, joined or not. Codes: KvPimChannelAttributesErrorCode."""
        return self._begin("getChannelAttributesByKeys", channelId=channel_id, keys=keys)

    # ---- Invitations

    def invitations(self, *, delegate: Iterable[type[InvitationEvent]] | None = None) -> Future[Invitations]:
        """Invitations from now on: notices of them are dropped before the first call.

        `delegate`: which kinds of `InvitationEvent` are told; all without it, `InvitationFailed` always.
        """
        return self._begin("getPimInvitationKit", lambda _: Invitations(self), delegate=delegate)

    # ---- Under pressure, and seen from inside

    def bytes_queued(self) -> Future[int]:
        """How many bytes wait to be sent; 0 while there is no connection. `Writable` tells of room."""
        return self._begin("bytesQueued")

    def metrics(self) -> Future[dict[str, Any]]:
        """What the client has done, and what waits, as the page "Metrics" lists it."""
        return self._begin("metrics")

    def open_metrics_text(self, *, is_prometheus: bool = False) -> Future[str]:
        """The same as text in the OpenMetrics format, or in the older one of Prometheus."""
        return self._begin("openMetricsText", isPrometheus=is_prometheus)

    def get_debug_info(self) -> Future[dict[str, Any]]:
        """What helps to look into a problem; the token is in it in clear: for the application's own eyes."""
        return self._begin("getDebugInfo")

    def get_sdk_version(self) -> Future[str]:
        """The name and version that the library tells servers."""
        return self._begin("getSDKVersion")

    def set_parameters(self, parameters: str) -> Future[int]:
        """Has no effect in this version; returns 0."""
        return self._begin("setParameters", parameters=parameters)

    def set_log_file(self, path: str) -> Future[None]:
        """The file of the process's log, which must exist."""
        return self._begin("setLogFile", path=path)

    def set_log_filters(self, filters: int) -> Future[None]:
        """What the process logs: above 0 information, from 2 warnings too, from 4 errors too, from 8 everything."""
        return self._begin("setLogFilters", filters=filters)


class Channel:
    """A channel, as `Client.join` and `Client.create_channel` give it."""

    def __init__(self, client: Client, channel_id: str) -> None:
        self._client = client
        self.channel_id = channel_id

    def join(self) -> Future[None]:
        """Becomes a member; a reconnection joins again. Codes: KvPimJoinChannelErrorCode."""
        return self._begin("joinWithCompletion")

    def leave(self) -> Future[None]:
        """Ends the membership. Codes: KvPimLeaveChannelErrorCode."""
        return self._begin("leaveWithCompletion")

    def members(self) -> Future[list[Member]]:
        """Who is in it, in the order of joining. Codes: KvPimChannelMembersErrorCode."""
        return self._begin("getMembersWithCompletion")

    def send(self, message: Content, *, text: str | None = None) -> Future[None]:
        """Sends a text, or bytes with or without a text that describes them, to the other members.

        At most 32,768 bytes of each. A message that is too long raises an error though it was sent. Codes:
        KvPimChannelMessageErrorCode.
        """
        return self._begin("sendMessage", **_content(message, text))

    def destroy(self) -> Future[bool]:
        """Forgets the channel, without leaving it; returns whether there was one."""
        return self._begin("destroyChannelWithId")

    def events(self, *, limit: int = 1024, drop: Drop = "oldest") -> EventStream[ChannelEvent]:
        """What the channel tells, from now on."""
        return self._client._stream(ChannelEvent, limit, drop, self.channel_id)

    def messages(self, *, limit: int = 1024, drop: Drop = "oldest") -> EventStream[ChannelMessageReceived]:
        """The messages of other members, from now on."""
        return self._client._stream(ChannelMessageReceived, limit, drop, self.channel_id)

    def _begin(self, operation: str, **values: Any) -> Future[Any]:
        return self._client._begin(operation, channelId=self.channel_id, **values)


class Invitations:
    """Call-style invitations of one user by another, as `Client.invitations` gives them.

    An invitation is known by a label: one of your choice for one that `new` makes, "from:INVITER" for one that arrives.
    Operations about a label that is not there raise `NotThere`. They return the invitation as it is then.
    """

    def __init__(self, client: Client) -> None:
        self._client = client

    def new(self, invitation: str, inviter: str, invitee: str, *, request_info: str | None = None) -> Future[None]:
        """Makes an invitation of this label, and sends nothing. The inviter is this user."""
        return self._begin(
            "newInvitation", invitation=invitation, inviter=inviter, invitee=invitee, requestInfo=request_info
        )

    def send(
        self, invitation: str, *, request_info: str | None = None, response_info: str | None = None
    ) -> Future[Invitation]:
        """Invites. Unanswered for a while, it fails (`InvitationFailed`). Codes: KvPimInvitationErrorCode."""
        return self._change("sendInvitation", invitation, request_info, response_info)

    def cancel(
        self, invitation: str, *, request_info: str | None = None, response_info: str | None = None
    ) -> Future[Invitation]:
        """Takes an invitation back. Codes: KvPimInvitationErrorCode."""
        return self._change("cancelInvitation", invitation, request_info, response_info)

    def accept(
        self, invitation: str, *, request_info: str | None = None, response_info: str | None = None
    ) -> Future[Invitation]:
        """Accepts one that arrived. Codes: KvPimInvitationErrorCode."""
        return self._change("acceptInvitation", invitation, request_info, response_info)

    def refuse(
        self, invitation: str, *, request_info: str | None = None, response_info: str | None = None
    ) -> Future[Invitation]:
        """Refuses one that arrived. Codes: KvPimInvitationErrorCode."""
        return self._change("refuseInvitation", invitation, request_info, response_info)

    def get(self, invitation: str) -> Future[Invitation]:
        """The invitation of this label, as it is now."""
        return self._begin("invitation", invitation=invitation)

    def events(self, *, limit: int = 1024, drop: Drop = "oldest") -> EventStream[InvitationEvent]:
        """What becomes of invitations, from now on."""
        return self._client._stream(InvitationEvent, limit, drop)

    def _change(
        self, operation: str, invitation: str, request_info: str | None, response_info: str | None
    ) -> Future[Invitation]:
        return self._begin(operation, invitation=invitation, requestInfo=request_info, responseInfo=response_info)

    def _begin(self, operation: str, **values: Any) -> Future[Any]:
        return self._client._begin(operation, **values)
