#pragma once

#include "Platform/KvMainQueue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace kv {

/// A completion that work in a queue has promised to call. If the work is dropped before it does, because its client
/// was destroyed, `drop` calls it all the same, at a later turn of the main queue.
class KvOwedCompletion {
public:
    using Completion = std::function<void(std::int64_t)>;

    KvOwedCompletion(std::shared_ptr<KvMainQueue> queue, Completion done, void (*drop)(Completion const& done))
        : queue_(std::move(queue)), done_(std::move(done)), drop_(drop) {}
    KvOwedCompletion(KvOwedCompletion const&) = delete;
    KvOwedCompletion& operator=(KvOwedCompletion const&) = delete;
    ~KvOwedCompletion() {
        if (done_) queue_->post([done = std::move(done_), drop = drop_] { drop(done); });
    }

    /// Takes the promise over: the caller calls what this returns.
    Completion take() { return std::exchange(done_, nullptr); }

private:
    std::shared_ptr<KvMainQueue> queue_;
    Completion done_;
    void (*drop_)(Completion const& done);
};

}  // namespace kv
