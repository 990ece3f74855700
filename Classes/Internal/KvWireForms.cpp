#include "Classes/Internal/KvWireForms.h"

#include "Classes/Catagory/KvJson.h"

#include <boost/json/array.hpp>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::string_view kDeletedMarker = "!!&@#DELETED#@&!!";

void addUnlessEmpty(json::object& dictionary, std::string_view key, std::string const& text) {
    if (!text.empty()) dictionary[key] = text;
}

}  // namespace

json::object attributeMapOf(std::vector<KvPimAttribute> const& attributes) {
    json::object map;
    map.reserve(attributes.size());
    for (auto const& [key, value] : attributes) {
        if (value) {
            map.insert_or_assign(key, *value);
        } else {
            map.erase(key);
        }
    }
    return map;
}

KvPimLocalUserAttributes::Map storedAttributesOf(std::vector<KvPimAttribute> const& attributes) {
    KvPimLocalUserAttributes::Map map;
    for (auto const& [key, value] : attributes) {
        if (value) {
            map[key] = *value;
        } else {
            map.erase(key);
        }
    }
    return map;
}

json::array stringsOf(std::vector<std::string> const& texts) { return json::array(texts.begin(), texts.end()); }

std::vector<KvPimAttribute> attributesFrom(json::object const* map) {
    std::vector<KvPimAttribute> attributes;
    if (map == nullptr) return attributes;
    attributes.reserve(map->size());
    for (auto const& [key, value] : *map) {
        if (auto text = asString(&value); text || value.is_null()) attributes.push_back({key, std::move(text)});
    }
    return attributes;
}

std::vector<KvPimAttributeWithState> attributesWithStateFrom(json::object const* map) {
    std::vector<KvPimAttributeWithState> attributes;
    for (auto& plain : attributesFrom(map)) {
        bool const deleted = plain.value == kDeletedMarker;
        if (deleted) plain.value = "";
        attributes.push_back({std::move(plain), deleted});
    }
    return attributes;
}

std::vector<std::string> stringsFrom(json::array const* list) {
    std::vector<std::string> texts;
    if (list == nullptr) return texts;
    for (auto const& element : *list) {
        if (auto text = asString(&element)) texts.push_back(std::move(*text));
    }
    return texts;
}

json::object const* dictionaryOf(SocketData const& data, json::object const* object, std::string_view key) {
    auto const* found = objectOf(object, key);
    return found != nullptr && data.binary(*valueOf(object, key)) ? nullptr : found;
}

json::object const* dictionaryOf(KvPimResult const& result, std::string_view key) {
    return dictionaryOf(*result.data, result.response, key);
}

json::object dictionaryFrom(KvPimMember const& member) {
    json::object dictionary;
    addUnlessEmpty(dictionary, "userId", member.userId);
    addUnlessEmpty(dictionary, "channelId", member.channelId);
    return dictionary;
}

json::object dictionaryFrom(KvPimInvitation const& invitation) {
    json::object dictionary;
    addUnlessEmpty(dictionary, "inviter", invitation.inviter);
    addUnlessEmpty(dictionary, "invitee", invitation.invitee);
    if (invitation.requestInfo) dictionary["requestInfo"] = *invitation.requestInfo;
    if (invitation.responseInfo) dictionary["responseInfo"] = *invitation.responseInfo;
    dictionary["state"] = invitation.state;
    return dictionary;
}

std::shared_ptr<KvPimInvitation> invitationFrom(json::object const* dictionary) {
    auto invitation = std::make_shared<KvPimInvitation>();
    invitation->inviter = stringOf(dictionary, "inviter").value_or("");
    invitation->invitee = stringOf(dictionary, "invitee").value_or("");
    invitation->requestInfo = stringOf(dictionary, "requestInfo");
    invitation->responseInfo = stringOf(dictionary, "responseInfo");
    invitation->state = asInteger(valueOf(dictionary, "state"));
    return invitation;
}

}  // namespace kv
