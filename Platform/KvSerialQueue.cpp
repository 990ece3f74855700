#include "Platform/KvSerialQueue.h"

#include "Platform/KvBackgroundPool.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <future>
#include <iterator>
#include <mutex>
#include <utility>
#include <vector>

namespace kv {

class KvSerialQueue::Impl : public std::enable_shared_from_this<Impl> {
public:
    using Work = std::function<void()>;

    void async(Work work) {
        std::lock_guard lock(mutex_);
        add(std::move(work));
    }
    // Work whose time has come; a queue that is gone, though at work still, takes none.
    void asyncWhileOpen(Work work) {
        std::lock_guard lock(mutex_);
        if (isOpen_) add(std::move(work));
    }
    void close() {
        std::lock_guard lock(mutex_);
        isOpen_ = false;
    }
    void asyncWithin(std::chrono::nanoseconds delay, Work work) {
        bool isFirst = false;
        {
            std::lock_guard lock(mutex_);
            isFirst = postponed_.empty();
            postponed_.push_back(std::move(work));
        }
        if (!isFirst) return;
        KvBackgroundPool::shared().runWithin(delay, [self = shared_from_this()] {
            if (self->admitPostponed()) self->runWaiting();
        });
    }
    void hurry() {
        if (admitPostponed()) schedule();
    }
    bool isCurrent() const { return current == this; }

private:
    // With the lock held.
    void add(Work work) {
        waiting_.push_back(std::move(work));
        if (!std::exchange(isScheduled_, true)) schedule();
    }

    // True when there is somebody needed to run it.
    bool admitPostponed() {
        std::lock_guard lock(mutex_);
        if (postponed_.empty()) return false;
        std::ranges::move(postponed_, std::back_inserter(waiting_));
        postponed_.clear();
        return !std::exchange(isScheduled_, true);
    }

    void schedule() {
        KvBackgroundPool::shared().run([self = shared_from_this()] { self->runWaiting(); });
    }

    // One round, so that a queue whose work queues work leaves room for others.
    void runWaiting() {
        std::deque<Work> round;
        {
            std::lock_guard lock(mutex_);
            round.swap(waiting_);
        }
        current = this;
        for (auto& work : round) std::exchange(work, nullptr)();
        current = nullptr;
        std::lock_guard lock(mutex_);
        isScheduled_ = !waiting_.empty();
        if (isScheduled_) schedule();
    }

    static thread_local Impl const* current;

    std::mutex mutex_;
    // Guarded by mutex_.
    std::deque<Work> waiting_;
    std::vector<Work> postponed_;
    bool isScheduled_ = false;
    bool isOpen_ = true;
};

thread_local KvSerialQueue::Impl const* KvSerialQueue::Impl::current = nullptr;

KvSerialQueue::KvSerialQueue(std::string label, std::shared_ptr<KvClock> clock)
    : label_(std::move(label)), clock_(std::move(clock)), impl_(std::make_shared<Impl>()) {}

KvSerialQueue::~KvSerialQueue() { impl_->close(); }

void KvSerialQueue::async(std::function<void()> work) { impl_->async(std::move(work)); }

void KvSerialQueue::asyncAfter(std::chrono::nanoseconds delay, std::function<void()> work) {
    clock_->callAfter(delay, [weak = std::weak_ptr(impl_), work = std::move(work)] {
        if (auto const impl = weak.lock()) impl->asyncWhileOpen(work);
    });
}

void KvSerialQueue::asyncWithin(std::chrono::nanoseconds delay, std::function<void()> work) {
    impl_->asyncWithin(delay, std::move(work));
}

void KvSerialQueue::drain() {
    assert(!isCurrent() && "a queue cannot wait for itself");
    impl_->hurry();
    std::promise<void> reached;
    impl_->async([&reached] { reached.set_value(); });
    reached.get_future().wait();
}

bool KvSerialQueue::isCurrent() const { return impl_->isCurrent(); }

}  // namespace kv
