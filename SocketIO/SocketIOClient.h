// One socket of a Socket.IO connection: events in, events out, acknowledgements. Everything here belongs to the main
// queue of its manager, handlers and acknowledgements included; any of them may destroy the socket or its manager. A
// handler must not throw.
#pragma once

#include "Net/KvFailureStage.h"
#include "Platform/KvExport.h"
#include "SocketIO/SocketData.h"
#include "SocketIO/SocketPressure.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace kv {

namespace net {
struct Failure;
}

/// How far a socket is; `disconnected` only after it was connecting or connected.
enum class SocketStatus { notConnected, connecting, connected, disconnected };

/// One socket. It is made by its manager.
class KV_EXPORT SocketIOClient final : public std::enable_shared_from_this<SocketIOClient> {
public:
    using Handler = std::function<void(SocketData const& data)>;

    /// An acknowledgement that waits for its callback. Nothing is sent before `timingOutAfter`.
    class KV_EXPORT Acknowledgement {
    public:
        /// Sends the event and calls `done` exactly once: with the items of the server's answer, or after `timeout`
        /// with the single item "NO ACK", also when the socket was never connected, was lost, or is gone.
        void timingOutAfter(std::chrono::duration<double> timeout, Handler done) &&;

    private:
        friend class SocketIOClient;
        Acknowledgement(std::shared_ptr<SocketIOClient> socket, std::string_view event, SocketItems&& items)
            : socket_(std::move(socket)), event_(event), items_(std::move(items)) {}
        std::shared_ptr<SocketIOClient> socket_;
        std::string event_;
        SocketItems items_;
    };

    /// Adds a handler for an event of the server or of the client itself: "connect", "disconnect" (one item, the
    /// reason: "Got Disconnect" when the server left, "Namespace leave" when this side did, "Ping timeout", a connect
    /// error's message, or the transport's own text) and "error" (one item, a text). Handlers of a name run in the
    /// order added.
    void on(std::string event, Handler handler);

    /// Connects. The attempt ends in "connect" or "disconnect"; TCP, TLS and the WebSocket handshake have 30 seconds
    /// together. Does nothing while connecting or connected.
    void connect();
    /// The same; calls `handler` once if the socket is still connecting `timeout` from now. The attempt goes on all the
    /// same. A "disconnect" before then is the end of the attempt, and of its time-out.
    void connectWithTimeoutAfter(std::chrono::duration<double> timeout, std::function<void()> handler);
    /// Says that the system's network has changed, come back, or slept: for applications that know before the heartbeat
    /// does. A connection is asked for a sign of life; when nothing at all has come from the server 5 seconds after the
    /// last call, it ends in "disconnect" with "The server is silent since the network changed". An attempt to connect
    /// that is older than a second, or will be, begins anew. Calls in a row count as one. Does nothing while neither
    /// connecting nor connected. `KvPimNetworkOptions::watchesNetwork` has it called by the library.
    void networkChanged();
    /// Leaves. "disconnect" with "Namespace leave" is delivered within the call, unless the socket was disconnected.
    void disconnect();

    /// The session id that the server gave to this socket, empty while not connected.
    std::string const& sid() const;
    /// How far the socket is at this moment.
    SocketStatus status() const;
    /// How far the present connection is, or the attempt to make one; or else where the last one failed.
    KvFailureStage stage() const;
    /// For the client's inside: what is known of why the last connection, or attempt, ended by itself.
    net::Failure const& failure() const;
    /// How many acknowledgements came that answer nothing that was ever asked: signs of a server that is broken.
    std::uint64_t unaskedAcknowledgements() const;

    /// Sends an event. While the socket is not connected nothing is sent and "error" is delivered. Reserved names
    /// ("connect", "disconnect", ...) and more than ten attachments, which many servers refuse, are told to the log.
    void emit(std::string_view event, SocketItems const& items);
    /// Prepares an event that the server is to acknowledge: `timingOutAfter` of the result sends it.
    [[nodiscard]] Acknowledgement emitWithAck(std::string_view event, SocketItems items);

    /// How many bytes of texts and attachments wait to be sent on the present connection, without framing; 0 while
    /// there is none. A message counts until all of it has been framed; what the system has taken, or is to take next
    /// (some 256 KiB at most), does not count any more.
    std::size_t bytesQueued() const;
    /// What is called when there is room again: once each time after what waits had been more than half of
    /// `SocketConfig::maxQueuedBytes`, or an emit had been dropped because there was no room for it, and what waits is
    /// at most half of that. If the connection ends before, it is called when the next one is connected, behind the
    /// handlers of "connect". Never inside a call of the socket's. One at a time; empty for none.
    void onWritable(std::function<void()> handler);
    /// Nothing more is read from the server, on this connection and the following ones, until `resumeReading`: for
    /// those who hand what arrives to a queue of their own, which is full. What was read already is still delivered.
    /// The server's heartbeat is answered meanwhile, but a connection that is lost is not found out.
    void pauseReading();
    /// Reads again.
    void resumeReading();
    /// Counters of what waits in both directions, and has waited. The calls that read them are cheap, but take a lock.
    SocketPressure pressure() const;

    class Impl;
    /// For the manager.
    explicit SocketIOClient(std::unique_ptr<Impl> impl);
    ~SocketIOClient();

private:
    friend class SocketManager;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kv
