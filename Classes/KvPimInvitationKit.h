// Call-style invitations between two users: send, cancel, accept, refuse. Made by `KvPimKit::getPimInvitationKit`;
// belongs to the client's main thread.
#pragma once

#include "Classes/Model/KvPimErrorCodes.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Platform/KvExport.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kv {

class KvInvitationStore;
class KvPimInvitationKit;
class KvMainQueue;
class KvPimCounters;
class KvPimFailures;
class SocketIOClient;
struct KvPimInvitationEvent;
struct KvStreamOptions;
template <class T>
class KvPending;
template <class Event>
class KvEventHub;
template <class Event>
class KvStream;
struct KvPimStateManager;

/// What an invitation kit tells the application. Every member but `invitationFailed` is optional. An invitation whose
/// member is missing stays in the store of live invitations, and one that arrived is given no time-out.
struct KvPimInvitationDelegate {
    using Callback = std::function<void(KvPimInvitationKit& kit, std::shared_ptr<KvPimInvitation> invitation)>;
    /// Another user invites this one, who has 60 seconds to accept or refuse.
    Callback invitationArrived;
    /// The inviter took the invitation back.
    Callback invitationCanceled;
    /// The invitee accepted. Receives the invitation as the notice told it; all others receive the object that the
    /// application holds.
    Callback invitationAccept;
    /// The invitee refused.
    Callback invitationRefused;
    /// `errorCode`: a KvPimInvitationFailedErrorCode. Set this one: a failure that finds it empty is only logged.
    std::function<void(KvPimInvitationKit& kit, std::shared_ptr<KvPimInvitation> invitation, std::int64_t errorCode)>
        invitationFailed;
};

/// The invitations of a client. All calls come from the thread of its main queue.
class KV_EXPORT KvPimInvitationKit final : public std::enable_shared_from_this<KvPimInvitationKit> {
public:
    using Completion = std::function<void(std::int64_t errorCode)>;

    ~KvPimInvitationKit();
    KvPimInvitationKit(KvPimInvitationKit const&) = delete;
    KvPimInvitationKit& operator=(KvPimInvitationKit const&) = delete;

    /// Who is told of invitations; null when there is nobody (any more).
    std::shared_ptr<KvPimInvitationDelegate> delegate() const noexcept;
    /// Has another one told from now on. It is not owned; one that is gone already is told to the log.
    void setDelegate(std::weak_ptr<KvPimInvitationDelegate> delegate);
    /// A delegate that nobody keeps would never hear anything.
    template <class Delegate>
    void setDelegate(std::shared_ptr<Delegate>&& delegate) = delete;

    /// Sends an invitation of the local user. Once acknowledged it is pending, for 60 seconds; without an answer of the
    /// server it has failed. @param done a KvPimInvitationErrorCode.
    void sendInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);
    /// Takes back an invitation of the local user; its `state` stays. @param done a KvPimInvitationErrorCode.
    void cancelInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);
    /// Accepts an invitation to the local user; its `state` stays. @param done a KvPimInvitationErrorCode.
    void acceptInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);
    /// Refuses an invitation to the local user; its `state` stays. @param done a KvPimInvitationErrorCode.
    void refuseInvitation(std::shared_ptr<KvPimInvitation> invitation, Completion done);

    /// @name To be awaited
    /// The operations above, each without its completion (<KvPim/KvPimAwait.h>).
    /// @{
    /// Awaited: `sendInvitation`.
    KvPending<void> sendInvitation(std::shared_ptr<KvPimInvitation> invitation);
    /// Awaited: `cancelInvitation`.
    KvPending<void> cancelInvitation(std::shared_ptr<KvPimInvitation> invitation);
    /// Awaited: `acceptInvitation`.
    KvPending<void> acceptInvitation(std::shared_ptr<KvPimInvitation> invitation);
    /// Awaited: `refuseInvitation`.
    KvPending<void> refuseInvitation(std::shared_ptr<KvPimInvitation> invitation);
    /// @}

    /// What the delegate hears, as a stream, beside the delegate. While a stream is open, its listener counts as one
    /// that has all the members: invitations get their time-outs.
    KvStream<KvPimInvitationEvent> events();
    /// The same, keeping as much as the options say.
    KvStream<KvPimInvitationEvent> events(KvStreamOptions options);

    /// The queue on which the kit lives, its client's.
    std::shared_ptr<KvMainQueue> const& mainQueue() const;

    /// Kept for the application; the kit does not look at it.
    std::string calleeId;

private:
    friend class KvInvitationStore;
    friend class KvPimRouter;
    KvPimInvitationKit() = default;

    struct Operation;
    void run(Operation const& operation, std::shared_ptr<KvPimInvitation> invitation, Completion done,
             char const* call = __builtin_FUNCTION());
    void parseInvitation(std::shared_ptr<KvPimInvitation> const& incoming);
    void fail(std::shared_ptr<KvPimInvitation> const& invitation, std::int64_t errorCode);
    template <auto Member, class... Arguments>
    bool tell(Arguments const&... arguments);

    std::weak_ptr<KvPimInvitationDelegate> delegate_;
    std::weak_ptr<KvPimFailures> failures_;
    std::shared_ptr<KvPimCounters> counters_;
    std::shared_ptr<KvEventHub<KvPimInvitationEvent>> events_;  // null before the first stream
    std::weak_ptr<KvPimStateManager const> stateManager_;
    std::shared_ptr<SocketIOClient> socket_;
    std::shared_ptr<KvMainQueue> mainQueue_;
    bool checksThreads_ = false;
    std::chrono::milliseconds requestTimeout_{};  // of the options; zero for the kit's own
};

}  // namespace kv
