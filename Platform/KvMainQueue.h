// The queue on which handlers, completions and delegate calls run, one at a time and in order.
//
// The queue has no thread. The application drives it from the thread that it calls its main thread: with `run` or
// `runFor`, or from its own loop, which calls `poll` whenever `fd` is readable. Functions say when they may be called
// from other threads; all others belong to the driving thread.
#pragma once

#include "Platform/KvExport.h"

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace kv {

/// A call that a queue makes later. Destroying or cancelling it before its time means that the call is never made.
class KV_EXPORT KvQueueTimer {
public:
    KvQueueTimer() = default;
    /// Takes the call over.
    KvQueueTimer(KvQueueTimer&& other) noexcept;
    /// Cancels its own call and takes the other over.
    KvQueueTimer& operator=(KvQueueTimer&& other) noexcept;
    ~KvQueueTimer();
    /// The call is not made any more. Does nothing when it was made, or when there is none.
    void cancel() noexcept;
    /// Whether the call is still to come.
    bool isActive() const noexcept;

private:
    friend class KvMainQueue;
    class Entry;
    explicit KvQueueTimer(std::shared_ptr<Entry> entry);
    std::shared_ptr<Entry> entry_;
};

/// A queue of work and timers without a thread of its own; the application drives it.
class KV_EXPORT KvMainQueue final : public std::enable_shared_from_this<KvMainQueue> {
public:
    using Clock = std::chrono::steady_clock;
    using Work = std::function<void()>;
    /// Whether timers go by the clock of the machine or by `advance`.
    enum class Time { real, manual };

    /// The queue of the process, made on first use; clients use it unless they are given another one. Null while the
    /// system has no descriptors for it. Any thread.
    [[nodiscard]] static std::shared_ptr<KvMainQueue> main();
    /// A queue of its own. With `Time::manual` its clock stands still until `advance` moves it. Null when the system
    /// has no descriptors for it: it takes four. Any thread.
    [[nodiscard]] static std::shared_ptr<KvMainQueue> create(Time time = Time::real);
    /// A queue that the application's own executor drives: a strand, a thread pool, the loop of a GUI. `post` hands
    /// work to it, which it runs one piece at a time and in order, on whichever thread: whatever belongs to the queue
    /// is then used from that executor. `post` is called by a thread of the library until `stop`; it must not run the
    /// work itself, nor wait, nor throw.
    ///
    ///     auto const strand = asio::make_strand(pool);
    ///     options.mainQueue = kv::KvMainQueue::on([strand](auto work) { asio::post(strand, std::move(work)); });
    ///
    /// Null when the system has no descriptors or no thread for it. Any thread.
    [[nodiscard]] static std::shared_ptr<KvMainQueue> on(std::function<void(Work)> post);
    ~KvMainQueue();

    /// Runs work as it comes, until `stop`.
    void run();
    /// Runs work as it comes, for this long or until `stop`, whichever is first. Real time, whatever the queue's clock.
    void runFor(std::chrono::nanoseconds duration);
    /// Runs the work that is ready, without waiting. Returns how many pieces of work were run.
    std::size_t poll();
    /// Makes the `run` or `runFor` in progress return after the work at hand. Without one in progress the next returns
    /// at once. Where the application's executor drives the queue, it gets no more work once this has returned: call it
    /// before the executor is destroyed. Any thread.
    void stop();
    /// A file descriptor that is readable when `poll` has something to do: for epoll, poll, GLib, Qt, libuv. It belongs
    /// to the queue; wait for it to be readable and do nothing else with it. On Windows it is the handle of an event.
    int fd() const;

    /// Queues work behind what is queued already. Never runs it inside the call. Any thread.
    void post(Work work);
    /// The same for work that can only be moved, such as one that owns a promise.
    template <std::invocable MoveOnly>
    requires(!std::copy_constructible<MoveOnly>) void post(MoveOnly work) {
        post([shared = std::make_shared<MoveOnly>(std::move(work))] { (*shared)(); });
    }
    /// Runs work at once when the caller is running on this queue, otherwise posts it. Any thread.
    void dispatch(Work work);
    /// Calls `work` once, `delay` from now on this queue's clock (at the next turn when it is zero or less).
    [[nodiscard]] KvQueueTimer after(std::chrono::nanoseconds delay, Work work);

    /// Keeps `work`, without ever calling it, until the queue or what is returned is destroyed: for what ends with the
    /// queue.
    [[nodiscard]] KvQueueTimer keep(Work work);

    /// Calls `work` once, at the next turn in which the descriptor can be read (its end and its errors can), or
    /// written: for sockets of the application's own on this queue. What is returned keeps a duplicate of the
    /// descriptor until then; it is inactive, and the call never made, where the system has none left. On Windows the
    /// descriptor is the handle of an event, such as WSAEventSelect sets.
    [[nodiscard]] KvQueueTimer whenReadable(int fd, Work work);
    /// The same for writing.
    [[nodiscard]] KvQueueTimer whenWritable(int fd, Work work);

    /// Whether the calling thread is running work of this queue at this moment. Any thread.
    bool isCurrent() const;
    /// Whether the calling thread may touch what belongs to this queue: it drove the queue last, or nobody did. Always
    /// true where the application's executor drives it, which may use any thread. Any thread.
    bool isOwnThread() const;
    /// The time on this queue's clock. Any thread.
    Clock::time_point now() const noexcept;
    /// Moves a manual clock and runs what became due, in the order in which it became due, along with other ready work.
    void advance(std::chrono::nanoseconds duration);

    class Impl;
    /// For the library's own use: sockets of this queue are made on it (see Platform/KvQueueContext.h).
    Impl& impl() { return *impl_; }

private:
    explicit KvMainQueue(Time time);
    std::unique_ptr<Impl> impl_;
};

}  // namespace kv
