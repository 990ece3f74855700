#include "Classes/Internal/KvPimRouter.h"

#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/Internal/KvPimChannelTell.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/Utils/KvInvitationStore.h"
#include "Classes/Utils/KvLog.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {
namespace json = boost::json;
namespace {

json::object const* firstDictionary(SocketData const& data) { return asObject(firstOf(data.items())); }

/// What a message's "content" holds; null for an unusable one: neither binary data nor text.
std::shared_ptr<KvPimMessage> messageFrom(json::object const* carrier, SocketData const& data) {
    auto const* content = objectOf(carrier, "content");
    auto const* binary = valueOf(content, "binary");
    auto text = stringOf(content, "text");
    auto bytes = binary != nullptr ? data.binary(*binary) : nullptr;
    std::shared_ptr<KvPimMessage> message;
    if (bytes) {
        message = std::make_shared<KvPimRawMessage>(std::move(bytes));
    } else if (text) {
        message = std::make_shared<KvPimMessage>();
    } else {
        return nullptr;
    }
    message->text = std::move(text);
    message->serverReceivedTs = asInteger(valueOf(carrier, "serverReceivedTs"));
    return message;
}

std::int64_t memberLeftReason(std::optional<std::string> const& reason) {
    if (reason == "Quit") return KvPimMemberLeftReasonQuit;
    if (reason == "Disconnect") return KvPimMemberLeftReasonDisconnect;
    return KvPimMemberLeftReasonUnknown;
}

}  // namespace

// ---- Who may hear of something

std::shared_ptr<KvPimChannel> KvPimRouter::createChannelWithId(std::string const& channelId,
                                                               std::weak_ptr<KvPimChannelDelegate> channelDelegate) {
    KvLog::shared().info("create channel: %@", channelId);
    if (!isValidId(channelId)) return nullptr;
    auto& channel = channelDict_[channelId];
    if (!channel) {
        channel = std::shared_ptr<KvPimChannel>(new KvPimChannel);
        channel->stateDelegate_ = client_.weak_from_this();
    }
    channel->channelId_ = channelId;
    channel->socket_ = client_.socket;
    channel->stateManager_ = client_.stateManager;
    channel->delegate_ = std::move(channelDelegate);
    return channel;
}

bool KvPimRouter::destroyChannelWithId(std::string const& channelId) {
    KvLog::shared().info("destroy channel: %@", channelId);
    auto const destroyed = channelDict_.extract(channelId);  // an invalid id is never in there
    if (destroyed.empty()) return false;
    destroyed.mapped()->delegate_.reset();  // an event that is being told may have more to tell it
    destroyed.mapped()->events_.reset();
    return true;
}

void KvPimRouter::forgetChannels() {
    for (auto const& [id, channel] : channelDict_) channel->events_.reset();
    channelDict_.clear();
}

void KvPimRouter::endEvents() {
    client_.events.end();
    for (auto const& [id, channel] : channelDict_) channel->events_.reset();
    if (invitationKit_) invitationKit_->events_.reset();
}

std::shared_ptr<KvPimChannel> KvPimRouter::findChannel(std::optional<std::string> const& channelId) const {
    auto const found = channelId ? channelDict_.find(*channelId) : channelDict_.end();
    return found == channelDict_.end() ? nullptr : found->second;
}

std::shared_ptr<KvPimInvitationKit> KvPimRouter::getPimInvitationKit(std::weak_ptr<KvPimFailures> failures) {
    if (!invitationKit_) {
        invitationKit_ = std::shared_ptr<KvPimInvitationKit>(new KvPimInvitationKit);
        invitationKit_->socket_ = client_.socket.lock();
        invitationKit_->stateManager_ = client_.stateManager;
        invitationKit_->mainQueue_ = client_.mainQueue;
        invitationKit_->failures_ = std::move(failures);
        invitationKit_->counters_ = client_.counters;
        invitationKit_->checksThreads_ = client_.options.checkThreads;
        invitationKit_->requestTimeout_ = net::optionsOf(client_.options.network).requestTimeout;
    }
    return invitationKit_;
}

void KvPimRouter::forgetInvitations() { KvInvitationStore::shared().reset(invitationKit_.get()); }

// ---- What they hear

void KvPimRouter::handOutSocket() {
    using Handler = void (KvPimRouter::*)(SocketData const&);
    static constexpr std::pair<char const*, Handler> kHandlers[] = {
        {"ChannelAttributesUpdated", &KvPimRouter::channelAttributesUpdated},
        {"PeersOnlineStatusChanged", &KvPimRouter::peersOnlineStatusChanged},
        {"PeersUserAttributesChanged", &KvPimRouter::peersUserAttributesChanged},
        {"MessageToPeerReceived", &KvPimRouter::messageToPeerReceived},
        {"InvitationNotify", &KvPimRouter::invitationNotify},
        {"ChannelMemberCount", &KvPimRouter::channelMemberCountNotify},
        {"MemberJoined", &KvPimRouter::memberJoined},
        {"MemberLeft", &KvPimRouter::memberLeft},
        {"ChannelMessageReceived", &KvPimRouter::channelMessageReceived},
    };
    auto const socket = client_.socket.lock();
    for (auto const& [event, handler] : kHandlers) {
        socket->on(event, [router = weak(), handler = handler](SocketData const& data) {
            if (auto const self = living(router)) (self.get()->*handler)(data);
        });
    }
    socket->onWritable([router = weak()] {
        if (auto const self = living(router)) self->tell<&KvPimDelegate::onWritable>();
    });
    for (auto const& [id, channel] : channelDict_) {
        channel->socket_ = socket;
        channel->stateManager_ = client_.stateManager;
    }
    if (invitationKit_) {
        invitationKit_->socket_ = socket;
        invitationKit_->stateManager_ = client_.stateManager;
    }
}

void KvPimRouter::channelAttributesUpdated(SocketData const& data) {
    auto const* notice = firstDictionary(data);
    auto const attributes = attributesFrom(objectOf(notice, "attributes"));
    KvLog::shared().info("ChannelAttributesUpdated: %@", attributes);
    auto const channel = findChannel(stringOf(notice, "channelId"));
    if (channel) channel->tell<&KvPimChannelDelegate::attributeUpdate>(attributes);
}

void KvPimRouter::peersOnlineStatusChanged(SocketData const& data) {
    auto const* status = dictionaryOf(data, firstDictionary(data), "status");
    if (status == nullptr) return;
    auto const changes = client_.stateHelper.onPeersOnlineStatusChanged(*status);
    if (changes.empty()) return;
    auto const statuses = kv_map(changes, [](std::string const& peerId, std::int64_t number) {
        return KvPimPeerOnlineStatus{peerId, number == 0};  // pushes count online as 0, unlike the answers to queries
    });
    KvLog::shared().info("PeersOnlineStatusChanged: %@", statuses);
    tell<&KvPimDelegate::peersOnlineStatusChanged>(statuses);
}

void KvPimRouter::peersUserAttributesChanged(SocketData const& data) {
    auto const* changes = dictionaryOf(data, firstDictionary(data), "attributes");
    std::vector<KvPimUserAttributes> users;
    if (changes != nullptr) {
        users.reserve(changes->size());
        for (auto const& [peerId, entry] : *changes) {
            users.push_back({peerId, attributesWithStateFrom(objectOf(entry.if_object(), "attributes"))});
        }
    }
    KvLog::shared().info("peersUserAttributesChanged: %@", KvLogPayload::firstOf(data));
    tell<&KvPimDelegate::peersUserAttributesChanged>(users);
}

void KvPimRouter::messageToPeerReceived(SocketData const& data) {
    auto const* messages = arrayOf(firstDictionary(data), "msgs");
    if (messages == nullptr) return;
    for (auto const& element : *messages) {
        auto const* carrier = element.if_object();
        auto const message = messageFrom(carrier, data);
        if (!message) {
            KvLog::shared().critical("received invaliad message: %@", KvLogPayload{element, data});
            return;  // what is behind it in the batch is dropped with it
        }
        KvLog::shared().info("MessageToPeerReceived: %@", KvLogPayload{element, data});
        tell<&KvPimDelegate::messageReceived>(message, stringOf(carrier, "fromUserId").value_or(""));
    }
}

void KvPimRouter::invitationNotify(SocketData const& data) {
    auto const invitation = invitationFrom(objectOf(KvPimResult::resultWithArray(data).response, "invitation"));
    KvLog::shared().info("InvitationNotify: %@", dictionaryFrom(*invitation));
    if (auto const invitations = invitationKit_) invitations->parseInvitation(invitation);
}

void KvPimRouter::channelMemberCountNotify(SocketData const& data) {
    auto const* counts = dictionaryOf(data, firstDictionary(data), "counts");
    KvLog::shared().info("ChannelMemberCount: %@", KvLogPayload::firstOf(data));
    // A delegate may create and destroy channels meanwhile.
    std::vector<std::pair<std::weak_ptr<KvPimChannel>, std::int32_t>> told;
    told.reserve(channelDict_.size());
    for (auto const& [id, channel] : channelDict_) told.emplace_back(channel, asInteger32(valueOf(counts, id)));
    for (auto const& [weak, count] : told) {
        if (auto const channel = weak.lock()) channel->tell<&KvPimChannelDelegate::memberCount>(count);
    }
}

void KvPimRouter::memberJoined(SocketData const& data) {
    auto const member = KvPimMember::initWithDict(firstDictionary(data));
    if (auto const channel = findChannel(member.channelId)) channel->onMemberJoined(member);
}

void KvPimRouter::memberLeft(SocketData const& data) {
    auto const* notice = firstDictionary(data);
    auto const member = KvPimMember::initWithDict(notice);
    if (auto const channel = findChannel(member.channelId)) {
        channel->onMemberLeft(member, memberLeftReason(stringOf(notice, "reason")));
    }
}

void KvPimRouter::channelMessageReceived(SocketData const& data) {
    auto const* notice = firstDictionary(data);
    auto const message = messageFrom(notice, data);
    if (!message) {
        KvLog::shared().critical("received invaliad message: %@", KvLogPayload::firstOf(data));
        return;
    }
    auto const member = KvPimMember::initWithDict(objectOf(notice, "from"));
    if (auto const channel = findChannel(member.channelId)) {
        channel->onChannelMessageReceived(member.channelId, message, member);
    }
}

}  // namespace kv
