// What a client must remember of one login, so that it can be told to the server again after a reconnection, and
// forgotten at logout. Belongs to the client's main thread.
#pragma once

#include "Classes/Internal/KvPimLoginParams.h"
#include "Classes/Model/KvPimAttribute.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/json/object.hpp>

namespace kv {

class KvPimChannel;

/// The user's own attributes, as the server last confirmed them.
class KvPimLocalUserAttributes {
public:
    using Map = std::map<std::string, std::string>;

    void setLocalUserAttributes(Map attributes);
    void addOrUpdateLocalUserAttributes(Map const& attributes);
    void deleteLocalUserAttributesByKeys(std::vector<std::string> const& keys);
    void clearLocalUserAttributes();
    void logout() { clearLocalUserAttributes(); }
    Map userAttributes() const { return attributes_; }
    std::vector<KvPimAttribute> pimAttributes() const;

private:
    Map attributes_;
    std::mutex lock_;  // of the mutations; reads need none, since all of it belongs to the main thread
};

/// The status that the server last pushed for each peer, which tells real changes from repetitions.
class KvPimOnlinePeersManager {
public:
    using Changes = std::vector<std::pair<std::string, std::int64_t>>;

    /// Records a pushed map of peer ids to status numbers. Returns the entries that are news, in the order received;
    /// one whose value is no number is none.
    Changes onPeersOnlineStatusChanged(boost::json::object const& status);
    /// A server may push the status of any number of peers whom nobody asked for: beyond a number they are forgotten.
    void forgetStrangers(std::set<std::string> const& subscribed);
    void unsubscribeOnlineStatusOf(std::vector<std::string> const& peerIds);
    void logout() { onlineStatus_.clear(); }

private:
    std::unordered_map<std::string, std::int64_t> onlineStatus_;
};

/// The channels whose last successful request was a join.
class KvPimChannelManager {
public:
    void onJoinChannel(std::shared_ptr<KvPimChannel> channel);
    void onLeaveChannel(KvPimChannel const& channel);
    std::vector<std::shared_ptr<KvPimChannel>> channels() const;
    bool isJoined(std::shared_ptr<KvPimChannel> const& channel) const;
    void logout() { channelsMap_.clear(); }

private:
    std::map<std::string, std::shared_ptr<KvPimChannel>> channelsMap_;
};

/// The changes of one kind that the application has asked for and the server has not answered yet.
class KvUnansweredChanges {
public:
    /// To be kept for as long as the change has no answer.
    std::shared_ptr<void const> begin() const { return begun_; }
    bool any() const { return begun_.use_count() > 1; }

private:
    std::shared_ptr<char const> const begun_ = std::make_shared<char const>('\0');
};

class KvPimStateHelper {
public:
    using PeerIds = std::vector<std::string>;

    void subscribeOnlineStatusOf(PeerIds const& peerIds);
    void unsubscribeOnlineStatusOf(PeerIds const& peerIds);
    KvPimOnlinePeersManager::Changes onPeersOnlineStatusChanged(boost::json::object const& status);
    void subscribeAttributesOf(PeerIds const& peerIds);
    void unsubscribeAttributesOf(PeerIds const& peerIds);
    PeerIds subscribedOnlineStatusPeerIds() const { return {onlineStatusPeerIds_.begin(), onlineStatusPeerIds_.end()}; }
    PeerIds subscribedAttributesPeerIds() const { return {attributesPeerIds_.begin(), attributesPeerIds_.end()}; }
    void logout();

    KvPimLoginParams loginParams;
    KvPimLocalUserAttributes localUserAttributes;
    KvPimOnlinePeersManager onlinePeersManager;
    KvPimChannelManager channelManager;
    KvUnansweredChanges leaves, attributeWrites, statusSubscriptions, attributeSubscriptions;

private:
    // No lock: only acknowledgements change the sets, and they all arrive on the main thread.
    std::set<std::string> onlineStatusPeerIds_;
    std::set<std::string> attributesPeerIds_;
};

}  // namespace kv
