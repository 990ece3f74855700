// A connection to one Socket.IO server over WebSocket, and its default socket.
//
// All calls belong to the main queue given at construction; handlers run on it. The engine queue does the socket work:
// the same queue, or another one that some thread drives. Nothing connects before the socket's `connect`. Destroying
// the manager closes the connection, and the handlers hear nothing of it; acknowledgements still end as they are told
// to.
#pragma once

#include "Platform/KvExport.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketConfig.h"

#include <memory>
#include <string>

namespace kv {

class SocketIOClient;

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
