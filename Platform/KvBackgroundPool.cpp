#include "Platform/KvBackgroundPool.h"

#include "Platform/KvConsole.h"
#include "Platform/KvThread.h"

#include <algorithm>
#include <cstdlib>
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
    startThreads();
    wake_.notify_one();
}

void KvBackgroundPool::runAfter(std::chrono::nanoseconds delay, Work work) {
    std::lock_guard lock(mutex_);
    auto const entry = delayed_.emplace(Clock::now() + delay, std::move(work));
    startThreads();
    // All of them: the one that wakes up may be at work on something else by then.
    if (entry == delayed_.begin()) wake_.notify_all();
}

// Where there can be no thread now, there may be one when the next work comes: what is here waits for that.
void KvBackgroundPool::startThreads() {
    while (threads_ < kThreads && startThread("kv.background", [this] { serve(); })) ++threads_;
}

void KvBackgroundPool::serve() {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (auto work = takeDue()) {
            runUnlocked(std::move(work), lock);
        } else if (delayed_.empty()) {
            wake_.wait(lock);
        } else {
            auto const next = delayed_.begin()->first;
            wake_.wait_until(lock, next);
        }
    }
}

KvBackgroundPool::Work KvBackgroundPool::takeDue() {
    for (auto const now = Clock::now(); !delayed_.empty() && delayed_.begin()->first <= now; ++underWay_) {
        ready_.push_back(std::move(delayed_.extract(delayed_.begin()).mapped()));
    }
    if (ready_.empty()) return nullptr;
    auto work = std::move(ready_.front());
    ready_.pop_front();
    if (!ready_.empty()) wake_.notify_one();
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
    if (threads_ == 0) {
        while (auto work = takeDue()) runUnlocked(std::move(work), lock);
    }
    allEnded_.wait_for(lock, kLongestExit, [this] { return underWay_ == 0; });
}

}  // namespace kv
