// Work items that run one at a time, in order, on a main queue. An item is a coroutine: while it waits for something it
// keeps its place in the queue, but no thread. Everything here belongs to the main queue. (The coroutines of Asio wait
// on clocks of Asio's, not on the queue's, and cannot be destroyed where they wait.)
//
//     queue.add([self]() -> KvWork {
//         co_await KvDelay{*self->mainQueue, 2s};
//         self->connect();
//     });
#pragma once

#include "Platform/KvMainQueue.h"

#include <chrono>
#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

namespace kv {

/// A coroutine that a work queue runs. Starts when it is resumed for the first time; destroying it while it waits ends
/// it there, and whatever it waits for finds nobody.
class KvWork {
public:
    struct promise_type {
        promise_type() {}  // no aggregate: it would be made from the coroutine's arguments
        std::function<void()> returned;
        bool isAtWork = false;
        KvWork get_return_object() { return KvWork(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_always initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }  // items answer for their own failures
    };

    KvWork(KvWork&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    KvWork& operator=(KvWork&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~KvWork() {
        if (handle_) handle_.destroy();
    }
    /// Runs it up to its first wait. `returned` is called then, after each further piece of work, and at its end.
    void start(std::function<void()> returned) {
        handle_.promise().returned = std::move(returned);
        resume(handle_);
    }
    /// Whether it is on somebody's stack. It must not be destroyed meanwhile.
    bool isAtWork() const { return handle_.promise().isAtWork; }
    bool isDone() const { return handle_.done(); }

    using Handle = std::coroutine_handle<promise_type>;
    static void resume(Handle handle) {
        auto& promise = handle.promise();
        promise.isAtWork = true;
        handle.resume();
        promise.isAtWork = false;
        auto const returned = promise.returned;  // it may destroy the coroutine
        returned();
    }

private:
    explicit KvWork(std::coroutine_handle<promise_type> handle) : handle_(handle) {}
    std::coroutine_handle<promise_type> handle_;
};

class KvWorkQueue final {
public:
    using Item = std::function<KvWork()>;

    explicit KvWorkQueue(std::shared_ptr<KvMainQueue> queue);
    /// The item at work ends where it waits; those that wait for their turn are dropped.
    ~KvWorkQueue();
    KvWorkQueue(KvWorkQueue const&) = delete;
    KvWorkQueue& operator=(KvWorkQueue const&) = delete;

    /// Queues an item. It starts right behind the end of the one before, or else at the next turn of the main queue;
    /// never inside the call.
    void add(Item item);

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// `co_await KvSignal::Wait{signal}`: goes on once `set` was called, by any thread, before or after. One waiter.
class KvSignal final : public std::enable_shared_from_this<KvSignal> {
public:
    explicit KvSignal(std::shared_ptr<KvMainQueue> const& queue) : queue_(queue) {}
    void set();

    struct Wait {
        std::shared_ptr<KvSignal> signal;
        explicit Wait(std::shared_ptr<KvSignal> awaited) : signal(std::move(awaited)) {}
        Wait(Wait const&) = delete;
        Wait& operator=(Wait const&) = delete;
        ~Wait() { signal->waiting_ = nullptr; }
        bool await_ready() const noexcept { return signal->isSet_; }
        void await_suspend(KvWork::Handle waiting) { signal->waiting_ = waiting; }
        void await_resume() const noexcept {}
    };

private:
    friend struct KvDelay;
    std::weak_ptr<KvMainQueue> const queue_;  // which holds this signal, once it is set
    // Touched only on queue_.
    bool isSet_ = false;
    KvWork::Handle waiting_;
};

/// `co_await KvDelay{queue, duration, sooner}`: goes on that much later, on the queue's clock, or once `sooner` is set;
/// it may be null.
struct KvDelay {
    KvMainQueue& queue;
    std::chrono::nanoseconds duration;
    std::shared_ptr<KvSignal> sooner;
    KvQueueTimer timer{};

    // No aggregate: GCC 12 destroys the members of one twice where the coroutine ends while it waits.
    KvDelay(KvMainQueue& mainQueue, std::chrono::nanoseconds delay, std::shared_ptr<KvSignal> const& end = nullptr)
        : queue(mainQueue), duration(delay), sooner(end) {}
    KvDelay(KvDelay const&) = delete;
    KvDelay& operator=(KvDelay const&) = delete;
    ~KvDelay() {
        if (sooner) sooner->waiting_ = nullptr;
    }
    bool await_ready() const noexcept { return sooner && sooner->isSet_; }
    void await_suspend(KvWork::Handle waiting) {
        timer = queue.after(duration, [waiting] { KvWork::resume(waiting); });
        if (sooner) sooner->waiting_ = waiting;
    }
    void await_resume() const noexcept {}
};

}  // namespace kv
