#pragma once

#include "Platform/KvMainQueue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

namespace kv {

/// A one-shot timer on a client's main queue, which it belongs to.
class KvPimTimer final {
public:
    static std::shared_ptr<KvPimTimer> startTimer(KvMainQueue& queue, std::chrono::nanoseconds interval,
                                                  std::function<void()> block) {
        auto timer = std::make_shared<KvPimTimer>();
        timer->timer_ = queue.after(interval, std::move(block));
        return timer;
    }
    /// After this the block is not called, nor kept.
    void stop() { timer_.cancel(); }

private:
    KvQueueTimer timer_;
};

}  // namespace kv
