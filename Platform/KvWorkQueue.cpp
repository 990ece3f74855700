#include "Platform/KvWorkQueue.h"

#include <list>
#include <optional>

namespace kv {

struct KvWorkQueue::State : std::enable_shared_from_this<State> {
    explicit State(std::shared_ptr<KvMainQueue> mainQueue) : queue(std::move(mainQueue)) {}

    void startSoon() {
        queue->post([weak = weak_from_this()] {
            if (auto const self = weak.lock()) self->startNext();
        });
    }

    // Nothing that comes in meanwhile may get between two items: what the first one has begun, the next finds begun.
    void startNext() {
        auto const keep = shared_from_this();
        if (std::exchange(isStarting, true)) return;  // the loop below, from which an item was started, goes on
        while (!current || current->isDone()) {
            current.reset();
            running = nullptr;
            if (waiting.empty()) break;
            running = std::move(waiting.front());
            waiting.pop_front();
            current.emplace(running());
            current->start([weak = weak_from_this()] {
                if (auto const self = weak.lock()) self->onReturned();
            });
        }
        isStarting = false;
        isBusy = current.has_value();
    }

    void onReturned() {
        if (auto const last = std::exchange(orphan, nullptr)) return;  // the last reference: the item ends here
        if (current->isDone()) startNext();
    }

    std::shared_ptr<KvMainQueue> const queue;
    std::list<Item> waiting;  // a deque takes half a KiB also when nothing waits, as nearly always
    bool isBusy = false;
    bool isStarting = false;
    Item running;  // a coroutine refers to the captures of the function that made it
    std::optional<KvWork> current;
    std::shared_ptr<State> orphan;  // itself, while the item at work has destroyed its queue
};

KvWorkQueue::KvWorkQueue(std::shared_ptr<KvMainQueue> queue) : state_(std::make_shared<State>(std::move(queue))) {}

KvWorkQueue::~KvWorkQueue() {
    state_->waiting.clear();
    // The item at work destroys its own queue, and is on this stack: it is left to go on to its next wait or its end.
    if (auto& state = *state_; state.current && state.current->isAtWork()) state.orphan = std::move(state_);
}

void KvWorkQueue::add(Item item) {
    state_->waiting.push_back(std::move(item));
    if (std::exchange(state_->isBusy, true)) return;
    state_->startSoon();
}

void KvSignal::set() {
    auto const queue = queue_.lock();
    if (!queue) return;
    queue->post([self = shared_from_this()] {
        self->isSet_ = true;
        if (auto const waiting = std::exchange(self->waiting_, nullptr)) KvWork::resume(waiting);
    });
}

}  // namespace kv
