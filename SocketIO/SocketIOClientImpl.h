// The inside of a socket, shared by the socket and its manager. Belongs to the main queue.
#pragma once

#include "Net/Failure.h"
#include "Net/NetworkWatch.h"
#include "SocketIO/AckTable.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"
#include "SocketIO/core/EventNames.h"
#include "SocketIO/transport/Connection.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv {

class SocketIOClient::Impl {
public:
    Impl(std::string url, SocketConfig config, std::shared_ptr<KvMainQueue> mainQueue,
         std::shared_ptr<KvMainQueue> engine);
    ~Impl();

    /// Has the system watched where the configuration says so; once, when the socket is there.
    void watchNetwork();
    void connect();
    void networkChanged();
    void resumeReading();
    /// Leaves, and tells the handlers.
    void disconnect();
    /// Leaves, if it was not gone already; the handlers hear nothing of it.
    void release();
    /// The same for good, when the manager is gone: nothing connects any more.
    void releaseForGood();
    void callIfStillConnecting(std::chrono::duration<double> timeout, std::function<void()> handler);
    /// Says why nothing is sent, if nothing is.
    std::optional<SocketNoAck> send(std::string_view event, SocketItems const& items,
                                    std::optional<std::uint64_t> ackId, std::chrono::steady_clock::time_point deadline);
    void addHandler(std::string event, Handler handler);
    void assertMainThread() const;
    std::size_t bytesQueued() const;
    SocketPressure pressure() const;
    KvFailureStage stage() const;

    SocketIOClient* socket = nullptr;  // whose inside this is
    std::string const url;
    std::shared_ptr<SocketConfig const> const config;  // its connections share it
    std::shared_ptr<KvMainQueue> const mainQueue;
    std::shared_ptr<KvMainQueue> const engine;
    std::shared_ptr<sio::AckTable> const acks;
    SocketStatus status = SocketStatus::notConnected;
    std::string sid;
    bool isReleasedForGood = false;  // the manager is gone
    net::Failure failure;            // of the last connection that ended by itself
    std::function<void()> writable;

    // Nothing is ever taken out: a handler that is at work stays where it is, whatever it adds.
    using Handlers = std::multimap<std::string, Handler const, std::less<>>;
    using HandlersOfOne = std::pair<Handlers::const_iterator, Handlers::const_iterator>;
    Handlers handlers;
    std::shared_ptr<sio::EventNames> const names = std::make_shared<sio::EventNames>();  // of `handlers`

private:
    class Link;

    void onConnected(Link const& link, std::string_view sessionId);
    void onWritable();
    void onEvent(std::shared_ptr<Link> const& link, sio::ReceivedPacket const& packet);
    SocketAnswer answerTo(std::shared_ptr<Link> const& link, std::optional<std::uint64_t> id);
    void log(std::string_view line) const;
    static void deliver(Link const* link, HandlersOfOne const& to, SocketData const& data);
    void deliverText(std::string_view event, std::string_view text);

    std::shared_ptr<Link> link_;          // to the present connection; one that was released delivers nothing any more
    SocketPressure ended_;                // of the connections before
    std::vector<KvQueueTimer> timeouts_;  // of the attempt to connect
    std::shared_ptr<void> networkWatch_;
};

}  // namespace kv
