#include "Platform/KvBackgroundPool.h"

#include <chrono>
#include <cstdlib>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <pthread.h>
#include <signal.h>

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
        std::thread([this] {
            // Signals are the application's. That includes the one that a file over the size limit raises in its
            // writer, which would end the process.
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, nullptr);
            pthread_setname_np(pthread_self(), "kv.background");
            auto const open = boost::asio::make_work_guard(context_);
            context_.run();
        }).detach();
    }
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
