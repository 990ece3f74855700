#pragma once

#include "Platform/KvExport.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kv {

/// What a reconnection has brought back.
struct KV_EXPORT KvPimRestored {
    /// What it is that was asked for again.
    enum class Kind { channel, localUserAttributes, onlineStatusSubscription, userAttributesSubscription };
    /// One request of it.
    struct Item {
        Kind kind{};
        std::string channelId;             ///< Of a channel.
        std::vector<std::string> peerIds;  ///< Of a subscription.
        /// What the latest attempt ended with, of the operation's own enumeration: KvPimJoinChannelErrorCode,
        /// KvPimLocalUserAttributesErrorCode, KvPimPeersErrorCode. 0 for what is back.
        std::int64_t code = 0;
        std::size_t attempts = 0;  ///< How often it was tried so far.
    };
    std::vector<Item> items;

    /// Whether all of it is back.
    bool isWhole() const {
        for (auto const& item : items) {
            if (item.code != 0) return false;
        }
        return true;
    }
};

}  // namespace kv
