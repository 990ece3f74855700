#include "Platform/KvEngineThread.h"

#include "Platform/KvThread.h"

#include <mutex>

namespace kv {

std::shared_ptr<KvMainQueue> engineThreadQueue() {
    // Neither the queue nor its thread ends before the process: connections of static clients may outlive any order of
    // destruction.
    static std::mutex mutex;
    static auto& queue = *new std::shared_ptr<KvMainQueue>;
    std::lock_guard lock(mutex);
    if (!queue) {
        auto const made = KvMainQueue::create();
        if (made && startThread("kv.engine", [made] { made->run(); })) queue = made;
    }
    return queue;
}

}  // namespace kv
