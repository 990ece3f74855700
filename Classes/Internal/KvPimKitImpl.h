// The inside of a client. Its owner, `KvPimKit`, is what applications hold; when the application lets go of that,
// nothing in here calls a delegate any more. Everything belongs to the main thread. Handlers hold this object weakly.
#pragma once

#include "Classes/Internal/KvOwedCompletion.h"
#include "Classes/Internal/KvPimDebugInfo.h"
#include "Classes/Internal/KvPimRequest.h"
#include "Classes/Internal/KvPimStateHelper.h"
#include "Classes/KvPimKit.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvWorkQueue.h"
#include "SocketIO/SocketManager.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <boost/json/object.hpp>

namespace kv {

class KvPimKitImpl final : public std::enable_shared_from_this<KvPimKitImpl> {
public:
    using Completion = KvPimKit::Completion;
    using Strings = std::vector<std::string>;

    KvPimKitImpl(std::string appId, std::weak_ptr<KvPimDelegate> delegate, KvPimOptions given,
                 net::NetworkOptions network);
    ~KvPimKitImpl();
    /// The client, if the application still holds it. What is at work in it may keep the inside for longer.
    static std::shared_ptr<KvPimKitImpl> living(std::weak_ptr<KvPimKitImpl> const& client) {
        auto inside = client.lock();
        return inside && !inside->heldByApplication.expired() ? inside : nullptr;
    }

    // ---- Session (KvPimSession.cpp)
    void loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done);
    void loginWithConfig(boost::json::object const& config, Completion done);
    void logoutWithCompletion(Completion done);
    void renewToken(std::string const& token, std::int64_t timeStamp, KvPimKit::RenewTokenCompletion const& done);

    // ---- Disconnection, reconnection, restore (KvPimReconnection.cpp)
    void rebuildSocketManagerWithConfig(boost::json::object const& config);
    void reconnect();
    void networkChanged();
    /// An attempt to reconnect that waits for its time is made at once.
    void makeWaitingAttempt();
    void restoreStateAfterReconnection();

    // ---- Channels (KvPimKitChannels.cpp)
    std::shared_ptr<KvPimChannel> createChannelWithId(std::string const& channelId,
                                                      std::weak_ptr<KvPimChannelDelegate> channelDelegate);
    bool destroyChannelWithId(std::string const& channelId);
    std::shared_ptr<KvPimInvitationKit> getPimInvitationKit();
    boost::json::object getDebugInfo() const;

    /// How long an answer to the operation is waited for.
    std::chrono::milliseconds timeoutOf(KvOperation const& operation) const {
        auto const ofAll = net::optionsOf(options.network).requestTimeout;
        return ofAll.count() > 0 ? ofAll : operation.timeout;
    }
    /// Runs one operation: refuses it when not logged in or when its arguments are invalid, else sends what `payload`
    /// makes. `finish(code, result)` is called exactly once; `result` is null for what was refused here.
    template <class MakePayload, class Finish>
    void request(KvOperation const& operation, bool isValid, MakePayload const& payload, Finish finish,
                 std::string const& channelId = {});
    /// The same on a given socket, which may be null: channel objects keep the one that they were given.
    template <class MakePayload, class Finish>
    void requestOn(std::shared_ptr<SocketIOClient> const& on, KvOperation const& operation, bool isValid,
                   MakePayload const& payload, Finish finish, std::string const& channelId = {});

    /// Calls a member of the delegate, if the client, the delegate and that member are all there. Returns
    /// whether it did.
    template <auto Member, class... Arguments>
    bool tell(Arguments const&... arguments);

    std::shared_ptr<KvMainQueue> const mainQueue;
    std::shared_ptr<KvMainQueue> const engine;
    // What a client needs of its options for as long as it lives; there may be many clients.
    struct Options {
        net::NetworkOptions network;
        std::size_t maxQueuedBytes;
        bool checkThreads;
    };
    Options const options;
    // The outside, twice. The first expires the moment the application lets go, also in the middle of a callback: it
    // says whether anybody is to be told anything. The second is what a callback is given, and lives until it returns.
    std::weak_ptr<KvPimKit> heldByApplication;
    std::weak_ptr<KvPimKit> alive;

    std::int32_t connectIndex = 0;          // into the table of reconnection delays
    std::weak_ptr<KvSignal> attemptAtOnce;  // of the attempt that waits
    std::weak_ptr<KvPimDelegate> delegate;
    std::shared_ptr<KvPimInvitationKit> invitationKit;
    std::unique_ptr<SocketManager> manager;
    std::weak_ptr<SocketIOClient> socket;
    std::shared_ptr<KvPimStateManager> const stateManager;
    SocketPressure endedPressure;  // of the sockets before, since the login
    std::string brivelServer;
    Completion loginBlcok;  // of the login in progress
    std::int64_t disconnectReason = 0;
    std::int64_t loginError = 0;
    std::int64_t connectStart = 0;    // of the connection of the login in progress, a time stamp
    std::int64_t toldState = 0;       // what the delegate was last told
    std::uint64_t restoreNumber = 0;  // counts what ends a restoring: logouts, and the next restoring
    std::unordered_map<std::string, std::shared_ptr<KvPimChannel>> channelDict;
    std::string apiServer;
    KvPimDebugInfo debugInfo;
    KvPimStateHelper stateHelper;
    KvWorkQueue queue;

private:
    // ---- Server events, in the order in which they are subscribed (KvPimServerEvents.cpp)
    void registerCallback();
    void onDisconnect(SocketData const& data);
    void onDisconnectReason(SocketData const& data);
    void loginSuccess(SocketData const& data);
    void channelAttributesUpdated(SocketData const& data);
    void peersOnlineStatusChanged(SocketData const& data);
    void peersUserAttributesChanged(SocketData const& data);
    void messageToPeerReceived(SocketData const& data);
    void invitationNotify(SocketData const& data);
    void channelMemberCountNotify(SocketData const& data);
    void memberJoined(SocketData const& data);
    void memberLeft(SocketData const& data);
    void channelMessageReceived(SocketData const& data);

    static KvWork login(std::weak_ptr<KvPimKitImpl> client, boost::json::object config,
                        std::shared_ptr<KvOwedCompletion> owed);
    static KvWork reconnectAfterDelay(std::weak_ptr<KvPimKitImpl> client, std::shared_ptr<KvSignal> noDelay);
    /// A login in progress ends here: its completion is called at a later turn.
    void abandonLogin();
    void cleanResourcesAfterLogout();
    /// What becomes of a session that this side has ended.
    void endSession();
    void makeSocketManager(boost::json::object const& config);
    void handOutSocket();
    /// Tells the delegate of a state, without an event report: (4, 5) and (1, 4) have none. Returns whether it listens.
    bool tellState(std::int64_t state, std::int64_t reason);
    /// The same, and reports it when the delegate listens.
    void tellAndReportState(std::int64_t state, std::int64_t reason);
    std::shared_ptr<KvPimChannel> findChannel(std::optional<std::string> const& channelId) const;

    /// A step of the restoring, repeated until the server takes it or has nothing to be told any more.
    struct Attempt {
        std::uint64_t number;  // of the restoring
        std::size_t refusals;  // before it, in a row
        KvMainQueue::Clock::time_point began;
    };
    Attempt firstAttempt() const;
    using Channels = std::vector<std::shared_ptr<KvPimChannel>>;
    void restoreJoinedChannels(Channels channels, Attempt const& attempt);
    void restoreLocalUserAttributes();
    void restoreSubscribedOnlineStatusOfPeers();
    void restoreSubscribedAttributesOfPeers();
    /// Calls an operation with what `read` finds in the state helper, as often as it takes.
    template <auto Operation, class Read>
    void restore(Read read, KvUnansweredChanges KvPimStateHelper::*changes, Attempt const& attempt);
    /// Calls `again(client, attempt)` in time, once no such change of the application's is on its way, if that
    /// restoring still goes on.
    template <class Again>
    void retry(Attempt const& refused, KvUnansweredChanges KvPimStateHelper::*changes, Again again);
};

template <class MakePayload, class Finish>
void KvPimKitImpl::request(KvOperation const& operation, bool isValid, MakePayload const& payload, Finish finish,
                           std::string const& channelId) {
    requestOn(socket.lock(), operation, isValid, payload, std::move(finish), channelId);
}

template <class MakePayload, class Finish>
void KvPimKitImpl::requestOn(std::shared_ptr<SocketIOClient> const& on, KvOperation const& operation, bool isValid,
                             MakePayload const& payload, Finish finish, std::string const& channelId) {
    // Keeps nothing of this client: it may be gone when the answer comes, or when a completion returns.
    auto conclude = [&operation, channelId, weak = weak_from_this(), finish = std::move(finish)](
                        std::int64_t code, KvPimResult const* result) {
        auto const& report = operation.report;
        bool const first = report.order == KvReport::Order::beforeCompletion;
        bool const isAnswer = result != nullptr;
        bool const isReported = code != 0 && !(isAnswer && report.needsClient && !living(weak));
        bool const differs = report.codeOfInvalidArgument != 0 && !isAnswer && code == operation.invalidArgument;
        auto const reported = differs ? report.codeOfInvalidArgument : code;
        if (isReported && first) report.failure(reported, isAnswer, channelId);
        finish(code, result);
        if (isReported && !first) report.failure(reported, isAnswer, channelId);
    };
    if (!stateManager->login) return conclude(KvPimErrorNotLogin, nullptr);
    if (!isValid) return conclude(operation.invalidArgument, nullptr);
    SocketItems items = payload();
    logRequest(operation, items);
    emitCommand(*mainQueue, on, operation.command, std::move(items), timeoutOf(operation),
                [&operation, conclude = std::move(conclude)](KvPimResult const& result) {
                    conclude(operation.codes.of(result), &result);
                });
}

template <auto Member, class... Arguments>
bool KvPimKitImpl::tell(Arguments const&... arguments) {
    auto const client = alive.lock();
    auto const listener = delegate.lock();
    if (heldByApplication.expired() || !client || !listener || !((*listener).*Member)) return false;
    ((*listener).*Member)(*client, arguments...);
    return true;
}

/// The end of a request that changes what is kept for the session: records the change once the server has accepted it.
template <class Record>
auto recording(std::shared_ptr<KvPimKitImpl> const& client, KvUnansweredChanges KvPimStateHelper::*changes,
               KvPimKit::Completion done, Record record) {
    return [weak = std::weak_ptr(client), change = (client->stateHelper.*changes).begin(), done = std::move(done),
            record = std::move(record)](std::int64_t code, KvPimResult const*) {
        auto const self = weak.lock();
        if (code == 0 && self) record(self->stateHelper);
        complete(done, code);
    };
}

}  // namespace kv
