#pragma once

#include "Platform/KvMainQueue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace kv {

/// A completion that work in a queue has promised to call. If the work is dropped before it does, because its client
/// was destroyed, the completion is called all the same, with the code for that case, at a later turn of the main
/// queue.
class KvOwedCompletion {
public:
    using Completion = std::function<void(std::int64_t)>;

    KvOwedCompletion(std::shared_ptr<KvMainQueue> queue, Completion done, std::int64_t codeWhenDropped)
        : queue_(std::move(queue)), done_(std::move(done)), codeWhenDropped_(codeWhenDropped) {}
    KvOwedCompletion(KvOwedCompletion const&) = delete;
    KvOwedCompletion& operator=(KvOwedCompletion const&) = delete;
    ~KvOwedCompletion() {
        if (done_) queue_->post([done = std::move(done_), code = codeWhenDropped_] { done(code); });
    }

    /// Takes the promise over: the caller calls what this returns.
    Completion take() { return std::exchange(done_, nullptr); }

private:
    std::shared_ptr<KvMainQueue> queue_;
    Completion done_;
    std::int64_t codeWhenDropped_;
};

}  // namespace kv
