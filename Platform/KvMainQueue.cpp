#include "Platform/KvMainQueue.h"

#include "Platform/KvDescriptor.h"
#include "Platform/KvEngineThread.h"
#include "Platform/KvQueueContext.h"
#include "Platform/KvQueueDescriptor.h"
#include "Platform/KvQueueWatch.h"
#include "Platform/KvSystem.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <deque>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

namespace kv {
namespace asio = boost::asio;
namespace {

// A poll returns to its caller after so many pieces of work, so that work which queues work cannot hold it for ever.
constexpr std::size_t kMostInOnePoll = 4096;
constexpr auto kNever = KvMainQueue::Clock::time_point::max();

}  // namespace

class KvQueueTimer::Entry {
public:
    std::weak_ptr<KvMainQueue> queue;
    KvMainQueue::Clock::time_point due;
    std::uint64_t sequence = 0;
    // Taken by std::exchange: with libc++ a small function that is moved from keeps what it holds.
    KvMainQueue::Work work;
    bool active = false;
};

class KvMainQueue::Impl {
public:
    using Entry = KvQueueTimer::Entry;
    struct Sooner {
        bool operator()(std::shared_ptr<Entry> const& a, std::shared_ptr<Entry> const& b) const {
            return a->due != b->due ? a->due < b->due : a->sequence < b->sequence;
        }
    };

    explicit Impl(Time mode)
        : manual(mode == Time::manual),
          start(Clock::now()),
          raised(context),
          readiness(context, wakeUp),
          alarm(context) {
        if (!wakeUp.open()) throw std::system_error(errno, std::generic_category(), "no descriptor for a queue");
        raised.borrow(wakeUp.fd());
        awaitWakeUp();
    }
    ~Impl() { raised.giveBack(); }

    Clock::time_point now() const { return manual ? start + std::chrono::nanoseconds(moved.load()) : Clock::now(); }
    bool isCurrent() const { return executor.running_in_this_thread(); }
    // While it lives, the calling thread drives the queue: no other may, but a handler may run the queue once more.
    class Driving {
    public:
        explicit Driving(Impl& impl) : impl_(impl), before_(impl.driver.exchange(std::this_thread::get_id())) {
            assert((before_ == std::thread::id() || before_ == std::this_thread::get_id()) &&
                   "a queue is driven by one thread at a time");
            impl.owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
        }
        Driving(Driving const&) = delete;
        Driving& operator=(Driving const&) = delete;
        ~Driving() { impl_.driver.store(before_); }

    private:
        Impl& impl_;
        std::thread::id const before_;
    };

    // Work that a handler posted before it ran the queue itself is in Asio's hands for when that handler is back.
    void drainWhatAHandlerPosted() {
        if (isCurrent()) drain();
    }

    // What wakes a run, and what makes the queue's descriptor readable when nobody runs it.
    void signal() {
        wakeUp.raise();
        if constexpr (!KvDescriptor::kIsSeenAtOnce) {
            asio::post(context, [this] {
                wakeUp.lower();
                drain();
            });
        }
    }

    void awaitWakeUp() {
        raised.async_wait(KvDescriptor::wait_read, [this](boost::system::error_code error) {
            if (error) return;
            wakeUp.lower();
            awaitWakeUp();
            drain();
        });
    }

    void post(Work work) {
        bool first = false;
        {
            std::lock_guard lock(mutex);
            first = posted.empty();
            posted.push_back(std::move(work));
        }
        if (!first) return;
        if (isCurrent()) {
            asio::post(context, [this] { drain(); });
        } else {
            signal();
        }
    }

    void drain() {
        // An application's callback may throw through here; what is behind it then waits for the next turn.
        struct Rest {
            Impl& impl;
            ~Rest() {
                if (!impl.batch.empty()) impl.wakeUp.raise();
            }
        } rest{*this};
        if (batch.empty()) {
            std::lock_guard lock(mutex);
            batch.swap(posted);
        }
        while (!batch.empty()) {
            Work const work = std::move(batch.front());
            batch.pop_front();
            ++executed;
            work();
        }
    }

    std::shared_ptr<Entry> add(std::weak_ptr<KvMainQueue> queue, Clock::time_point due, Work work) {
        auto entry = std::make_shared<Entry>();
        entry->queue = std::move(queue);
        entry->due = due;
        entry->sequence = nextSequence++;
        entry->work = std::move(work);
        entry->active = true;
        timers.insert(entry);
        if (!manual) {
            arm();
        } else if (entry->due <= now()) {
            post([this] { runDue(); });
        }
        return entry;
    }

    std::shared_ptr<Entry> addReady(std::weak_ptr<KvMainQueue> queue, int fd, KvDescriptor::wait_type ready,
                                    Work work) {
        auto const descriptor = std::make_shared<KvDescriptor>(context);
        int const own = duplicateOf(fd);
        if (own < 0 || !descriptor->take(own)) return nullptr;
        auto entry = add(std::move(queue), kNever, [descriptor, work = std::move(work)] { work(); });
        descriptor->async_wait(ready, [this, weak = std::weak_ptr(entry)](boost::system::error_code ended) {
            auto const found = weak.lock();
            if (ended || !found || !found->active) return;
            timers.erase(found);
            found->active = false;
            Work const due = std::exchange(found->work, nullptr);
            ++executed;
            due();
        });
        return entry;
    }

    void arm() {
        if (manual || timers.empty()) return;
        auto const due = (*timers.begin())->due;
        if (due == kNever) return;
        // An alarm that rings too early costs one turn; setting it anew for each cancelled timer would cost more.
        if (armed && alarm.expiry() <= due) return;
        armed = true;
        alarm.expires_at(due);
        alarm.async_wait([this](boost::system::error_code error) {
            if (error) return;
            armed = false;
            runDue();
            arm();
        });
    }

    void runDue() {
        auto const limit = now();
        auto const before = nextSequence;  // a timer that is made meanwhile waits for the next turn
        while (!timers.empty()) {
            auto const entry = *timers.begin();
            if (entry->due > limit || entry->sequence >= before) break;
            timers.erase(timers.begin());
            entry->active = false;
            Work const work = std::exchange(entry->work, nullptr);
            ++executed;
            work();
        }
        if (manual && !timers.empty() && (*timers.begin())->due <= now()) post([this] { runDue(); });
    }

    bool const manual;
    Clock::time_point const start;
    std::atomic<std::int64_t> moved{0};     // of a manual clock, in nanoseconds
    std::atomic<std::thread::id> owner{};   // who drove the queue last
    std::atomic<std::thread::id> driver{};  // who does at this moment
    std::atomic<bool> stopping{false};
    std::shared_ptr<KvQueueWatch> watch;  // where the application's executor drives it

    asio::io_context context{1};
    asio::io_context::executor_type const executor = context.get_executor();
    KvWakeUp wakeUp;
    KvDescriptor raised;  // of wakeUp
    KvQueueDescriptor readiness;

    std::mutex mutex;
    std::deque<Work> posted;  // guarded by mutex

    // Touched by the driving thread only.
    std::deque<Work> batch;
    asio::steady_timer alarm;
    bool armed = false;
    bool running = false;
    std::set<std::shared_ptr<Entry>, Sooner> timers;
    std::uint64_t nextSequence = 0;
    std::size_t executed = 0;
};

KvQueueTimer::KvQueueTimer(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}
KvQueueTimer::KvQueueTimer(KvQueueTimer&& other) noexcept = default;
KvQueueTimer& KvQueueTimer::operator=(KvQueueTimer&& other) noexcept {
    if (this != &other) {
        cancel();
        entry_ = std::move(other.entry_);
    }
    return *this;
}
KvQueueTimer::~KvQueueTimer() { cancel(); }

void KvQueueTimer::cancel() noexcept {
    auto const entry = std::exchange(entry_, nullptr);
    if (!entry || !entry->active) return;
    entry->active = false;
    if (auto const queue = entry->queue.lock()) queue->impl().timers.erase(entry);
    // Its captures go last: they may own this very timer.
    KvMainQueue::Work const released = std::exchange(entry->work, nullptr);
}

bool KvQueueTimer::isActive() const noexcept { return entry_ && entry_->active; }

std::shared_ptr<KvMainQueue> KvMainQueue::main() {
    static std::mutex mutex;
    static auto& queue = *new std::shared_ptr<KvMainQueue>;  // outlives every static client
    std::lock_guard lock(mutex);
    if (!queue) queue = create();
    return queue;
}

std::shared_ptr<KvMainQueue> KvMainQueue::create(Time time) try {
    return std::shared_ptr<KvMainQueue>(new KvMainQueue(time));
} catch (std::runtime_error const&) {  // the system's errors, the standard library's or Asio's
    return nullptr;
}

std::shared_ptr<KvMainQueue> KvMainQueue::on(std::function<void(Work)> post) {
    auto const engine = engineThreadQueue();
    auto const queue = engine ? create() : nullptr;
    if (!queue) return nullptr;
    queue->impl_->watch = KvQueueWatch::start(engine, queue, std::move(post));
    return queue->impl_->watch ? queue : nullptr;
}

KvMainQueue::KvMainQueue(Time time) : impl_(std::make_unique<Impl>(time)) {}

KvMainQueue::~KvMainQueue() {
    if (impl_->watch) impl_->watch->end();
    auto const timers = std::move(impl_->timers);
    for (auto const& entry : timers) {
        entry->active = false;
        Work const released = std::exchange(entry->work, nullptr);  // it may own the timer, which owns the entry
    }
}

void KvMainQueue::run() {
    Impl::Driving const driving(*impl_);
    impl_->drainWhatAHandlerPosted();
    impl_->running = true;
    impl_->context.restart();
    while (!impl_->stopping.exchange(false)) {
        impl_->context.run();
        impl_->context.restart();
    }
    impl_->running = false;
}

void KvMainQueue::runFor(std::chrono::nanoseconds duration) {
    Impl::Driving const driving(*impl_);
    impl_->drainWhatAHandlerPosted();
    auto const end = Clock::now() + duration;
    impl_->running = true;
    impl_->context.restart();
    while (!impl_->stopping.exchange(false) && Clock::now() < end) {
        impl_->context.run_until(end);
        impl_->context.restart();
    }
    impl_->running = false;
}

std::size_t KvMainQueue::poll() {
    Impl::Driving const driving(*impl_);
    impl_->drainWhatAHandlerPosted();
    impl_->executed = 0;
    impl_->context.restart();
    if (impl_->manual) impl_->runDue();
    for (std::size_t turn = 0; impl_->context.poll_one() > 0; ++turn) {
        if (turn < kMostInOnePoll && impl_->executed < kMostInOnePoll) continue;
        impl_->signal();
        break;
    }
    return impl_->executed;
}

void KvMainQueue::stop() {
    if (impl_->watch) return impl_->watch->end();
    impl_->stopping = true;
    post([this] {
        if (impl_->running) impl_->context.stop();
    });
}

int KvMainQueue::fd() const { return impl_->readiness.get(); }

void KvMainQueue::post(Work work) { impl_->post(std::move(work)); }

void KvMainQueue::dispatch(Work work) {
    if (isCurrent()) {
        work();
    } else {
        post(std::move(work));
    }
}

KvQueueTimer KvMainQueue::after(std::chrono::nanoseconds delay, Work work) {
    auto const start = now();
    auto const due = delay < kNever - start ? start + std::max(delay, std::chrono::nanoseconds::zero()) : kNever;
    return KvQueueTimer(impl_->add(weak_from_this(), due, std::move(work)));
}

KvQueueTimer KvMainQueue::keep(Work work) {
    return KvQueueTimer(impl_->add(weak_from_this(), kNever, std::move(work)));
}

KvQueueTimer KvMainQueue::whenReadable(int fd, Work work) {
    return KvQueueTimer(impl_->addReady(weak_from_this(), fd, KvDescriptor::wait_read, std::move(work)));
}

KvQueueTimer KvMainQueue::whenWritable(int fd, Work work) {
    return KvQueueTimer(impl_->addReady(weak_from_this(), fd, KvDescriptor::wait_write, std::move(work)));
}

bool KvMainQueue::isCurrent() const { return impl_->isCurrent(); }

bool KvMainQueue::isOwnThread() const {
    auto const owner = impl_->owner.load(std::memory_order_relaxed);
    return impl_->watch || owner == std::thread::id() || owner == std::this_thread::get_id();
}

KvMainQueue::Clock::time_point KvMainQueue::now() const noexcept { return impl_->now(); }

void KvMainQueue::advance(std::chrono::nanoseconds duration) {
    Impl::Driving const driving(*impl_);
    poll();
    auto const target = now() + duration;
    while (!impl_->timers.empty() && (*impl_->timers.begin())->due <= target) {
        auto const due = (*impl_->timers.begin())->due;
        if (due > now()) impl_->moved = (due - impl_->start).count();
        poll();
    }
    impl_->moved = (target - impl_->start).count();
    poll();
}

asio::io_context& contextOf(KvMainQueue& queue) { return queue.impl().context; }

}  // namespace kv
