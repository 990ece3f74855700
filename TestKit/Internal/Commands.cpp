// The commands: what a payload must hold, and what each does. A payload that does not fit gets the command's number for
// that; numbers are each command's own.
#include "TestKit/Internal/World.h"

#include <algorithm>
#include <cctype>

namespace kv::test {

namespace json = boost::json;
namespace {

constexpr std::size_t kMostListItems = 10'000, kMostMessageBytes = 32'768, kMostInfoBytes = 8192,
                      kMostCountedChannels = 32, kMostIdCharacters = 64;
constexpr std::int64_t kInvitationLifetime = 60'000;
constexpr int kPending = 2, kCanceled = 3, kAccepted = 4, kRefused = 5;

/// A payload is not what the command takes.
struct Malformed {};

// What a field may be. Fields that nobody asks for are ignored.
class Payload {
public:
    explicit Payload(json::object const& fields) : fields_(fields) {}

    json::value const& operator[](std::string_view name) const {
        static json::value const absent;
        auto const* const value = fields_.if_contains(name);
        return value == nullptr ? absent : *value;
    }
    std::string id(std::string_view name) const { return idOf((*this)[name]); }
    Ids ids(std::string_view name) const { return listOf(name, idOf); }
    Ids keys(std::string_view name) const { return listOf(name, textOf); }
    // A boolean inside "option"; both may be left out.
    bool flag(std::string_view name) const {
        auto const& option = (*this)["option"];
        if (!fields_.contains("option")) return false;
        if (!option.is_object()) throw Malformed();
        auto const* const value = option.as_object().if_contains(name);
        if (value == nullptr || value->is_null()) return false;
        if (!value->is_bool()) throw Malformed();
        return value->as_bool();
    }
    Attributes attributes() const {
        auto const& value = (*this)["attributes"];
        if (!value.is_object() || value.as_object().empty()) throw Malformed();
        Attributes attributes;
        for (auto const& [key, text] : value.as_object()) attributes.emplace_back(key, textOf(text));
        return attributes;
    }
    // A text, bytes, or both; what is absent is left out of what the receiver gets.
    json::object content() const {
        auto const& value = (*this)["content"];
        if (!value.is_object() || bytesOfItem(value)) throw Malformed();
        json::object content;
        auto const* const text = value.as_object().if_contains("text");
        auto const* const binary = value.as_object().if_contains("binary");
        if (text != nullptr && !text->is_null()) content["text"] = textOf(*text);
        if (binary != nullptr && !binary->is_null()) {
            if (!bytesOfItem(*binary)) throw Malformed();
            content["binary"] = *binary;
        }
        if (content.empty()) throw Malformed();
        return content;
    }

    static std::string textOf(json::value const& value) {
        if (!value.is_string()) throw Malformed();
        return std::string(value.as_string());
    }
    static std::string idOf(json::value const& value) {
        auto id = textOf(value);
        auto const isGood = [](unsigned char c) {
            return std::isalnum(c) != 0 || std::isspace(c) != 0 ||
                   std::string_view("!#$%&()+-:;<=.>?@[]\\^_{}|~,").find(static_cast<char>(c)) !=
                       std::string_view::npos;
        };
        if (id.empty() || id.size() > kMostIdCharacters || !std::ranges::all_of(id, isGood)) throw Malformed();
        return id;
    }

private:
    // A list that is not empty; naming an item twice changes nothing.
    Ids listOf(std::string_view name, std::string (*item)(json::value const&)) const {
        auto const& value = (*this)[name];
        if (!value.is_array() || value.as_array().empty() || value.as_array().size() > kMostListItems)
            throw Malformed();
        Ids list;
        for (auto const& each : value.as_array()) add(list, item(each));
        return list;
    }

    json::object const& fields_;
};

bool isTooLong(json::object const& content) {
    auto const* const text = content.if_contains("text");
    auto const* const binary = content.if_contains("binary");
    return (text != nullptr && text->as_string().size() > kMostMessageBytes) ||
           (binary != nullptr && bytesOfItem(*binary)->size() > kMostMessageBytes);
}

json::object result(int number) { return {{"result", number}}; }

json::object withAttributes(Attributes const& attributes, Ids const* keys) {
    auto shown = attributes;
    if (keys != nullptr) std::erase_if(shown, [&](auto const& each) { return !contains(*keys, each.first); });
    return {{"result", 0}, {"attributes", toJson(shown)}};
}

// The ways to change attributes: channels and users have the same four.
Attributes replaced(Attributes const&, Payload const& p) { return p.attributes(); }
Attributes merged(Attributes const& present, Payload const& p) {
    auto result = present;
    for (auto& [key, value] : p.attributes()) {
        if (auto* const old = find(result, key)) {
            *old = value;
        } else {
            result.emplace_back(key, value);
        }
    }
    return result;
}
Attributes without(Attributes const& present, Payload const& p) {
    auto const keys = p.keys("attributeKeys");
    auto result = present;
    std::erase_if(result, [&](auto const& each) { return contains(keys, each.first); });
    return result;
}
Attributes cleared(Attributes const&, Payload const&) { return {}; }
using Change = Attributes (*)(Attributes const&, Payload const&);

}  // namespace

struct Commands {
    struct Row {
        std::string_view name;
        int malformed;
        json::object (*run)(World& world, std::string const& userId, Payload const& payload);
    };
    static Row const rows[];

    static bool areWithin(Limits const& limits, Attributes const& attributes) {
        std::size_t bytes = 0;
        for (auto const& [key, value] : attributes) bytes += key.size() + value.size();
        return attributes.size() <= limits.attributesPerOwner && bytes <= limits.attributeBytesPerOwner;
    }
    static bool isMember(World const& world, std::string const& channelId, std::string const& userId) {
        auto const found = world.channels.find(channelId);
        return found != world.channels.end() && contains(found->second.members, userId);
    }

    template <Change change>
    static json::object changeChannel(World& world, std::string const&, Payload const& p) {
        auto const channelId = p.id("channelId");
        bool const notify = p.flag("notify");
        auto const found = world.channels.find(channelId);
        auto after = change(found == world.channels.end() ? Attributes() : found->second.attributes, p);
        if (!areWithin(world.limits, after)) return result(4);
        auto told = toJson(after);
        world.setChannelAttributes(channelId, std::move(after));
        if (auto const channel = world.channels.find(channelId); notify && channel != world.channels.end())
            world.push(Ids(channel->second.members), "ChannelAttributesUpdated",
                       json::object{{"channelId", channelId}, {"attributes", std::move(told)}});
        return result(0);
    }
    static json::object readChannel(World& world, Payload const& p, bool byKeys) {
        auto const found = world.channels.find(p.id("channelId"));
        auto const keys = byKeys ? p.keys("attributeKeys") : Ids();
        return withAttributes(found == world.channels.end() ? Attributes() : found->second.attributes,
                              byKeys ? &keys : nullptr);
    }
    template <Change change>
    static json::object changeUser(World& world, std::string const& userId, Payload const& p) {
        auto& own = world.users[userId].attributes;
        auto after = change(own, p);
        if (!areWithin(world.limits, after)) return result(4);
        auto const before = std::exchange(own, after);
        world.tellAttributes(userId, before, after);
        return result(0);
    }
    static json::object readUser(World& world, std::string const& userId, Ids const* keys) {
        if (!world.isConnected(userId)) return result(6);
        return withAttributes(world.users[userId].attributes, keys);
    }
    static json::object readUsers(World& world, Payload const& p, bool byKeys) {
        auto const keys = byKeys ? p.keys("attributeKeys") : Ids();
        json::object all;
        for (auto const& userId : p.ids("userIds")) all[userId] = readUser(world, userId, byKeys ? &keys : nullptr);
        return {{"result", 0}, {"attributes", std::move(all)}};
    }
    template <Watch kind>
    static json::object watch(World& world, std::string const& userId, Payload const& p) {
        auto const peerIds = p.ids("userIds");
        auto& watched = world.users[userId].watchedAs(kind);
        auto after = watched;
        for (auto const& peerId : peerIds) add(after, peerId);
        if (after.size() > world.limits.subscriptionsPerUser) return result(6);
        watched = std::move(after);
        // What follows from it comes after the acknowledgement, which goes out at once.
        if (kind == Watch::status) world.later([&world, userId, peerIds] { world.tellStatus({userId}, peerIds); });
        return result(0);
    }
    template <Watch kind>
    static json::object unwatch(World& world, std::string const& userId, Payload const& p) {
        for (auto const& peerId : p.ids("userIds")) remove(world.users[userId].watchedAs(kind), peerId);
        return result(0);
    }
    static json::object invite(World& world, std::string const& userId, Payload const& p);

    static json::object sendToPeer(World& world, std::string const& userId, Payload const& p) {
        auto const peerId = p.id("targetUserId");
        auto content = p.content();
        bool const mayWait = p.flag("offline");
        if (isTooLong(content)) return result(7);
        json::value message =
            json::object{{"fromUserId", userId}, {"serverReceivedTs", world.now()}, {"content", std::move(content)}};
        if (world.isConnected(peerId)) {
            world.push({peerId}, "MessageToPeerReceived", json::object{{"msgs", json::array{std::move(message)}}});
            return result(0);
        }
        if (!mayWait) return result(3);
        if (world.keptMessages(peerId) >= world.limits.offlineMessagesPerUser) return result(6);
        world.kept_[peerId].push_back(std::move(message));
        return result(0);
    }
};

json::object Commands::invite(World& world, std::string const& userId, Payload const& p) {
    auto const type = Payload::textOf(p["type"]);
    if (!p["invitation"].is_object()) throw Malformed();
    Payload const fields(p["invitation"].as_object());
    auto const info = [&](std::string_view name) {
        auto text = fields[name].is_null() ? std::string() : Payload::textOf(fields[name]);
        return text.size() > kMostInfoBytes ? throw Malformed() : text;
    };
    Invitation const given{fields.id("inviter"), fields.id("invitee"), info("requestInfo"), info("responseInfo"), 0};
    bool const isInviters = type == "send" || type == "cancel";
    if (!isInviters && type != "accept" && type != "refuse") throw Malformed();
    if ((isInviters ? given.inviter : given.invitee) != userId) return result(3);
    auto const found = world.pending(given.inviter, given.invitee);
    bool const isPending = found != world.invitations_.end();

    if (type == "send") {
        if (world.user(given.invitee) == nullptr) return result(3);
        if (!world.isConnected(given.invitee)) return result(4);
        if (isPending) world.invitations_.erase(found);
        auto& sent = world.invitations_.emplace_back(given);
        sent.expiresAt = world.now() + kInvitationLifetime;
        world.tellInvitation(sent.invitee, sent, kPending);
        return result(0);
    }
    // What is over already stays as it ended: that is no error, as the other side's notice may still be under way.
    if (!isPending) return result(0);
    // An inviter who is offline may be back before it expires, so that the invitee can try again.
    if (!isInviters && !world.isConnected(given.inviter)) return result(4);
    auto told = *found;
    world.invitations_.erase(found);
    (isInviters ? told.requestInfo : told.responseInfo) = isInviters ? given.requestInfo : given.responseInfo;
    world.tellInvitation(isInviters ? told.invitee : told.inviter, told,
                         isInviters         ? kCanceled
                         : type == "accept" ? kAccepted
                                            : kRefused);
    return result(0);
}

using W = World;
using P = Payload;
using S = std::string;
Commands::Row const Commands::rows[] = {
    {"join", 3,
     [](W& world, S const& userId, P const& p) {
         auto const channelId = p.id("channelId");
         if (isMember(world, channelId, userId)) return result(0);
         auto const found = world.channels.find(channelId);
         if (world.users[userId].channels.size() >= world.limits.channelsPerUser) return result(5);
         if (found != world.channels.end() && found->second.members.size() >= world.limits.membersPerChannel)
             return result(6);
         world.join(channelId, userId);
         return result(0);
     }},
    {"leave", 3,
     [](W& world, S const& userId, P const& p) {
         auto const channelId = p.id("channelId");
         if (!isMember(world, channelId, userId)) return result(6);
         world.leave(channelId, userId, "Quit");
         return result(0);
     }},
    {"getChannelMembers", 3,
     [](W& world, S const& userId, P const& p) {
         auto const channelId = p.id("channelId");
         if (!isMember(world, channelId, userId)) return result(5);
         return json::object{{"result", 0}, {"members", toJson(world.channels[channelId].members)}};
     }},
    {"sendChannelMessage", 3,
     [](W& world, S const& userId, P const& p) {
         auto const channelId = p.id("channelId");
         auto content = p.content();
         if (isTooLong(content)) return result(4);
         if (!isMember(world, channelId, userId)) return result(5);
         json::object const from{{"channelId", channelId}, {"userId", userId}};
         world.tellOthers(
             channelId, userId, "ChannelMessageReceived",
             json::object{{"from", from}, {"serverReceivedTs", world.now()}, {"content", std::move(content)}});
         return result(0);
     }},
    {"getChannelMemberCount", 2,
     [](W& world, S const&, P const& p) {
         auto const channelIds = p.ids("channelIds");
         if (channelIds.size() > kMostCountedChannels) return result(5);
         return json::object{{"result", 0}, {"counts", world.countsOf(channelIds)}};
     }},
    {"setChannelAttributes", 3, changeChannel<replaced>},
    {"addOrUpdateChannelAttributes", 3, changeChannel<merged>},
    {"deleteChannelAttributesByKeys", 3, changeChannel<without>},
    {"clearChannelAttributes", 3, changeChannel<cleared>},
    {"getChannelAttributes", 3, [](W& world, S const&, P const& p) { return readChannel(world, p, false); }},
    {"getChannelAttributesByKeys", 3, [](W& world, S const&, P const& p) { return readChannel(world, p, true); }},
    {"setLocalUserAttributes", 3, changeUser<replaced>},
    {"addOrUpdateLocalUserAttributes", 3, changeUser<merged>},
    {"deleteLocalUserAttributesByKeys", 3, changeUser<without>},
    {"clearLocalUserAttributes", 3, changeUser<cleared>},
    {"getUserAttributes", 3, [](W& world, S const&, P const& p) { return readUser(world, p.id("userId"), nullptr); }},
    {"getUserAttributesByKeys", 3,
     [](W& world, S const&, P const& p) {
         auto const keys = p.keys("attributeKeys");
         return readUser(world, p.id("userId"), &keys);
     }},
    {"getPeersUserAttributes", 2, [](W& world, S const&, P const& p) { return readUsers(world, p, false); }},
    {"getPeersUserAttributesByKeys", 2, [](W& world, S const&, P const& p) { return readUsers(world, p, true); }},
    {"subscribePeersUserAttributes", 2, watch<Watch::attributes>},
    {"unsubscribePeersUserAttributes", 2, unwatch<Watch::attributes>},
    {"subscribePeersOnlineStatus", 2, watch<Watch::status>},
    {"unsubscribePeersOnlineStatus", 2, unwatch<Watch::status>},
    {"queryPeersOnlineStatus", 2,
     [](W& world, S const&, P const& p) {
         json::object status;  // here true is online; in the event for subscribers 0 is
         for (auto const& userId : p.ids("userIds")) status[userId] = world.isConnected(userId);
         return json::object{{"result", 0}, {"status", std::move(status)}};
     }},
    {"queryPeersBySubscriptionOption", 2,
     [](W& world, S const& userId, P const& p) {
         auto const* const option = p["option"].if_int64();
         if (option == nullptr || *option < 0 || *option > 1) throw Malformed();
         return json::object{{"result", 0}, {"userIds", toJson(world.users[userId].watched[*option])}};
     }},
    {"sendMessageToPeer", 4, sendToPeer},
    {"invitationOp", 3, invite},
};

json::object World::run(std::string const& userId, std::string_view command, json::value const& payload) {
    auto const* const row = std::ranges::find(Commands::rows, command, &Commands::Row::name);
    if (row == std::end(Commands::rows)) return result(1);
    if (!payload.is_object()) return result(row->malformed);
    try {
        return row->run(*this, userId, Payload(payload.as_object()));
    } catch (Malformed const&) {
        return result(row->malformed);
    }
}

std::vector<std::string_view> commandNames() {
    std::vector<std::string_view> names;
    for (auto const& row : Commands::rows) names.push_back(row.name);
    return names;
}

}  // namespace kv::test
