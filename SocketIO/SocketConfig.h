#pragma once

#include "Net/KvPimNetworkOptions.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv {

struct SocketMetrics;
class SocketRecorder;

/// How a connection is made.
struct SocketConfig {
    /// Offer permessage-deflate. A server that declines is fine; messages under 1 KiB are never deflated.
    bool compress = false;
    /// WebSocket is the only transport there is; kept because configurations name it.
    bool forceWebsockets = true;
    /// Query parameters of the connection, percent-encoded on the way out.
    std::vector<std::pair<std::string, std::string>> connectParams;
    /// A PEM file of certificate authorities to trust in addition to the system's; empty for none.
    std::string caFile;
    /// How to get there, and what to take; null for the built-in values.
    std::shared_ptr<KvPimNetworkOptions const> network;
    /// What may wait to be sent, in bytes; an emit beyond it is dropped and logged.
    std::size_t maxQueuedBytes = 64u << 20;
    /// Told what goes wrong without another way to say so, one line each, on the main queue; may be empty.
    std::function<void(std::string_view line)> log;
    /// Called after the socket has dealt with a change of the system's network that the library saw by itself, on the
    /// main queue; may be empty. For whoever waits before it connects again.
    std::function<void()> networkChanged;
    /// For the client's inside: what its connections count into; null for one's own.
    std::shared_ptr<SocketMetrics> metrics{};
    /// Hears what goes over the connections (<KvPim/SocketIO/SocketRecorder.h>); null for nobody.
    std::shared_ptr<SocketRecorder> recorder{};
};

}  // namespace kv
