// Sends what waits on one connection, as much at a time as the socket takes. Lives on the engine queue.
#pragma once

#include "Net/Stream.h"
#include "Platform/KvData.h"
#include "SocketIO/core/WebSocketCodec.h"
#include "SocketIO/transport/Framer.h"
#include "SocketIO/transport/Outbox.h"

#include <span>
#include <string_view>

namespace kv::sio {

class Sender {
public:
    enum class Step { idle, wantRead, wantWrite, more, broken };

    Sender(Outbox& outbox, SocketMetrics::Frames& sent, Tap const* tap) : framer_(outbox, tap), sent_(sent) {}

    Framer& framer() { return framer_; }
    /// Sends until nothing waits any more (`idle`), the socket must become ready first, others shall have their turn
    /// (`more`), or the socket is broken: reading tells how. `now` is the main queue's.
    Step send(net::Stream& stream, Outbox::Time now);
    /// A last close frame. Returns whether it could go out at once.
    bool sendClose(net::Stream& stream, WsCloseCode code);
    void clear() { unsent_ = KvBytes(); }

private:
    Step write(net::Stream& stream, std::span<std::uint8_t const> bytes);

    Framer framer_;
    SocketMetrics::Frames& sent_;
    KvBytes unsent_;  // framed, but the socket took no more
    bool isBroken_ = false;
};

}  // namespace kv::sio
