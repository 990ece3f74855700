// The client of the messaging service: one object that logs in, sends and receives, and keeps its session alive.
//
// Threads: a client belongs to the thread that drives its main queue (`KvPimOptions::mainQueue`). All calls come from
// there, and all completions and delegate calls arrive there. An argument that is refused on the spot, or a client that
// is not logged in, has its completion called inside the call; every other completion comes later.
//
// Lifetime: a client, channel or invitation kit may be destroyed anywhere on its main thread, in its own callbacks
// included. Destruction never waits for the network. Afterwards no delegate is called; a completion that was accepted
// is still called, exactly as often as its operation says. An empty completion or delegate member is simply not called.
//
// Codes: a completion receives 0 for success, 102 when the client is not logged in, and otherwise a code of its own
// operation: the enumeration that the operation names (`Model/KvPimErrorCodes.h`). The same number means different
// things in different operations.
#pragma once

#include "Classes/KvPimVersion.h"
#include "Classes/Model/KvChannelMemberCount.h"
#include "Classes/Model/KvPimAttribute.h"
#include "Classes/Model/KvPimCodes.h"
#include "Classes/Model/KvPimErrorCodes.h"
#include "Classes/Model/KvPimMessage.h"
#include "Classes/Model/KvPimOptions.h"
#include "Classes/Model/KvPimPeerOnlineStatus.h"
#include "Classes/Model/KvPimUserAttributes.h"
#include "Platform/KvConsoleStream.h"
#include "Platform/KvExport.h"

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace boost::json {
class object;
}

/// All that the library has.
namespace kv {

class KvPimChannel;
class KvPimInvitationKit;
class KvPimKit;
class KvPimKitImpl;
struct KvFailure;
struct KvPimMetrics;
struct KvPimRestored;
struct KvPimChannelDelegate;
struct KvPimEvent;
struct KvStreamOptions;
template <class T>
class KvList;
template <class T>
class KvPending;
template <class T>
class KvResult;
template <class Event>
class KvStream;
namespace event {
struct MessageReceived;
}

/// The version of the interface. For `#if` there are the macros of <KvPim/KvPimVersion.h>.
inline constexpr double KvPimVersionNumber = 1.0;
/// The version of the library, such as "1.0.0".
KV_EXPORT extern char const KvPimVersionString[];

/// What a client tells the application, on its main queue. Every member is optional: leave empty what is not needed.
struct KvPimDelegate {
    /// `state`: a KvPimConnectionState; `reason`: a KvPimConnectionChangeReason. Without this member the client
    /// also writes no event reports of connection states.
    std::function<void(KvPimKit& kit, std::int64_t state, std::int64_t reason)> connectionStateChanged;
    /// The connection, or an attempt to restore it, ended with the reason "loginFail: ExpiredToken". The client goes on
    /// reconnecting: `renewToken` in here gives the next attempt a new token.
    std::function<void(KvPimKit& kit)> tokenDidExpire;
    /// A message from another user; `type()` tells text from raw. Messages that the server kept arrive after the login.
    std::function<void(KvPimKit& kit, std::shared_ptr<KvPimMessage> message, std::string const& peerId)>
        messageReceived;
    /// Peers whose online status changed since it was last told.
    std::function<void(KvPimKit& kit, std::vector<KvPimPeerOnlineStatus> const& statuses)> peersOnlineStatusChanged;
    /// Peers whose attributes changed, with the changed attributes only.
    std::function<void(KvPimKit& kit, std::vector<KvPimUserAttributes> const& users)> peersUserAttributesChanged;
    /// There is room again for what is to be sent: `bytesQueued` has come down to half of
    /// `KvPimOptions::maxQueuedBytes` or less, after it had been more or a request had been dropped because there was
    /// no room for it. Once each time. If the connection was lost before, the call comes behind the (3, 2) of the next
    /// one; after a logout, not at all.
    std::function<void(KvPimKit& kit)> onWritable{};
    /// Something failed, and why (`Model/KvFailure.h`): behind each completion that received a code other than 0, when
    /// a connection is lost ("connection"), and when an attempt to come back fails ("reconnect").
    std::function<void(KvPimKit& kit, KvFailure const& failure)> failureOccurred{};
    /// What a reconnection has brought back, item by item (`Model/KvPimRestored.h`; none, where there was nothing):
    /// called when each item has had an answer or its time-out, and once more, if some failed then, when all of it is
    /// back. Not called any more once the connection is lost again, or after a logout.
    std::function<void(KvPimKit& kit, KvPimRestored const& restored)> connectionRestored{};
};

/// What a client knows of its session.
struct KvPimStateManager {
    /// A login succeeded and no logout happened since. A lost connection does not change it.
    bool login = false;
    /// As the client was made with.
    std::string appId;
    /// Of the last login that was accepted for trying; empty after a logout.
    std::string userId;
    /// A KvPimConnectionState, or 0 before the first login.
    std::int64_t state = 0;
};

/// The client of the service. All calls come from the thread that drives its main queue; completions and delegate calls
/// arrive there. It may be destroyed anywhere on that thread, in its own callbacks included.
class KV_EXPORT KvPimKit final {
public:
    // A list is absent when the operation failed.

    using Completion = std::function<void(std::int64_t errorCode)>;
    /// `token`: the one that was given.
    using RenewTokenCompletion = std::function<void(std::string const& token, std::int64_t errorCode)>;
    using AttributesCompletion =
        std::function<void(std::optional<std::vector<KvPimAttribute>> const& attributes, std::int64_t errorCode)>;
    using UserAttributesCompletion = std::function<void(std::optional<std::vector<KvPimAttribute>> const& attributes,
                                                        std::string const& userId, std::int64_t errorCode)>;
    using PeersAttributesCompletion =
        std::function<void(std::optional<std::vector<KvPimUserAttributes>> const& users, std::int64_t errorCode)>;
    using OnlineStatusCompletion =
        std::function<void(std::optional<std::vector<KvPimPeerOnlineStatus>> const& statuses, std::int64_t errorCode)>;
    using PeersCompletion =
        std::function<void(std::optional<std::vector<std::string>> const& peerIds, std::int64_t errorCode)>;
    using CountsCompletion =
        std::function<void(std::optional<std::vector<KvChannelMemberCount>> const& counts, std::int64_t errorCode)>;

    /// Makes a client; nothing connects yet.
    /// @param appId     the application's id; it is the server that judges it, at login.
    /// @param delegate  not owned: keep it for as long as it is to hear something.
    /// @param options   where things are, which queue, which engine.
    /// @return null when the API server of the options is not a valid address (see `KvPimEnvConfig::apiServer`), when
    ///     the network options cannot be, and when the system has no thread or descriptor left for the client's queues.
    [[nodiscard]] static std::shared_ptr<KvPimKit> initWithAppId(std::string appId,
                                                                 std::weak_ptr<KvPimDelegate> delegate,
                                                                 KvPimOptions options = {});
    /// The same, which says why there is no client (<KvPim/KvPimAwait.h>): the error's `message()`, and its
    /// `failure()`.
    [[nodiscard]] static KvResult<std::shared_ptr<KvPimKit>> create(std::string appId, KvPimOptions options = {},
                                                                    std::weak_ptr<KvPimDelegate> delegate = {});
    template <class Delegate>
    static KvResult<std::shared_ptr<KvPimKit>> create(std::string appId, KvPimOptions options,
                                                      std::shared_ptr<Delegate>&& delegate) = delete;
    /// A delegate that nobody keeps would never hear anything.
    template <class Delegate>
    static std::shared_ptr<KvPimKit> initWithAppId(std::string appId, std::shared_ptr<Delegate>&& delegate,
                                                   KvPimOptions options = {}) = delete;
    /// Ends the session without waiting for anything. Completions that are still owed are called later.
    ~KvPimKit();
    KvPimKit(KvPimKit const&) = delete;
    KvPimKit& operator=(KvPimKit const&) = delete;

    // ---- Session

    /// Logs in: finds the socket server, connects, waits for the server's word.
    /// @param token      32 characters without white space, as the application's own server issued it.
    /// @param timeStamp  the time stamp that belongs to the token, in milliseconds since 1970; handed to the server as
    ///     it is. The event report of the login counts its duration from it.
    /// @param userId     1 to 64 ASCII letters, digits, white space and ``!#$%&()+-:;<=.>?@[\]^_{}|~,``
    /// @param done  a KvPimLoginErrorCode. A 9 for a connection that is not there in time
    ///     (`KvPimNetworkOptions::connectTimeout`, 6 seconds; the delegate hears (1, 4)) is not the end: the attempt
    ///     goes on, and `done` is called once more with its outcome. A 9 when no server was found is the end, and no
    ///     state tells of it: (2, 1) stays the last one. What tells the two apart is `stateManager().state` once `done`
    ///     has returned: KvPimConnectionStateConnecting while an attempt goes on. Another login is possible from then
    ///     on, and not in `done` itself (8). A 1 also when the client is destroyed meanwhile.
    void loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done);
    /// The same with a time stamp of the C++ library: a `std::chrono::sys_time`, to the millisecond.
    /// @param done  a KvPimLoginErrorCode.
    void loginByToken(std::string token, std::chrono::system_clock::time_point timeStamp, std::string userId,
                      Completion done);
    /// The second half of a login, for a configuration made before; not meant for applications. A login that still
    /// waits for its outcome fails.
    /// @param config  as `generateSocketConfig` makes it.
    /// @param done    as for `loginByToken`: a KvPimLoginErrorCode, never 8.
    void loginWithConfig(boost::json::object const& config, Completion done);
    /// Logs out: closes the connection, if there still is one, forgets channels, attributes, subscriptions and
    /// invitations, and tells the delegate (1, 6), unless a state 1 is what it was told last. Nothing is sent. An
    /// attempt to reconnect that has begun goes first.
    /// @param done  a KvPimLogoutErrorCode.
    void logoutWithCompletion(Completion done);
    /// Replaces the token for the connections to come. A connection, or an attempt to make one, is closed: the delegate
    /// hears (1, 6), and nothing connects until a logout and the next login. While the client waits to reconnect, as in
    /// `tokenDidExpire`, there is nothing to close, and the next attempt has the new token.
    /// @param token      32 characters without white space.
    /// @param timeStamp  the time stamp that belongs to the token, in milliseconds since 1970.
    /// @param done       a KvPimRenewTokenErrorCode, inside the call.
    void renewToken(std::string token, std::int64_t timeStamp, RenewTokenCompletion done);
    /// The same with a time stamp of the C++ library. @param done a KvPimRenewTokenErrorCode, inside the call.
    void renewToken(std::string token, std::chrono::system_clock::time_point timeStamp, RenewTokenCompletion done);
    /// Says that the system's network has changed or come back, or that the machine woke up, for applications whose
    /// system tells them; the library can also watch by itself (`KvPimNetworkOptions::watchesNetwork`). An attempt to
    /// reconnect that waits for its time is made at once, one that is being made begins anew when it is older than a
    /// second. A connection is asked for a sign of life: when nothing has come from the server 5 seconds after the last
    /// call, it is lost like any other, instead of with a heartbeat that fails. Calls in a row count as one. Without a
    /// session it does nothing.
    void networkChanged();

    // ---- Channels

    /// The channel object of an id, made if there is none. Nothing is sent.
    /// @param channelId  like a user id: see `loginByToken`.
    /// @param delegate   not owned; it replaces the delegate that the channel had.
    /// @return null when the id is invalid.
    std::shared_ptr<KvPimChannel> createChannelWithId(std::string const& channelId,
                                                      std::weak_ptr<KvPimChannelDelegate> delegate);
    /// The same without a delegate: for who listens to `KvPimChannel::events`, or to nothing.
    std::shared_ptr<KvPimChannel> createChannelWithId(std::string const& channelId, std::nullptr_t = nullptr);
    /// A delegate that nobody keeps would never hear anything.
    template <class Delegate>
    std::shared_ptr<KvPimChannel> createChannelWithId(std::string const& channelId,
                                                      std::shared_ptr<Delegate>&& delegate) = delete;
    /// Forgets the channel object of an id, without leaving the channel: its events reach nobody any more.
    /// @return false when there is none.
    bool destroyChannelWithId(std::string const& channelId);

    // ---- Channel attributes: the channel need be neither created nor joined.

    /// Replaces all attributes of a channel. Of two attributes with one key the later counts.
    /// @param attributes  at least one. How many and how long they may be is the server's to say.
    /// @param options     whether the members are told.
    /// @param done        a KvPimChannelAttributesErrorCode.
    void setChannelAttributes(std::string const& channelId, std::vector<KvPimAttribute> const& attributes,
                              KvPimChannelAttributeOptions options, Completion done);
    /// Adds attributes to a channel, or changes those that are there. @param done a KvPimChannelAttributesErrorCode.
    void addOrUpdateChannelAttributes(std::string const& channelId, std::vector<KvPimAttribute> const& attributes,
                                      KvPimChannelAttributeOptions options, Completion done);
    /// Removes attributes of a channel. @param keys at least one. @param done a KvPimChannelAttributesErrorCode.
    void deleteChannelAttributesByKeys(std::string const& channelId, std::vector<std::string> const& keys,
                                       KvPimChannelAttributeOptions options, Completion done);
    /// Removes all attributes of a channel. @param done a KvPimChannelAttributesErrorCode.
    void clearChannelAttributes(std::string const& channelId, KvPimChannelAttributeOptions options, Completion done);
    /// Reads all attributes of a channel. @param done a KvPimChannelAttributesErrorCode, never 4.
    void getChannelAttributes(std::string const& channelId, AttributesCompletion done);
    /// Reads some. @param keys at least one. @param done a KvPimChannelAttributesErrorCode, never 4.
    void getChannelAttributesByKeys(std::string const& channelId, std::vector<std::string> const& keys,
                                    AttributesCompletion done);

    /// How many members each of some channels has; they need be neither created nor joined.
    /// @param channelIds  1 to 32.
    /// @param done        a KvPimMemberCountErrorCode. A channel that the server leaves out is absent from the list.
    void getChannelMemberCount(std::vector<std::string> const& channelIds, CountsCompletion done);

    // ---- The user's own attributes. What the server accepted is written again after a reconnection.

    /// Replaces all attributes of the user. Of two attributes with one key the later counts.
    /// @param attributes  at least one. How many and how long they may be is the server's to say.
    /// @param done        a KvPimLocalUserAttributesErrorCode.
    void setLocalUserAttributes(std::vector<KvPimAttribute> const& attributes, Completion done);
    /// Adds attributes, or changes those that are there. @param done a KvPimLocalUserAttributesErrorCode.
    void addOrUpdateLocalUserAttributes(std::vector<KvPimAttribute> const& attributes, Completion done);
    /// Removes attributes. @param keys at least one. @param done a KvPimLocalUserAttributesErrorCode, never 4.
    void deleteLocalUserAttributesByKeys(std::vector<std::string> const& keys, Completion done);
    /// Removes all attributes; the server has 10 seconds.
    /// @param done  a KvPimLocalUserAttributesErrorCode, never 3 or 4.
    void clearLocalUserAttributesWithCompletion(Completion done);

    // ---- Attributes of one user, read once.

    /// Reads all attributes of a user, oneself or another. @param done a KvPimUserAttributesErrorCode.
    void getUserAttributes(std::string const& userId, UserAttributesCompletion done);
    /// Reads some. @param keys at least one. @param done a KvPimUserAttributesErrorCode.
    void getUserAttributesByKeys(std::string const& userId, std::vector<std::string> const& keys,
                                 UserAttributesCompletion done);

    // ---- Attributes of several peers. Subscriptions are made again after a reconnection.

    /// Asks to be told when attributes of these users change: `peersUserAttributesChanged` of the delegate.
    /// @param peerIds  at least one; how many there may be is the server's to say.
    /// @param done     a KvPimPeersErrorCode.
    void subscribePeersUserAttribes(std::vector<std::string> const& peerIds, Completion done);
    /// Ends such subscriptions. @param done a KvPimPeersErrorCode, never 6.
    void unsubscribePeersUserAttribes(std::vector<std::string> const& peerIds, Completion done);
    /// Reads all attributes of several users, without subscribing.
    /// @param done  a KvPimPeersErrorCode, never 6. A user whose attributes could not be had is in the list without
    ///     them. Not called when the client is destroyed before the answer comes.
    void getPeersUserAttributes(std::vector<std::string> const& peerIds, PeersAttributesCompletion done);
    /// Reads some. @param keys at least one.
    /// @param done  as for `getPeersUserAttributes`: a KvPimPeersErrorCode, never 6.
    void getPeersUserAttributesByKeys(std::vector<std::string> const& peerIds, std::vector<std::string> const& keys,
                                      PeersAttributesCompletion done);

    // ---- Online status of peers. Subscriptions are made again after a reconnection.

    /// Asks to be told when these users come and go: `peersOnlineStatusChanged` of the delegate.
    /// @param peerIds  at least one; how many there may be is the server's to say.
    /// @param done     a KvPimPeersErrorCode.
    void subscribePeersOnlineStatus(std::vector<std::string> const& peerIds, Completion done);
    /// Ends such subscriptions. @param done a KvPimPeersErrorCode, never 6.
    void unsubscribePeersOnlineStatus(std::vector<std::string> const& peerIds, Completion done);
    /// Asks who is online now, without subscribing. @param done a KvPimPeersErrorCode, never 6.
    void queryPeersOnlineStatus(std::vector<std::string> const& peerIds, OnlineStatusCompletion done);
    /// The peers that this user subscribed to.
    /// @param option  a kind of subscription, as the server numbers them.
    /// @param done    a KvPimPeersErrorCode, never 2 or 6.
    void queryPeersBySubscriptionOption(std::int64_t option, PeersCompletion done);

    // ---- Peer messages

    /// Sends a text to a user who is there. @param done as below: a KvPimPeerMessageErrorCode.
    template <std::invocable<std::int64_t> Done>
    void sendMessageToPeer(std::string text, std::string const& peerId, Done done) {
        sendMessageToPeer(std::make_shared<KvPimMessage const>(std::move(text)), peerId, std::move(done));
    }
    /// Sends a message to a user who is there. @param done as below: a KvPimPeerMessageErrorCode.
    template <std::invocable<std::int64_t> Done>
    void sendMessageToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId, Done done) {
        sendMessageToPeer(std::move(message), peerId, std::nullopt, std::move(done));
    }
    /// Sends a message to a user.
    /// @param message  text, data, or both, each of at most 32,768 bytes.
    /// @param peerId   not checked here.
    /// @param options  whether the server keeps the message for a receiver who is offline; it does not by default.
    /// @param done     a KvPimPeerMessageErrorCode. A message that is too long is reported with 7 inside the call
    ///     (once for its text, once for its data), is sent all the same, and `done` is called again for the answer.
    void sendMessageToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId,
                           std::optional<KvPimSendMessageOptions> options, Completion done);

    /// @name To be awaited
    /// The operations above, each without its completion (<KvPim/KvPimAwait.h>). The arguments, and the codes of a
    /// failure, are those of the form with a completion. Each ends once:
    /// - `loginByToken` with the outcome of the attempt: a 9 behind which it goes on is passed over.
    ///   So it can take 36 seconds. Bound it with `within`, and log in anew once the state is no
    ///   longer Connecting.
    /// - `sendMessageToPeer`, of a message that is too long, with that: the server's answer is not waited for.
    /// - what answers nothing more because the client is destroyed, with `KvWaitError::abandoned`.
    /// @{
    /// Awaited: `loginByToken`.
    KvPending<void> loginByToken(std::string token, std::int64_t timeStamp, std::string userId);
    /// Awaited: `loginByToken`.
    KvPending<void> loginByToken(std::string token, std::chrono::system_clock::time_point timeStamp,
                                 std::string userId);
    /// Awaited: `loginWithConfig`.
    KvPending<void> loginWithConfig(boost::json::object const& config);
    /// Awaited: `logoutWithCompletion`.
    KvPending<void> logout();
    /// Awaited: `renewToken`.
    KvPending<void> renewToken(std::string token, std::int64_t timeStamp);
    /// Awaited: `renewToken`.
    KvPending<void> renewToken(std::string token, std::chrono::system_clock::time_point timeStamp);
    /// Awaited: `setChannelAttributes`.
    KvPending<void> setChannelAttributes(std::string const& channelId, KvList<KvPimAttribute> const& attributes,
                                         KvPimChannelAttributeOptions options = {});
    /// Awaited: `addOrUpdateChannelAttributes`.
    KvPending<void> addOrUpdateChannelAttributes(std::string const& channelId, KvList<KvPimAttribute> const& attributes,
                                                 KvPimChannelAttributeOptions options = {});
    /// Awaited: `deleteChannelAttributesByKeys`.
    KvPending<void> deleteChannelAttributesByKeys(std::string const& channelId, KvList<std::string> const& keys,
                                                  KvPimChannelAttributeOptions options = {});
    /// Awaited: `clearChannelAttributes`.
    KvPending<void> clearChannelAttributes(std::string const& channelId, KvPimChannelAttributeOptions options = {});
    /// Awaited: `getChannelAttributes`.
    KvPending<std::vector<KvPimAttribute>> getChannelAttributes(std::string const& channelId);
    /// Awaited: `getChannelAttributesByKeys`.
    KvPending<std::vector<KvPimAttribute>> getChannelAttributesByKeys(std::string const& channelId,
                                                                      KvList<std::string> const& keys);
    /// Awaited: `getChannelMemberCount`.
    KvPending<std::vector<KvChannelMemberCount>> getChannelMemberCount(KvList<std::string> const& channelIds);
    /// Awaited: `setLocalUserAttributes`.
    KvPending<void> setLocalUserAttributes(KvList<KvPimAttribute> const& attributes);
    /// Awaited: `addOrUpdateLocalUserAttributes`.
    KvPending<void> addOrUpdateLocalUserAttributes(KvList<KvPimAttribute> const& attributes);
    /// Awaited: `deleteLocalUserAttributesByKeys`.
    KvPending<void> deleteLocalUserAttributesByKeys(KvList<std::string> const& keys);
    /// Awaited: `clearLocalUserAttributesWithCompletion`.
    KvPending<void> clearLocalUserAttributes();
    /// Awaited: `getUserAttributes`.
    KvPending<std::vector<KvPimAttribute>> getUserAttributes(std::string const& userId);
    /// Awaited: `getUserAttributesByKeys`.
    KvPending<std::vector<KvPimAttribute>> getUserAttributesByKeys(std::string const& userId,
                                                                   KvList<std::string> const& keys);
    /// Awaited: `subscribePeersUserAttribes`.
    KvPending<void> subscribePeersUserAttribes(KvList<std::string> const& peerIds);
    /// Awaited: `unsubscribePeersUserAttribes`.
    KvPending<void> unsubscribePeersUserAttribes(KvList<std::string> const& peerIds);
    /// Awaited: `getPeersUserAttributes`.
    KvPending<std::vector<KvPimUserAttributes>> getPeersUserAttributes(KvList<std::string> const& peerIds);
    /// Awaited: `getPeersUserAttributesByKeys`.
    KvPending<std::vector<KvPimUserAttributes>> getPeersUserAttributesByKeys(KvList<std::string> const& peerIds,
                                                                             KvList<std::string> const& keys);
    /// Awaited: `subscribePeersOnlineStatus`.
    KvPending<void> subscribePeersOnlineStatus(KvList<std::string> const& peerIds);
    /// Awaited: `unsubscribePeersOnlineStatus`.
    KvPending<void> unsubscribePeersOnlineStatus(KvList<std::string> const& peerIds);
    /// Awaited: `queryPeersOnlineStatus`.
    KvPending<std::vector<KvPimPeerOnlineStatus>> queryPeersOnlineStatus(KvList<std::string> const& peerIds);
    /// Awaited: `queryPeersBySubscriptionOption`.
    KvPending<std::vector<std::string>> queryPeersBySubscriptionOption(std::int64_t option);
    /// Awaited: `sendMessageToPeer`.
    KvPending<void> sendMessageToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId,
                                      std::optional<KvPimSendMessageOptions> options = std::nullopt);
    /// Awaited: `sendMessageToPeer`.
    KvPending<void> sendMessageToPeer(std::string text, std::string const& peerId,
                                      std::optional<KvPimSendMessageOptions> options = std::nullopt);
    /// @}

    // ---- What happens

    /// What the delegate hears, as a stream, beside the delegate (`Model/KvPimEvents.h`).
    /// A stream hears what is told from now on, and is over when the client ends.
    KvStream<KvPimEvent> events();
    /// The same, keeping as much as the options say.
    KvStream<KvPimEvent> events(KvStreamOptions options);
    /// The messages of others alone.
    KvStream<event::MessageReceived> messages();
    /// The same, keeping as much as the options say.
    KvStream<event::MessageReceived> messages(KvStreamOptions options);

    // ---- Under pressure, and seen from inside

    /// How many bytes of requests, texts and attachments without framing, wait to be sent on the present connection; 0
    /// while there is none. A request counts until all of it has been framed; what the system has taken, or is to take
    /// next (some 256 KiB at most), does not count any more. More than `KvPimOptions::maxQueuedBytes` never waits: a
    /// request beyond it is not sent, and ends like one without an answer. `KvPimDelegate::onWritable` tells of room.
    std::size_t bytesQueued() const;

    /// Nothing more is read from the server, on this connection and the following ones, until `resumeReading`: for
    /// those who hand what arrives to a queue of their own, which is full. What was read already is still told; answers
    /// to requests, and their time-outs, are not held back in any other way. A connection that is lost meanwhile is not
    /// found out.
    void pauseReading();
    /// Reads again.
    void resumeReading();

    /// What the client has done so far, and what waits at this moment: copied counters, as cheap as it is small.
    /// <KvPim/Model/KvPimMetrics.h> is needed to use it.
    KvPimMetrics metrics() const;

    // ---- Invitations, diagnostics, the rest

    /// The client's invitation kit, the same object at each call. Notices of invitations are dropped before the first.
    std::shared_ptr<KvPimInvitationKit> getPimInvitationKit();
    /// What helps to look into a connection problem: servers, connection id, the arguments of the last login (the token
    /// in clear: for the application's own eyes), the library's version; while logged in, what waits in both directions
    /// ("pressure": see `SocketPressure`), all connections since the login together.
    /// <boost/json/object.hpp> is needed to use it.
    boost::json::object getDebugInfo() const;
    /// The same as the text of a JSON object.
    std::string getDebugInfoText() const;
    /// "sdkVersion/NAME-VERSION-BUILD", the same string at every call. Any thread.
    static std::string const& getSDKVersion();
    /// Has no effect in this version; returns 0.
    std::int32_t setParameters(std::string const& parameters);
    /// The file of the local log, which must exist: a line for a file that does not is lost. Process-wide. Any thread.
    static void setLogFile(std::string const& path);
    /// What is logged: above 0 information, from 2 warnings too, from 4 errors too, from 8 everything; 0 and less
    /// nothing (the default). Process-wide. Any thread.
    static void setLogFilters(std::int64_t filters);
    /// Who gets the lines that the filter lets through, instead of standard error and the file; empty for these two
    /// again. `level`: 1 information, 2 a warning, 4 an error, 8 critical; `line` may hold line breaks. The handler is
    /// called by the thread that logs, several at a time among them: it must neither wait, nor throw, nor call the
    /// library. Process-wide. Any thread.
    static void setLogHandler(std::function<void(std::int64_t level, std::string_view line)> handler);
    /// Who gets the lines that the library prints, given without their end, instead of standard output and standard
    /// error; empty for nobody. Called like the handler of `setLogHandler`. Process-wide. Any thread; before the first
    /// client, so that nothing is printed before.
    static void setConsole(std::function<void(KvConsoleStream stream, std::string_view line)> console);
    /// What the library does with a line where there was no `setConsole`: it is written in the background, and nobody
    /// waits for it. When nobody reads, what comes on top of a mebibyte is lost, and a line says how much. Any thread.
    static void writeToStandardStream(KvConsoleStream stream, std::string_view line);
    /// What the client knows of its session, as it changes. Lives as long as the client.
    KvPimStateManager const& stateManager() const noexcept;
    /// Whether a login succeeded and no logout happened since. A lost connection does not change it.
    bool isLoggedIn() const noexcept;
    /// How far the connection is; KvPimConnectionStateDisconnected before the first login too.
    KvPimConnectionState connectionState() const noexcept;
    /// What the client was made with, and, where that was left open, what is used instead of it: its main queue and its
    /// API server.
    KvPimOptions options() const;
    /// Who is told of things; null when there is nobody (any more).
    std::shared_ptr<KvPimDelegate> delegate() const noexcept;
    /// Has another one told from now on. It is not owned; one that is gone already is told to the log.
    void setDelegate(std::weak_ptr<KvPimDelegate> delegate);
    /// A delegate that nobody keeps would never hear anything.
    template <class Delegate>
    void setDelegate(std::shared_ptr<Delegate>&& delegate) = delete;
    /// Why the latest operation, connection or attempt to come back failed; null when none has. In a completion, the
    /// failure that it was called with: `currentFailure` is the same there, whoever has failed meanwhile.
    std::shared_ptr<KvFailure const> lastFailure() const;
    /// The queue on which the client lives.
    std::shared_ptr<KvMainQueue> const& mainQueue() const;
    /// The API server that logins ask for a socket server.
    std::string const& apiServer() const noexcept;
    /// The socket server of the last login; empty before it was found.
    std::string const& brivelServer() const noexcept;
    /// How many delays before an attempt to reconnect were used up since the login; 3 is the last one, and stays.
    std::int32_t connectIndex() const noexcept;
    /// What the server announced last before it closed a connection: a KvPimConnectionChangeReason, 8 or 9, or 0.
    std::int64_t disconnectReason() const noexcept;
    /// What a login would fail with, or last failed with: a KvPimLoginErrorCode.
    std::int64_t loginError() const noexcept;
    /// An older form of the socket configuration of a login; nothing in the library uses it.
    boost::json::object generateSocketConfig(std::string const& token, std::string const& userId,
                                             std::string const& appId, std::int64_t timeStamp) const;

private:
    explicit KvPimKit(std::shared_ptr<KvPimKitImpl> impl);
    static std::shared_ptr<KvPimKit> make(std::string appId, std::weak_ptr<KvPimDelegate> delegate,
                                          KvPimOptions options, KvFailure& why);
    /// Ends the program where `KvPimOptions::checkThreads` says so.
    std::shared_ptr<KvPimKitImpl> const& impl(char const* call = __builtin_FUNCTION()) const;
    std::shared_ptr<KvPimKitImpl> impl_;
    KvPimEnvConfig envConfig_;
};

}  // namespace kv
