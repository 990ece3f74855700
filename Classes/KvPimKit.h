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
// Codes: a completion receives 0 for success and 102 when the client is not logged in; its other codes stand with each
// operation. Each operation has its own set: the same number means different things in different operations.
#pragma once

#include "Classes/Model/KvChannelMemberCount.h"
#include "Classes/Model/KvPimAttribute.h"
#include "Classes/Model/KvPimCodes.h"
#include "Classes/Model/KvPimMessage.h"
#include "Classes/Model/KvPimOptions.h"
#include "Classes/Model/KvPimPeerOnlineStatus.h"
#include "Classes/Model/KvPimUserAttributes.h"
#include "Platform/KvExport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace kv {

class KvPimChannel;
class KvPimInvitationKit;
class KvPimKit;
class KvPimKitImpl;
struct KvPimChannelDelegate;

inline constexpr double KvPimVersionNumber = 1.0;
KV_EXPORT extern char const KvPimVersionString[];

/// What a client tells the application. Every member is optional: leave empty what is not needed.
struct KvPimDelegate {
    /// `state`: a `KvPimConnectionState`; `reason`: a `KvPimConnectionChangeReason`. Without this member the client
    /// also writes no event reports of connection states.
    std::function<void(KvPimKit& kit, std::int64_t state, std::int64_t reason)> connectionStateChanged;
    /// The server closed the connection because the token expired; renew it. The client goes on reconnecting.
    std::function<void(KvPimKit& kit)> tokenDidExpire;
    /// A message from another user; `type()` tells text from raw.
    std::function<void(KvPimKit& kit, std::shared_ptr<KvPimMessage> message, std::string const& peerId)>
        messageReceived;
    /// Peers whose online status changed since it was last told.
    std::function<void(KvPimKit& kit, std::vector<KvPimPeerOnlineStatus> const& statuses)> peersOnlineStatusChanged;
    /// Peers whose attributes changed, with the changed attributes only.
    std::function<void(KvPimKit& kit, std::vector<KvPimUserAttributes> const& users)> peersUserAttributesChanged;
};

/// What a client knows of its session.
struct KvPimStateManager {
    /// A login succeeded and no logout happened since.
    bool login = false;
    std::string appId;
    std::string userId;
    /// A `KvPimConnectionState`, or 0 before the first login.
    std::int64_t state = 0;
};

class KV_EXPORT KvPimKit final {
public:
    using Completion = std::function<void(std::int64_t errorCode)>;
    using RenewTokenCompletion = std::function<void(std::string const& token, std::int64_t errorCode)>;
    /// The list is absent when the operation failed.
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

    /// Makes a client; nothing connects yet. The delegate is not owned. Null when the API server of the options is not
    /// a valid address. The application id is not checked here: the server does at login.
    static std::shared_ptr<KvPimKit> initWithAppId(std::string appId, std::weak_ptr<KvPimDelegate> delegate,
                                                   KvPimOptions options = {});
    ~KvPimKit();
    KvPimKit(KvPimKit const&) = delete;
    KvPimKit& operator=(KvPimKit const&) = delete;

    // ---- Session

    /// Logs in: finds the socket server, connects, waits for the server's word.
    /// @param token      32 characters without white space, as the application's own server issued it.
    /// @param timeStamp  the time stamp that belongs to the token.
    /// @param done  0; 1 unknown failure; 2 application forbidden; 3 user id or argument invalid (1 to 64 letters,
    ///     digits, spaces and punctuation); 4 application id invalid; 5 token invalid; 6 token expired; 7 authorisation
    ///     failed; 8 already logged in or logging in; 9 no server found, or not connected within 6 seconds. After a 9
    ///     of the latter kind the attempt goes on, and `done` is called once more with its outcome.
    void loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done);
    /// The second half of a login, for a configuration made before; not meant for applications.
    void loginWithConfig(boost::json::object const& config, Completion done);
    /// Logs out: closes the connection, forgets channels, attributes, subscriptions and invitations, and tells the
    /// delegate (1, 6) if the connection was still there. Nothing is sent. @param done 0, 102.
    void logoutWithCompletion(Completion done);
    /// Replaces the token, for the connections to come; the present one is closed. @param done 0, 2 token malformed,
    /// 102.
    void renewToken(std::string token, std::int64_t timeStamp, RenewTokenCompletion done);

    // ---- Channels

    /// The channel object of this id, made if there is none, with this delegate (not owned) from now on. Nothing is
    /// sent. Null when the id is invalid: 1 to 64 letters, digits, spaces and punctuation.
    std::shared_ptr<KvPimChannel> createChannelWithId(std::string const& channelId,
                                                      std::weak_ptr<KvPimChannelDelegate> delegate);
    /// Forgets the channel object of this id, without leaving the channel. False when there is none.
    bool destroyChannelWithId(std::string const& channelId);

    // ---- Channel attributes: the channel need be neither created nor joined.
    // Completions of the four writes: 0; 2 refused; 3 list empty or channel id invalid; 4 refused with 4 by the server;
    // 5 too many requests; 7 no answer within 6 seconds; 102.
    // Completions of the two reads: 0; 2 refused; 3 channel id invalid or (by keys) no keys, or refused with 3; 5; 7;
    // 102.

    /// Replaces all attributes of a channel. Of two attributes with one key the later counts.
    void setChannelAttributes(std::string const& channelId, std::vector<KvPimAttribute> const& attributes,
                              KvPimChannelAttributeOptions options, Completion done);
    void addOrUpdateChannelAttributes(std::string const& channelId, std::vector<KvPimAttribute> const& attributes,
                                      KvPimChannelAttributeOptions options, Completion done);
    void deleteChannelAttributesByKeys(std::string const& channelId, std::vector<std::string> const& keys,
                                       KvPimChannelAttributeOptions options, Completion done);
    void clearChannelAttributes(std::string const& channelId, KvPimChannelAttributeOptions options, Completion done);
    void getChannelAttributes(std::string const& channelId, AttributesCompletion done);
    void getChannelAttributesByKeys(std::string const& channelId, std::vector<std::string> const& keys,
                                    AttributesCompletion done);

    /// How many members each of up to 32 channels has. @param done 0; 1 refused; 2 no ids or an invalid one; 3 too many
    /// requests; 4 no answer within 6 seconds; 5 more than 32 ids; 102. A channel that the server does not know is
    /// absent.
    void getChannelMemberCount(std::vector<std::string> const& channelIds, CountsCompletion done);

    // ---- The user's own attributes. What the server accepted is written again after a reconnection.
    // Completions: 0; 2 refused; 3 empty list; 4 refused with 4 (set and add-or-update only); 5 too many requests;
    // 7 no answer within 6 seconds (10 for clear); 102.

    void setLocalUserAttributes(std::vector<KvPimAttribute> const& attributes, Completion done);
    void addOrUpdateLocalUserAttributes(std::vector<KvPimAttribute> const& attributes, Completion done);
    void deleteLocalUserAttributesByKeys(std::vector<std::string> const& keys, Completion done);
    void clearLocalUserAttributesWithCompletion(Completion done);

    // ---- Attributes of a user, read once.
    // Completions: 0; 2 refused; 3 user id invalid or no keys; 5 too many requests; 6 refused with 6; 7 no answer; 102.

    void getUserAttributes(std::string const& userId, UserAttributesCompletion done);
    void getUserAttributesByKeys(std::string const& userId, std::vector<std::string> const& keys,
                                 UserAttributesCompletion done);

    // ---- Attributes of several peers. Subscriptions are made again after a reconnection.
    // Completions: 0; 1 refused; 2 no ids, no keys or an invalid id; 4 no answer within 6 seconds; 5 too many requests;
    // 6 refused with 6 (subscribe only); 102. A read's completion is not called when the client is destroyed before.

    void subscribePeersUserAttribes(std::vector<std::string> const& peerIds, Completion done);
    void unsubscribePeersUserAttribes(std::vector<std::string> const& peerIds, Completion done);
    void getPeersUserAttributes(std::vector<std::string> const& peerIds, PeersAttributesCompletion done);
    void getPeersUserAttributesByKeys(std::vector<std::string> const& peerIds, std::vector<std::string> const& keys,
                                      PeersAttributesCompletion done);

    // ---- Online status of peers. Subscriptions are made again after a reconnection.
    // Completions: 0; 1 refused; 2 no ids or an invalid id; 4 no answer within 6 seconds; 5 too many requests; 6
    // refused with 6 (subscribe only); 102.

    void subscribePeersOnlineStatus(std::vector<std::string> const& peerIds, Completion done);
    void unsubscribePeersOnlineStatus(std::vector<std::string> const& peerIds, Completion done);
    void queryPeersOnlineStatus(std::vector<std::string> const& peerIds, OnlineStatusCompletion done);
    /// The peers that this user subscribed to. `option`: a kind of subscription, as the server numbers them.
    void queryPeersBySubscriptionOption(std::int64_t option, PeersCompletion done);

    // ---- Peer messages

    /// Sends a message to a user. @param done 0; 1 refused; 2 no answer within 6 seconds; 3, 4, 6 as the server
    /// refused; 5 too many requests; 7 text or data over 32,768 bytes, or refused with 7; 102. A message that is too
    /// long is reported with 7 (once for its text, once for its data), is sent all the same, and `done` is called for
    /// the answer.
    void sendMessageToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId,
                           std::optional<KvPimSendMessageOptions> options, Completion done);

    // ---- Invitations, diagnostics, the rest

    /// The client's invitation kit, the same object at each call. Notices of invitations are dropped before the first.
    std::shared_ptr<KvPimInvitationKit> getPimInvitationKit();
    /// What helps to look into a connection problem: servers, connection id, the arguments of the last login (the token
    /// in clear: for the application's own eyes), the library's version.
    boost::json::object getDebugInfo() const;
    /// "sdkVersion/NAME-VERSION-BUILD", the same string at every call. Any thread.
    static std::string const& getSDKVersion();
    /// Has no effect in this version; returns 0.
    std::int32_t setParameters(std::string const& parameters);
    /// The file of the local log, which must exist: a line for a file that does not is lost. Process-wide. Any thread.
    void setLogFile(std::string const& path);
    /// What is logged: above 0 information, from 2 warnings too, from 4 errors too, from 8 everything; 0 and less
    /// nothing (the default). Process-wide. Any thread.
    void setLogFilters(std::int64_t filters);
    KvPimStateManager const& stateManager() const;
    /// An older form of the socket configuration of a login; nothing in the library uses it.
    boost::json::object generateSocketConfig(std::string const& token, std::string const& userId,
                                             std::string const& appId, std::int64_t timeStamp) const;

private:
    explicit KvPimKit(std::shared_ptr<KvPimKitImpl> impl);
    std::shared_ptr<KvPimKitImpl> impl_;
};

}  // namespace kv
