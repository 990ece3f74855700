// The wire forms of the value records, both ways. What has the wrong type is left out.
#pragma once

#include "Classes/Internal/KvPimStateHelper.h"
#include "Classes/Model/KvPimAttribute.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Classes/Model/KvPimMember.h"
#include "Classes/Model/KvPimResult.h"
#include "SocketIO/SocketData.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>

namespace kv {

// The later of two with one key counts, and one without a value takes back what came before it.
/// Keys to values, in the order in which the keys came first.
boost::json::object attributeMapOf(std::vector<KvPimAttribute> const& attributes);
KvPimLocalUserAttributes::Map storedAttributesOf(std::vector<KvPimAttribute> const& attributes);
boost::json::array stringsOf(std::vector<std::string> const& texts);

// A null map gives an empty list; an attribute that is null has no value.
std::vector<KvPimAttribute> attributesFrom(boost::json::object const* map);
/// The same, with the marker of a deleted attribute understood.
std::vector<KvPimAttributeWithState> attributesWithStateFrom(boost::json::object const* map);
/// The texts of a list; null gives none.
std::vector<std::string> stringsFrom(boost::json::array const* list);

// A dictionary in a dictionary that the server sent; null for anything else. Bytes look like one, and are none.
boost::json::object const* dictionaryOf(SocketData const& data, boost::json::object const* object,
                                        std::string_view key);
boost::json::object const* dictionaryOf(KvPimResult const& result, std::string_view key);

// Without the ids that are empty, and the texts that are absent.
boost::json::object dictionaryFrom(KvPimMember const& member);
boost::json::object dictionaryFrom(KvPimInvitation const& invitation);
std::shared_ptr<KvPimInvitation> invitationFrom(boost::json::object const* dictionary);

}  // namespace kv
