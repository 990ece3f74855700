#include "Platform/KvClock.h"

#include "Platform/KvBackgroundPool.h"

#include <algorithm>
#include <utility>

namespace kv {
namespace {

class RealClock final : public KvClock {
public:
    WallTime wallTime() const override { return std::chrono::system_clock::now(); }
    void callAfter(std::chrono::nanoseconds delay, std::function<void()> work) override {
        KvBackgroundPool::shared().runAfter(delay, std::move(work));
    }
};

}  // namespace

std::shared_ptr<KvClock> KvClock::real() {
    static auto& clock = *new std::shared_ptr<KvClock>(std::make_shared<RealClock>());
    return clock;
}

KvClock::WallTime KvManualClock::wallTime() const {
    std::lock_guard lock(mutex_);
    return wallTime_;
}

void KvManualClock::callAfter(std::chrono::nanoseconds delay, std::function<void()> work) {
    std::lock_guard lock(mutex_);
    calls_.emplace(passed_ + std::max(delay, std::chrono::nanoseconds(0)), std::move(work));
}

void KvManualClock::advance(std::chrono::nanoseconds duration) {
    std::unique_lock lock(mutex_);
    passed_ += duration;
    wallTime_ += std::chrono::duration_cast<WallTime::duration>(duration);
    while (!calls_.empty() && calls_.begin()->first <= passed_) {
        auto const work = std::move(calls_.extract(calls_.begin()).mapped());
        lock.unlock();
        work();
        lock.lock();
    }
}

void KvManualClock::setWallTime(WallTime time) {
    std::lock_guard lock(mutex_);
    wallTime_ = time;
}

}  // namespace kv
