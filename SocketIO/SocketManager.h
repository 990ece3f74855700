// A connection to one Socket.IO server over WebSocket, and its default socket.
//
// All calls belong to the main queue given at construction; handlers run on it. The engine queue does the socket work:
// the same queue, or another one that some thread drives. Nothing connects before the socket's `connect`. Destroying
// the manager closes the connection without a word to the handlers; acknowledgements still end as they are told to.
#pragma once

#include "Platform/KvExport.h"
#include "Platform/KvMainQueue.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv {

class SocketIOClient;

/// How a connection is made.
struct SocketConfig {
    /// Offer permessage-deflate. A server that declines is fine; messages under 1 KiB are never deflated.
    bool compress = false;
    /// WebSocket is the only transport there is; kept because configurations name it.
    bool forceWebsockets = true;
    /// Query parameters of the connection, percent-encoded on the way out.
    std::vector<std::pair<std::string, std::string>> connectParams;
    /// A PEM file of certificate authorities to trust beside the system's; empty for none.
    std::string caFile;
    /// What may wait to be sent, in bytes; an emit beyond it is dropped and logged.
    std::size_t maxQueuedBytes = 64u << 20;
    /// Told what goes wrong without another way to say so, one line each, on the main queue; may be empty.
    std::function<void(std::string_view line)> log;
};

/// A connection, with its socket. It connects when the socket is told to.
class KV_EXPORT SocketManager final {
public:
    /// `url`: http, https, ws or wss, host and optional port; anything else fails at `connect` with "disconnect".
    SocketManager(std::string url, SocketConfig config, std::shared_ptr<KvMainQueue> mainQueue,
                  std::shared_ptr<KvMainQueue> engine);
    ~SocketManager();
    SocketManager(SocketManager const&) = delete;
    SocketManager& operator=(SocketManager const&) = delete;

    /// The socket of the namespace "/". The manager owns it; who keeps it longer holds a socket that stays
    /// disconnected.
    std::shared_ptr<SocketIOClient> const& defaultSocket() const { return socket_; }
    /// The manager never reconnects by itself: false is the only mode, kept because callers name it.
    void setReconnects(bool reconnects);

private:
    std::shared_ptr<SocketIOClient> socket_;
};

}  // namespace kv
