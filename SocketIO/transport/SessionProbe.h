// The opening of a Socket.IO session, for whoever tells people how far it leads: the WebSocket, then the session on it,
// which ends where it has begun. On the probe's queue; see Net/Probe.h.
#pragma once

#include "Net/Failure.h"
#include "Net/Probe.h"
#include "SocketIO/SocketConfig.h"

#include <functional>
#include <memory>
#include <string>

namespace kv::sio {

/// What the server has said until the session was open.
struct Upgraded {
    std::string head;        // of its answer; empty where there was none
    std::string openPacket;  // its JSON
    bool isDeflated = false;
    net::Failure failure;  // with a text when it failed
};

/// Each of the two may take as long as the limit. `connected`, of the namespace, is called only when the first
/// succeeded.
[[nodiscard]] KV_EXPORT net::Probe probeSession(std::shared_ptr<KvMainQueue> const& queue, net::Way const& way,
                                                SocketConfig const& config, net::ProbeLimit limit,
                                                std::function<void(Upgraded)> upgraded,
                                                std::function<void(net::Failure)> connected);

}  // namespace kv::sio
