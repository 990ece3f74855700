#include "Platform/KvBackgroundPool.h"

#include "Platform/KvConsole.h"
#include "Platform/KvThread.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

#include <unistd.h>

namespace kv {
namespace {

constexpr int kThreads = 2;
constexpr std::chrono::seconds kLongestExit{3};

}  // namespace

KvBackgroundPool& KvBackgroundPool::shared() {
    static auto& pool = *new KvBackgroundPool;  // its threads may be at work until the very end
    return pool;
}

KvBackgroundPool::KvBackgroundPool() : process_(::getpid()) {
    writeConsoleAtExit();  // after the pool, whose work may print
    std::atexit([] { shared().drainAtExit(); });
}

void KvBackgroundPool::run(Work work) {
    std::lock_guard lock(mutex_);
    ready_.push_back(std::move(work));
    ++underWay_;
    wakeOne();
}

void KvBackgroundPool::runAfter(std::chrono::nanoseconds delay, Work work) {
    std::lock_guard lock(mutex_);
    add(delay, {std::move(work), false});
}

void KvBackgroundPool::runWithin(std::chrono::nanoseconds delay, Work work) {
    std::lock_guard lock(mutex_);
    ++underWay_;
    add(delay, {std::move(work), true});
}

void KvBackgroundPool::add(std::chrono::nanoseconds delay, Delayed delayed) {
    auto const entry = delayed_.emplace(Clock::now() + delay, std::move(delayed));
    if (!hasTimekeeper_) {
        wakeOne();
    } else if (entry == delayed_.begin()) {
        alarm_.notify_one();
    }
}

// Where there can be no thread now, there may be one when the next work comes: what is here waits for that.
void KvBackgroundPool::wakeOne() {
    if (idle_ > 0) {
        wake_.notify_one();
    } else if (hasTimekeeper_) {
        alarm_.notify_one();
    } else if (threads_ < kThreads && startThread("kv.background", [this] { serve(); })) {
        ++threads_;
    }
}

void KvBackgroundPool::serve() {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (auto work = takeDue()) {
            runUnlocked(std::move(work), lock);
        } else if (hasTimekeeper_) {
            ++idle_;
            wake_.wait(lock);
            --idle_;
        } else {
            hasTimekeeper_ = true;
            if (delayed_.empty()) {
                alarm_.wait(lock);
            } else {
                auto const next = delayed_.begin()->first;
                alarm_.wait_until(lock, next);
            }
            hasTimekeeper_ = false;
        }
    }
}

KvBackgroundPool::Work KvBackgroundPool::takeDue() {
    for (auto const now = Clock::now(); !delayed_.empty() && delayed_.begin()->first <= now;) {
        auto due = std::move(delayed_.extract(delayed_.begin()).mapped());
        if (!due.isOwed) ++underWay_;
        ready_.push_back(std::move(due.work));
    }
    if (ready_.empty()) return nullptr;
    auto work = std::move(ready_.front());
    ready_.pop_front();
    // Somebody else for the rest of it, and to keep the time meanwhile.
    if (!ready_.empty() || (!delayed_.empty() && !hasTimekeeper_)) wakeOne();
    return work;
}

void KvBackgroundPool::runUnlocked(Work work, std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    work();
    work = nullptr;  // what it holds goes before the end of the process is let through
    lock.lock();
    if (--underWay_ == 0) allEnded_.notify_all();
}

void KvBackgroundPool::drainAtExit() {
    if (::getpid() != process_) return;  // a fork, which has the memory of this process but none of its threads
    std::unique_lock lock(mutex_);
    for (auto entry = delayed_.begin(); entry != delayed_.end();) {
        auto const next = std::next(entry);
        if (entry->second.isOwed) ready_.push_back(std::move(delayed_.extract(entry).mapped().work));
        entry = next;
    }
    wakeOne();
    if (threads_ == 0) {
        while (auto work = takeDue()) runUnlocked(std::move(work), lock);
    }
    allEnded_.wait_for(lock, kLongestExit, [this] { return underWay_ == 0; });
}

}  // namespace kv
