// What a client has counted: its connections' part (`SocketMetrics`) and its own. Written on its main queue, read by
// any thread. It lives until the last request has ended and the last connection is gone; then its numbers go to the
// process's.
#pragma once

#include "Classes/Model/KvPimMetrics.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketMetrics.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace kv {

struct KvPimResult;

class KvPimCounters final : public SocketMetrics {
public:
    using Time = KvMainQueue::Clock::time_point;

    explicit KvPimCounters(std::shared_ptr<KvMainQueue> const& queue);
    ~KvPimCounters() override;

    /// All numbers but `oldestRequest`; `now` is the main queue's. Any thread.
    KvPimMetrics read(Time now) const;
    /// How long the oldest request has been waiting. Main queue.
    std::chrono::nanoseconds oldestRequest(Time now) const;
    /// Whose clock it is; null when it is gone. Any thread.
    std::shared_ptr<KvMainQueue> queue() const { return queue_.lock(); }

    // Main queue.
    void onRequest() { requested_.add(); }
    /// A request has ended; without a result, it was refused here, before it was begun.
    void onEnd(std::int64_t code, KvPimResult const* result);
    void onAnswer(std::chrono::nanoseconds roundTrip) override { roundTrips_.add(roundTrip); }
    void onLoginCalled() { loginCalled_ = now(); }
    void onLoginEnd(std::int64_t code);
    /// A connection that was logged in has ended.
    void onConnectionEnd(KvPimConnectionEnd how);
    void onReconnected();
    void onFailedReconnection(KvFailureStage stage) { failedReconnections_[static_cast<std::size_t>(stage)].add(); }
    void onState(std::int64_t state);
    /// The client is gone, whatever is still to end.
    void onClientGone() { onState(0); }

private:
    struct Durations {
        std::array<KvCounter, std::tuple_size_v<decltype(KvPimDurations::counts)>> counts;
        KvDuration total;
        void add(std::chrono::nanoseconds duration);
        KvPimDurations read() const;
    };

    Time now() const;

    std::weak_ptr<KvMainQueue> const queue_;
    KvCounter requested_;
    std::array<KvCounter, 7> outcomes_;
    std::array<KvCounter, 10> logins_;
    std::array<KvCounter, 5> connectionEnds_;
    std::array<KvCounter, 10> failedReconnections_;
    std::array<KvDuration, 5> stateTimes_;  // of the states before the present one; the first: of none
    KvCounter state_;
    KvDuration stateSince_;  // since the clock's beginning
    Durations roundTrips_, loginTimes_, reconnectionTimes_;
    // Main queue alone.
    Time loginCalled_{};
    std::optional<Time> lost_;  // when the connection was lost that is being restored
};

}  // namespace kv
