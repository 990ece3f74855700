// Call-style invitations between two users: send, cancel, accept, refuse. Made by `KvPimKit::getPimInvitationKit`;
// belongs to the client's main thread.
#pragma once

#include "Classes/Model/KvPimInvitation.h"
#include "Platform/KvExport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kv {

class KvInvitationStore;
class KvPimInvitationKit;
class KvMainQueue;
class KvPimKitImpl;
class SocketIOClient;
struct KvPimStateManager;

/// What an invitation kit tells the application. Every member but `invitationFailed` is optional. An invitation whose
/// member is missing stays in the store of live invitations, and one that arrived is given no time-out.
struct KvPimInvitationDelegate {
    using Callback = std::function<void(KvPimInvitationKit& kit, std::shared_ptr<KvPimInvitation> invitation)>;
    Callback invitationArrived;
    Callback invitationCanceled;
    /// Receives the invitation as the notice told it; all others receive the object that the application holds.
    Callback invitationAccept;
    Callback invitationRefused;
    /// `errorCode`: 0 when the server said so, 3 when nobody answered within 60 seconds. Give this one: a failure that
    /// finds it empty is only logged.
    std::function<void(KvPimInvitationKit& kit, std::shared_ptr<KvPimInvitation> invitation, std::int64_t errorCode)>
        invitationFailed;
};

/// Completions: 0; 1 no answer within 6 seconds; 2 `requestInfo` or `responseInfo` over 8,192 bytes; 3, 4 as the server
/// refused; 5 the local user is not the inviter (send, cancel) or invitee (accept, refuse); 102 not logged in.
class KV_EXPORT KvPimInvitationKit final : public std::enable_shared_from_this<KvPimInvitationKit> {
public:
    using Completion = std::function<void(std::int64_t errorCode)>;

    /// Not owned.
    void setDelegate(std::weak_ptr<KvPimInvitationDelegate> delegate) { delegate_ = std::move(delegate); }

    /// Once acknowledged the invitation is pending, for 60 seconds. Without an answer of the server it has failed.
    void sendInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);
    void cancelInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);
    void acceptInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);
    void refuseInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);

    /// Kept for the application.
    std::string calleeId;

private:
    friend class KvInvitationStore;
    friend class KvPimKitImpl;
    KvPimInvitationKit() = default;

    struct Operation;
    void run(Operation const& operation, std::shared_ptr<KvPimInvitation> invitation, Completion done);
    void parseInvitation(std::shared_ptr<KvPimInvitation> incoming);
    void fail(std::shared_ptr<KvPimInvitation> const& invitation, std::int64_t errorCode);

    std::weak_ptr<KvPimInvitationDelegate> delegate_;
    std::weak_ptr<KvPimStateManager const> stateManager_;
    std::shared_ptr<SocketIOClient> socket_;
    std::shared_ptr<KvMainQueue> mainQueue_;
};

}  // namespace kv
