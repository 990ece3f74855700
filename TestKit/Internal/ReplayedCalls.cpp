#include "TestKit/Internal/ReplayedCalls.h"

#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "TestKit/Internal/RecordFields.h"

#include <tuple>
#include <utility>

namespace kv::test {
namespace json = boost::json;
namespace {

using Done = std::function<void(std::int64_t)>;

// A completion whose last argument is the code.
auto code(Done done) {
    return [done = std::move(done)](auto const&... results) {
        done(std::get<sizeof...(results) - 1>(std::tie(results...)));
    };
}

std::vector<std::string> texts(json::object const& payload, std::string_view name) {
    std::vector<std::string> texts;
    auto const* const value = payload.if_contains(name);
    auto const* const list = value != nullptr ? value->if_array() : nullptr;
    if (list == nullptr) return texts;
    for (auto const& item : *list)
        if (auto const* const text = item.if_string()) texts.emplace_back(*text);
    return texts;
}

std::vector<KvPimAttribute> attributes(json::object const& payload) {
    std::vector<KvPimAttribute> attributes;
    for (auto const& [key, value] : objectAt(payload, "attributes"))
        if (auto const* const text = value.if_string()) attributes.push_back({key, std::string(*text)});
    return attributes;
}

bool flag(json::object const& payload, std::string_view name) {
    auto const& option = objectAt(payload, "option");
    auto const* const value = option.if_contains(name);
    return value != nullptr && value->is_bool() && value->get_bool();
}

KvPimChannelAttributeOptions notify(json::object const& payload) { return {flag(payload, "notify")}; }

std::string textOf(json::object const& payload, std::string_view name) { return std::string(textAt(payload, name)); }

std::optional<std::string> optional(json::object const& object, std::string_view name) {
    auto const* const value = object.if_contains(name);
    if (value == nullptr || !value->is_string()) return std::nullopt;
    return std::string(value->get_string());
}

std::shared_ptr<KvPimInvitation> invitation(json::object const& payload) {
    auto const& fields = objectAt(payload, "invitation");
    auto made = std::make_shared<KvPimInvitation>();
    made->inviter = textOf(fields, "inviter");
    made->invitee = textOf(fields, "invitee");
    made->requestInfo = optional(fields, "requestInfo");
    made->responseInfo = optional(fields, "responseInfo");
    made->state = numberAt(fields, "state");
    return made;
}

// Bytes of as many as there were.
std::shared_ptr<KvPimMessage const> message(json::object const& line, json::object const& payload) {
    auto const& content = objectAt(payload, "content");
    auto const* const value = line.if_contains("attachments");
    auto const* const sizes = value != nullptr ? value->if_array() : nullptr;
    auto text = optional(content, "text");
    if (sizes != nullptr && !sizes->empty()) {
        boost::system::error_code error;
        auto const size = sizes->front().to_number<std::size_t>(error);
        return std::make_shared<KvPimRawMessage const>(makeData(KvBytes(error ? 0 : size, '*')), std::move(text));
    }
    auto plain = std::make_shared<KvPimMessage>();
    plain->text = std::move(text);
    return plain;
}

}  // namespace

// A row for each: how it is called with what its payload holds.
struct Methods {
    using Calls = ReplayedCalls;
    using Json = json::object;
    struct Row {
        std::string_view name;
        void (*call)(Calls& calls, Json const& line, Json const& payload, Done done);
    };

    template <auto Operation>
    static void onIds(Calls& calls, Json const&, Json const& payload, Done done) {
        ((*calls.kit_).*Operation)(texts(payload, "userIds"), code(std::move(done)));
    }
    template <auto Operation>
    static void onOwnAttributes(Calls& calls, Json const&, Json const& payload, Done done) {
        ((*calls.kit_).*Operation)(attributes(payload), std::move(done));
    }
    template <auto Operation>
    static void onChannelAttributes(Calls& calls, Json const&, Json const& payload, Done done) {
        ((*calls.kit_).*Operation)(textOf(payload, "channelId"), attributes(payload), notify(payload), std::move(done));
    }
    template <auto Operation>
    static void onChannel(Calls& calls, Json const&, Json const& payload, Done done) {
        if (auto const channel = calls.channel(textOf(payload, "channelId")))
            ((*channel).*Operation)(code(std::move(done)));
    }
    template <auto Operation>
    static void onInvitation(Calls& calls, Json const&, Json const& payload, Done done) {
        ((*calls.kit_->getPimInvitationKit()).*Operation)(invitation(payload), std::move(done));
    }

    using Kit = KvPimKit;
    using Ids = std::vector<std::string> const&;
    using List = std::vector<KvPimAttribute> const&;
    template <class... Arguments>
    using OfKit = void (Kit::*)(Arguments...);
    template <class... Arguments>
    using OfChannel = void (KvPimChannel::*)(Arguments...);
    using OfInvitations = void (KvPimInvitationKit::*)(std::shared_ptr<KvPimInvitation>,
                                                       KvPimInvitationKit::Completion);

    static Row const kRows[];
};

Methods::Row const Methods::kRows[] = {
    {"loginByToken",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->loginByToken(textOf(payload, "token"), numberAt(payload, "timeStamp"), textOf(payload, "userId"),
                                  std::move(done));
     }},
    {"logoutWithCompletion",
     [](Calls& calls, Json const&, Json const&, Done done) { calls.kit_->logoutWithCompletion(std::move(done)); }},
    {"renewToken",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->renewToken(textOf(payload, "token"), numberAt(payload, "timeStamp"), code(std::move(done)));
     }},
    {"networkChanged", [](Calls& calls, Json const&, Json const&, Done) { calls.kit_->networkChanged(); }},
    {"createChannelWithId",
     [](Calls& calls, Json const&, Json const& payload, Done) {
         auto const id = textOf(payload, "channelId");
         calls.channels_[id] = calls.kit_->createChannelWithId(id);
     }},
    {"destroyChannelWithId",
     [](Calls& calls, Json const&, Json const& payload, Done) {
         calls.kit_->destroyChannelWithId(textOf(payload, "channelId"));
     }},
    {"getPimInvitationKit", [](Calls& calls, Json const&, Json const&, Done) { calls.kit_->getPimInvitationKit(); }},
    {"joinWithCompletion", onChannel<OfChannel<KvPimChannel::Completion>(&KvPimChannel::joinWithCompletion)>},
    {"leaveWithCompletion", onChannel<OfChannel<KvPimChannel::Completion>(&KvPimChannel::leaveWithCompletion)>},
    {"getMembersWithCompletion",
     onChannel<OfChannel<KvPimChannel::MembersCompletion>(&KvPimChannel::getMembersWithCompletion)>},
    {"sendMessage",
     [](Calls& calls, Json const& line, Json const& payload, Done done) {
         if (auto const channel = calls.channel(textOf(payload, "channelId")))
             channel->sendMessage(message(line, payload), std::nullopt, std::move(done));
     }},
    {"sendMessageToPeer",
     [](Calls& calls, Json const& line, Json const& payload, Done done) {
         calls.kit_->sendMessageToPeer(message(line, payload), textOf(payload, "targetUserId"),
                                       KvPimSendMessageOptions{flag(payload, "offline")}, std::move(done));
     }},
    {"setChannelAttributes", onChannelAttributes<OfKit<std::string const&, List, KvPimChannelAttributeOptions,
                                                       Kit::Completion>(&Kit::setChannelAttributes)>},
    {"addOrUpdateChannelAttributes",
     onChannelAttributes<OfKit<std::string const&, List, KvPimChannelAttributeOptions, Kit::Completion>(
         &Kit::addOrUpdateChannelAttributes)>},
    {"deleteChannelAttributesByKeys",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->deleteChannelAttributesByKeys(textOf(payload, "channelId"), texts(payload, "attributeKeys"),
                                                   notify(payload), std::move(done));
     }},
    {"clearChannelAttributes",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->clearChannelAttributes(textOf(payload, "channelId"), notify(payload), std::move(done));
     }},
    {"getChannelAttributes",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->getChannelAttributes(textOf(payload, "channelId"), code(std::move(done)));
     }},
    {"getChannelAttributesByKeys",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->getChannelAttributesByKeys(textOf(payload, "channelId"), texts(payload, "attributeKeys"),
                                                code(std::move(done)));
     }},
    {"getChannelMemberCount",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->getChannelMemberCount(texts(payload, "channelIds"), code(std::move(done)));
     }},
    {"setLocalUserAttributes", onOwnAttributes<OfKit<List, Kit::Completion>(&Kit::setLocalUserAttributes)>},
    {"addOrUpdateLocalUserAttributes",
     onOwnAttributes<OfKit<List, Kit::Completion>(&Kit::addOrUpdateLocalUserAttributes)>},
    {"deleteLocalUserAttributesByKeys",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->deleteLocalUserAttributesByKeys(texts(payload, "attributeKeys"), std::move(done));
     }},
    {"clearLocalUserAttributesWithCompletion",
     [](Calls& calls, Json const&, Json const&, Done done) {
         calls.kit_->clearLocalUserAttributesWithCompletion(std::move(done));
     }},
    {"getUserAttributes",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->getUserAttributes(textOf(payload, "userId"), code(std::move(done)));
     }},
    {"getUserAttributesByKeys",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->getUserAttributesByKeys(textOf(payload, "userId"), texts(payload, "attributeKeys"),
                                             code(std::move(done)));
     }},
    {"subscribePeersUserAttribes", onIds<OfKit<Ids, Kit::Completion>(&Kit::subscribePeersUserAttribes)>},
    {"unsubscribePeersUserAttribes", onIds<OfKit<Ids, Kit::Completion>(&Kit::unsubscribePeersUserAttribes)>},
    {"getPeersUserAttributes", onIds<OfKit<Ids, Kit::PeersAttributesCompletion>(&Kit::getPeersUserAttributes)>},
    {"getPeersUserAttributesByKeys",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->getPeersUserAttributesByKeys(texts(payload, "userIds"), texts(payload, "attributeKeys"),
                                                  code(std::move(done)));
     }},
    {"subscribePeersOnlineStatus", onIds<OfKit<Ids, Kit::Completion>(&Kit::subscribePeersOnlineStatus)>},
    {"unsubscribePeersOnlineStatus", onIds<OfKit<Ids, Kit::Completion>(&Kit::unsubscribePeersOnlineStatus)>},
    {"queryPeersOnlineStatus", onIds<OfKit<Ids, Kit::OnlineStatusCompletion>(&Kit::queryPeersOnlineStatus)>},
    {"queryPeersBySubscriptionOption",
     [](Calls& calls, Json const&, Json const& payload, Done done) {
         calls.kit_->queryPeersBySubscriptionOption(numberAt(payload, "option"), code(std::move(done)));
     }},
    {"sendInvitation", onInvitation<OfInvitations(&KvPimInvitationKit::sendInvitation)>},
    {"cancelInvitation", onInvitation<OfInvitations(&KvPimInvitationKit::cancelInvitation)>},
    {"acceptInvitation", onInvitation<OfInvitations(&KvPimInvitationKit::acceptInvitation)>},
    {"refuseInvitation", onInvitation<OfInvitations(&KvPimInvitationKit::refuseInvitation)>},
};

std::shared_ptr<KvPimChannel> ReplayedCalls::channel(std::string const& id) {
    auto& channel = channels_[id];
    if (!channel) channel = kit_->createChannelWithId(id);
    return channel;
}

bool ReplayedCalls::make(json::object const& line, Done done) {
    if (!line.contains("payload")) return false;
    auto const& payload = objectAt(line, "payload");
    for (auto const& row : Methods::kRows) {
        if (row.name != textAt(line, "method")) continue;
        row.call(*this, line, payload, std::move(done));
        return true;
    }
    return false;
}

}  // namespace kv::test
