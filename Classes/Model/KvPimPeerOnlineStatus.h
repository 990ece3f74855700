#pragma once

#include "Platform/KvExport.h"

#include <string>

namespace kv {

/// Whether a peer is online.
struct KV_EXPORT KvPimPeerOnlineStatus {
    std::string peerId;
    bool isOnline = false;
    bool operator==(KvPimPeerOnlineStatus const&) const = default;
    /// "peerId: ID, isOnline: 0 or 1"
    std::string description() const;
};

}  // namespace kv
