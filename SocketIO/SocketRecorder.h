#pragma once

#include "Net/KvFailureStage.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace kv {

/// Hears what goes over the connections of a socket, packet by packet: for recordings. It is called on the engine's
/// thread, in the order in which things happen on a connection, and must not block, throw or call the socket. What it
/// is given lives for the time of the call.
class SocketRecorder {
public:
    virtual ~SocketRecorder() = default;

    /// A number for a connection, as the further calls name it.
    virtual std::uint64_t nextConnection() = 0;
    /// An attempt begins; again for the same connection when the network has changed meanwhile. `target` is what is
    /// asked for there, its query included.
    virtual void onDialing(std::uint64_t connection, std::string_view url, std::string_view target) = 0;
    /// The WebSocket is there.
    virtual void onOpen(std::uint64_t connection) = 0;
    /// It has ended by itself, or was never there: `reason` is what "disconnect" tells, `cause` a sentence, or empty.
    virtual void onLost(std::uint64_t connection, KvFailureStage stage, std::string_view reason,
                        std::string_view cause) = 0;
    /// This side has left.
    virtual void onLeft(std::uint64_t connection) = 0;

    /// The text of a packet as Engine.IO has it, before anything is made of it.
    virtual void onTextReceived(std::uint64_t connection, std::string_view text) = 0;
    /// An attachment of the packet before.
    virtual void onBinaryReceived(std::uint64_t connection, std::span<std::uint8_t const> bytes) = 0;
    /// The same of what is sent, when it goes.
    virtual void onTextSent(std::uint64_t connection, std::string_view text) = 0;
    /// An attachment of the packet before.
    virtual void onBinarySent(std::uint64_t connection, std::span<std::uint8_t const> bytes) = 0;
};

}  // namespace kv
