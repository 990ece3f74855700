// The library's records as JSON.
#pragma once

#include "Classes/KvPimKit.h"
#include "Classes/Model/KvPimInvitation.h"
#include "Classes/Model/KvPimMember.h"

#include <optional>
#include <vector>

#include <boost/json.hpp>

namespace kv::binding {

boost::json::value toJson(std::string const& text);
boost::json::value toJson(KvPimMember const& member);
/// With its raw data, or their size where those stand beside the text.
boost::json::value toJson(KvPimMessage const& message, bool attachesData);
boost::json::value toJson(KvPimAttribute const& attribute);
boost::json::value toJson(KvPimAttributeWithState const& attribute);
boost::json::value toJson(KvPimUserAttributes const& user);
boost::json::value toJson(KvPimPeerOnlineStatus const& status);
boost::json::value toJson(KvChannelMemberCount const& count);
boost::json::value toJson(KvPimInvitation const& invitation);
boost::json::value toJson(KvPimStateManager const& state);

/// Moves all fields of `others` behind those of `fields`.
void append(boost::json::object& fields, boost::json::object&& others);

template <class Record>
boost::json::value toJson(std::vector<Record> const& records) {
    boost::json::array array;
    array.reserve(records.size());
    for (auto const& record : records) array.push_back(toJson(record));
    return array;
}

template <class Record>
boost::json::value toJson(std::optional<Record> const& record) {
    return record ? toJson(*record) : nullptr;
}

}  // namespace kv::binding
