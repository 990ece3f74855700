// The textual forms of the value records, as log lines show them.
#include "Classes/Model/KvPimPeerOnlineStatus.h"
#include "Classes/Model/KvPimUserAttributes.h"
#include "Platform/KvJsonText.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace kv {
namespace json = boost::json;
namespace {

json::object dictionaryOf(KvPimAttributeWithState const& attribute) {
    return {{"key", attribute.key}, {"value", attribute.value.value_or("")}, {"deleted", attribute.deleted ? 1 : 0}};
}

}  // namespace

std::string KvPimAttribute::description() const {
    return jsonText(json::object{{"key", key}, {"value", value.value_or("")}});
}

std::string KvPimAttributeWithState::description() const { return jsonText(dictionaryOf(*this)); }

std::string KvPimUserAttributes::description() const {
    json::array list;
    if (attributes) {
        for (auto const& attribute : *attributes) list.push_back(dictionaryOf(attribute));
    }
    return jsonText(json::object{{"userId", userId}, {"attributes", std::move(list)}});
}

std::string KvPimPeerOnlineStatus::description() const {
    return "peerId: " + peerId + ", isOnline: " + (isOnline ? "1" : "0");
}

}  // namespace kv
