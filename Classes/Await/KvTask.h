// A coroutine of the application: what `co_await`s operations, other tasks and time. It does not start by itself: it
// runs when another task awaits it, or when it is spawned on a queue.
//
//     kv::KvTask<> greet(std::shared_ptr<kv::KvPimKit> client) {
//         if (auto const sent = co_await client->sendMessageToPeer("Hello", "bob"); !sent) log(sent.error().message());
//     }
//     kv::spawn(client->mainQueue(), greet(client));
//
// Arguments are best taken by value: a reference must live for as long as the task. An exception goes to who awaits the
// task, like that of a function. A task must not run or poll its queue itself.
#pragma once

#include "Classes/Await/KvPending.h"
#include "Platform/KvMainQueue.h"

#include <coroutine>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace kv {

namespace detail {

/// What a task has come to: the value, or what was thrown.
template <class T>
class KvReturned {
public:
    void return_value(T value) { value_.emplace(std::move(value)); }
    void unhandled_exception() noexcept { exception_ = std::current_exception(); }
    T take() {
        if (exception_) std::rethrow_exception(exception_);
        return std::move(*value_);
    }

private:
    std::optional<T> value_;
    std::exception_ptr exception_;
};

template <>
class KvReturned<void> {
public:
    void return_void() noexcept {}
    void unhandled_exception() noexcept { exception_ = std::current_exception(); }
    void take() const {
        if (exception_) std::rethrow_exception(exception_);
    }

private:
    std::exception_ptr exception_;
};

}  // namespace detail

/// See above. Destroying it destroys the coroutine where it waits; nobody else may be resuming it then.
template <class T = void>
class [[nodiscard("a task does nothing before it is awaited or spawned")]] KvTask {
public:
    /// @cond
    class promise_type : public detail::KvReturned<T> {
    public:
        promise_type() {}  // no aggregate: it would be made from the coroutine's arguments
        KvTask get_return_object() { return KvTask(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        auto final_suspend() const noexcept {
            class Back {
            public:
                bool await_ready() const noexcept { return false; }
                std::coroutine_handle<> await_suspend(std::coroutine_handle<promise_type> ended) const noexcept {
                    return ended.promise().awaiting_;
                }
                void await_resume() const noexcept {}
            };
            return Back();
        }

    private:
        friend class KvTask;
        std::coroutine_handle<> awaiting_ = std::noop_coroutine();
    };

    /// @endcond
    /// The other is empty then.
    KvTask(KvTask && other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
    /// The other gets what was here.
    KvTask& operator=(KvTask&& other) noexcept {
        std::swap(coroutine_, other.coroutine_);
        return *this;
    }
    ~KvTask() {
        if (coroutine_) coroutine_.destroy();
    }

    /// Runs it; the coroutine that awaits goes on at its end.
    auto operator co_await() const noexcept {
        class Awaiter {
        public:
            explicit Awaiter(std::coroutine_handle<promise_type> task) noexcept : task_(task) {}
            bool await_ready() const noexcept { return false; }
            std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) const noexcept {
                task_.promise().awaiting_ = awaiting;
                return task_;
            }
            T await_resume() const { return task_.promise().take(); }

        private:
            std::coroutine_handle<promise_type> task_;
        };
        return Awaiter(coroutine_);
    }

private:
    explicit KvTask(std::coroutine_handle<promise_type> coroutine) : coroutine_(coroutine) {}
    std::coroutine_handle<promise_type> coroutine_;
};

namespace detail {

/// What a task that was spawned hangs on: it goes by itself at its end, when its queue is destroyed, or when it is
/// cancelled, whichever is first.
class KvRoot {
public:
    class promise_type {
    public:
        promise_type() {}
        KvRoot get_return_object() { return KvRoot(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept { std::terminate(); }  // `runRoot` catches all
        KvQueueTimer untilQueueEnds;
        std::shared_ptr<void> life;  // what may end the coroutine has a weak reference
    };

    explicit KvRoot(std::coroutine_handle<promise_type> coroutine) : coroutine_(coroutine) {}

    /// Starts it. Returns what ends it where it waits, and does nothing when it has ended.
    std::function<void()> start(KvMainQueue* queue) const {
        auto& promise = coroutine_.promise();
        promise.life = std::make_shared<int>();
        auto end = [coroutine = coroutine_, life = std::weak_ptr<void>(promise.life)] {
            if (life.expired()) return;
            coroutine.promise().life.reset();  // what goes with it may end the queue, and come back here
            coroutine.destroy();
        };
        if (queue != nullptr) {
            auto const atQueuesEnd = std::shared_ptr<void>(nullptr, [end](void*) { end(); });
            promise.untilQueueEnds = queue->keep([atQueuesEnd] {});
        }
        coroutine_.resume();
        return end;
    }

private:
    std::coroutine_handle<promise_type> coroutine_;
};

template <class T>
KvRoot runRoot(KvTask<T> task, KvTeller<T> teller, std::weak_ptr<KvMainQueue> queue) {
    std::exception_ptr exception;
    try {
        if constexpr (std::is_void_v<T>) {
            co_await task;
            teller.tell({});
        } else {
            teller.tell(co_await task);
        }
    } catch (...) {
        exception = std::current_exception();
    }
    if (!exception) co_return;
    if (teller.isHeard()) {
        teller.fail(exception);
    } else if (auto const running = queue.lock()) {
        running->post([exception] { std::rethrow_exception(exception); });
    }
}

template <class T>
KvPending<T> start(std::shared_ptr<KvMainQueue> const& queue, KvTask<T> task) {
    KvPending<T> pending{std::weak_ptr<KvMainQueue>(queue)};
    auto end = runRoot(std::move(task), KvTeller<T>(pending), queue).start(queue.get());
    if (!pending.isReady() && queue) {
        // At a later turn: who cancels may be what the task is waiting for.
        pending.more().endOfTask = [queue = std::weak_ptr(queue), end = std::move(end)] {
            if (auto const running = queue.lock()) running->post(end);
        };
    }
    return pending;
}

template <class T, class Returned>
KvTask<Returned> callWith(KvPending<T> pending, std::function<Returned(KvResult<T>)> call) {
    co_return call(co_await pending);
}

template <class T>
KvTask<void> fulfil(KvPending<T> pending, std::promise<KvResult<T>> promise) {
    promise.set_value(co_await pending);
}

}  // namespace detail

/// Starts a task on a queue, inside the call. What is returned can be awaited, cancelled (which destroys the task where
/// it waits) or dropped: the task then goes on by itself, and an exception of its comes out of the queue's `run`. A
/// queue that is destroyed destroys the tasks that still wait on it.
template <class T>
KvPending<T> spawn(std::shared_ptr<KvMainQueue> const& queue, KvTask<T> task) {
    return detail::start(queue, std::move(task));
}

namespace detail {

template <class T>
struct KvOutcome {  // what `submit` promises for what the call returns
    using Promised = T;
};
template <class T>
struct KvOutcome<KvPending<T>> {
    using Promised = KvResult<T>;
};
template <class T>
struct KvOutcome<KvTask<T>> {
    using Promised = T;
};

template <class Returned, class Promised>
KvTask<void> carryOut(std::function<Returned()> call, std::shared_ptr<std::promise<Promised>> promise) {
    try {
        constexpr bool isAwaited = !std::is_same_v<Promised, Returned>;
        if constexpr (std::is_void_v<Promised>) {
            if constexpr (isAwaited) {
                co_await call();
            } else {
                call();
            }
            promise->set_value();
        } else if constexpr (isAwaited) {
            promise->set_value(co_await call());
        } else {
            promise->set_value(call());
        }
    } catch (...) {
        promise->set_exception(std::current_exception());
    }
}

}  // namespace detail

/// For other threads: calls `call` on the queue, and hands over what it returns, or, where that is a task or a pending
/// operation, what becomes of it. Any thread; the one that drives the queue would wait for itself.
///
///     auto const sent = kv::submit(queue, [client] { return client->sendMessageToPeer("Hello", "bob"); }).get();
template <class Call>
auto submit(std::shared_ptr<KvMainQueue> const& queue, Call call) {
    using Returned = std::invoke_result_t<Call&>;
    using Promised = typename detail::KvOutcome<Returned>::Promised;
    auto promise = std::make_shared<std::promise<Promised>>();
    auto future = promise->get_future();
    std::function<Returned()> erased(std::move(call));  // see `then`
    queue->post([weak = std::weak_ptr(queue), call = std::move(erased), promise = std::move(promise)] {
        if (auto const running = weak.lock()) detail::start(running, detail::carryOut(call, promise));
    });
    return future;
}

}  // namespace kv
