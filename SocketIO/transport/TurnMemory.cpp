#include "SocketIO/transport/TurnMemory.h"

#include <utility>

namespace kv::sio {
namespace {

constexpr std::size_t kReadBytes = 256u << 10;

}  // namespace

struct TurnMemory::Block {
    std::unique_ptr<std::uint8_t[]> const bytes = std::make_unique_for_overwrite<std::uint8_t[]>(kReadBytes);
    std::shared_ptr<PacketMemory> packets = std::make_shared<PacketMemory>();
};

std::vector<std::unique_ptr<TurnMemory::Block>>& TurnMemory::free() {
    thread_local std::vector<std::unique_ptr<Block>> blocks;
    return blocks;
}

TurnMemory::TurnMemory() {
    auto& blocks = free();
    if (blocks.empty()) {
        block_ = std::make_unique<Block>();
    } else {
        block_ = std::move(blocks.back());
        blocks.pop_back();
    }
}

TurnMemory::~TurnMemory() {
    auto& blocks = free();
    if (block_->packets.use_count() == 1) block_->packets->reset();  // a large packet's values are not kept
    if (blocks.empty()) blocks.push_back(std::move(block_));  // turns inside turns are rare: one is enough to keep
}

std::span<std::uint8_t> TurnMemory::readBuffer() { return {block_->bytes.get(), kReadBytes}; }

std::shared_ptr<PacketMemory> const& TurnMemory::packetMemory() {
    if (block_->packets.use_count() == 1) {
        block_->packets->reset();
    } else {
        block_->packets = std::make_shared<PacketMemory>();
    }
    return block_->packets;
}

}  // namespace kv::sio
