#pragma once

#include <string>

namespace kv {

/// A member of a channel.
struct KvPimMember {
    std::string userId;
    std::string channelId;
    bool operator==(KvPimMember const&) const = default;
};

}  // namespace kv
