#include "Platform/KvEngineThread.h"

#include "Platform/KvThread.h"

namespace kv {

std::shared_ptr<KvMainQueue> engineThreadQueue() {
    // Neither the queue nor its thread ends before the process: connections of static clients may outlive any order of
    // destruction.
    static auto& queue = *new std::shared_ptr<KvMainQueue>([] {
        auto made = KvMainQueue::create();
        startThread("kv.engine", [made] { made->run(); });
        return made;
    }());
    return queue;
}

}  // namespace kv
