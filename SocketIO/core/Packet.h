// The text of Engine.IO 4 and Socket.IO 5 packets: what it says, and how it is written.
#pragma once

#include "Platform/KvData.h"
#include "SocketIO/SocketData.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/memory_resource.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/string.hpp>
#include <boost/json/value.hpp>

namespace kv::sio {

constexpr std::size_t kMostAttachments = 1000;

enum class EngineIoType : char {
    open = '0',
    close = '1',
    ping = '2',
    pong = '3',
    message = '4',
    upgrade = '5',
    noop = '6'
};
enum class SocketIoType : char {
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
        resource_.emplace(buffer_.data(), buffer_.size(), &heap_);
    }
    /// What it takes of the machine's memory.
    std::size_t bytes() const { return sizeof *this + heap_.bytes; }

private:
    // The machine's memory, with a count.
    struct Heap final : boost::json::memory_resource {
        std::size_t bytes = 0;
        void* do_allocate(std::size_t size, std::size_t) override {
            void* const block = ::operator new(size);
            bytes += size;
            return block;
        }
        void do_deallocate(void* block, std::size_t size, std::size_t) override {
            bytes -= size;
            ::operator delete(block);
        }
        bool do_is_equal(memory_resource const& other) const noexcept override { return this == &other; }
    };

    Heap heap_;
    std::array<unsigned char, 16384> buffer_;
    std::optional<boost::json::monotonic_resource> resource_;
};

/// What stands before the JSON of a Socket.IO packet.
struct PacketHeader {
    SocketIoType type = SocketIoType::event;
    std::size_t attachments = 0;
    std::optional<std::uint64_t> id;
    std::string_view json;
};

/// Reads a Socket.IO packet (behind the Engine.IO type). Returns an empty text, or what is wrong with it.
std::string readPacketHeader(std::string_view packet, PacketHeader& header);
/// The name of the event that these items begin with, without a look at the others; nothing when there is none. It is
/// part of the text, or of `decoded`.
std::optional<std::string_view> eventNameOf(std::string_view json, std::string& decoded);
/// Reads items, of an event without its name. Returns an empty text, or what is wrong with them.
std::string readItems(std::string_view json, bool isEvent, boost::json::array& items);

/// A packet that concerns the application. `memory` holds its values when nothing else keeps them.
struct ReceivedPacket {
    enum class Kind { connected, event, ack };
    explicit ReceivedPacket(Kind ofKind, boost::json::storage_ptr storage = {})
        : kind(ofKind), name(storage), items(std::move(storage)) {}

    std::shared_ptr<PacketMemory> memory;  // goes last
    Kind kind;
    /// Of an event: what the server awaits an answer under. Of an acknowledgement: what it answers, or nothing when the
    /// server wrote nothing that can be an id.
    std::optional<std::uint64_t> id;
    boost::json::string name;  // of an event; the session id when connected
    boost::json::array items;  // without the name
    std::string unread;        // instead of items: the JSON of an event that nobody awaited when it came
    std::vector<KvData> attachments;
};

/// Writes an event as Engine.IO message text, always well-formed UTF-8. Its attachments follow as binary messages.
void writeEvent(std::string& out, std::string_view event, SocketItems const& items, std::optional<std::uint64_t> id);
/// Writes an acknowledgement likewise.
void writeAck(std::string& out, SocketItems const& items, std::uint64_t id);

}  // namespace kv::sio
