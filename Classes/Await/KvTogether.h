// Waiting for several things, and for time.
#pragma once

#include "Classes/Await/KvPending.h"
#include "Classes/Await/KvTask.h"

#include <chrono>
#include <coroutine>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace kv {

/// All of them, in their order; as all have begun, it takes as long as the slowest.
///
///     auto const [roses, tulips] = co_await kv::all(client->getUserAttributes("rose"),
///                                                   client->getUserAttributes("tulip"));
template <class... Ts>
KvTask<std::tuple<KvResult<Ts>...>> all(KvPending<Ts>... pending) {
    co_return std::tuple<KvResult<Ts>...>{co_await pending...};
}
/// The same of a list.
template <class T>
KvTask<std::vector<KvResult<T>>> all(std::vector<KvPending<T>> pending) {
    std::vector<KvResult<T>> results;
    results.reserve(pending.size());
    for (auto& each : pending) results.push_back(co_await each);
    co_return results;
}

namespace detail {

/// `co_await`: until the first of them is over. Gives its place.
class KvFirstOf {
public:
    explicit KvFirstOf(std::vector<KvAwaited*> all) : all_(std::move(all)) {}
    KvFirstOf(KvFirstOf const&) = delete;
    KvFirstOf& operator=(KvFirstOf const&) = delete;
    ~KvFirstOf() { setWaiter(nullptr); }

    bool await_ready() const noexcept { return firstReady() < all_.size(); }
    void await_suspend(std::coroutine_handle<> waiter) noexcept { setWaiter(waiter); }
    std::size_t await_resume() noexcept {
        setWaiter(nullptr);
        return firstReady();
    }

private:
    std::size_t firstReady() const noexcept {
        std::size_t place = 0;
        while (place < all_.size() && !all_[place]->isReady()) ++place;
        return place;
    }
    void setWaiter(std::coroutine_handle<> waiter) noexcept {
        for (auto* each : all_) each->setWaiter(waiter);
    }
    std::vector<KvAwaited*> const all_;
};

/// The result of the one at that place, at that place.
template <class... Ts, std::size_t... Places>
std::variant<KvResult<Ts>...> takenFrom(std::size_t place, std::index_sequence<Places...>, KvPending<Ts>&... pending) {
    std::optional<std::variant<KvResult<Ts>...>> taken;
    ((place == Places ? void(taken.emplace(std::in_place_index<Places>, pending.take())) : void()), ...);
    return std::move(*taken);
}

}  // namespace detail

/// The first that is over: `index()` says which. The others are dropped: they go on, and nobody hears of their end.
template <class... Ts>
requires(sizeof...(Ts) > 0) KvTask<std::variant<KvResult<Ts>...>> any(KvPending<Ts>... pending) {
    detail::KvFirstOf first({&pending...});
    auto const place = co_await first;
    co_return detail::takenFrom(place, std::index_sequence_for<Ts...>(), pending...);
}
/// The same of a list, which must not be empty: its place in it, and its result.
template <class T>
KvTask<std::pair<std::size_t, KvResult<T>>> any(std::vector<KvPending<T>> pending) {
    if (pending.empty()) throw std::invalid_argument("kv::any has nothing to wait for");
    std::vector<detail::KvAwaited*> all;
    for (auto& each : pending) all.push_back(&each);
    detail::KvFirstOf first(std::move(all));
    auto const place = co_await first;
    co_return std::pair<std::size_t, KvResult<T>>(place, pending[place].take());
}

/// Later, on the queue's clock. Nothing fails but the wait itself: `cancel`, `until`.
inline KvPending<> sleep(KvMainQueue& queue, std::chrono::nanoseconds duration) {
    KvPending<> pending{queue.weak_from_this()};
    pending.more().time = queue.after(duration, [teller = detail::KvTeller<void>(pending)] { teller.tell({}); });
    return pending;
}
/// The same.
inline KvPending<> sleep(std::shared_ptr<KvMainQueue> const& queue, std::chrono::nanoseconds duration) {
    return sleep(*queue, duration);
}

/// Runs the queue until the task is over, and returns what it returns, or throws what it throws: for `main`, and for
/// tests. A `stop` does not end it.
template <class T>
T run(std::shared_ptr<KvMainQueue> const& queue, KvTask<T> task) {
    auto pending = spawn(queue, std::move(task));
    auto const stopAtEnd = [](KvPending<T>& awaited, KvMainQueue& running) -> KvTask<> {
        detail::KvFirstOf end({&awaited});
        co_await end;
        running.stop();
    };
    while (!pending.isReady()) {
        auto const stopping = spawn(queue, stopAtEnd(pending, *queue));
        queue->run();
    }
    return pending.take().value();
}

}  // namespace kv
