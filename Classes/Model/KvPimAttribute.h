#pragma once

#include "Platform/KvExport.h"

#include <string>

namespace kv {

/// A key and its value, kept by the server for a user or a channel.
struct KV_EXPORT KvPimAttribute {
    std::string key;
    std::string value;
    bool operator==(KvPimAttribute const&) const = default;
    /// {"key":...,"value":...}
    std::string description() const;
};

/// An attribute of a peer; `deleted` when it was removed, in which case the value is empty.
struct KV_EXPORT KvPimAttributeWithState : KvPimAttribute {
    bool deleted = false;
    bool operator==(KvPimAttributeWithState const&) const = default;
    /// {"key":...,"value":...,"deleted":0 or 1}
    std::string description() const;
};

/// How a change of a channel's attributes is made.
struct KvPimChannelAttributeOptions {
    /// Whether the channel's members are told of the change.
    bool enableNotificationToChannelMembers = false;
};

}  // namespace kv
