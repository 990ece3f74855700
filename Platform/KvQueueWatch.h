// Asks an executor of the application's to poll a queue, whenever the queue has something to do.
#pragma once

#include "Platform/KvDescriptor.h"
#include "Platform/KvMainQueue.h"

#include <functional>
#include <memory>
#include <mutex>

namespace kv {

class KvQueueWatch final : public std::enable_shared_from_this<KvQueueWatch> {
public:
    using Post = std::function<void(KvMainQueue::Work)>;

    /// Null while the system has no descriptor for it. It is watched from `engine`, until `end`: once that has
    /// returned, `post` is not called any more. Any thread.
    static std::shared_ptr<KvQueueWatch> start(std::shared_ptr<KvMainQueue> engine,
                                               std::shared_ptr<KvMainQueue> const& queue, Post post);
    void end();

private:
    KvQueueWatch(std::shared_ptr<KvMainQueue> engine, std::weak_ptr<KvMainQueue> queue, Post post);
    void watch();
    void poll();

    std::shared_ptr<KvMainQueue> const engine_;
    std::weak_ptr<KvMainQueue> const queue_;
    std::mutex mutex_;
    Post post_;              // guarded by the mutex; empty at the end
    KvDescriptor readable_;  // touched on engine_
};

}  // namespace kv
