// The inside of a socket, shared by the socket and its manager. Belongs to the main queue.
#pragma once

#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"
#include "SocketIO/core/AckTable.h"
#include "SocketIO/transport/Connection.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kv {

class SocketIOClient::Impl {
public:
    Impl(std::string url, SocketConfig config, std::shared_ptr<KvMainQueue> mainQueue,
         std::shared_ptr<KvMainQueue> engine);
    ~Impl();

    void connect();
    /// Leaves the server without a word to the handlers.
    void leave();
    void disconnect();
    /// The manager is gone: nothing is delivered any more, and nothing connects.
    void abandon();
    void callIfStillConnecting(std::chrono::duration<double> timeout, std::function<void()> handler);
    void send(std::string_view event, SocketItems const& items, std::optional<std::uint64_t> ackId,
              std::chrono::steady_clock::time_point expires);
    void assertMainThread() const;

    SocketIOClient* socket = nullptr;  // whose inside this is
    std::string const url;
    SocketConfig const config;
    std::shared_ptr<KvMainQueue> const mainQueue;
    std::shared_ptr<KvMainQueue> const engine;
    std::shared_ptr<sio::AckTable> const acks;
    SocketStatus status = SocketStatus::notConnected;
    std::string sid;
    bool isAbandoned = false;  // the manager is gone

    // A list is replaced, never changed: handlers may add handlers while it runs.
    using Handlers = std::shared_ptr<std::vector<Handler> const>;
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    std::unordered_map<std::string, Handlers, Hash, std::equal_to<>> handlers;

private:
    class Link;

    void onConnected(Link const& link, std::string_view sessionId);
    void deliver(Link const* link, std::string_view event, SocketData const& data);
    void deliverText(std::string_view event, std::string_view text);

    std::shared_ptr<Link> link_;          // to the present connection; one that was dropped delivers nothing any more
    std::vector<KvQueueTimer> timeouts_;  // of the attempt to connect
};

}  // namespace kv
