// An operation that was begun and whose outcome is still to come: to be awaited by a coroutine, handed to a thread as a
// std::future, or to be followed by a call. Dropping it is allowed: the operation goes on, and nobody hears of its end.
//
// Threads: as its client, a KvPending belongs to the thread that drives the client's main queue. A coroutine that
// awaits it is resumed there, where a completion would have been called.
#pragma once

#include "Classes/Await/KvResult.h"
#include "Classes/Model/KvPimErrors.h"
#include "Platform/KvMainQueue.h"

#include <chrono>
#include <coroutine>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

namespace kv {

template <class T>
class KvTask;
template <class T = void>
class KvPending;

namespace detail {

/// What a waiting coroutine is to a pending operation, whatever its value. A coroutine waits for one, or for the first
/// of several.
class KvAwaited {
public:
    bool isReady() const noexcept { return isReady_; }
    void setWaiter(std::coroutine_handle<> waiter) noexcept { waiter_ = waiter; }

protected:
    /// It is over. Whoever waits goes on within the call, and may destroy this object there.
    void setReady() {
        isReady_ = true;
        if (auto const waiter = std::exchange(waiter_, nullptr)) waiter.resume();
    }
    bool isReady_ = false;
    std::coroutine_handle<> waiter_;
};

/// Who will tell the outcome: it stands in a completion, or in a timer. The two know each other wherever they move to,
/// so that neither needs memory of its own, and either may go first. Copies are equals: the first that tells is heard.
template <class T>
class KvTeller {
public:
    enum class Role { answers, ends };  // what will tell the outcome itself, or only that the waiting is over

    explicit KvTeller(KvPending<T>& pending, Role role = Role::answers) : role_(role) { link(&pending); }
    KvTeller(KvTeller const& other) : role_(other.role_) { link(other.pending_); }
    KvTeller& operator=(KvTeller const&) = delete;
    ~KvTeller() {
        auto* const pending = pending_;
        unlink();
        if (pending != nullptr && role_ == Role::answers) pending->onTellerGone();
    }

    void tell(KvResult<T> result) const {
        if (pending_ == nullptr) return;
        if (role_ == Role::ends) pending_->endTask();
        pending_->resolve(std::move(result));
    }
    void fail(std::exception_ptr exception) const {
        if (pending_ != nullptr) return pending_->fail(std::move(exception));
    }
    bool isHeard() const { return pending_ != nullptr; }

private:
    friend class KvPending<T>;
    void link(KvPending<T>* pending) {
        pending_ = pending;
        if (pending_ == nullptr) return;
        next_ = std::exchange(pending_->tellers_, this);
        if (next_ != nullptr) next_->previous_ = this;
    }
    void unlink() {
        if (pending_ == nullptr) return;
        (previous_ != nullptr ? previous_->next_ : pending_->tellers_) = next_;
        if (next_ != nullptr) next_->previous_ = previous_;
        pending_ = nullptr;
        next_ = previous_ = nullptr;
    }

    Role const role_;
    KvPending<T>* pending_ = nullptr;  // null once the outcome was told, or nobody waits any more
    KvTeller* next_ = nullptr;
    KvTeller* previous_ = nullptr;
};

/// Starts a task that nobody waits for; it ends with the queue, if not before. Returns what ends it where it waits.
/// Declared here for what a pending operation can do, defined beside the tasks.
template <class T>
KvPending<T> start(std::shared_ptr<KvMainQueue> const& queue, KvTask<T> task);
template <class T, class Returned>
KvTask<Returned> callWith(KvPending<T> pending, std::function<Returned(KvResult<T>)> call);
template <class T>
KvTask<void> fulfil(KvPending<T> pending, std::promise<KvResult<T>> promise);

}  // namespace detail

/// See above. To be awaited once; afterwards it is empty.
template <class T>
class KvPending : public detail::KvAwaited {
    using Teller = detail::KvTeller<T>;

public:
    /// One that is over.
    KvPending(KvResult<T> result) : result_(std::move(result)) { isReady_ = true; }  // NOLINT: a result is an outcome
    /// For who tells an outcome later: see `detail::KvTeller`.
    explicit KvPending(std::weak_ptr<KvMainQueue> queue) : queue_(std::move(queue)) {}
    /// The other is empty then.
    KvPending(KvPending&& other) noexcept { takeOver(other); }
    /// Nobody hears of what was awaited before.
    KvPending& operator=(KvPending&& other) noexcept {
        if (this != &other) {
            forgetTellers();
            takeOver(other);
        }
        return *this;
    }
    ~KvPending() { forgetTellers(); }

    /// Resumes on the client's main queue, at once when the outcome is there already. Throws what a spawned task has
    /// thrown, and nothing else.
    auto operator co_await() noexcept {
        class Awaiter {
        public:
            explicit Awaiter(KvPending& pending) noexcept : pending_(pending) {}
            Awaiter(Awaiter const&) = delete;
            Awaiter& operator=(Awaiter const&) = delete;
            ~Awaiter() { pending_.waiter_ = nullptr; }
            bool await_ready() const noexcept { return pending_.isReady_; }
            void await_suspend(std::coroutine_handle<> waiter) noexcept { pending_.waiter_ = waiter; }
            KvResult<T> await_resume() { return pending_.take(); }

        private:
            KvPending& pending_;
        };
        return Awaiter(*this);
    }

    /// The outcome of one that is ready (`isReady`), without waiting. Throws like the awaiting.
    KvResult<T> take() {
        if (more_ && more_->exception) std::rethrow_exception(more_->exception);
        return std::move(*result_);
    }

    /// Calls `call` with the result, on the main queue: inside `then` when it is there already. What it returns can be
    /// awaited in turn; an exception that nobody awaits comes out of the queue's `run`.
    template <class Call>
    auto then(Call call) && {
        // A coroutine's frame cannot hold what has no linkage, as a lambda of another coroutine.
        using Returned = std::invoke_result_t<Call, KvResult<T>>;
        std::function<Returned(KvResult<T>)> erased(std::move(call));
        auto const queue = queue_.lock();
        return detail::start(queue, detail::callWith(std::move(*this), std::move(erased)));
    }

    /// For another thread to wait on. Where the queue ends first, getting it throws std::future_error (broken promise).
    /// The thread that drives the queue would wait for itself.
    std::future<KvResult<T>> future() && {
        std::promise<KvResult<T>> promise;
        auto future = promise.get_future();
        auto const queue = queue_.lock();
        detail::start(queue, detail::fulfil(std::move(*this), std::move(promise)));
        return future;
    }

    /// Waits no longer than that, on the queue's clock: the outcome is then `KvWaitError::waitedTooLong`. A request
    /// itself cannot be recalled: the server may still carry it out. A spawned task ends as with `cancel`.
    KvPending within(std::chrono::nanoseconds limit) && {
        auto const queue = queue_.lock();
        if (!isReady_ && queue) {
            more().limit = queue->after(limit, [teller = Teller(*this, Teller::Role::ends)] {
                teller.tell(make_error_code(KvWaitError::waitedTooLong));
            });
        }
        return std::move(*this);
    }

    /// Stops waiting: the outcome is `KvWaitError::cancelled`, and who awaits it is resumed inside the call. The
    /// operation itself goes on; a spawned task is destroyed where it waits.
    void cancel() {
        if (isReady_) return;
        endTask();
        resolve(make_error_code(KvWaitError::cancelled));
    }

    /// Does what `cancel` does when the token says so, from whichever thread that comes, at a turn of the queue.
    KvPending until(std::stop_token token) && {
        if (isReady_ || !token.stop_possible()) return std::move(*this);
        // The teller stays on the queue's thread; what another thread gets can only find it there.
        auto const teller = std::make_shared<Teller>(*this, Teller::Role::ends);
        auto& all = more();
        all.teller = teller;
        all.stop.emplace(std::move(token), [queue = queue_, found = std::weak_ptr<Teller>(teller)] {
            auto const running = queue.lock();
            if (!running) return;
            running->post([found] {
                if (auto const here = found.lock()) here->tell(make_error_code(KvWaitError::cancelled));
            });
        });
        return std::move(*this);
    }

    /// @cond
private:
    friend Teller;
    template <class U>
    friend KvPending<U> detail::start(std::shared_ptr<KvMainQueue> const& queue, KvTask<U> task);
    friend KvPending<> sleep(KvMainQueue& queue, std::chrono::nanoseconds duration);

    /// What few need.
    struct More {
        KvQueueTimer time;   // what `sleep` waits for
        KvQueueTimer limit;  // of `within`
        std::shared_ptr<Teller> teller;
        std::optional<std::stop_callback<std::function<void()>>> stop;
        std::function<void()> endOfTask;
        std::exception_ptr exception;
    };
    More& more() {
        if (!more_) more_ = std::make_unique<More>();
        return *more_;
    }

    void endTask() {
        auto const end = more_ ? std::exchange(more_->endOfTask, nullptr) : nullptr;
        if (end) end();
    }
    void resolve(KvResult<T> result) {
        result_.emplace(std::move(result));
        conclude();
    }
    void fail(std::exception_ptr exception) {
        more().exception = std::move(exception);
        conclude();
    }
    void conclude() {
        forgetTellers();
        if (more_) {
            more_->time.cancel();
            more_->limit.cancel();
            more_->teller.reset();
        }
        this->setReady();
    }
    /// Nobody will tell any more: said at a later turn, since what owned the teller is just going.
    void onTellerGone() {
        for (auto const* each = tellers_; each != nullptr; each = each->next_) {
            if (each->role_ == Teller::Role::answers) return;
        }
        auto const queue = queue_.lock();
        if (!queue) return;
        queue->post([teller = Teller(*this)] { teller.tell(make_error_code(KvWaitError::abandoned)); });
    }
    void forgetTellers() noexcept {
        while (tellers_ != nullptr) tellers_->unlink();
    }
    void takeOver(KvPending& other) noexcept {
        queue_ = std::move(other.queue_);
        result_ = std::move(other.result_);
        isReady_ = other.isReady_;
        waiter_ = std::exchange(other.waiter_, nullptr);
        more_ = std::move(other.more_);
        tellers_ = std::exchange(other.tellers_, nullptr);
        for (auto* each = tellers_; each != nullptr; each = each->next_) each->pending_ = this;
    }

    Teller* tellers_ = nullptr;
    std::weak_ptr<KvMainQueue> queue_;
    std::optional<KvResult<T>> result_;
    std::unique_ptr<More> more_;
    /// @endcond
};

}  // namespace kv
