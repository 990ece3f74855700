#include "Binding/Records.h"

#include "Binding/Base64.h"

namespace kv::binding {

using boost::json::value;

value toJson(std::string const& text) { return value(text); }

value toJson(KvPimMember const& member) { return {{"userId", member.userId}, {"channelId", member.channelId}}; }

namespace {

value toJson(KvData const& data, bool isAttached) {
    if (!data) return nullptr;
    if (isAttached) return {{"bytes", data->size()}};
    return value(toBase64(*data));
}

}  // namespace

void append(boost::json::object& fields, boost::json::object&& others) {
    fields.reserve(fields.size() + others.size());
    for (auto& other : others) fields.emplace(other.key(), std::move(other.value()));
}

value toJson(KvPimMessage const& message, bool attachesData) {
    return {{"type", static_cast<int>(message.type())},
            {"text", toJson(message.text)},
            {"rawData", toJson(message.data(), attachesData)},
            {"serverReceivedTs", message.serverReceivedTs},
            {"isOfflineMessage", message.isOfflineMessage}};
}

value toJson(KvPimAttribute const& attribute) { return {{"key", attribute.key}, {"value", toJson(attribute.value)}}; }

value toJson(KvPimAttributeWithState const& attribute) {
    return {{"key", attribute.key}, {"value", toJson(attribute.value)}, {"deleted", attribute.deleted}};
}

value toJson(KvPimUserAttributes const& user) {
    return {{"userId", user.userId}, {"attributes", toJson(user.attributes)}};
}

value toJson(KvPimPeerOnlineStatus const& status) { return {{"peerId", status.peerId}, {"isOnline", status.isOnline}}; }

value toJson(KvChannelMemberCount const& count) { return {{"channelId", count.channelId}, {"count", count.count}}; }

value toJson(KvPimInvitation const& invitation) {
    return {{"inviter", invitation.inviter},
            {"invitee", invitation.invitee},
            {"requestInfo", toJson(invitation.requestInfo)},
            {"responseInfo", toJson(invitation.responseInfo)},
            {"state", invitation.state}};
}

value toJson(KvPimStateManager const& state) {
    return {{"login", state.login}, {"state", state.state}, {"userId", state.userId}, {"appId", state.appId}};
}

}  // namespace kv::binding
