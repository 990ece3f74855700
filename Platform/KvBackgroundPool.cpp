#include "Platform/KvBackgroundPool.h"

#include "Platform/KvConsole.h"
#include "Platform/KvThread.h"

#include <chrono>
#include <cstdlib>

#include <boost/asio/executor_work_guard.hpp>

namespace kv {
namespace {

constexpr int kThreads = 2;
constexpr std::chrono::seconds kLongestExit{3};

}  // namespace

KvBackgroundPool& KvBackgroundPool::shared() {
    static auto& pool = *new KvBackgroundPool;  // its threads may be at work until the very end
    return pool;
}

KvBackgroundPool::KvBackgroundPool() : context_(kThreads) {
    for (int i = 0; i < kThreads; ++i) {
        startThread("kv.background", [this] {
            auto const open = boost::asio::make_work_guard(context_);
            context_.run();
        });
    }
    writeConsoleAtExit();  // after the pool, whose work may print
    std::atexit([] { shared().drainAtExit(); });
}

void KvBackgroundPool::began() {
    std::lock_guard lock(mutex_);
    ++underWay_;
}

void KvBackgroundPool::ended() {
    std::lock_guard lock(mutex_);
    if (--underWay_ == 0) allEnded_.notify_all();
}

void KvBackgroundPool::drainAtExit() {
    std::unique_lock lock(mutex_);
    allEnded_.wait_for(lock, kLongestExit, [this] { return underWay_ == 0; });
}

}  // namespace kv
