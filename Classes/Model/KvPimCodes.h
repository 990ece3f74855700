// The numbers of the public interface. They are permanent. Completions receive plain integers, since servers may learn
// new codes; the names here are those of the codes that are known.
#pragma once

#include <cstdint>

namespace kv {

enum KvPimConnectionState : std::int64_t {
    KvPimConnectionStateDisconnected = 1,
    KvPimConnectionStateConnecting = 2,
    KvPimConnectionStateConnected = 3,
    KvPimConnectionStateReconnecting = 4,
};

enum KvPimConnectionChangeReason : std::int64_t {
    KvPimConnectionChangeReasonLogin = 1,           // with state 2
    KvPimConnectionChangeReasonLoginSuccess = 2,    // with state 3, after a login and after each reconnection
    KvPimConnectionChangeReasonLoginFailure = 3,    // with state 1
    KvPimConnectionChangeReasonLoginTimeout = 4,    // with state 1
    KvPimConnectionChangeReasonInterrupted = 5,     // with state 4
    KvPimConnectionChangeReasonLogout = 6,          // with state 1
    KvPimConnectionChangeReasonRemoteLogin = 8,     // with state 1
    KvPimConnectionChangeReasonExpiredSession = 9,  // never reported by itself
};

enum KvPimLoginErrorCode : std::int64_t {
    KvPimLoginErrorOk = 0,
    KvPimLoginErrorUnknown = 1,
    KvPimLoginErrorAppForbidden = 2,
    KvPimLoginErrorInvalidArgument = 3,
    KvPimLoginErrorInvalidAppId = 4,
    KvPimLoginErrorInvalidToken = 5,
    KvPimLoginErrorTokenExpired = 6,
    KvPimLoginErrorNotAuthorized = 7,
    KvPimLoginErrorAlreadyLogin = 8,
    KvPimLoginErrorTimeout = 9,
};

enum KvPimMemberLeftReason : std::int64_t {
    KvPimMemberLeftReasonUnknown = 0,
    KvPimMemberLeftReasonQuit = 1,
    KvPimMemberLeftReasonDisconnect = 2,
};

/// In every operation: the client is not logged in. Decided before anything is sent.
inline constexpr std::int64_t KvPimErrorNotLogin = 102;

}  // namespace kv
