#include "Classes/Utils/KvPimTimer.h"

#include <atomic>

namespace kv {

struct KvPimTimer::State {
    std::shared_ptr<KvMainQueue> queue;
    KvQueueTimer timer;  // touched only on the queue's thread
    std::atomic<bool> stopped{false};
};

std::shared_ptr<KvPimTimer> KvPimTimer::startTimer(std::shared_ptr<KvMainQueue> queue,
                                                   std::chrono::nanoseconds interval, std::function<void()> block) {
    auto timer = std::make_shared<KvPimTimer>();
    timer->state_ = std::make_shared<State>();
    auto& state = *timer->state_;
    state.queue = std::move(queue);
    state.timer = state.queue->after(interval, [weak = std::weak_ptr(timer->state_), block = std::move(block)] {
        auto const running = weak.lock();
        if (running && !running->stopped.exchange(true)) block();
    });
    return timer;
}

void KvPimTimer::stop() {
    if (!state_ || state_->stopped.exchange(true)) return;
    if (state_->queue->isOwnThread()) {
        state_->timer.cancel();
    } else {
        state_->queue->post([state = state_] { state->timer.cancel(); });
    }
}

}  // namespace kv
