// What a client or a channel tells, one event after the other, for a coroutine that loops over it:
//
//     for (auto events = client->events(); auto const event = co_await events.next();) ...
//
// A stream hears what is told from the moment at which it is opened, beside the delegate and other streams, and behind
// the delegate. It holds nothing but itself: it ends, with what it has still got, when its client ends. Threads: those
// of the client.
#pragma once

#include "Platform/KvExport.h"

#include <coroutine>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>

namespace kv {

/// Which events a stream loses that nobody reads: the oldest that it has, or those that come.
enum class KvDrop { oldest, newest };

/// How much a stream keeps of what nobody has read yet.
struct KvStreamOptions {
    std::size_t limit = 1024;  ///< Events; at least 1.
    KvDrop drop = KvDrop::oldest;
};

namespace detail {

/// What is read at the one end and written at the other.
template <class Event>
class KvStreamState {
public:
    explicit KvStreamState(KvStreamOptions options) : options_(options) {}
    KvStreamState(KvStreamState const&) = delete;
    KvStreamState& operator=(KvStreamState const&) = delete;

    void push(Event event) {
        if (options_.drop == KvDrop::newest && isFull()) {
            ++dropped;
            return;
        }
        if (isFull()) {
            ++dropped;
            events.pop_front();
        }
        events.push_back(std::move(event));
        resume();
    }
    void finish() {
        isOver = true;
        resume();
    }

    std::deque<Event> events;
    bool isOver = false;
    std::uint64_t dropped = 0;
    std::coroutine_handle<> waiter;

private:
    bool isFull() const { return !events.empty() && events.size() >= options_.limit; }
    void resume() {
        if (auto const waiting = std::exchange(waiter, nullptr)) waiting.resume();
    }
    KvStreamOptions const options_;
};

}  // namespace detail

/// See above. Destroying it stops the listening.
template <class Event>
class KvStream {
    using State = detail::KvStreamState<Event>;

public:
    /// For who tells.
    explicit KvStream(std::shared_ptr<State> state) : state_(std::move(state)) {}

    /// `co_await`: the next event, as soon as there is one; nothing when the stream is over. One coroutine at a time.
    auto next() {
        class Awaiter {
        public:
            explicit Awaiter(std::shared_ptr<State> state) noexcept : state_(std::move(state)) {}
            Awaiter(Awaiter const&) = delete;
            Awaiter& operator=(Awaiter const&) = delete;
            ~Awaiter() { state_->waiter = nullptr; }
            bool await_ready() const noexcept { return !state_->events.empty() || state_->isOver; }
            void await_suspend(std::coroutine_handle<> waiter) noexcept { state_->waiter = waiter; }
            std::optional<Event> await_resume() {
                if (state_->events.empty()) return std::nullopt;
                std::optional<Event> event(std::move(state_->events.front()));
                state_->events.pop_front();
                return event;
            }

        private:
            std::shared_ptr<State> state_;
        };
        return Awaiter(state_);
    }

    /// How many events were lost so far because nobody read them in time.
    std::uint64_t dropped() const noexcept { return state_->dropped; }
    /// How many wait to be read.
    std::size_t size() const noexcept { return state_->events.size(); }
    /// Whether nothing more will come, beyond what waits.
    bool isOver() const noexcept { return state_->isOver; }
    /// Ends it, with what it has still got; who waits is resumed inside the call. For another coroutine to end a loop.
    void close() {
        auto const state = state_;
        state->finish();
    }

private:
    std::shared_ptr<State> state_;
};

}  // namespace kv
