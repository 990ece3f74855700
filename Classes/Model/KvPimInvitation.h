#pragma once

#include "Platform/KvExport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kv {

/// What became of an invitation.
enum KvPimInvitationState : std::int64_t {
    KvPimInvitationStateInitial = 0,   ///< Not sent yet.
    KvPimInvitationStateFailed = 1,    ///< Not acknowledged, or expired.
    KvPimInvitationStatePending = 2,   ///< Sent and acknowledged, or arrived.
    KvPimInvitationStateCanceled = 3,  ///< Taken back by the inviter.
    KvPimInvitationStateAccepted = 4,  ///< Accepted by the invitee.
    KvPimInvitationStateRefused = 5,   ///< Refused by the invitee.
};

/// A call-style invitation of one user by another. Shared between the application, the invitation kit and the store of
/// live invitations: its state changes under the application's eyes, on the main thread.
class KV_EXPORT KvPimInvitation {
public:
    KvPimInvitation() = default;
    /// Makes an invitation and registers it as the live one between these two users, in this direction; it replaces an
    /// earlier one there, and later notices about the two are about this object. Call it on the main thread of the
    /// client that it is for: it belongs to the client that sends it, or is told of the two users, there.
    [[nodiscard]] static std::shared_ptr<KvPimInvitation> initWithInviter(std::string inviter, std::string invitee);
    // It stands beside the store, in Utils/KvInvitationStore.cpp: a record knows nothing that is above it.

    std::string inviter;
    std::string invitee;
    /// Free text of the inviter, at most 8,192 bytes of UTF-8. Absent is not empty: such a text is not sent.
    std::optional<std::string> requestInfo;
    /// Free text of the invitee, likewise.
    std::optional<std::string> responseInfo;
    /// One of `KvPimInvitationState`; a server may send others.
    std::int64_t state = KvPimInvitationStateInitial;
    bool operator==(KvPimInvitation const&) const = default;
};

}  // namespace kv
