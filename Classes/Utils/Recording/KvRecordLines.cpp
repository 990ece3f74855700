#include "Classes/Utils/Recording/KvRecordLines.h"

#include "Platform/KvJsonText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <optional>

#include <boost/json/array.hpp>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::size_t kLeastSecret = 4;  // what is shorter would blot out everything
constexpr std::string_view kEngineTypes[] = {"open", "close", "ping", "pong", "message", "upgrade", "noop"};
constexpr std::string_view kTypes[] = {"connect",      "disconnect",  "event",    "ack",
                                       "connectError", "binaryEvent", "binaryAck"};

// Fields whose texts are ids and the like. What is in no list is taken for what people say: also what a newer server
// may send.
constexpr std::string_view kPlain[] = {"channelId",    "channelIds",   "userId",        "userIds", "fromUserId",
                                       "connectionId", "targetUserId", "attributeKeys", "members", "inviter",
                                       "invitee",      "reason",       "type",          "sid",     "upgrades"};
// Fields whose objects have such fields in turn.
constexpr std::string_view kStructure[] = {"from", "msgs", "invitation", "option", "counts", "status"};

bool isOneOf(auto const& list, std::string_view name) { return std::ranges::find(list, name) != std::end(list); }

void hide(std::string& text, std::string_view secret) {
    if (secret.size() < kLeastSecret) return;
    for (auto at = text.find(secret); at != std::string::npos; at = text.find(secret, at + secret.size()))
        text.replace(at, secret.size(), secret.size(), '*');
}

// `plain`: its texts stay. `structure`: the fields of its objects are known. `contents`: what people say. `secret`: not
// even where contents are wanted.
enum class Place { plain, structure, contents, secret };

Place placeOf(Place around, std::string_view field) {
    if (field == "token") return Place::secret;
    if (around != Place::structure) return around;
    return isOneOf(kPlain, field) ? Place::plain : isOneOf(kStructure, field) ? Place::structure : Place::contents;
}

class Mask {
public:
    explicit Mask(KvRecordRules const& rules) : rules_(rules) {}

    void apply(json::value& value, Place place) const {
        if (auto* const text = value.if_string()) return applyTo(*text, place);
        if (auto* const array = value.if_array()) {
            for (auto& item : *array) apply(item, place);
        } else if (auto* const object = value.if_object()) {
            for (auto& [key, item] : *object) apply(item, placeOf(place, key));
            hideInKeys(*object);
        }
    }

private:
    void applyTo(json::string& text, Place place) const {
        bool const isMasked = place == Place::secret || (place != Place::plain && !rules_.withContents);
        if (isMasked) {
            text.assign(text.size(), '*');
        } else if (!rules_.secrets->empty()) {
            text = withoutSecrets(text, rules_);
        }
    }

    void hideInKeys(json::object& object) const {
        bool const isClean = std::ranges::all_of(object, [&](auto const& item) {
            return withoutSecrets(item.key(), rules_) == std::string_view(item.key());
        });
        if (isClean) return;
        json::object clean(object.storage());
        for (auto const& [key, value] : object) clean[withoutSecrets(key, rules_)] = value;
        object = std::move(clean);
    }

    KvRecordRules const& rules_;
};

// How many of the items are words of the protocol: the event's name, the command's, the server's reason or refusal.
std::size_t wordsOf(json::array const& items, bool isEvent, KvPacketOrigin origin) {
    if (!isEvent) return origin == KvPacketOrigin::server ? 1 : 0;
    auto const* const name = items.empty() ? nullptr : items.front().if_string();
    return name != nullptr && (*name == "command" || *name == "disconnectReason") ? 2 : 1;
}

// Takes a number away from the front of a text.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return {};
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

json::object unreadable(std::string_view type, std::string_view text, KvRecordRules const& rules) {
    json::object record{{"type", type}, {"bytes", text.size()}};
    if (rules.withContents) record["text"] = withoutSecrets(text, rules);
    return record;
}

}  // namespace

std::string withoutSecrets(std::string_view text, KvRecordRules const& rules) {
    std::string clean(text);
    for (auto const& secret : *rules.secrets) hide(clean, secret);
    return clean;
}

std::string withoutToken(std::string_view target) {
    std::string clean(target);
    for (std::string_view const mark : {"?token=", "&token="}) {
        auto const at = clean.find(mark);
        if (at == std::string::npos) continue;
        auto const from = at + mark.size();
        clean.replace(from, std::min(clean.find('&', from), clean.size()) - from, "***");
    }
    return clean;
}

void maskPayload(json::value& payload, KvRecordRules const& rules) { Mask(rules).apply(payload, Place::structure); }

json::object recordOfPacket(std::string_view text, KvPacketOrigin origin, KvRecordRules const& rules) {
    auto const engineType = text.empty() ? std::size_t{99} : static_cast<std::size_t>(text[0] - '0');
    if (engineType >= std::size(kEngineTypes)) return unreadable("unknown", text, rules);
    auto name = kEngineTypes[engineType];
    auto rest = text.substr(1);
    bool const isMessage = name == "message";
    json::object record;
    if (isMessage) {
        auto const type = rest.empty() ? std::size_t{99} : static_cast<std::size_t>(rest[0] - '0');
        if (type >= std::size(kTypes)) return unreadable(name, text, rules);
        name = kTypes[type];
        rest.remove_prefix(1);
        record["type"] = name;
        if (name.starts_with("binary")) {
            record["type"] = name = name == "binaryEvent" ? kTypes[2] : kTypes[3];
            auto const attachments = takeNumber(rest);
            if (!attachments || !rest.starts_with('-')) return unreadable(name, text, rules);
            rest.remove_prefix(1);
            record["attachments"] = *attachments;
        }
        if (auto const id = takeNumber(rest)) record["id"] = *id;
    } else {
        record["type"] = name;
    }
    if (rest.empty()) return record;
    json::value data;
    if (!readJson(rest, {}, data).empty()) return unreadable(name, text, rules);
    Mask const mask(rules);
    bool const isEvent = name == "event";
    auto* const items = isEvent || name == "ack" ? data.if_array() : nullptr;
    if (items == nullptr) {
        mask.apply(data, Place::plain);  // of the session itself; and what refuses one says why
    } else {
        auto const words = wordsOf(*items, isEvent, origin);
        for (std::size_t i = 0; i < items->size(); ++i) {
            auto& item = (*items)[i];
            mask.apply(item, i < words && item.is_string() ? Place::plain
                             : item.is_string()            ? Place::contents
                                                           : Place::structure);
        }
    }
    record["data"] = std::move(data);
    return record;
}

}  // namespace kv
