#include "Binding/ClientThread.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <system_error>
#include <thread>

#include <pthread.h>
#include <signal.h>

namespace kv::binding {
namespace {

constexpr std::chrono::seconds kLongestExit{3};

// Never destroyed: clients may be used to the very end of the process.
struct Shared {
    std::mutex mutex;
    std::shared_ptr<KvMainQueue> queue{};  // guarded by the mutex; null until there is a thread for it
    std::thread thread{};
    std::atomic<bool> isOver{false};
};

Shared& shared() {
    static auto& shared = *new Shared;
    return shared;
}

void runQueue(std::shared_ptr<KvMainQueue> const& queue) {
    // Signals are the application's.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    pthread_setname_np(pthread_self(), "kv.clients");
    queue->run();
    shared().isOver = true;
}

}  // namespace

std::shared_ptr<KvMainQueue> clientThreadQueue() {
    std::lock_guard const lock(shared().mutex);
    if (!shared().queue) {
        auto const made = KvMainQueue::create();
        if (!made) return nullptr;
        try {
            shared().thread = std::thread(runQueue, made);
        } catch (std::system_error const&) {
            return nullptr;
        }
        shared().queue = made;
    }
    return shared().queue;
}

void stopClientThread() {
    std::shared_ptr<KvMainQueue> queue;
    {
        std::lock_guard const lock(shared().mutex);
        queue = shared().queue;
    }
    if (!queue || queue->isCurrent()) return;
    queue->post([queue] { queue->stop(); });
    auto const end = std::chrono::steady_clock::now() + kLongestExit;
    while (!shared().isOver && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (shared().isOver) shared().thread.join();
}

}  // namespace kv::binding
