// The acknowledgements that are awaited, of all connections that one socket makes. Belongs to the main queue.
//
// It outlives its socket: its timer keeps it as long as something is pending, so that each acknowledgement ends exactly
// once, with the server's items or with "NO ACK" at its time-out.
#pragma once

#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketData.h"
#include "SocketIO/SocketMetrics.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kv::sio {

/// A time-out that the clock can be moved by: not negative, not beyond some thirty years.
std::chrono::nanoseconds boundedTimeout(std::chrono::duration<double> timeout);

class AckTable : public std::enable_shared_from_this<AckTable> {
public:
    using Handler = std::function<void(SocketData const& data)>;
    using Time = KvMainQueue::Clock::time_point;
    struct Pending {
        std::uint64_t id;
        Time deadline;
    };

    explicit AckTable(std::weak_ptr<KvMainQueue> queue,
                      std::shared_ptr<SocketMetrics> metrics = std::make_shared<SocketMetrics>())
        : queue_(std::move(queue)), metrics_(std::move(metrics)) {}

    /// Ids are never used twice, so an answer from a lost connection cannot match another request.
    Pending add(std::chrono::duration<double> timeout, Handler done);
    /// An answer without a pending acknowledgement comes too late and is dropped; one that never was asked for is
    /// counted too. `now`: when it came.
    void answer(std::optional<std::uint64_t> id, SocketData const& data, Time now);
    /// Says of one that is pending that it was never asked for.
    void neverAsked(std::uint64_t id, SocketNoAck why) { unsent_[id] = why; }
    std::uint64_t unasked() const { return unasked_; }
    std::size_t size() const { return handlers_.size(); }

private:
    using Entry = std::pair<Time, std::uint64_t>;
    struct Asked : KvPendingRequest {
        Asked(Time now, Handler handler) : KvPendingRequest(now), done(std::move(handler)) {}
        Handler done;
    };

    void onTimer();
    void arm();
    void forgetAnswered();
    void giveBack();
    void endWithoutAnswer(std::uint64_t id, Handler const& done);

    // Weak: the queue's timer holds the table.
    std::weak_ptr<KvMainQueue> const queue_;
    std::shared_ptr<SocketMetrics> const metrics_;
    std::uint64_t nextId_ = 0;
    std::uint64_t unasked_ = 0;
    std::unordered_map<std::uint64_t, Asked> handlers_;
    std::unordered_map<std::uint64_t, SocketNoAck> unsent_;  // few, mostly none
    std::vector<Entry> deadlines_;  // a heap, the earliest first; those of answered ones are cleared out in bulk
    KvQueueTimer timer_;
    Time timerDue_{};
};

}  // namespace kv::sio
