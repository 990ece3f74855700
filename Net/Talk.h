// What two sides say to each other on a fresh stream: the tunnel of a proxy, the handshake of a WebSocket, an HTTP
// request. Engine queue.
#pragma once

#include "Net/Stream.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kv::net {

/// One side's part, which knows no I/O.
class Script {
public:
    virtual ~Script() = default;
    /// What is to be sent now, until the next call at least; empty when nothing is.
    virtual std::string_view toSend() = 0;
    virtual void onReceived(std::string_view bytes) = 0;
    /// The other side has said all that it will.
    virtual void onClosed() = 0;
    virtual bool isOver() const = 0;
    /// What went wrong, once it is over; empty for nothing.
    virtual std::string const& error() const = 0;
};

/// Plays a script. Stream and script must be there until it is done or cancelled.
class Talk final : public std::enable_shared_from_this<Talk> {
public:
    Talk(Stream& stream, Script& script, std::function<void(std::string error)> done)
        : stream_(stream), script_(script), done_(std::move(done)) {}

    void start();
    /// `done` is not called any more.
    void cancel() { done_ = nullptr; }

private:
    void turn();
    void send();
    void receive();
    void await(IoStatus what);
    void finish(std::string error);

    Stream& stream_;
    Script& script_;
    std::function<void(std::string error)> done_;
    std::string_view unsent_;
    std::string sendError_;  // kept: the other side may have said why before it stopped listening
    bool isAwaiting_[2] = {false, false};
};

}  // namespace kv::net
