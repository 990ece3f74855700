// Reads all of what a callback is told, so that a sanitizer sees it.
#pragma once

#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "fuzz/support/Input.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kv::fuzz {

class Heard {
public:
    template <class... Told>
    static void all(Told const&... told) {
        (one(told), ...);
    }

private:
    static inline volatile unsigned sum = 0;

    static void one(std::string const& text) {
        for (char const c : text) sum = sum + static_cast<unsigned char>(c);
    }
    static void one(std::int64_t number) { sum = sum + static_cast<unsigned>(number); }
    static void one(KvPimAttribute const& attribute) { all(attribute.key, attribute.value); }
    static void one(KvPimAttributeWithState const& attribute) {
        all(static_cast<KvPimAttribute const&>(attribute), attribute.deleted);
    }
    static void one(KvPimUserAttributes const& user) { all(user.userId, user.attributes); }
    static void one(KvPimPeerOnlineStatus const& status) { all(status.peerId, status.isOnline); }
    static void one(KvChannelMemberCount const& count) { all(count.channelId, count.count); }
    static void one(KvPimMember const& member) { all(member.userId, member.channelId); }
    static void one(std::shared_ptr<KvPimMessage> const& message) {
        require(message != nullptr, "a message is there");
        require(message->type() == KvPimMessageTypeRaw || message->text, "a text message has a text");
        one(message->text);
        if (auto const data = message->data()) one(std::string(data->begin(), data->end()));
        one(message->serverReceivedTs);
    }
    static void one(std::shared_ptr<KvPimInvitation> const& invitation) {
        require(invitation != nullptr, "an invitation is there");
        all(invitation->inviter, invitation->invitee, invitation->requestInfo, invitation->responseInfo,
            invitation->state);
    }
    static void one(KvPimKit const& kit) { all(kit.stateManager().userId, kit.stateManager().state); }
    static void one(KvPimChannel const& channel) { one(channel.channelId()); }
    static void one(KvPimInvitationKit const& kit) { one(kit.calleeId); }
    template <class Value>
    static void one(std::optional<Value> const& value) {
        if (value) one(*value);
    }
    template <class Value>
    static void one(std::vector<Value> const& values) {
        for (auto const& value : values) one(value);
    }
};

}  // namespace kv::fuzz
