#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kv {

/// How a socket has kept up with its server, and its main queue with the socket: all its connections together, but for
/// what waits now, which is of the present one.
struct SocketPressure {
    /// Bytes of texts and attachments that wait to be sent, without framing.
    std::size_t bytesQueued = 0;
    /// The most that ever waited at a time.
    std::size_t mostBytesQueued = 0;
    /// How many emits and answers were dropped because `SocketConfig::maxQueuedBytes` left no room for them.
    std::uint64_t dropped = 0;
    /// How many emits were never sent because their acknowledgement's time was over before their turn came.
    std::uint64_t overdue = 0;
    /// Bytes of memory of what was received and waits for the main queue. Always 0 when the engine is the main queue.
    std::size_t bytesUnhandled = 0;
    /// The most that ever waited at a time.
    std::size_t mostBytesUnhandled = 0;
    /// How often nothing more was read for a while because too much waited for the main queue.
    std::uint64_t readingPauses = 0;
    /// Whether `SocketIOClient::onWritable` has a call to come.
    bool isTight = false;

    /// Adds what a connection left behind that has ended: what waited on it waits no more.
    void addEnded(SocketPressure const& ended) {
        mostBytesQueued = std::max(mostBytesQueued, ended.mostBytesQueued);
        dropped += ended.dropped;
        overdue += ended.overdue;
        mostBytesUnhandled = std::max(mostBytesUnhandled, ended.mostBytesUnhandled);
        readingPauses += ended.readingPauses;
        isTight = isTight || ended.isTight;
    }
};

}  // namespace kv
