// What the connections of one client count, over all its sockets. Each number has one writer at a time and any number
// of readers, so that adding is a load and a store, without an instruction that locks. Those of a connection that is
// being left are written together with the next one's: both live on the engine queue.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <boost/intrusive/list.hpp>

namespace kv {

/// A number that one thread at a time changes, and any may read.
class KvCounter {
public:
    void add(std::uint64_t more = 1) noexcept { set(value() + more); }
    void set(std::uint64_t value) noexcept { value_.store(value, std::memory_order_relaxed); }
    std::uint64_t value() const noexcept { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> value_{0};
};

/// The same for a duration.
class KvDuration {
public:
    using Time = std::chrono::nanoseconds;
    void add(Time more) noexcept { set(value() + more); }
    void set(Time value) noexcept { value_.store(value.count(), std::memory_order_relaxed); }
    Time value() const noexcept { return Time(value_.load(std::memory_order_relaxed)); }

private:
    std::atomic<std::int64_t> value_{0};
};

/// A request that waits for its answer; it leaves the list of them by itself.
struct KvPendingRequest : boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>> {
    explicit KvPendingRequest(std::chrono::steady_clock::time_point when) : asked(when) {}
    std::chrono::steady_clock::time_point const asked;
};

struct SocketMetrics {
    struct Messages {
        KvCounter messages, bytes;
    };
    struct Frames {
        KvCounter frames, bytes;
    };

    SocketMetrics() = default;
    SocketMetrics(SocketMetrics const&) = delete;
    SocketMetrics& operator=(SocketMetrics const&) = delete;
    virtual ~SocketMetrics() = default;

    /// A request was answered, so long after it was made.
    virtual void onAnswer(std::chrono::nanoseconds) {}

    // Main queue.
    boost::intrusive::list<KvPendingRequest, boost::intrusive::constant_time_size<false>> pending;  // oldest first
    // Main queue; any thread reads.
    Messages queued;  // to be sent
    KvCounter notConnected, noRoom;
    KvCounter unawaited, invalid, late, unasked, left;

    // Engine queue; any thread reads.
    alignas(64) Messages unqueued;  // sent, or overdue
    KvCounter overdue;
    Frames sent, received;
    KvCounter messagesReceived, readingPauses, pings, answeredUnread;
    KvDuration pingAnnounced, pingInterval, longestPingInterval, pingAnswerTime;

    // Any thread.
    std::atomic<bool> isReadingPaused{false};  // by the application
    std::atomic<std::uint64_t> unhandledMessages{0}, unhandledBytes{0};
    std::atomic<std::uint64_t> lostMessages{0}, lostBytes{0};  // which were queued, and never left the queue
};

}  // namespace kv
