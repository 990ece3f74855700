#include "Platform/KvWorkQueue.h"

#include <optional>

namespace kv {

struct KvWorkQueue::State : std::enable_shared_from_this<State> {
    explicit State(std::shared_ptr<KvMainQueue> mainQueue) : queue(std::move(mainQueue)) {}

    void startNextSoon() {
        queue->post([weak = weak_from_this()] {
            if (auto const self = weak.lock()) self->startNext();
        });
    }

    void startNext() {
        current.reset();
        if (waiting.empty()) {
            busy = false;
            return;
        }
        running = std::move(waiting.front());
        waiting.pop_front();
        current.emplace(running());
        current->start([weak = weak_from_this()] {
            // The coroutine that has just finished is destroyed at the next turn, not under its own feet.
            if (auto const self = weak.lock()) self->startNextSoon();
        });
    }

    std::shared_ptr<KvMainQueue> const queue;
    std::deque<Item> waiting;
    bool busy = false;
    Item running;  // a coroutine refers to the captures of the function that made it
    std::optional<KvWork> current;
};

KvWorkQueue::KvWorkQueue(std::shared_ptr<KvMainQueue> queue) : state_(std::make_shared<State>(std::move(queue))) {}

KvWorkQueue::~KvWorkQueue() {
    state_->waiting.clear();
    if (!state_->current || !state_->current->isAtWork()) return;
    // The very item at work destroys its queue, and is running on this stack: it is left to finish.
    state_->queue->post([state = std::move(state_)] {});
}

void KvWorkQueue::add(Item item) {
    state_->waiting.push_back(std::move(item));
    if (std::exchange(state_->busy, true)) return;
    state_->startNextSoon();
}

void KvSignal::set() {
    queue_->post([self = shared_from_this()] {
        self->isSet_ = true;
        if (auto const waiting = std::exchange(self->waiting_, nullptr)) KvWork::resume(waiting);
    });
}

}  // namespace kv
