// A labelled queue that runs work in the background, one piece at a time and in order, on a small pool of threads that
// all such queues share. Callable from any thread. Work that is queued when the process exits normally is still done,
// as long as it takes no more than a few seconds.
#pragma once

#include "Platform/KvClock.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace kv {

class KvSerialQueue final {
public:
    explicit KvSerialQueue(std::string label, std::shared_ptr<KvClock> clock = KvClock::real());
    ~KvSerialQueue();  // what is queued is still run, but for what is delayed
    KvSerialQueue(KvSerialQueue const&) = delete;
    KvSerialQueue& operator=(KvSerialQueue const&) = delete;

    void async(std::function<void()> work);
    /// Queues work, `delay` from now at the earliest, on the queue's clock.
    void asyncAfter(std::chrono::nanoseconds delay, std::function<void()> work);
    /// Queues work, `delay` from now at the latest; at once when the queue is drained or the process ends.
    void asyncWithin(std::chrono::nanoseconds delay, std::function<void()> work);
    /// Waits until everything that was queued before this call has been run. Not from the queue itself.
    void drain();
    bool isCurrent() const;

private:
    class Impl;
    std::string label_;  // for who looks at it in a debugger
    std::shared_ptr<KvClock> clock_;
    std::shared_ptr<Impl> impl_;
};

}  // namespace kv
