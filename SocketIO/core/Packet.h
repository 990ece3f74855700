// The text of Engine.IO 4 and Socket.IO 5 packets: what it says, and how it is written.
#pragma once

#include "Platform/KvData.h"
#include "SocketIO/SocketData.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/string.hpp>
#include <boost/json/value.hpp>

namespace kv::sio {

constexpr std::size_t kMostAttachments = 1000;
constexpr std::size_t kMostJsonDepth = 64;

enum class EngineType : char {
    open = '0',
    close = '1',
    ping = '2',
    pong = '3',
    message = '4',
    upgrade = '5',
    noop = '6'
};
enum class PacketType : char {
    connect = '0',
    disconnect = '1',
    event = '2',
    ack = '3',
    connectError = '4',
    binaryEvent = '5',
    binaryAck = '6'
};

/// Where the JSON of received packets is parsed into. Values in it cost no release of their own.
class PacketMemory {
public:
    PacketMemory() { reset(); }
    PacketMemory(PacketMemory const&) = delete;
    PacketMemory& operator=(PacketMemory const&) = delete;
    boost::json::storage_ptr storage() { return &*resource_; }
    /// Forgets everything in it.
    void reset() {
        // Made anew because a released resource keeps its doubled block size and would creep up.
        resource_.emplace(buffer_.data(), buffer_.size());
        used_ = 0;
    }
    /// The bytes of JSON text that were parsed into it.
    std::size_t used() const { return used_; }
    void addUsed(std::size_t bytes) { used_ += bytes; }

private:
    std::array<unsigned char, 16384> buffer_;
    std::optional<boost::json::monotonic_resource> resource_;
    std::size_t used_ = 0;
};

/// What stands before the JSON of a Socket.IO packet.
struct PacketHeader {
    PacketType type = PacketType::event;
    std::size_t attachments = 0;
    std::optional<std::uint64_t> id;
    std::string_view json;
};

/// Reads a Socket.IO packet (behind the Engine.IO type). Returns an empty text, or what is wrong with it.
std::string readPacketHeader(std::string_view packet, PacketHeader& header);
/// Parses JSON text. Returns an empty text, or what is wrong with it.
std::string parseJson(std::string_view text, boost::json::storage_ptr storage, boost::json::value& out);

/// A packet that concerns the application. `memory` holds its values when nothing else keeps them.
struct ReceivedPacket {
    enum class Kind { connected, event, ack };
    explicit ReceivedPacket(Kind ofKind, boost::json::storage_ptr storage = {})
        : kind(ofKind), name(storage), items(std::move(storage)) {}

    std::shared_ptr<PacketMemory> memory;  // goes last
    Kind kind;
    std::uint64_t id = 0;      // of an acknowledgement
    boost::json::string name;  // of an event; the session id when connected
    boost::json::array items;  // without the name
    std::vector<KvData> attachments;
};

/// Writes an event as Engine.IO message text, always well-formed UTF-8. Its attachments follow as binary messages.
void writeEvent(std::string& out, std::string_view event, SocketItems const& items, std::optional<std::uint64_t> id);

}  // namespace kv::sio
