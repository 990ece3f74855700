#include "SocketIO/core/ByteStore.h"

#include <array>
#include <bit>
#include <mutex>
#include <utility>
#include <vector>

namespace kv::sio {
namespace {

// Smaller ones are no burden to anyone; larger ones are rare.
constexpr std::size_t kLeast = 4u << 10, kMost = 256u << 10;
constexpr std::size_t kMostKept = 1u << 20;

class Store {
public:
    KvBytes take(std::size_t size) {
        KvBytes bytes;
        std::unique_lock lock(mutex_);
        isUsed_ = true;
        auto& free = free_[indexOf(size)];
        if (!free.empty()) {
            bytes = std::move(free.back());
            free.pop_back();
            kept_ -= bytes.capacity();
            return bytes;
        }
        lock.unlock();
        bytes.reserve(std::bit_ceil(size));
        return bytes;
    }

    void give(KvBytes bytes) {
        if (bytes.capacity() < kLeast || bytes.capacity() > kMost || !std::has_single_bit(bytes.capacity())) return;
        bytes.clear();
        std::lock_guard const lock(mutex_);
        if (kept_ + bytes.capacity() > kMostKept) return;
        kept_ += bytes.capacity();
        free_[indexOf(bytes.capacity())].push_back(std::move(bytes));
    }

    void trim() {
        decltype(free_) freed;
        std::lock_guard const lock(mutex_);
        if (std::exchange(isUsed_, false)) return;
        std::swap(freed, free_);
        kept_ = 0;
    }

private:
    // All buffers at one index have the same size, a power of two.
    static std::size_t indexOf(std::size_t size) {
        return static_cast<std::size_t>(std::countr_zero(std::bit_ceil(size)) - std::countr_zero(kLeast));
    }

    std::mutex mutex_;
    // Guarded by mutex_.
    std::array<std::vector<KvBytes>, std::countr_zero(kMost) - std::countr_zero(kLeast) + 1> free_;
    std::size_t kept_ = 0;
    bool isUsed_ = false;
};

Store& store() {
    static auto& store = *new Store;  // an application may keep an attachment longer than anything else
    return store;
}

struct Received {
    explicit Received(KvBytes taken) : bytes(std::move(taken)) {}
    ~Received() { store().give(std::move(bytes)); }
    Received(Received const&) = delete;
    Received& operator=(Received const&) = delete;
    KvBytes bytes;
};

}  // namespace

KvBytes takeBytes(std::size_t size) {
    if (size >= kLeast && size <= kMost) return store().take(size);
    KvBytes bytes;
    bytes.reserve(size);
    return bytes;
}

KvData makeReceived(KvBytes bytes) {
    auto const received = std::make_shared<Received>(std::move(bytes));
    return {received, &received->bytes};
}

void trimBytes() { store().trim(); }

}  // namespace kv::sio
