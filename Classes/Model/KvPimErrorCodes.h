// What completions receive, by operation. Each operation has its own set: the same number means different things in
// different operations. The numbers are permanent. "ServerN" stands for a result of the server that is passed on as it
// came: what it means is the service's to say.
//
// What stands above a code is its sentence, word for word: `describe`, `std::error_code::message` (`KvPimErrors.h`) and
// docs/completion_codes.md have it from here. "In time" is within the time that the operation names, or within
// `KvPimNetworkOptions::requestTimeout` and `connectTimeout`.
#pragma once

#include <cstdint>

namespace kv {

/// Of a login.
enum KvPimLoginErrorCode : std::int64_t {
    /// Success.
    KvPimLoginErrorOk = 0,
    /// The connection ended before the server had taken the login, and the server gave no reason; or the client was
    /// destroyed meanwhile. Try again, after a pause.
    KvPimLoginErrorUnknown = 1,
    /// The server does not let this application in. Ask who runs the service; trying again does not help.
    KvPimLoginErrorAppForbidden = 2,
    /// The user id is not valid (1 to 64 ASCII letters, digits, white space and most punctuation), or the server found
    /// something else of the login to be invalid. Correct it.
    KvPimLoginErrorInvalidArgument = 3,
    /// The server knows no application of this id. Check the app id that the client was made with, and the address of
    /// the API server.
    KvPimLoginErrorInvalidAppId = 4,
    /// The token is invalid. Log in with one that the application's own server issued: 32 characters without white
    /// space.
    KvPimLoginErrorInvalidToken = 5,
    /// The token has expired. Log in with a new one of the application's own server.
    KvPimLoginErrorTokenExpired = 6,
    /// The server does not take this token for this user. Log in with one that was issued for this user id and this
    /// application.
    KvPimLoginErrorNotAuthorized = 7,
    /// Logged in already, or a login is in progress; nothing was changed. Log out before another login, and repeat a
    /// failed one after its completion has returned.
    KvPimLoginErrorAlreadyLogin = 8,
    /// No socket server was found, or it was not connected to in time. Check the network and the address of the API
    /// server. In the second case the attempt goes on, and the completion is called once more, with its outcome.
    KvPimLoginErrorTimeout = 9,
};

/// Of a logout.
enum KvPimLogoutErrorCode : std::int64_t {
    /// Success.
    KvPimLogoutErrorOk = 0,
    /// Not logged in: there is no session to end.
    KvPimLogoutErrorNotLogin = 102,
};

/// Of the renewal of a token.
enum KvPimRenewTokenErrorCode : std::int64_t {
    /// Success.
    KvPimRenewTokenErrorOk = 0,
    /// The token does not have 32 characters, or has white space in it; the old one stays. Hand over what the
    /// application's own server issued.
    KvPimRenewTokenErrorInvalidArgument = 2,
    /// Not logged in; nothing was changed. Log in with the new token.
    KvPimRenewTokenErrorNotLogin = 102,
};

/// Of joining a channel.
enum KvPimJoinChannelErrorCode : std::int64_t {
    /// Success.
    KvPimJoinChannelErrorOk = 0,
    /// The server refused for another reason, too many requests among them. Wait a little before asking again.
    KvPimJoinChannelErrorFailure = 1,
    /// The channel id is not valid, here or to the server: 1 to 64 ASCII letters, digits, white space and most
    /// punctuation. Correct it.
    KvPimJoinChannelErrorInvalidArgument = 3,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The channel may be
    /// joined all the same; join again once connected.
    KvPimJoinChannelErrorTimeout = 4,
    /// The server's result 5, passed on as it came. The local service means: the user is in too many channels.
    KvPimJoinChannelErrorServer5 = 5,
    /// The server's result 6, passed on as it came. The local service means: the channel is full.
    KvPimJoinChannelErrorServer6 = 6,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimJoinChannelErrorNotLogin = 102,
};

/// Of leaving a channel.
enum KvPimLeaveChannelErrorCode : std::int64_t {
    /// Success.
    KvPimLeaveChannelErrorOk = 0,
    /// The server refused, or no answer came in time. The channel may be left all the same; leave again once connected.
    KvPimLeaveChannelErrorFailure = 1,
    /// The server's result 6, passed on as it came. The local service means: the user is no member, so there is nothing
    /// to leave.
    KvPimLeaveChannelErrorServer6 = 3,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimLeaveChannelErrorNotLogin = 102,
};

/// Of asking for the members of a channel.
enum KvPimChannelMembersErrorCode : std::int64_t {
    /// Success.
    KvPimChannelMembersErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimChannelMembersErrorFailure = 1,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. Ask again once
    /// connected.
    KvPimChannelMembersErrorTimeout = 3,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimChannelMembersErrorTooManyRequests = 4,
    /// The channel is not joined, here or to the server (its result 5). Join it first.
    KvPimChannelMembersErrorNotInChannel = 5,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimChannelMembersErrorNotLogin = 102,
};

/// Of sending a message to a channel.
enum KvPimChannelMessageErrorCode : std::int64_t {
    /// Success.
    KvPimChannelMessageErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimChannelMessageErrorFailure = 1,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The message may
    /// have arrived all the same; sent again, it can arrive twice.
    KvPimChannelMessageErrorTimeout = 2,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimChannelMessageErrorTooManyRequests = 3,
    /// The text or the data has more than 32,768 bytes, or is too long for the server (its result 4). Send less at a
    /// time. What is found here is sent all the same, and the completion called once more, with the answer.
    KvPimChannelMessageErrorTooLong = 4,
    /// The channel is not joined, here or to the server (its result 5). Join it first.
    KvPimChannelMessageErrorNotInChannel = 5,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimChannelMessageErrorNotLogin = 102,
};

/// Of writing or reading the attributes of a channel.
enum KvPimChannelAttributesErrorCode : std::int64_t {
    /// Success.
    KvPimChannelAttributesErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimChannelAttributesErrorFailure = 2,
    /// A list is empty, or the channel id is not valid; for a read by keys, the server may have found so (its result
    /// 3). Correct the call.
    KvPimChannelAttributesErrorInvalidArgument = 3,
    /// The server's result 4, passed on as it came; not of the two reads. The local service means: too many attributes,
    /// or too long ones.
    KvPimChannelAttributesErrorServer4 = 4,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimChannelAttributesErrorTooManyRequests = 5,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. What was to be
    /// written may be there all the same; ask again once connected.
    KvPimChannelAttributesErrorTimeout = 7,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimChannelAttributesErrorNotLogin = 102,
};

/// Of counting the members of channels.
enum KvPimMemberCountErrorCode : std::int64_t {
    /// Success.
    KvPimMemberCountErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimMemberCountErrorFailure = 1,
    /// There are no channel ids, or one is not valid, here or to the server (its result 2). Correct the list.
    KvPimMemberCountErrorInvalidArgument = 2,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimMemberCountErrorTooManyRequests = 3,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. Ask again once
    /// connected.
    KvPimMemberCountErrorTimeout = 4,
    /// More than 32 channel ids, or too many for the server (its result 5). Ask for fewer at a time.
    KvPimMemberCountErrorTooManyChannels = 5,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimMemberCountErrorNotLogin = 102,
};

/// Of writing the user's own attributes.
enum KvPimLocalUserAttributesErrorCode : std::int64_t {
    /// Success.
    KvPimLocalUserAttributesErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimLocalUserAttributesErrorFailure = 2,
    /// The list is empty; nothing was sent. Name at least one attribute or key. Not of clear, which takes none.
    KvPimLocalUserAttributesErrorInvalidArgument = 3,
    /// The server's result 4, passed on as it came; of set and add-or-update only. The local service means: too many
    /// attributes, or too long ones.
    KvPimLocalUserAttributesErrorServer4 = 4,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimLocalUserAttributesErrorTooManyRequests = 5,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The attributes may
    /// be written all the same; ask again once connected.
    KvPimLocalUserAttributesErrorTimeout = 7,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimLocalUserAttributesErrorNotLogin = 102,
};

/// Of reading the attributes of one user.
enum KvPimUserAttributesErrorCode : std::int64_t {
    /// Success.
    KvPimUserAttributesErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimUserAttributesErrorFailure = 2,
    /// The user id is not valid, or there are no keys; nothing was sent. Correct the call.
    KvPimUserAttributesErrorInvalidArgument = 3,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimUserAttributesErrorTooManyRequests = 5,
    /// The server's result 6, passed on as it came. The local service means: the user is not online.
    KvPimUserAttributesErrorServer6 = 6,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. Ask again once
    /// connected.
    KvPimUserAttributesErrorTimeout = 7,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimUserAttributesErrorNotLogin = 102,
};

/// Of all that concerns the attributes or the online status of several peers.
enum KvPimPeersErrorCode : std::int64_t {
    /// Success.
    KvPimPeersErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimPeersErrorFailure = 1,
    /// There are no user ids or no keys, or an id is not valid; nothing was sent. Correct the list. Not of a query by
    /// option.
    KvPimPeersErrorInvalidArgument = 2,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. A subscription may
    /// be made or ended all the same; ask again once connected.
    KvPimPeersErrorTimeout = 4,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimPeersErrorTooManyRequests = 5,
    /// The server's result 6, passed on as it came; of the two subscriptions only. The local service means: too many
    /// subscriptions, and none was made.
    KvPimPeersErrorServer6 = 6,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimPeersErrorNotLogin = 102,
};

/// Of sending a message to a user.
enum KvPimPeerMessageErrorCode : std::int64_t {
    /// Success.
    KvPimPeerMessageErrorOk = 0,
    /// The server refused for a reason that this operation has no code for. Asking again at once will hardly help.
    KvPimPeerMessageErrorFailure = 1,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The message may
    /// have arrived all the same; sent again, it can arrive twice.
    KvPimPeerMessageErrorTimeout = 2,
    /// The server's result 3, passed on as it came. The local service means: the user is offline, and the message was
    /// not to be kept.
    KvPimPeerMessageErrorServer3 = 3,
    /// The server's result 4, passed on as it came. The local service means: the user id is not valid, or the message
    /// not well formed.
    KvPimPeerMessageErrorServer4 = 4,
    /// The server's limit of requests is reached; nothing was done. Wait a little, and ask less often.
    KvPimPeerMessageErrorTooManyRequests = 5,
    /// The server's result 6, passed on as it came. The local service means: too many messages are kept for this user
    /// already.
    KvPimPeerMessageErrorServer6 = 6,
    /// The text or the data has more than 32,768 bytes, or is too long for the server (its result 7). Send less at a
    /// time. What is found here is sent all the same, and the completion called once more, with the answer.
    KvPimPeerMessageErrorTooLong = 7,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimPeerMessageErrorNotLogin = 102,
};

/// Of all that is done with an invitation. Any answer but the server's results 3 and 4 is a success, an answer "Too
/// Many Requests" included.
enum KvPimInvitationErrorCode : std::int64_t {
    /// Success.
    KvPimInvitationErrorOk = 0,
    /// No answer came in time: the connection is lost or slow, or what waits to be sent is too much. The other side may
    /// have heard of it all the same. An invitation that was to be sent has failed.
    KvPimInvitationErrorTimeout = 1,
    /// The requestInfo or the responseInfo has more than 8,192 bytes; nothing was sent. Shorten it.
    KvPimInvitationErrorTooLong = 2,
    /// The server's result 3, passed on as it came. The local service means: it was done in another's name, or the
    /// invitee was never seen.
    KvPimInvitationErrorServer3 = 3,
    /// The server's result 4, passed on as it came. The local service means: the other side is offline.
    KvPimInvitationErrorServer4 = 4,
    /// The invitation is another's: its inviter may send and cancel, its invitee accept and refuse. Nothing was sent.
    KvPimInvitationErrorNotOwn = 5,
    /// Not logged in; nothing was sent. Log in, and ask again once the login has succeeded.
    KvPimInvitationErrorNotLogin = 102,
};

/// Why a delegate is told that an invitation failed.
enum KvPimInvitationFailedErrorCode : std::int64_t {
    /// The server said that it failed.
    KvPimInvitationFailedErrorServer = 0,
    /// Nobody answered within 60 seconds.
    KvPimInvitationFailedErrorExpired = 3,
};

/// In every operation: the client is not logged in. Decided before anything is sent.
inline constexpr std::int64_t KvPimErrorNotLogin = 102;

}  // namespace kv
