// What one turn of reading needs, lent by the thread: connections that do not read at the moment own no buffers.
#pragma once

#include "SocketIO/core/Packet.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace kv::sio {

/// Lent for a turn. A handler that runs the queue itself starts a turn inside the turn, which is lent another one.
class TurnMemory {
public:
    TurnMemory();
    ~TurnMemory();
    TurnMemory(TurnMemory const&) = delete;
    TurnMemory& operator=(TurnMemory const&) = delete;

    std::span<std::uint8_t> readBuffer();
    /// For the values of the next packet; those of the packet before are gone unless someone holds the memory.
    std::shared_ptr<PacketMemory> const& packetMemory();

private:
    struct Block;
    static std::vector<std::unique_ptr<Block>>& free();
    std::unique_ptr<Block> block_;
};

}  // namespace kv::sio
