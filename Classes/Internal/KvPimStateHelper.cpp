#include "Classes/Internal/KvPimStateHelper.h"

#include "Classes/Catagory/KvJson.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/KvPimChannel.h"

namespace kv {
namespace {

constexpr std::size_t kMostStrangers = 10000;  // some hundred bytes each

}  // namespace

void KvPimLocalUserAttributes::setLocalUserAttributes(Map attributes) {
    std::lock_guard guard(lock_);
    attributes_ = std::move(attributes);
}

void KvPimLocalUserAttributes::addOrUpdateLocalUserAttributes(Map const& attributes) {
    std::lock_guard guard(lock_);
    for (auto const& [key, value] : attributes) attributes_[key] = value;
}

void KvPimLocalUserAttributes::deleteLocalUserAttributesByKeys(std::vector<std::string> const& keys) {
    std::lock_guard guard(lock_);
    for (auto const& key : keys) attributes_.erase(key);
}

void KvPimLocalUserAttributes::clearLocalUserAttributes() {
    std::lock_guard guard(lock_);
    attributes_.clear();
}

std::vector<KvPimAttribute> KvPimLocalUserAttributes::pimAttributes() const {
    return kv_map(attributes_, [](auto const& key, auto const& value) { return KvPimAttribute{key, value}; });
}

KvPimOnlinePeersManager::Changes KvPimOnlinePeersManager::onPeersOnlineStatusChanged(
    boost::json::object const& status) {
    Changes changes;
    for (auto const& [peerId, value] : status) {
        if (!value.is_number()) continue;
        auto const number = asInteger(&value);
        auto const [known, isNew] = onlineStatus_.try_emplace(peerId, number);
        if (!isNew && std::exchange(known->second, number) == number) continue;
        changes.emplace_back(peerId, number);
    }
    return changes;
}

void KvPimOnlinePeersManager::forgetStrangers(std::set<std::string> const& subscribed) {
    if (onlineStatus_.size() <= subscribed.size() + kMostStrangers) return;
    std::erase_if(onlineStatus_, [&](auto const& known) { return !subscribed.contains(known.first); });
}

void KvPimOnlinePeersManager::unsubscribeOnlineStatusOf(std::vector<std::string> const& peerIds) {
    for (auto const& peerId : peerIds) onlineStatus_.erase(peerId);
}

void KvPimChannelManager::onJoinChannel(std::shared_ptr<KvPimChannel> channel) {
    auto const& id = channel->channelId();
    channelsMap_[id] = std::move(channel);
}

void KvPimChannelManager::onLeaveChannel(KvPimChannel const& channel) { channelsMap_.erase(channel.channelId()); }

std::vector<std::shared_ptr<KvPimChannel>> KvPimChannelManager::channels() const {
    return kv_map(channelsMap_, [](auto const&, auto const& channel) { return channel; });
}

bool KvPimChannelManager::isJoined(std::shared_ptr<KvPimChannel> const& channel) const {
    auto const found = channelsMap_.find(channel->channelId());
    return found != channelsMap_.end() && found->second == channel;
}

void KvPimStateHelper::subscribeOnlineStatusOf(PeerIds const& peerIds) {
    onlineStatusPeerIds_.insert(peerIds.begin(), peerIds.end());
}

void KvPimStateHelper::unsubscribeOnlineStatusOf(PeerIds const& peerIds) {
    for (auto const& peerId : peerIds) onlineStatusPeerIds_.erase(peerId);
}

KvPimOnlinePeersManager::Changes KvPimStateHelper::onPeersOnlineStatusChanged(boost::json::object const& status) {
    auto changes = onlinePeersManager.onPeersOnlineStatusChanged(status);
    onlinePeersManager.forgetStrangers(onlineStatusPeerIds_);
    return changes;
}

void KvPimStateHelper::subscribeAttributesOf(PeerIds const& peerIds) {
    attributesPeerIds_.insert(peerIds.begin(), peerIds.end());
}

void KvPimStateHelper::unsubscribeAttributesOf(PeerIds const& peerIds) {
    for (auto const& peerId : peerIds) attributesPeerIds_.erase(peerId);
}

void KvPimStateHelper::logout() {
    onlineStatusPeerIds_.clear();
    attributesPeerIds_.clear();
    loginParams.logout();
    localUserAttributes.logout();
    onlinePeersManager.logout();
    channelManager.logout();
}

}  // namespace kv
