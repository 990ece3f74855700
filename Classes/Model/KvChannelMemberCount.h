#pragma once

#include <cstdint>
#include <string>

namespace kv {

/// How many members a channel has.
struct KvChannelMemberCount {
    std::string channelId;
    std::int32_t count = 0;
    bool operator==(KvChannelMemberCount const&) const = default;
};

}  // namespace kv
