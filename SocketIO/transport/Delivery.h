// Carries what a connection received from the engine queue to the main queue: in one call when both are the same, in
// batches otherwise.
#pragma once

#include "Net/Failure.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketMetrics.h"
#include "SocketIO/SocketPressure.h"
#include "SocketIO/core/Packet.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

namespace kv::sio {

/// Hears of a connection, on the main queue. A connection holds it weakly.
class ConnectionListener {
public:
    virtual ~ConnectionListener() = default;
    /// `when`: when it came to the main queue, on that queue's clock.
    virtual void onPacket(ReceivedPacket const& packet, KvMainQueue::Clock::time_point when) = 0;
    /// There is room again for what is to be sent.
    virtual void onWritable() = 0;
    /// Nothing follows.
    virtual void onClosed(net::Failure const& failure) = 0;
    /// Whether it still wants to hear anything; it may have changed its mind inside `onPacket`.
    virtual bool isListening() const = 0;
};

/// Work on the main queue holds it, so it must own nothing that belongs to the engine queue.
class Delivery final : public std::enable_shared_from_this<Delivery> {
public:
    /// The main queue is behind when it has more than `mostUnderWay` bytes of memory to handle; `resume` is called on
    /// the engine queue when it is not any more.
    Delivery(std::shared_ptr<KvMainQueue> const& mainQueue, std::shared_ptr<KvMainQueue> const& engine,
             std::weak_ptr<ConnectionListener> listener, std::size_t mostUnderWay, std::function<void()> resume,
             std::shared_ptr<SocketMetrics> metrics);
    ~Delivery();

    // Engine queue.
    bool isDirect() const { return isDirect_; }
    /// Where the next packet is parsed into, unless delivery is direct.
    std::shared_ptr<PacketMemory> const& packetMemory();
    /// `now` is the engine queue's.
    void add(ReceivedPacket&& packet, KvMainQueue::Clock::time_point now);
    /// Hands over what was added, if it is much: to be called after each message.
    void flushMuch();
    /// Hands over what was added.
    void flush();
    /// Hands over what was added and then the end of the connection.
    void close(net::Failure failure);
    /// Whether the main queue, or the application, has so much to do that nothing more should be read: the server then
    /// feels it.
    bool isBehind() const;

    // Any thread.
    /// Tells the listener that there is room again.
    void tellWritable();
    /// Writes down what concerns receiving.
    void tell(SocketPressure& pressure) const;

private:
    struct Batch;
    Batch& batch();
    void count(std::size_t added);
    void wake(std::unique_lock<std::mutex>& lock);
    void handOne();
    void onHandled(Batch const& batch);
    void postToEngine(std::function<void()> work);

    bool const isDirect_;
    std::weak_ptr<KvMainQueue> const mainQueue_;
    std::weak_ptr<KvMainQueue> const engine_;
    std::weak_ptr<ConnectionListener> const listener_;
    std::size_t const limit_;
    std::function<void()> const resume_;
    std::shared_ptr<SocketMetrics> const metrics_;
    std::atomic<std::size_t> underWay_{0};  // bytes in batches that the main queue has not handled yet
    std::atomic<std::size_t> mostUnderWay_{0};
    std::atomic<std::uint64_t> pauses_{0};  // of reading
    std::atomic<bool> isBurst_{false};
    std::unique_ptr<Batch> batch_;  // engine queue: the one that packets are added to

    std::mutex mutex_;
    // Guarded by mutex_: what the main queue has not taken yet, and whether it was told so.
    std::list<std::unique_ptr<Batch>> waiting_;
    std::optional<net::Failure> end_;
    bool isWoken_ = false;
};

}  // namespace kv::sio
