"""The client without an event loop, for scripts. Made by tools/python_sync.py from client.py: `./run docs`.

    with kvpim.sync.Client("demo", api_server="http://127.0.0.1:8600") as client:
        client.login(token, "alice")
        for message in client.messages(timeout=5):
            print(message.peer_id, message.message.text)

Each method is the one of the same name of `kvpim.Client`, and waits for its end; what it raises is the same. Events are
received while a call waits; until then they wait in the library, which reads no more from the server when they are many.
One thread at a time.
"""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from types import TracebackType
from typing import Any, Literal

from . import client
from ._blocking import Events as Events
from ._blocking import Waiter
from .client import Content, Drop
from .events import ChannelEvent, ChannelMessageReceived, ClientEvent, Event, InvitationEvent, MessageReceived
from .options import Network, Recording
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


class Client:
    """`kvpim.Client`, waiting."""

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
        self._async = client.Client(
            app_id,
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
            record_to=record_to,
            delegate=delegate,
        )
        self._waiter = Waiter()

    def __del__(self) -> None:
        if getattr(self, "_waiter", None) is not None and not self._async.is_open:
            self._waiter.close()

    def open(self) -> None:
        """See `kvpim.Client.open`; not inside an event loop."""
        self._waiter.call(self._async.open)

    def close(self) -> None:
        """See `kvpim.Client.close`."""
        if self._async.is_open:
            self._waiter.call(self._async.close)
        self._waiter.close()

    def __enter__(self) -> Client:
        self.open()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()

    def login(self, token: str, user_id: str, *, time_stamp: int | None = None) -> None:
        """Logs in with a token of the application's own server."""
        self._waiter.wait(lambda: self._async.login(token, user_id, time_stamp=time_stamp))

    def logout(self) -> None:
        """Ends the session. Channels are forgotten. Codes: KvPimLogoutErrorCode."""
        self._waiter.wait(lambda: self._async.logout())

    def renew_token(self, token: str, *, time_stamp: int | None = None) -> str:
        """Logs in anew with another token, which it returns. Codes: KvPimRenewTokenErrorCode."""
        return self._waiter.wait(lambda: self._async.renew_token(token, time_stamp=time_stamp))

    def state(self) -> State:
        """What the client knows of its session."""
        return self._waiter.wait(lambda: self._async.state())

    def events(self, *, timeout: float | None = None, limit: int = 1024, drop: Drop = "oldest") -> Events[Event]:
        """All that the client, its channels and its invitations tell, from now on."""
        return Events(self._waiter, self._async.events(limit=limit, drop=drop), timeout)

    def messages(
        self,
        *,
        timeout: float | None = None,
        limit: int = 1024,
        drop: Drop = "oldest",
    ) -> Events[MessageReceived]:
        """The messages of other users to this one, from now on."""
        return Events(self._waiter, self._async.messages(limit=limit, drop=drop), timeout)

    def send_to_peer(
        self,
        peer_id: str,
        message: Content,
        *,
        text: str | None = None,
        enable_offline_messaging: bool = False,
        enable_historical_messaging: bool = False,
    ) -> None:
        """Sends a text, or bytes with or without a text that describes them, to another user."""
        self._waiter.wait(
            lambda: self._async.send_to_peer(peer_id, message, text=text, enable_offline_messaging=enable_offline_messaging, enable_historical_messaging=enable_historical_messaging)
        )

    def subscribe_peers_online_status(self, peer_ids: Iterable[str]) -> None:
        """Has `PeersOnlineStatusChanged` told of these users, at once and at each change. Codes: KvPimPeersErrorCode."""
        self._waiter.wait(lambda: self._async.subscribe_peers_online_status(peer_ids))

    def unsubscribe_peers_online_status(self, peer_ids: Iterable[str]) -> None:
        """Ends such subscriptions. Codes: KvPimPeersErrorCode."""
        self._waiter.wait(lambda: self._async.unsubscribe_peers_online_status(peer_ids))

    def query_peers_online_status(self, peer_ids: Iterable[str]) -> list[PeerOnlineStatus]:
        """Who of these is online now, without subscribing. Codes: KvPimPeersErrorCode."""
        return self._waiter.wait(lambda: self._async.query_peers_online_status(peer_ids))

    def query_peers_by_subscription_option(self, option: Subscription | int) -> list[str]:
        """The users that one is subscribed to in this way. Codes: KvPimPeersErrorCode."""
        return self._waiter.wait(lambda: self._async.query_peers_by_subscription_option(option))

    def subscribe_peers_user_attributes(self, peer_ids: Iterable[str]) -> None:
        """Has `PeersUserAttributesChanged` told of these users. Codes: KvPimPeersErrorCode."""
        self._waiter.wait(lambda: self._async.subscribe_peers_user_attributes(peer_ids))

    def unsubscribe_peers_user_attributes(self, peer_ids: Iterable[str]) -> None:
        """Ends such subscriptions. Codes: KvPimPeersErrorCode."""
        self._waiter.wait(lambda: self._async.unsubscribe_peers_user_attributes(peer_ids))

    def get_peers_user_attributes(self, peer_ids: Iterable[str]) -> list[UserAttributes]:
        """The attributes of these users. Codes: KvPimPeersErrorCode."""
        return self._waiter.wait(lambda: self._async.get_peers_user_attributes(peer_ids))

    def get_peers_user_attributes_by_keys(self, peer_ids: Iterable[str], keys: Iterable[str]) -> list[UserAttributes]:
        """These attributes of these users. Codes: KvPimPeersErrorCode."""
        return self._waiter.wait(lambda: self._async.get_peers_user_attributes_by_keys(peer_ids, keys))

    def set_local_user_attributes(self, attributes: Mapping[str, str | None]) -> None:
        """Replaces all attributes of this user; they go with his session. Codes: KvPimLocalUserAttributesErrorCode."""
        self._waiter.wait(lambda: self._async.set_local_user_attributes(attributes))

    def add_or_update_local_user_attributes(self, attributes: Mapping[str, str | None]) -> None:
        """Adds or changes attributes of this user. Codes: KvPimLocalUserAttributesErrorCode."""
        self._waiter.wait(lambda: self._async.add_or_update_local_user_attributes(attributes))

    def delete_local_user_attributes_by_keys(self, keys: Iterable[str]) -> None:
        """Removes attributes of this user. Codes: KvPimLocalUserAttributesErrorCode."""
        self._waiter.wait(lambda: self._async.delete_local_user_attributes_by_keys(keys))

    def clear_local_user_attributes(self) -> None:
        """Removes all attributes of this user. Codes: KvPimLocalUserAttributesErrorCode."""
        self._waiter.wait(lambda: self._async.clear_local_user_attributes())

    def get_user_attributes(self, user_id: str) -> Attributes:
        """The attributes of a user. Codes: KvPimUserAttributesErrorCode."""
        return self._waiter.wait(lambda: self._async.get_user_attributes(user_id))

    def get_user_attributes_by_keys(self, user_id: str, keys: Iterable[str]) -> Attributes:
        """These attributes of a user. Codes: KvPimUserAttributesErrorCode."""
        return self._waiter.wait(lambda: self._async.get_user_attributes_by_keys(user_id, keys))

    def join(self, channel_id: str, *, delegate: Iterable[type[ChannelEvent]] | None = None) -> Channel:
        """Makes the channel and joins it: `create_channel` and `Channel.join` in one."""
        return Channel(self._waiter, self._waiter.wait(lambda: self._async.join(channel_id, delegate=delegate)))

    def create_channel(self, channel_id: str, *, delegate: Iterable[type[ChannelEvent]] | None = None) -> Channel:
        """The channel of an id, without joining it. Nothing is sent."""
        return Channel(
            self._waiter, self._waiter.wait(lambda: self._async.create_channel(channel_id, delegate=delegate))
        )

    def get_channel_member_count(self, channel_ids: Iterable[str]) -> list[ChannelMemberCount]:
        """How many members these channels have, joined or not; at most 32. Codes: KvPimMemberCountErrorCode."""
        return self._waiter.wait(lambda: self._async.get_channel_member_count(channel_ids))

    def set_channel_attributes(
        self,
        channel_id: str,
        attributes: Mapping[str, str | None],
        *,
        enable_notification_to_channel_members: bool = False,
    ) -> None:
        """Replaces all attributes of a channel, joined or not. Codes: KvPimChannelAttributesErrorCode."""
        self._waiter.wait(
            lambda: self._async.set_channel_attributes(channel_id, attributes, enable_notification_to_channel_members=enable_notification_to_channel_members)
        )

    def add_or_update_channel_attributes(
        self,
        channel_id: str,
        attributes: Mapping[str, str | None],
        *,
        enable_notification_to_channel_members: bool = False,
    ) -> None:
        """Adds or changes attributes of a channel, like `set_channel_attributes`."""
        self._waiter.wait(
            lambda: self._async.add_or_update_channel_attributes(channel_id, attributes, enable_notification_to_channel_members=enable_notification_to_channel_members)
        )

    def delete_channel_attributes_by_keys(
        self,
        channel_id: str,
        keys: Iterable[str],
        *,
        enable_notification_to_channel_members: bool = False,
    ) -> None:
        """Removes attributes of a channel, like `set_channel_attributes`."""
        self._waiter.wait(
            lambda: self._async.delete_channel_attributes_by_keys(channel_id, keys, enable_notification_to_channel_members=enable_notification_to_channel_members)
        )

    def clear_channel_attributes(
        self,
        channel_id: str,
        *,
        enable_notification_to_channel_members: bool = False,
    ) -> None:
        """Removes all attributes of a channel, like `set_channel_attributes`."""
        self._waiter.wait(
            lambda: self._async.clear_channel_attributes(channel_id, enable_notification_to_channel_members=enable_notification_to_channel_members)
        )

    def get_channel_attributes(self, channel_id: str) -> Attributes:
        """The attributes of a channel, joined or not. Codes: KvPimChannelAttributesErrorCode."""
        return self._waiter.wait(lambda: self._async.get_channel_attributes(channel_id))

    def get_channel_attributes_by_keys(self, channel_id: str, keys: Iterable[str]) -> Attributes:
        """These attributes of a channel, joined or not. Codes: KvPimChannelAttributesErrorCode."""
        return self._waiter.wait(lambda: self._async.get_channel_attributes_by_keys(channel_id, keys))

    def invitations(self, *, delegate: Iterable[type[InvitationEvent]] | None = None) -> Invitations:
        """Invitations from now on: notices of them are dropped before the first call."""
        return Invitations(self._waiter, self._waiter.wait(lambda: self._async.invitations(delegate=delegate)))

    def bytes_queued(self) -> int:
        """How many bytes wait to be sent; 0 while there is no connection. `Writable` tells of room."""
        return self._waiter.wait(lambda: self._async.bytes_queued())

    def metrics(self) -> dict[str, Any]:
        """What the client has done, and what waits, as the page "Metrics" lists it."""
        return self._waiter.wait(lambda: self._async.metrics())

    def open_metrics_text(self, *, is_prometheus: bool = False) -> str:
        """The same as text in the OpenMetrics format, or in the older one of Prometheus."""
        return self._waiter.wait(lambda: self._async.open_metrics_text(is_prometheus=is_prometheus))

    def get_debug_info(self) -> dict[str, Any]:
        """What helps to look into a problem; the token is in it in clear: for the application's own eyes."""
        return self._waiter.wait(lambda: self._async.get_debug_info())

    def get_sdk_version(self) -> str:
        """The name and version that the library tells servers."""
        return self._waiter.wait(lambda: self._async.get_sdk_version())

    def set_parameters(self, parameters: str) -> int:
        """Has no effect in this version; returns 0."""
        return self._waiter.wait(lambda: self._async.set_parameters(parameters))

    def set_log_file(self, path: str) -> None:
        """The file of the process's log, which must exist."""
        self._waiter.wait(lambda: self._async.set_log_file(path))

    def set_log_filters(self, filters: int) -> None:
        """What the process logs: above 0 information, from 2 warnings too, from 4 errors too, from 8 everything."""
        self._waiter.wait(lambda: self._async.set_log_filters(filters))


class Channel:
    """`kvpim.Channel`, waiting."""

    def __init__(self, waiter: Waiter, channel: client.Channel) -> None:
        self._waiter = waiter
        self._async = channel
        self.channel_id = channel.channel_id

    def join(self) -> None:
        """Becomes a member; a reconnection joins again. Codes: KvPimJoinChannelErrorCode."""
        self._waiter.wait(lambda: self._async.join())

    def leave(self) -> None:
        """Ends the membership. Codes: KvPimLeaveChannelErrorCode."""
        self._waiter.wait(lambda: self._async.leave())

    def members(self) -> list[Member]:
        """Who is in it, in the order of joining. Codes: KvPimChannelMembersErrorCode."""
        return self._waiter.wait(lambda: self._async.members())

    def send(self, message: Content, *, text: str | None = None) -> None:
        """Sends a text, or bytes with or without a text that describes them, to the other members."""
        self._waiter.wait(lambda: self._async.send(message, text=text))

    def destroy(self) -> bool:
        """Forgets the channel, without leaving it; returns whether there was one."""
        return self._waiter.wait(lambda: self._async.destroy())

    def events(self, *, timeout: float | None = None, limit: int = 1024, drop: Drop = "oldest") -> Events[ChannelEvent]:
        """What the channel tells, from now on."""
        return Events(self._waiter, self._async.events(limit=limit, drop=drop), timeout)

    def messages(
        self,
        *,
        timeout: float | None = None,
        limit: int = 1024,
        drop: Drop = "oldest",
    ) -> Events[ChannelMessageReceived]:
        """The messages of other members, from now on."""
        return Events(self._waiter, self._async.messages(limit=limit, drop=drop), timeout)


class Invitations:
    """`kvpim.Invitations`, waiting."""

    def __init__(self, waiter: Waiter, invitations: client.Invitations) -> None:
        self._waiter = waiter
        self._async = invitations

    def new(self, invitation: str, inviter: str, invitee: str, *, request_info: str | None = None) -> None:
        """Makes an invitation of this label, and sends nothing. The inviter is this user."""
        self._waiter.wait(lambda: self._async.new(invitation, inviter, invitee, request_info=request_info))

    def send(self, invitation: str, *, request_info: str | None = None, response_info: str | None = None) -> Invitation:
        """Invites. Unanswered for a while, it fails (`InvitationFailed`). Codes: KvPimInvitationErrorCode."""
        return self._waiter.wait(
            lambda: self._async.send(invitation, request_info=request_info, response_info=response_info)
        )

    def cancel(
        self,
        invitation: str,
        *,
        request_info: str | None = None,
        response_info: str | None = None,
    ) -> Invitation:
        """Takes an invitation back. Codes: KvPimInvitationErrorCode."""
        return self._waiter.wait(
            lambda: self._async.cancel(invitation, request_info=request_info, response_info=response_info)
        )

    def accept(
        self,
        invitation: str,
        *,
        request_info: str | None = None,
        response_info: str | None = None,
    ) -> Invitation:
        """Accepts one that arrived. Codes: KvPimInvitationErrorCode."""
        return self._waiter.wait(
            lambda: self._async.accept(invitation, request_info=request_info, response_info=response_info)
        )

    def refuse(
        self,
        invitation: str,
        *,
        request_info: str | None = None,
        response_info: str | None = None,
    ) -> Invitation:
        """Refuses one that arrived. Codes: KvPimInvitationErrorCode."""
        return self._waiter.wait(
            lambda: self._async.refuse(invitation, request_info=request_info, response_info=response_info)
        )

    def get(self, invitation: str) -> Invitation:
        """The invitation of this label, as it is now."""
        return self._waiter.wait(lambda: self._async.get(invitation))

    def events(
        self,
        *,
        timeout: float | None = None,
        limit: int = 1024,
        drop: Drop = "oldest",
    ) -> Events[InvitationEvent]:
        """What becomes of invitations, from now on."""
        return Events(self._waiter, self._async.events(limit=limit, drop=drop), timeout)
