// The threads behind all serial queues and the real clock's delays. They start with the first use, live as long as the
// process, and take no descriptor. What was queued by its normal end is still done, if that takes no more than a few
// seconds.
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

private:
    using Clock = std::chrono::steady_clock;

    KvBackgroundPool();
    void drainAtExit();
    void serve();
    // All of these with mutex_ held.
    void startThreads();
    Work takeDue();
    void runUnlocked(Work work, std::unique_lock<std::mutex>& lock);

    pid_t const process_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable allEnded_;
    // Guarded by mutex_.
    int threads_ = 0;
    std::deque<Work> ready_;
    std::multimap<Clock::time_point, Work> delayed_;
    std::size_t underWay_ = 0;  // what is ready or at work
};

}  // namespace kv
