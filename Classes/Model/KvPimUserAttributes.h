#pragma once

#include "Classes/Model/KvPimAttribute.h"

#include <optional>
#include <string>
#include <vector>

namespace kv {

/// The attributes of one peer. `attributes` is absent when the server could not give those of this peer.
struct KV_EXPORT KvPimUserAttributes {
    std::string userId;
    std::optional<std::vector<KvPimAttributeWithState>> attributes;
    bool operator==(KvPimUserAttributes const&) const = default;
    /// {"userId":...,"attributes":[...]}
    std::string description() const;
};

}  // namespace kv
