#include "SocketIO/transport/Delivery.h"

#include <utility>
#include <vector>

namespace kv::sio {
namespace {

// Larger batches fall out of the processor's cache before the main queue gets to them.
constexpr std::size_t kMostInBatch = 128;
constexpr std::size_t kMostBytesInBatch = 256u << 10;
constexpr std::size_t kMostUnderWay = 32u << 20;

}  // namespace

// Packets on their way to the main queue, with the memory of their values.
struct Delivery::Batch {
    std::shared_ptr<PacketMemory> memory = std::make_shared<PacketMemory>();  // goes last
    std::vector<ReceivedPacket> packets;
    std::size_t bytes = 0;
};

Delivery::Delivery(std::shared_ptr<KvMainQueue> const& mainQueue, std::shared_ptr<KvMainQueue> const& engine,
                   std::weak_ptr<ConnectionListener> listener, std::function<void()> resume)
    : isDirect_(mainQueue == engine),
      mainQueue_(mainQueue),
      engine_(engine),
      listener_(std::move(listener)),
      resume_(std::move(resume)) {}

Delivery::~Delivery() = default;

Delivery::Batch& Delivery::batch() {
    if (!batch_) batch_ = std::make_unique<Batch>();
    return *batch_;
}

std::shared_ptr<PacketMemory> const& Delivery::packetMemory() { return batch().memory; }

void Delivery::add(ReceivedPacket&& packet) {
    if (!isDirect_) return batch().packets.push_back(std::move(packet));
    if (auto const listener = listener_.lock(); listener && listener->isListening()) listener->onPacket(packet);
}

void Delivery::count(std::size_t bytes) {
    if (!batch_) return;
    batch_->bytes += bytes;
    if (batch_->bytes >= kMostBytesInBatch || batch_->packets.size() >= kMostInBatch) flush();
}

void Delivery::flush() {
    if (!batch_ || batch_->packets.empty()) return;
    auto const mainQueue = mainQueue_.lock();
    if (!mainQueue) return batch_.reset();
    underWay_ += batch_->bytes;
    mainQueue->post([self = shared_from_this(), handed = std::shared_ptr<Batch>(std::move(batch_))] {
        auto const listener = self->listener_.lock();
        for (auto const& packet : handed->packets) {
            if (!listener || !listener->isListening()) break;
            listener->onPacket(packet);
        }
        self->onHandled(handed->bytes);
    });
}

void Delivery::close(std::string reason) {
    flush();
    auto tell = [self = shared_from_this(), text = std::move(reason)] {
        if (auto const listener = self->listener_.lock(); listener && listener->isListening()) listener->onClosed(text);
    };
    if (isDirect_) return tell();
    if (auto const mainQueue = mainQueue_.lock()) mainQueue->post(std::move(tell));
}

bool Delivery::isBehind() const { return underWay_ > kMostUnderWay; }

// On the main queue.
void Delivery::onHandled(std::size_t bytes) {
    auto const before = underWay_.fetch_sub(bytes);
    if (before <= kMostUnderWay || before - bytes > kMostUnderWay) return;
    if (auto const engine = engine_.lock()) engine->post([self = shared_from_this()] { self->resume_(); });
}

}  // namespace kv::sio
