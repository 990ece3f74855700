#pragma once

#include "Platform/KvExport.h"

#include <optional>
#include <string>

namespace kv {

/// A key and its value, kept by the server for a user or a channel.
struct KV_EXPORT KvPimAttribute {
    std::string key;
    /// Absent is not empty: an attribute without a value is not written, and takes back an earlier one of the same list
    /// with its key. One that is read has none where the server has null.
    std::optional<std::string> value;
    bool operator==(KvPimAttribute const&) const = default;
    /// {"key":...,"value":...}, with "" for a value that is absent.
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
    bool operator==(KvPimChannelAttributeOptions const&) const = default;
};

}  // namespace kv
