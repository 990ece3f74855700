// What the server says without being asked: who hears which event, and what its fields are.
#include "Classes/Catagory/KvJson.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/Internal/KvPimChannelTell.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
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

void KvPimKitImpl::registerCallback() {
    using Handler = void (KvPimKitImpl::*)(SocketData const&);
    static constexpr std::pair<char const*, Handler> kHandlers[] = {
        {"disconnect", &KvPimKitImpl::onDisconnect},
        {"disconnectReason", &KvPimKitImpl::onDisconnectReason},
        {"loginSuccess", &KvPimKitImpl::loginSuccess},
        {"ChannelAttributesUpdated", &KvPimKitImpl::channelAttributesUpdated},
        {"PeersOnlineStatusChanged", &KvPimKitImpl::peersOnlineStatusChanged},
        {"PeersUserAttributesChanged", &KvPimKitImpl::peersUserAttributesChanged},
        {"MessageToPeerReceived", &KvPimKitImpl::messageToPeerReceived},
        {"InvitationNotify", &KvPimKitImpl::invitationNotify},
        {"ChannelMemberCount", &KvPimKitImpl::channelMemberCountNotify},
        {"MemberJoined", &KvPimKitImpl::memberJoined},
        {"MemberLeft", &KvPimKitImpl::memberLeft},
        {"ChannelMessageReceived", &KvPimKitImpl::channelMessageReceived},
    };
    auto const subscribing = socket.lock();
    for (auto const& [event, handler] : kHandlers) {
        subscribing->on(event, [weak = weak_from_this(), handler = handler](SocketData const& data) {
            if (auto const self = living(weak)) (self.get()->*handler)(data);
        });
    }
    subscribing->onWritable([weak = weak_from_this()] {
        if (auto const self = living(weak)) self->tell<&KvPimDelegate::onWritable>();
    });
}

void KvPimKitImpl::channelAttributesUpdated(SocketData const& data) {
    auto const* notice = firstDictionary(data);
    auto const attributes = attributesFrom(objectOf(notice, "attributes"));
    KvLog::shared().info("ChannelAttributesUpdated: %@", attributes);
    auto const channel = findChannel(stringOf(notice, "channelId"));
    if (channel) channel->tell<&KvPimChannelDelegate::attributeUpdate>(attributes);
}

void KvPimKitImpl::peersOnlineStatusChanged(SocketData const& data) {
    auto const* status = dictionaryOf(data, firstDictionary(data), "status");
    if (status == nullptr) return;
    auto const changes = stateHelper.onPeersOnlineStatusChanged(*status);
    if (changes.empty()) return;
    auto const statuses = kv_map(changes, [](std::string const& peerId, std::int64_t number) {
        return KvPimPeerOnlineStatus{peerId, number == 0};  // pushes count online as 0, unlike the answers to queries
    });
    KvLog::shared().info("PeersOnlineStatusChanged: %@", statuses);
    tell<&KvPimDelegate::peersOnlineStatusChanged>(statuses);
}

void KvPimKitImpl::peersUserAttributesChanged(SocketData const& data) {
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

void KvPimKitImpl::messageToPeerReceived(SocketData const& data) {
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

void KvPimKitImpl::invitationNotify(SocketData const& data) {
    auto const invitation = invitationFrom(objectOf(KvPimResult::resultWithArray(data).response, "invitation"));
    KvLog::shared().info("InvitationNotify: %@", dictionaryFrom(*invitation));
    if (auto const invitations = invitationKit) invitations->parseInvitation(invitation);
}

void KvPimKitImpl::channelMemberCountNotify(SocketData const& data) {
    auto const* counts = dictionaryOf(data, firstDictionary(data), "counts");
    KvLog::shared().info("ChannelMemberCount: %@", KvLogPayload::firstOf(data));
    // A delegate may create and destroy channels meanwhile.
    std::vector<std::pair<std::weak_ptr<KvPimChannel>, std::int32_t>> told;
    told.reserve(channelDict.size());
    for (auto const& [id, channel] : channelDict) told.emplace_back(channel, asInteger32(valueOf(counts, id)));
    for (auto const& [weak, count] : told) {
        if (auto const channel = weak.lock()) channel->tell<&KvPimChannelDelegate::memberCount>(count);
    }
}

void KvPimKitImpl::memberJoined(SocketData const& data) {
    auto const member = KvPimMember::initWithDict(firstDictionary(data));
    if (auto const channel = findChannel(member.channelId)) channel->onMemberJoined(member);
}

void KvPimKitImpl::memberLeft(SocketData const& data) {
    auto const* notice = firstDictionary(data);
    auto const member = KvPimMember::initWithDict(notice);
    if (auto const channel = findChannel(member.channelId)) {
        channel->onMemberLeft(member, memberLeftReason(stringOf(notice, "reason")));
    }
}

void KvPimKitImpl::channelMessageReceived(SocketData const& data) {
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

std::shared_ptr<KvPimChannel> KvPimKitImpl::findChannel(std::optional<std::string> const& channelId) const {
    auto const found = channelId ? channelDict.find(*channelId) : channelDict.end();
    return found == channelDict.end() ? nullptr : found->second;
}

bool KvPimKitImpl::tellState(std::int64_t state, std::int64_t reason) {
    toldState = state;
    return tell<&KvPimDelegate::connectionStateChanged>(state, reason);
}

void KvPimKitImpl::tellAndReportState(std::int64_t state, std::int64_t reason) {
    if (tellState(state, reason)) LoganManager::sharedInstance().connectState(state, reason);
}

}  // namespace kv
