#include "SocketIO/transport/HeapTrim.h"

#include "Platform/KvSystem.h"

#include <mutex>
#include <utility>

namespace kv::sio {
namespace {

constexpr std::chrono::seconds kCalm{3};

struct Wait {
    KvMainQueue* engine;
    KvQueueTimer timer;
    bool isProlonged = false;  // guarded by `mutex`
};
std::mutex mutex;

void begin(std::shared_ptr<KvMainQueue> const& engine, std::shared_ptr<Wait> const& wait) {
    // The timer's work keeps the wait, until it is done or its queue is gone.
    wait->timer = engine->after(kCalm, [weak = std::weak_ptr(engine), wait] {
        {
            std::lock_guard const lock(mutex);
            auto const queue = weak.lock();
            if (queue && std::exchange(wait->isProlonged, false)) return begin(queue, wait);
        }
        returnFreeMemory();
    });
}

}  // namespace

void trimHeapSoon(std::shared_ptr<KvMainQueue> const& engine) {
    // One for the process: a heap belongs to no connection. Never destroyed, as the engine may still be at work then.
    static auto& present = *new std::weak_ptr<Wait>;
    std::lock_guard const lock(mutex);
    if (auto const wait = present.lock(); wait && wait->engine == engine.get()) {
        wait->isProlonged = true;
        return;
    }
    auto const wait = std::make_shared<Wait>(Wait{engine.get(), {}, false});
    present = wait;
    begin(engine, wait);
}

}  // namespace kv::sio
