#include "Platform/KvQueueWatch.h"

#include "Platform/KvQueueContext.h"

#include <utility>

namespace kv {

std::shared_ptr<KvQueueWatch> KvQueueWatch::start(std::shared_ptr<KvMainQueue> engine,
                                                  std::shared_ptr<KvMainQueue> const& queue, Post post) {
    // The queue closes its own, whatever the watch is about then.
    int const fd = duplicateOf(queue->fd());
    if (fd < 0) return nullptr;
    std::shared_ptr<KvQueueWatch> const watch(new KvQueueWatch(std::move(engine), queue, std::move(post)));
    watch->engine_->post([watch, fd] { watch->readable_.take(fd); });
    watch->watch();
    return watch;
}

KvQueueWatch::KvQueueWatch(std::shared_ptr<KvMainQueue> engine, std::weak_ptr<KvMainQueue> queue, Post post)
    : engine_(std::move(engine)), queue_(std::move(queue)), post_(std::move(post)), readable_(contextOf(*engine_)) {}

void KvQueueWatch::watch() {
    engine_->post([self = shared_from_this()] {
        self->readable_.async_wait(KvDescriptor::wait_read, [self](boost::system::error_code error) {
            std::lock_guard const lock(self->mutex_);
            if (!error && self->post_) self->post_([self] { self->poll(); });
        });
    });
}

void KvQueueWatch::poll() {
    auto const queue = queue_.lock();
    if (!queue) return;
    // Only behind the poll is the descriptor looked at again: until then it says what is being done. Also where a
    // callback of the application's throws.
    struct Again {
        KvQueueWatch& watch;
        ~Again() { watch.watch(); }
    } const again{*this};
    queue->poll();
}

void KvQueueWatch::end() {
    {
        std::lock_guard const lock(mutex_);
        post_ = nullptr;
    }
    engine_->post([self = shared_from_this()] {
        boost::system::error_code ignored;
        self->readable_.close(ignored);
    });
}

}  // namespace kv
