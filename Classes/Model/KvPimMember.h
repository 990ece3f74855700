#pragma once

#include "Platform/KvExport.h"

#include <string>
#include <vector>

namespace boost::json {
class array;
class object;
}  // namespace boost::json

namespace kv {

/// A member of a channel.
struct KV_EXPORT KvPimMember {
    std::string userId;
    std::string channelId;
    bool operator==(KvPimMember const&) const = default;
    /// The member of {"userId":...,"channelId":...}. What is missing, or no text, is empty; null gives an empty member.
    static KvPimMember initWithDict(boost::json::object const* dictionary);
    /// The members of a list of such dictionaries. Part of the interface; the library does not call it.
    static std::vector<KvPimMember> membersFromArray(boost::json::array const& dictionaries);
};

}  // namespace kv
