#include "SocketIO/transport/Delivery.h"

#include "SocketIO/transport/HeapTrim.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace kv::sio {
namespace {

// Larger batches fall out of the processor's cache before the main queue gets to them.
constexpr std::size_t kMostInBatch = 128;
constexpr std::size_t kMostBytesInBatch = 256u << 10;

}  // namespace

// Packets on their way to the main queue, with the memory of their values.
struct Delivery::Batch {
    std::shared_ptr<PacketMemory> memory = std::make_shared<PacketMemory>();  // goes last
    std::vector<ReceivedPacket> packets;
    std::size_t bytesOutside = 0;  // of what is in no memory of the batch's
    std::size_t counted = 0;       // of its bytes, in `underWay_`
    std::size_t countedPackets = 0;

    void add(ReceivedPacket&& packet) {
        bytesOutside += packet.unread.size();
        for (auto const& attachment : packet.attachments) bytesOutside += sizeof(KvData) + attachment->size();
        packets.push_back(std::move(packet));
    }
    /// What it occupies, which is many times the text that it came as.
    std::size_t bytes() const { return memory->bytes() + packets.capacity() * sizeof(ReceivedPacket) + bytesOutside; }
    bool isFull() const { return packets.size() >= kMostInBatch || bytes() >= kMostBytesInBatch; }
};

Delivery::Delivery(std::shared_ptr<KvMainQueue> const& mainQueue, std::shared_ptr<KvMainQueue> const& engine,
                   std::weak_ptr<ConnectionListener> listener, std::size_t mostUnderWay, std::function<void()> resume,
                   std::shared_ptr<SocketMetrics> metrics)
    : isDirect_(mainQueue == engine),
      mainQueue_(mainQueue),
      engine_(engine),
      listener_(std::move(listener)),
      limit_(mostUnderWay),
      resume_(std::move(resume)),
      metrics_(std::move(metrics)) {}

// What the main queue never came to, because it has gone itself.
Delivery::~Delivery() {
    if (batch_) waiting_.push_back(std::move(batch_));
    for (auto const& batch : waiting_) metrics_->unhandledMessages.fetch_sub(batch->countedPackets);
    metrics_->unhandledBytes.fetch_sub(underWay_);
}

Delivery::Batch& Delivery::batch() {
    if (batch_) return *batch_;
    {
        // While the main queue is busy, the few packets of each turn go where there is room: a batch takes much memory.
        std::lock_guard const lock(mutex_);
        if (!waiting_.empty() && !waiting_.back()->isFull()) {
            batch_ = std::move(waiting_.back());
            waiting_.pop_back();
        }
    }
    if (!batch_) batch_ = std::make_unique<Batch>();
    return *batch_;
}

std::shared_ptr<PacketMemory> const& Delivery::packetMemory() { return batch().memory; }

void Delivery::add(ReceivedPacket&& packet, KvMainQueue::Clock::time_point now) {
    if (!isDirect_) return batch().add(std::move(packet));
    auto const listener = listener_.lock();
    if (!listener || !listener->isListening()) return metrics_->left.add();
    listener->onPacket(packet, now);
}

void Delivery::flushMuch() {
    if (batch_ && batch_->isFull()) flush();
}

void Delivery::flush() {
    if (!batch_ || batch_->packets.empty()) return;
    auto const added = batch_->bytes() - batch_->counted;
    batch_->counted += added;
    count(added);
    auto const packets = batch_->packets.size();
    metrics_->unhandledMessages.fetch_add(packets - std::exchange(batch_->countedPackets, packets));
    std::unique_lock lock(mutex_);
    waiting_.push_back(std::move(batch_));
    wake(lock);
}

void Delivery::count(std::size_t added) {
    auto const before = underWay_.fetch_add(added), now = before + added;
    if (now > mostUnderWay_.load(std::memory_order_relaxed)) mostUnderWay_.store(now, std::memory_order_relaxed);
    metrics_->unhandledBytes.fetch_add(added);
    if (before <= limit_ && now > limit_) {
        pauses_.fetch_add(1, std::memory_order_relaxed);
        metrics_->readingPauses.add();
    }
    if (now > kBurstBytes) isBurst_ = true;
}

void Delivery::close(net::Failure failure) {
    if (isDirect_) {
        auto const listener = listener_.lock();
        if (listener && listener->isListening()) listener->onClosed(failure);
        return;
    }
    flush();
    std::unique_lock lock(mutex_);
    end_ = std::move(failure);
    wake(lock);
}

// One work at a time is on the main queue, so that what it does in between has its turn. Posted without the lock, for
// which the thread that wakes up would have to wait at once.
void Delivery::wake(std::unique_lock<std::mutex>& lock) {
    if (std::exchange(isWoken_, true)) return;
    lock.unlock();
    if (auto const mainQueue = mainQueue_.lock()) mainQueue->post([self = shared_from_this()] { self->handOne(); });
}

bool Delivery::isBehind() const { return underWay_ > limit_ || metrics_->isReadingPaused; }

// On the main queue.
void Delivery::handOne() {
    std::unique_ptr<Batch> batch;
    std::optional<net::Failure> end;
    {
        std::unique_lock lock(mutex_);
        isWoken_ = false;
        if (waiting_.empty()) {
            end.swap(end_);
        } else {
            batch = std::move(waiting_.front());
            waiting_.pop_front();
        }
        // Before the work: a handler may run the queue itself, and is to find the rest there.
        if (!waiting_.empty() || end_) wake(lock);
    }
    auto const listener = listener_.lock();
    if (batch) {
        auto const mainQueue = mainQueue_.lock();
        auto const now = mainQueue ? mainQueue->now() : KvMainQueue::Clock::time_point();
        auto const left = std::ranges::find_if(batch->packets, [&](auto const& packet) {
            if (!listener || !listener->isListening()) return true;
            listener->onPacket(packet, now);
            return false;
        });
        metrics_->left.add(static_cast<std::size_t>(batch->packets.end() - left));
        onHandled(*batch);
    } else if (end && listener && listener->isListening()) {
        listener->onClosed(*end);
    }
}

void Delivery::onHandled(Batch const& batch) {
    auto const bytes = batch.counted;
    metrics_->unhandledMessages.fetch_sub(batch.countedPackets);
    metrics_->unhandledBytes.fetch_sub(bytes);
    auto const before = underWay_.fetch_sub(bytes);
    if (before > limit_ && before - bytes <= limit_) postToEngine([self = shared_from_this()] { self->resume_(); });
    if (before == bytes && isBurst_.load(std::memory_order_relaxed) && isBurst_.exchange(false))
        postToEngine([self = shared_from_this()] { trimHeapSoon(self->engine_.lock()); });
}

void Delivery::postToEngine(std::function<void()> work) {
    if (auto const engine = engine_.lock()) engine->post(std::move(work));
}

void Delivery::tellWritable() {
    auto const mainQueue = mainQueue_.lock();
    if (!mainQueue) return;
    mainQueue->post([self = shared_from_this()] {
        auto const listener = self->listener_.lock();
        if (listener && listener->isListening()) listener->onWritable();
    });
}

void Delivery::tell(SocketPressure& pressure) const {
    pressure.bytesUnhandled = underWay_;
    pressure.mostBytesUnhandled = mostUnderWay_;
    pressure.readingPauses = pauses_;
}

}  // namespace kv::sio
