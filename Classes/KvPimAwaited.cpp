// The operations in the form that is awaited: each is its form with a completion, and the enumeration of its codes.
#include "Classes/Await/KvAnswer.h"
#include "Classes/KvPimAwait.h"

#include <boost/json/object.hpp>

namespace kv {

using detail::awaited;
using Attributes = KvList<KvPimAttribute>;
using Strings = KvList<std::string>;
using Time = std::chrono::system_clock::time_point;
template <class T>
using ListOf = KvPending<std::vector<T>>;

// Which form of an operation that has several.
constexpr void (KvPimKit::*kLogin)(std::string, std::int64_t, std::string,
                                   KvPimKit::Completion) = &KvPimKit::loginByToken;
constexpr void (KvPimKit::*kRenewToken)(std::string, std::int64_t,
                                        KvPimKit::RenewTokenCompletion) = &KvPimKit::renewToken;
constexpr void (KvPimKit::*kLoginAt)(std::string, Time, std::string, KvPimKit::Completion) = &KvPimKit::loginByToken;
constexpr void (KvPimKit::*kRenewTokenAt)(std::string, Time, KvPimKit::RenewTokenCompletion) = &KvPimKit::renewToken;
constexpr void (KvPimKit::*kSendToPeer)(std::shared_ptr<KvPimMessage const>, std::string const&,
                                        std::optional<KvPimSendMessageOptions>,
                                        KvPimKit::Completion) = &KvPimKit::sendMessageToPeer;
constexpr void (KvPimChannel::*kSend)(std::shared_ptr<KvPimMessage const>, std::optional<KvPimSendMessageOptions>,
                                      KvPimChannel::Completion) = &KvPimChannel::sendMessage;

// ---- Session

KvPending<> KvPimKit::loginByToken(std::string token, std::int64_t timeStamp, std::string userId) {
    return awaited<KvPimLoginErrorCode, detail::KvPass::whatGoesOn>(*this, kLogin, std::move(token), timeStamp,
                                                                    std::move(userId));
}
KvPending<> KvPimKit::loginByToken(std::string token, Time timeStamp, std::string userId) {
    return awaited<KvPimLoginErrorCode, detail::KvPass::whatGoesOn>(*this, kLoginAt, std::move(token), timeStamp,
                                                                    std::move(userId));
}
KvPending<> KvPimKit::loginWithConfig(boost::json::object const& config) {
    return awaited<KvPimLoginErrorCode, detail::KvPass::whatGoesOn>(*this, &KvPimKit::loginWithConfig, config);
}
KvPending<> KvPimKit::logout() { return awaited<KvPimLogoutErrorCode>(*this, &KvPimKit::logoutWithCompletion); }
KvPending<> KvPimKit::renewToken(std::string token, std::int64_t timeStamp) {
    return awaited<KvPimRenewTokenErrorCode>(*this, kRenewToken, std::move(token), timeStamp);
}
KvPending<> KvPimKit::renewToken(std::string token, Time timeStamp) {
    return awaited<KvPimRenewTokenErrorCode>(*this, kRenewTokenAt, std::move(token), timeStamp);
}

// ---- Channel attributes

KvPending<> KvPimKit::setChannelAttributes(std::string const& channelId, Attributes const& attributes,
                                           KvPimChannelAttributeOptions options) {
    return awaited<KvPimChannelAttributesErrorCode>(*this, &KvPimKit::setChannelAttributes, channelId, attributes,
                                                    options);
}
KvPending<> KvPimKit::addOrUpdateChannelAttributes(std::string const& channelId, Attributes const& attributes,
                                                   KvPimChannelAttributeOptions options) {
    return awaited<KvPimChannelAttributesErrorCode>(*this, &KvPimKit::addOrUpdateChannelAttributes, channelId,
                                                    attributes, options);
}
KvPending<> KvPimKit::deleteChannelAttributesByKeys(std::string const& channelId, Strings const& keys,
                                                    KvPimChannelAttributeOptions options) {
    return awaited<KvPimChannelAttributesErrorCode>(*this, &KvPimKit::deleteChannelAttributesByKeys, channelId, keys,
                                                    options);
}
KvPending<> KvPimKit::clearChannelAttributes(std::string const& channelId, KvPimChannelAttributeOptions options) {
    return awaited<KvPimChannelAttributesErrorCode>(*this, &KvPimKit::clearChannelAttributes, channelId, options);
}
ListOf<KvPimAttribute> KvPimKit::getChannelAttributes(std::string const& channelId) {
    return awaited<KvPimChannelAttributesErrorCode>(*this, &KvPimKit::getChannelAttributes, channelId);
}
ListOf<KvPimAttribute> KvPimKit::getChannelAttributesByKeys(std::string const& channelId, Strings const& keys) {
    return awaited<KvPimChannelAttributesErrorCode>(*this, &KvPimKit::getChannelAttributesByKeys, channelId, keys);
}
ListOf<KvChannelMemberCount> KvPimKit::getChannelMemberCount(Strings const& channelIds) {
    return awaited<KvPimMemberCountErrorCode>(*this, &KvPimKit::getChannelMemberCount, channelIds);
}

// ---- Attributes of users

KvPending<> KvPimKit::setLocalUserAttributes(Attributes const& attributes) {
    return awaited<KvPimLocalUserAttributesErrorCode>(*this, &KvPimKit::setLocalUserAttributes, attributes);
}
KvPending<> KvPimKit::addOrUpdateLocalUserAttributes(Attributes const& attributes) {
    return awaited<KvPimLocalUserAttributesErrorCode>(*this, &KvPimKit::addOrUpdateLocalUserAttributes, attributes);
}
KvPending<> KvPimKit::deleteLocalUserAttributesByKeys(Strings const& keys) {
    return awaited<KvPimLocalUserAttributesErrorCode>(*this, &KvPimKit::deleteLocalUserAttributesByKeys, keys);
}
KvPending<> KvPimKit::clearLocalUserAttributes() {
    return awaited<KvPimLocalUserAttributesErrorCode>(*this, &KvPimKit::clearLocalUserAttributesWithCompletion);
}
ListOf<KvPimAttribute> KvPimKit::getUserAttributes(std::string const& userId) {
    return awaited<KvPimUserAttributesErrorCode>(*this, &KvPimKit::getUserAttributes, userId);
}
ListOf<KvPimAttribute> KvPimKit::getUserAttributesByKeys(std::string const& userId, Strings const& keys) {
    return awaited<KvPimUserAttributesErrorCode>(*this, &KvPimKit::getUserAttributesByKeys, userId, keys);
}

// ---- Peers

KvPending<> KvPimKit::subscribePeersUserAttribes(Strings const& peerIds) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::subscribePeersUserAttribes, peerIds);
}
KvPending<> KvPimKit::unsubscribePeersUserAttribes(Strings const& peerIds) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::unsubscribePeersUserAttribes, peerIds);
}
ListOf<KvPimUserAttributes> KvPimKit::getPeersUserAttributes(Strings const& peerIds) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::getPeersUserAttributes, peerIds);
}
ListOf<KvPimUserAttributes> KvPimKit::getPeersUserAttributesByKeys(Strings const& peerIds, Strings const& keys) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::getPeersUserAttributesByKeys, peerIds, keys);
}
KvPending<> KvPimKit::subscribePeersOnlineStatus(Strings const& peerIds) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::subscribePeersOnlineStatus, peerIds);
}
KvPending<> KvPimKit::unsubscribePeersOnlineStatus(Strings const& peerIds) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::unsubscribePeersOnlineStatus, peerIds);
}
ListOf<KvPimPeerOnlineStatus> KvPimKit::queryPeersOnlineStatus(Strings const& peerIds) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::queryPeersOnlineStatus, peerIds);
}
ListOf<std::string> KvPimKit::queryPeersBySubscriptionOption(std::int64_t option) {
    return awaited<KvPimPeersErrorCode>(*this, &KvPimKit::queryPeersBySubscriptionOption, option);
}

// ---- Messages

KvPending<> KvPimKit::sendMessageToPeer(std::shared_ptr<KvPimMessage const> message, std::string const& peerId,
                                        std::optional<KvPimSendMessageOptions> options) {
    return awaited<KvPimPeerMessageErrorCode>(*this, kSendToPeer, std::move(message), peerId, options);
}
KvPending<> KvPimKit::sendMessageToPeer(std::string text, std::string const& peerId,
                                        std::optional<KvPimSendMessageOptions> options) {
    return sendMessageToPeer(std::make_shared<KvPimMessage>(std::move(text)), peerId, options);
}
KvPending<> KvPimChannel::join() {
    return awaited<KvPimJoinChannelErrorCode>(*this, &KvPimChannel::joinWithCompletion);
}
KvPending<> KvPimChannel::leave() {
    return awaited<KvPimLeaveChannelErrorCode>(*this, &KvPimChannel::leaveWithCompletion);
}
ListOf<KvPimMember> KvPimChannel::getMembers() {
    return awaited<KvPimChannelMembersErrorCode>(*this, &KvPimChannel::getMembersWithCompletion);
}
KvPending<> KvPimChannel::sendMessage(std::shared_ptr<KvPimMessage const> message) {
    return awaited<KvPimChannelMessageErrorCode>(*this, kSend, std::move(message), std::nullopt);
}
KvPending<> KvPimChannel::sendMessage(std::string text) {
    return sendMessage(std::make_shared<KvPimMessage>(std::move(text)));
}

// ---- Invitations

KvPending<> KvPimInvitationKit::sendInvitation(std::shared_ptr<KvPimInvitation> invitation) {
    return awaited<KvPimInvitationErrorCode>(*this, &KvPimInvitationKit::sendInvitation, std::move(invitation));
}
KvPending<> KvPimInvitationKit::cancelInvitation(std::shared_ptr<KvPimInvitation> invitation) {
    return awaited<KvPimInvitationErrorCode>(*this, &KvPimInvitationKit::cancelInvitation, std::move(invitation));
}
KvPending<> KvPimInvitationKit::acceptInvitation(std::shared_ptr<KvPimInvitation> invitation) {
    return awaited<KvPimInvitationErrorCode>(*this, &KvPimInvitationKit::acceptInvitation, std::move(invitation));
}
KvPending<> KvPimInvitationKit::refuseInvitation(std::shared_ptr<KvPimInvitation> invitation) {
    return awaited<KvPimInvitationErrorCode>(*this, &KvPimInvitationKit::refuseInvitation, std::move(invitation));
}

}  // namespace kv
