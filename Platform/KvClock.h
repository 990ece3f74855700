// What time it is, and a call when it is later. The real clock by default; tests hand in one that they move.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace kv {

/// Any thread.
class KvClock {
public:
    using WallTime = std::chrono::system_clock::time_point;

    static std::shared_ptr<KvClock> real();
    virtual ~KvClock() = default;
    virtual WallTime wallTime() const = 0;
    /// Calls `work` once, `delay` from now. It must be short: it only starts what is to be done.
    virtual void callAfter(std::chrono::nanoseconds delay, std::function<void()> work) = 0;
};

/// A clock that stands still until it is moved.
class KvManualClock final : public KvClock {
public:
    explicit KvManualClock(WallTime start) : wallTime_(start) {}
    WallTime wallTime() const override;
    void callAfter(std::chrono::nanoseconds delay, std::function<void()> work) override;

    /// Moves the time on and makes the calls that become due, in their order.
    void advance(std::chrono::nanoseconds duration);
    /// Sets the wall alone, to any time, as an administrator would.
    void setWallTime(WallTime time);

private:
    mutable std::mutex mutex_;
    // Guarded by mutex_.
    WallTime wallTime_;
    std::chrono::nanoseconds passed_{0};
    std::multimap<std::chrono::nanoseconds, std::function<void()>> calls_;
};

}  // namespace kv
