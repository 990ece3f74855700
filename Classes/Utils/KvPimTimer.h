#pragma once

#include "Platform/KvMainQueue.h"

#include <chrono>
#include <functional>
#include <memory>

namespace kv {

/// A one-shot timer on a client's main queue that may be stopped from any thread: several clients, each on a queue of
/// its own, share the store of invitations.
class KvPimTimer final {
public:
    static std::shared_ptr<KvPimTimer> startTimer(std::shared_ptr<KvMainQueue> queue, std::chrono::nanoseconds interval,
                                                  std::function<void()> block);
    ~KvPimTimer() { stop(); }
    /// After this the block is not called, nor kept.
    void stop();

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace kv
