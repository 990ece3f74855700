#include "Platform/KvEngineThread.h"

#include "Platform/KvThread.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>

#include <unistd.h>

namespace kv {
namespace {

constexpr std::chrono::seconds kLongestExit{3};  // a handshake on a busy machine takes long

// Neither the queue nor its thread ends before the process: connections of static clients may outlive any order of
// destruction.
struct Engine {
    std::mutex mutex;
    std::shared_ptr<KvMainQueue> queue;  // guarded by the mutex; null until there is a thread for it
    std::thread thread{};                // of the mutex, then of the end of the process
    std::atomic<bool> isOver{false};
};

Engine& engine() {
    static auto& engine = *new Engine;
    return engine;
}

void stopEngineThread() {
    std::shared_ptr<KvMainQueue> queue;
    {
        std::lock_guard const lock(engine().mutex);
        queue = engine().queue;
    }
    if (!queue || queue->isCurrent()) return;
    queue->stop();
    auto const end = std::chrono::steady_clock::now() + kLongestExit;
    while (!engine().isOver && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (engine().isOver) engine().thread.join();  // the libraries that it used clean up as it ends
}

}  // namespace

std::shared_ptr<KvMainQueue> engineThreadQueue() {
    std::lock_guard const lock(engine().mutex);
    auto& queue = engine().queue;
    if (!queue) {
        auto const made = KvMainQueue::create();
        if (made) {
            engine().thread = makeThread("kv.engine", [made] {
                made->run();
                engine().isOver = true;
            });
        }
        if (engine().thread.joinable()) queue = made;
    }
    return queue;
}

void stopEngineThreadAtExit() {
    static pid_t const process = ::getpid();
    static int const registered = std::atexit([] {
        if (::getpid() == process) stopEngineThread();
    });
    static_cast<void>(registered);
}

}  // namespace kv
