// The threads behind all serial queues and the real clock's delays. They start with the first use, live as long as the
// process, and take no descriptor. What was queued by its normal end is still done, if that takes no more than a few
// seconds; asio::thread_pool would wait for all of it, or for none.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include <sys/types.h>

namespace kv {

/// Any thread.
class KvBackgroundPool final {
public:
    using Work = std::function<void()>;

    static KvBackgroundPool& shared();

    /// Runs `work` as soon as a thread is free.
    void run(Work work);
    /// Runs `work` when this time has passed, and not at all when the process ends first.
    void runAfter(std::chrono::nanoseconds delay, Work work);
    /// Runs `work` when this time has passed, and at once when the process ends first.
    void runWithin(std::chrono::nanoseconds delay, Work work);

private:
    using Clock = std::chrono::steady_clock;

    KvBackgroundPool();
    void drainAtExit();
    void serve();
    // All of these with mutex_ held.
    struct Delayed {
        Work work;
        bool isOwed;  // to the end of the process
    };
    void add(std::chrono::nanoseconds delay, Delayed delayed);
    void wakeOne();
    Work takeDue();
    void runUnlocked(Work work, std::unique_lock<std::mutex>& lock);

    pid_t const process_;
    std::mutex mutex_;
    std::condition_variable wake_;   // of a thread that has nothing to do
    std::condition_variable alarm_;  // of the one among them that waits for the next delay to be over
    std::condition_variable allEnded_;
    // Guarded by mutex_.
    int threads_ = 0;
    int idle_ = 0;  // but for the one that keeps the time
    bool hasTimekeeper_ = false;
    std::deque<Work> ready_;
    std::multimap<Clock::time_point, Delayed> delayed_;
    std::size_t underWay_ = 0;  // what is owed, ready or at work
};

}  // namespace kv
