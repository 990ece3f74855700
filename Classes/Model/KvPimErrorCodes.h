// What completions receive, by operation. Each operation has its own set: the same number means different things in
// different operations. The numbers are permanent. "ServerN" stands for a result of the server that is passed on as it
// came: what it means is the service's to say.
#pragma once

#include <cstdint>

namespace kv {

/// Of a login.
enum KvPimLoginErrorCode : std::int64_t {
    KvPimLoginErrorOk = 0,       ///< Success.
    KvPimLoginErrorUnknown = 1,  ///< The connection ended without a reason that is known, or the client was destroyed.
    KvPimLoginErrorAppForbidden = 2,     ///< The application is shut out.
    KvPimLoginErrorInvalidArgument = 3,  ///< The user id is invalid, or the server found an argument to be.
    KvPimLoginErrorInvalidAppId = 4,     ///< There is no such application.
    KvPimLoginErrorInvalidToken = 5,     ///< The token is not one.
    KvPimLoginErrorTokenExpired = 6,     ///< The token was good once.
    KvPimLoginErrorNotAuthorized = 7,    ///< The token is not this user's.
    KvPimLoginErrorAlreadyLogin = 8,     ///< Logged in already, or a login is in progress.
    KvPimLoginErrorTimeout = 9,          ///< No socket server was found, or it was not connected to within 6 seconds.
};

/// Of a logout.
enum KvPimLogoutErrorCode : std::int64_t {
    KvPimLogoutErrorOk = 0,          ///< Success.
    KvPimLogoutErrorNotLogin = 102,  ///< Not logged in; nothing was sent.
};

/// Of the renewal of a token.
enum KvPimRenewTokenErrorCode : std::int64_t {
    KvPimRenewTokenErrorOk = 0,               ///< Success.
    KvPimRenewTokenErrorInvalidArgument = 2,  ///< The token does not have 32 characters, or has white space in it.
    KvPimRenewTokenErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of joining a channel.
enum KvPimJoinChannelErrorCode : std::int64_t {
    KvPimJoinChannelErrorOk = 0,               ///< Success.
    KvPimJoinChannelErrorFailure = 1,          ///< The server refused for any other reason.
    KvPimJoinChannelErrorInvalidArgument = 3,  ///< The channel id is invalid, here or to the server.
    KvPimJoinChannelErrorTimeout = 4,          ///< No answer within 6 seconds.
    KvPimJoinChannelErrorServer5 = 5,          ///< The server's result 5.
    KvPimJoinChannelErrorServer6 = 6,          ///< The server's result 6.
    KvPimJoinChannelErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of leaving a channel.
enum KvPimLeaveChannelErrorCode : std::int64_t {
    KvPimLeaveChannelErrorOk = 0,          ///< Success.
    KvPimLeaveChannelErrorFailure = 1,     ///< The server refused, or did not answer within 6 seconds.
    KvPimLeaveChannelErrorServer6 = 3,     ///< The server's result 6.
    KvPimLeaveChannelErrorNotLogin = 102,  ///< Not logged in; nothing was sent.
};

/// Of asking for the members of a channel.
enum KvPimChannelMembersErrorCode : std::int64_t {
    KvPimChannelMembersErrorOk = 0,               ///< Success.
    KvPimChannelMembersErrorFailure = 1,          ///< The server refused for any other reason.
    KvPimChannelMembersErrorTimeout = 3,          ///< No answer within 6 seconds.
    KvPimChannelMembersErrorTooManyRequests = 4,  ///< The server's limit of requests.
    KvPimChannelMembersErrorNotInChannel = 5,     ///< Not joined here, or the server's result 5.
    KvPimChannelMembersErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of sending a message to a channel.
enum KvPimChannelMessageErrorCode : std::int64_t {
    KvPimChannelMessageErrorOk = 0,               ///< Success.
    KvPimChannelMessageErrorFailure = 1,          ///< The server refused for any other reason.
    KvPimChannelMessageErrorTimeout = 2,          ///< No answer within 6 seconds; it may still have arrived.
    KvPimChannelMessageErrorTooManyRequests = 3,  ///< The server's limit of requests.
    KvPimChannelMessageErrorTooLong = 4,          ///< Text or data over 32,768 bytes, or the server's result 4.
    KvPimChannelMessageErrorNotInChannel = 5,     ///< Not joined here, or the server's result 5.
    KvPimChannelMessageErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of writing or reading the attributes of a channel.
enum KvPimChannelAttributesErrorCode : std::int64_t {
    KvPimChannelAttributesErrorOk = 0,               ///< Success.
    KvPimChannelAttributesErrorFailure = 2,          ///< The server refused for any other reason.
    KvPimChannelAttributesErrorInvalidArgument = 3,  ///< An empty list or an invalid channel id; for a read by keys
                                                     ///< also the server's result 3.
    KvPimChannelAttributesErrorServer4 = 4,          ///< The server's result 4; not of the two reads.
    KvPimChannelAttributesErrorTooManyRequests = 5,  ///< The server's limit of requests.
    KvPimChannelAttributesErrorTimeout = 7,          ///< No answer within 6 seconds.
    KvPimChannelAttributesErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of counting the members of channels.
enum KvPimMemberCountErrorCode : std::int64_t {
    KvPimMemberCountErrorOk = 0,               ///< Success.
    KvPimMemberCountErrorFailure = 1,          ///< The server refused for any other reason.
    KvPimMemberCountErrorInvalidArgument = 2,  ///< No ids, an invalid one, or the server's result 2.
    KvPimMemberCountErrorTooManyRequests = 3,  ///< The server's limit of requests.
    KvPimMemberCountErrorTimeout = 4,          ///< No answer within 6 seconds.
    KvPimMemberCountErrorTooManyChannels = 5,  ///< More than 32 ids, or the server's result 5.
    KvPimMemberCountErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of writing the user's own attributes.
enum KvPimLocalUserAttributesErrorCode : std::int64_t {
    KvPimLocalUserAttributesErrorOk = 0,               ///< Success.
    KvPimLocalUserAttributesErrorFailure = 2,          ///< The server refused for any other reason.
    KvPimLocalUserAttributesErrorInvalidArgument = 3,  ///< An empty list; not of clear, which has none.
    KvPimLocalUserAttributesErrorServer4 = 4,          ///< The server's result 4; of set and add-or-update only.
    KvPimLocalUserAttributesErrorTooManyRequests = 5,  ///< The server's limit of requests.
    KvPimLocalUserAttributesErrorTimeout = 7,          ///< No answer within 6 seconds (clear: 10).
    KvPimLocalUserAttributesErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of reading the attributes of one user.
enum KvPimUserAttributesErrorCode : std::int64_t {
    KvPimUserAttributesErrorOk = 0,               ///< Success.
    KvPimUserAttributesErrorFailure = 2,          ///< The server refused for any other reason.
    KvPimUserAttributesErrorInvalidArgument = 3,  ///< The user id is invalid, or there are no keys.
    KvPimUserAttributesErrorTooManyRequests = 5,  ///< The server's limit of requests.
    KvPimUserAttributesErrorServer6 = 6,          ///< The server's result 6.
    KvPimUserAttributesErrorTimeout = 7,          ///< No answer within 6 seconds.
    KvPimUserAttributesErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of all that concerns the attributes or the online status of several peers.
enum KvPimPeersErrorCode : std::int64_t {
    KvPimPeersErrorOk = 0,               ///< Success.
    KvPimPeersErrorFailure = 1,          ///< The server refused for any other reason.
    KvPimPeersErrorInvalidArgument = 2,  ///< No ids, no keys, or an invalid id; not of a query by option.
    KvPimPeersErrorTimeout = 4,          ///< No answer within 6 seconds.
    KvPimPeersErrorTooManyRequests = 5,  ///< The server's limit of requests.
    KvPimPeersErrorServer6 = 6,          ///< The server's result 6; of the two subscriptions only.
    KvPimPeersErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of sending a message to a user.
enum KvPimPeerMessageErrorCode : std::int64_t {
    KvPimPeerMessageErrorOk = 0,               ///< Success.
    KvPimPeerMessageErrorFailure = 1,          ///< The server refused for any other reason.
    KvPimPeerMessageErrorTimeout = 2,          ///< No answer within 6 seconds; it may still have arrived.
    KvPimPeerMessageErrorServer3 = 3,          ///< The server's result 3.
    KvPimPeerMessageErrorServer4 = 4,          ///< The server's result 4.
    KvPimPeerMessageErrorTooManyRequests = 5,  ///< The server's limit of requests.
    KvPimPeerMessageErrorServer6 = 6,          ///< The server's result 6.
    KvPimPeerMessageErrorTooLong = 7,          ///< Text or data over 32,768 bytes, or the server's result 7.
    KvPimPeerMessageErrorNotLogin = 102,       ///< Not logged in; nothing was sent.
};

/// Of all that is done with an invitation. Any answer but the server's results 3 and 4 is a success, an answer "Too
/// Many Requests" included.
enum KvPimInvitationErrorCode : std::int64_t {
    KvPimInvitationErrorOk = 0,          ///< Success.
    KvPimInvitationErrorTimeout = 1,     ///< No answer within 6 seconds.
    KvPimInvitationErrorTooLong = 2,     ///< `requestInfo` or `responseInfo` over 8,192 bytes.
    KvPimInvitationErrorServer3 = 3,     ///< The server's result 3.
    KvPimInvitationErrorServer4 = 4,     ///< The server's result 4.
    KvPimInvitationErrorNotOwn = 5,      ///< Not the inviter (send, cancel) or not the invitee (accept, refuse).
    KvPimInvitationErrorNotLogin = 102,  ///< Not logged in; nothing was sent.
};

/// Why a delegate is told that an invitation failed.
enum KvPimInvitationFailedErrorCode : std::int64_t {
    KvPimInvitationFailedErrorServer = 0,   ///< The server said so.
    KvPimInvitationFailedErrorExpired = 3,  ///< Nobody answered within 60 seconds.
};

/// In every operation: the client is not logged in. Decided before anything is sent.
inline constexpr std::int64_t KvPimErrorNotLogin = 102;

}  // namespace kv
