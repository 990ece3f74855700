#include "Binding/ClientThread.h"

#include "Platform/KvThread.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

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

}  // namespace

std::shared_ptr<KvMainQueue> clientThreadQueue() {
    std::lock_guard const lock(shared().mutex);
    if (!shared().queue) {
        auto const made = KvMainQueue::create();
        if (!made) return nullptr;
        shared().thread = makeThread("kv.clients", [made] {
            made->run();
            shared().isOver = true;
        });
        if (!shared().thread.joinable()) return nullptr;
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
