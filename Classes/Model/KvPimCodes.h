// The states and reasons that delegates are told of, and the words of event reports. All of them are permanent.
#pragma once

#include <cstdint>
#include <string_view>

namespace kv {

/// How far a client's connection is.
enum KvPimConnectionState : std::int64_t {
    KvPimConnectionStateDisconnected = 1,  ///< Not connected; after (1, 4) the attempt goes on.
    KvPimConnectionStateConnecting = 2,    ///< A login is in progress.
    KvPimConnectionStateConnected = 3,     ///< The server has taken the login.
    KvPimConnectionStateReconnecting = 4,  ///< The connection was lost, and an attempt to restore it has begun.
};

/// Why the state changed.
enum KvPimConnectionChangeReason : std::int64_t {
    KvPimConnectionChangeReasonLogin = 1,           ///< With state 2: a login was accepted for trying.
    KvPimConnectionChangeReasonLoginSuccess = 2,    ///< With state 3, after a login and after each reconnection.
    KvPimConnectionChangeReasonLoginFailure = 3,    ///< With state 1: the connection closed during a login.
    KvPimConnectionChangeReasonLoginTimeout = 4,    ///< With state 1: a login is not connected in time.
    KvPimConnectionChangeReasonInterrupted = 5,     ///< With state 4: the first attempt to reconnect begins.
    KvPimConnectionChangeReasonLogout = 6,          ///< With state 1: this side left (a logout, or a token renewed).
    KvPimConnectionChangeReasonRemoteLogin = 8,     ///< With state 1: the user logged in elsewhere; nothing reconnects.
    KvPimConnectionChangeReasonExpiredSession = 9,  ///< Never told by itself.
};

/// Why a member left a channel.
enum KvPimMemberLeftReason : std::int64_t {
    KvPimMemberLeftReasonUnknown = 0,     ///< The server gave no reason that is known.
    KvPimMemberLeftReasonQuit = 1,        ///< The member left the channel.
    KvPimMemberLeftReasonDisconnect = 2,  ///< The member's connection ended.
};

// What was tried, in the event report of a failed operation with attributes or peers.

/// Attributes were read.
inline constexpr std::string_view KvLoganActionStringGet = "get";
/// All attributes were replaced.
inline constexpr std::string_view KvLoganActionStringSet = "set";
/// Attributes were added or changed.
inline constexpr std::string_view KvLoganActionStringUpdate = "update";
/// Attributes were removed.
inline constexpr std::string_view KvLoganActionStringDelete = "delete";
/// Peers were subscribed to.
inline constexpr std::string_view KvLoganActionStringSub = "sub";
/// A subscription to peers was ended.
inline constexpr std::string_view KvLoganActionStringUnsub = "unsub";

}  // namespace kv
