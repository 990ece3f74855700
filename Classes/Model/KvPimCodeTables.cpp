// Made by tools/completion_codes.mjs from the comments of the public headers: `./run docs` writes it anew.
#include "Classes/Model/KvPimErrors.h"

namespace kv {
// clang-format off

KvPimErrorTable const& KvPimTables::of(KvPimLoginErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimLoginErrorOk", "Success."},
        {1, "KvPimLoginErrorUnknown", "The connection ended before the server had taken the login, and the server gave no reason; or the client was destroyed meanwhile. Try again, after a pause."},
        {2, "KvPimLoginErrorAppForbidden", "The server does not let this application in. Ask who runs the service; trying again does not help."},
        {3, "KvPimLoginErrorInvalidArgument", "The user id is not valid (1 to 64 ASCII letters, digits, white space and most punctuation), or the server found something else of the login to be invalid. Correct it."},
        {4, "KvPimLoginErrorInvalidAppId", "The server knows no application of this id. Check the app id that the client was made with, and the address of the API server."},
        {5, "KvPimLoginErrorInvalidToken", "The token is invalid. Log in with one that the application's own server issued: 32 characters without white space."},
        {6, "KvPimLoginErrorTokenExpired", "The token has expired. Log in with a new one of the application's own server."},
        {7, "KvPimLoginErrorNotAuthorized", "The server does not take this token for this user. Log in with one that was issued for this user id and this application."},
        {8, "KvPimLoginErrorAlreadyLogin", "Logged in already, or a login is in progress; nothing was changed. Log out before another login, and repeat a failed one after its completion has returned."},
        {9, "KvPimLoginErrorTimeout", "No socket server was found, or it was not connected to in time. Check the network and the address of the API server. In the second case the attempt goes on, and the completion is called once more, with its outcome."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.login", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimLogoutErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimLogoutErrorOk", "Success."},
        {102, "KvPimLogoutErrorNotLogin", "Not logged in: there is no session to end."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.logout", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimRenewTokenErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimRenewTokenErrorOk", "Success."},
        {2, "KvPimRenewTokenErrorInvalidArgument", "The token does not have 32 characters, or has white space in it; the old one stays. Hand over what the application's own server issued."},
        {102, "KvPimRenewTokenErrorNotLogin", "Not logged in; nothing was changed. Log in with the new token."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.renewToken", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimJoinChannelErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimJoinChannelErrorOk", "Success."},
        {1, "KvPimJoinChannelErrorFailure", "The server refused for another reason, too many requests among them. Wait a little before asking again."},
        {3, "KvPimJoinChannelErrorInvalidArgument", "The channel id is not valid, here or to the server: 1 to 64 ASCII letters, digits, white space and most punctuation. Correct it."},
        {4, "KvPimJoinChannelErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The channel may be joined all the same; join again once connected."},
        {5, "KvPimJoinChannelErrorServer5", "The server's result 5, passed on as it came. The local service means: the user is in too many channels."},
        {6, "KvPimJoinChannelErrorServer6", "The server's result 6, passed on as it came. The local service means: the channel is full."},
        {102, "KvPimJoinChannelErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.joinChannel", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimLeaveChannelErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimLeaveChannelErrorOk", "Success."},
        {1, "KvPimLeaveChannelErrorFailure", "The server refused, or no answer came in time. The channel may be left all the same; leave again once connected."},
        {3, "KvPimLeaveChannelErrorServer6", "The server's result 6, passed on as it came. The local service means: the user is no member, so there is nothing to leave."},
        {102, "KvPimLeaveChannelErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.leaveChannel", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimChannelMembersErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimChannelMembersErrorOk", "Success."},
        {1, "KvPimChannelMembersErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {3, "KvPimChannelMembersErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. Ask again once connected."},
        {4, "KvPimChannelMembersErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {5, "KvPimChannelMembersErrorNotInChannel", "The channel is not joined, here or to the server (its result 5). Join it first."},
        {102, "KvPimChannelMembersErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.channelMembers", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimChannelMessageErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimChannelMessageErrorOk", "Success."},
        {1, "KvPimChannelMessageErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {2, "KvPimChannelMessageErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The message may have arrived all the same; sent again, it can arrive twice."},
        {3, "KvPimChannelMessageErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {4, "KvPimChannelMessageErrorTooLong", "The text or the data has more than 32,768 bytes, or is too long for the server (its result 4). Send less at a time. What is found here is sent all the same, and the completion called once more, with the answer."},
        {5, "KvPimChannelMessageErrorNotInChannel", "The channel is not joined, here or to the server (its result 5). Join it first."},
        {102, "KvPimChannelMessageErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.channelMessage", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimChannelAttributesErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimChannelAttributesErrorOk", "Success."},
        {2, "KvPimChannelAttributesErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {3, "KvPimChannelAttributesErrorInvalidArgument", "A list is empty, or the channel id is not valid; for a read by keys, the server may have found so (its result 3). Correct the call."},
        {4, "KvPimChannelAttributesErrorServer4", "The server's result 4, passed on as it came; not of the two reads. The local service means: too many attributes, or too long ones."},
        {5, "KvPimChannelAttributesErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {7, "KvPimChannelAttributesErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. What was to be written may be there all the same; ask again once connected."},
        {102, "KvPimChannelAttributesErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.channelAttributes", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimMemberCountErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimMemberCountErrorOk", "Success."},
        {1, "KvPimMemberCountErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {2, "KvPimMemberCountErrorInvalidArgument", "There are no channel ids, or one is not valid, here or to the server (its result 2). Correct the list."},
        {3, "KvPimMemberCountErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {4, "KvPimMemberCountErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. Ask again once connected."},
        {5, "KvPimMemberCountErrorTooManyChannels", "More than 32 channel ids, or too many for the server (its result 5). Ask for fewer at a time."},
        {102, "KvPimMemberCountErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.memberCount", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimLocalUserAttributesErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimLocalUserAttributesErrorOk", "Success."},
        {2, "KvPimLocalUserAttributesErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {3, "KvPimLocalUserAttributesErrorInvalidArgument", "The list is empty; nothing was sent. Name at least one attribute or key. Not of clear, which takes none."},
        {4, "KvPimLocalUserAttributesErrorServer4", "The server's result 4, passed on as it came; of set and add-or-update only. The local service means: too many attributes, or too long ones."},
        {5, "KvPimLocalUserAttributesErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {7, "KvPimLocalUserAttributesErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The attributes may be written all the same; ask again once connected."},
        {102, "KvPimLocalUserAttributesErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.localUserAttributes", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimUserAttributesErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimUserAttributesErrorOk", "Success."},
        {2, "KvPimUserAttributesErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {3, "KvPimUserAttributesErrorInvalidArgument", "The user id is not valid, or there are no keys; nothing was sent. Correct the call."},
        {5, "KvPimUserAttributesErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {6, "KvPimUserAttributesErrorServer6", "The server's result 6, passed on as it came. The local service means: the user is not online."},
        {7, "KvPimUserAttributesErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. Ask again once connected."},
        {102, "KvPimUserAttributesErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.userAttributes", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimPeersErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimPeersErrorOk", "Success."},
        {1, "KvPimPeersErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {2, "KvPimPeersErrorInvalidArgument", "There are no user ids or no keys, or an id is not valid; nothing was sent. Correct the list. Not of a query by option."},
        {4, "KvPimPeersErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. A subscription may be made or ended all the same; ask again once connected."},
        {5, "KvPimPeersErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {6, "KvPimPeersErrorServer6", "The server's result 6, passed on as it came; of the two subscriptions only. The local service means: too many subscriptions, and none was made."},
        {102, "KvPimPeersErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.peers", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimPeerMessageErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimPeerMessageErrorOk", "Success."},
        {1, "KvPimPeerMessageErrorFailure", "The server refused for a reason that this operation has no code for. Asking again at once will hardly help."},
        {2, "KvPimPeerMessageErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The message may have arrived all the same; sent again, it can arrive twice."},
        {3, "KvPimPeerMessageErrorServer3", "The server's result 3, passed on as it came. The local service means: the user is offline, and the message was not to be kept."},
        {4, "KvPimPeerMessageErrorServer4", "The server's result 4, passed on as it came. The local service means: the user id is not valid, or the message not well formed."},
        {5, "KvPimPeerMessageErrorTooManyRequests", "The server's limit of requests is reached; nothing was done. Wait a little, and ask less often."},
        {6, "KvPimPeerMessageErrorServer6", "The server's result 6, passed on as it came. The local service means: too many messages are kept for this user already."},
        {7, "KvPimPeerMessageErrorTooLong", "The text or the data has more than 32,768 bytes, or is too long for the server (its result 7). Send less at a time. What is found here is sent all the same, and the completion called once more, with the answer."},
        {102, "KvPimPeerMessageErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.peerMessage", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvPimInvitationErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimInvitationErrorOk", "Success."},
        {1, "KvPimInvitationErrorTimeout", "No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The other side may have heard of it all the same. An invitation that was to be sent has failed."},
        {2, "KvPimInvitationErrorTooLong", "The requestInfo or the responseInfo has more than 8,192 bytes; nothing was sent. Shorten it."},
        {3, "KvPimInvitationErrorServer3", "The server's result 3, passed on as it came. The local service means: it was done in another's name, or the invitee was never seen."},
        {4, "KvPimInvitationErrorServer4", "The server's result 4, passed on as it came. The local service means: the other side is offline."},
        {5, "KvPimInvitationErrorNotOwn", "The invitation is another's: its inviter may send and cancel, its invitee accept and refuse. Nothing was sent."},
        {102, "KvPimInvitationErrorNotLogin", "Not logged in; nothing was sent. Log in, and ask again once the login has succeeded."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.invitation", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvWaitError) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {1, "waitedTooLong", "The caller's own limit of waiting is over. The request is on its way nevertheless, and may yet be carried out."},
        {2, "cancelled", "The caller has stopped waiting. The request is on its way nevertheless, and may yet be carried out."},
        {3, "abandoned", "Who was to answer is gone: the client was destroyed. What was asked for may have happened or not."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim.wait", rows);
    return table;
}

KvPimErrorTable const& KvPimTables::of(KvErrc) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {1, "timedOut", "No answer came in time; what was asked for may have happened all the same."},
        {2, "notLoggedIn", "Nobody is logged in, so that nothing was sent."},
        {3, "tooManyRequests", "The server's limit of requests is reached."},
        {4, "invalidArgument", "The call itself is wrong: repeated as it is, it fails again."},
        {5, "refused", "The call is right, but the server, or the client in its stead, does not do it as things stand."},
        {6, "cancelled", "The caller did not wait for the answer."},
    };
    static auto const& table = KvPimErrorTable::make("kv.pim", rows);
    return table;
}

KvPimCodeTable const& KvPimTables::of(KvPimInvitationFailedErrorCode) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimInvitationFailedErrorServer", "The server said that it failed."},
        {3, "KvPimInvitationFailedErrorExpired", "Nobody answered within 60 seconds."},
    };
    static constexpr KvPimCodeTable table(rows);
    return table;
}

KvPimCodeTable const& KvPimTables::of(KvPimConnectionState) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {1, "KvPimConnectionStateDisconnected", "Not connected; after (1, 4) the attempt goes on."},
        {2, "KvPimConnectionStateConnecting", "A login is in progress."},
        {3, "KvPimConnectionStateConnected", "The server has taken the login."},
        {4, "KvPimConnectionStateReconnecting", "The connection was lost, and an attempt to restore it has begun."},
    };
    static constexpr KvPimCodeTable table(rows);
    return table;
}

KvPimCodeTable const& KvPimTables::of(KvPimConnectionChangeReason) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {1, "KvPimConnectionChangeReasonLogin", "With state 2: a login was accepted for trying."},
        {2, "KvPimConnectionChangeReasonLoginSuccess", "With state 3, after a login and after each reconnection."},
        {3, "KvPimConnectionChangeReasonLoginFailure", "With state 1: the connection closed during a login."},
        {4, "KvPimConnectionChangeReasonLoginTimeout", "With state 1: a login is not connected in time."},
        {5, "KvPimConnectionChangeReasonInterrupted", "With state 4: the first attempt to reconnect begins."},
        {6, "KvPimConnectionChangeReasonLogout", "With state 1: this side left (a logout, or a token renewed)."},
        {8, "KvPimConnectionChangeReasonRemoteLogin", "With state 1: the user logged in elsewhere; nothing reconnects."},
        {9, "KvPimConnectionChangeReasonExpiredSession", "Never told by itself."},
    };
    static constexpr KvPimCodeTable table(rows);
    return table;
}

KvPimCodeTable const& KvPimTables::of(KvPimMemberLeftReason) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimMemberLeftReasonUnknown", "The server gave no reason that is known."},
        {1, "KvPimMemberLeftReasonQuit", "The member left the channel."},
        {2, "KvPimMemberLeftReasonDisconnect", "The member's connection ended."},
    };
    static constexpr KvPimCodeTable table(rows);
    return table;
}

KvPimCodeTable const& KvPimTables::of(KvPimInvitationState) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {0, "KvPimInvitationStateInitial", "Not sent yet."},
        {1, "KvPimInvitationStateFailed", "Not acknowledged, or expired."},
        {2, "KvPimInvitationStatePending", "Sent and acknowledged, or arrived."},
        {3, "KvPimInvitationStateCanceled", "Taken back by the inviter."},
        {4, "KvPimInvitationStateAccepted", "Accepted by the invitee."},
        {5, "KvPimInvitationStateRefused", "Refused by the invitee."},
    };
    static constexpr KvPimCodeTable table(rows);
    return table;
}

KvPimCodeTable const& KvPimTables::of(KvPimMessageType) noexcept {
    static constexpr KvPimCodeTable::Row rows[] = {
        {1, "KvPimMessageTypeText", "Text alone."},
        {2, "KvPimMessageTypeRaw", "Bytes, with or without a text."},
    };
    static constexpr KvPimCodeTable table(rows);
    return table;
}

}  // namespace kv
