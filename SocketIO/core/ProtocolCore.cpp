#include "SocketIO/core/ProtocolCore.h"

#include "SocketIO/core/WebSocketCodec.h"

#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv::sio {
namespace json = boost::json;
namespace {

constexpr std::int64_t kMostMilliseconds = 86'400'000;  // a day

std::optional<std::int64_t> durationAt(json::object const& object, json::string_view key) {
    auto const* value = object.if_contains(key);
    if (!value || !value->is_int64()) return {};
    auto const number = value->get_int64();
    if (number < 0 || number > kMostMilliseconds) return {};
    return number;
}

json::string const* stringAt(json::value const& value, json::string_view key) {
    auto const* object = value.if_object();
    auto const* found = object ? object->if_contains(key) : nullptr;
    return found ? found->if_string() : nullptr;
}

}  // namespace

bool ProtocolCore::fail(std::string reason) {
    reason_ = std::move(reason);
    unfinished_.reset();
    return false;
}

bool ProtocolCore::onText(std::string_view text, Time now) {
    if (text.empty()) return fail("Engine.IO: empty packet");
    auto const body = text.substr(1);
    switch (static_cast<EngineType>(text[0])) {
        case EngineType::open:
            return onOpen(body, now);
        case EngineType::close:
            return fail("The server closed the session");
        case EngineType::ping:
            if (!isOpen()) return fail("Engine.IO: packet before the session was opened");
            deadline_ = now + patience_;
            host_.sendText(std::string(1, static_cast<char>(EngineType::pong)).append(body));
            return true;
        case EngineType::message:
            return onMessage(body);
        case EngineType::noop:
            return true;
        default:
            return fail("Engine.IO: unexpected packet type");
    }
}

bool ProtocolCore::onOpen(std::string_view text, Time now) {
    if (isOpen()) return fail("Engine.IO: the session was opened twice");
    json::value value;
    if (auto problem = parseJson(text, {}, value); !problem.empty()) return fail(std::move(problem));
    auto const* sid = stringAt(value, "sid");
    auto const* object = value.if_object();
    auto const interval = object ? durationAt(*object, "pingInterval") : std::nullopt;
    auto const timeout = object ? durationAt(*object, "pingTimeout") : std::nullopt;
    if (!sid || !interval || !timeout) return fail("Engine.IO: bad open packet");
    patience_ = std::chrono::milliseconds(*interval + *timeout);
    deadline_ = now + patience_;
    state_ = State::awaitingNamespace;
    host_.sendText("40");
    return true;
}

bool ProtocolCore::onMessage(std::string_view text) {
    if (!isOpen()) return fail("Engine.IO: packet before the session was opened");
    if (unfinished_) return fail("Socket.IO: text instead of an attachment");
    PacketHeader header;
    if (auto problem = readPacketHeader(text, header); !problem.empty()) return fail(std::move(problem));
    switch (header.type) {
        case PacketType::connect:
            return onConnect(header);
        case PacketType::disconnect:
            return fail("Got Disconnect");
        case PacketType::connectError:
            return onConnectError(header);
        default:
            return onItems(header);
    }
}

bool ProtocolCore::onConnect(PacketHeader const& header) {
    if (isConnected()) return fail("Socket.IO: the namespace was connected twice");
    json::value value;
    if (auto problem = parseJson(header.json, {}, value); !problem.empty()) return fail(std::move(problem));
    auto const* sid = stringAt(value, "sid");
    if (!sid) return fail("Socket.IO: bad connect packet");
    state_ = State::connected;
    ReceivedPacket packet(ReceivedPacket::Kind::connected);
    packet.name = *sid;
    return deliver(std::move(packet));
}

bool ProtocolCore::onConnectError(PacketHeader const& header) {
    json::value value;
    if (auto problem = parseJson(header.json, {}, value); !problem.empty()) return fail(std::move(problem));
    auto const* message = value.is_string() ? value.if_string() : stringAt(value, "message");
    return fail(message ? std::string(message->data(), message->size())
                        : "Socket.IO: the server refused the connection");
}

bool ProtocolCore::onItems(PacketHeader const& header) {
    if (!isConnected()) return fail("Socket.IO: packet before the namespace was connected");
    bool const isAck = header.type == PacketType::ack || header.type == PacketType::binaryAck;
    auto const memory = host_.packetMemory();
    memory->addUsed(header.json.size());
    json::value value(memory->storage());
    if (auto problem = parseJson(header.json, memory->storage(), value); !problem.empty())
        return fail(std::move(problem));
    auto* items = value.if_array();
    if (!items) return fail("Socket.IO: the items are not an array");
    if (isAck && !header.id) return fail("Socket.IO: acknowledgement without an id");
    ReceivedPacket packet(isAck ? ReceivedPacket::Kind::ack : ReceivedPacket::Kind::event, memory->storage());
    if (isAck) {
        packet.id = *header.id;
    } else {
        if (items->empty() || !items->front().is_string()) return fail("Socket.IO: event without a name");
        packet.name = std::move(items->front().get_string());
        items->erase(items->begin());
    }
    packet.items = std::move(*items);
    if (header.attachments == 0) return deliver(std::move(packet));
    packet.memory = memory;
    unfinished_ = std::make_unique<Unfinished>(Unfinished{std::move(packet), header.attachments});
    return true;
}

bool ProtocolCore::onBinary(KvBytes bytes) {
    if (!unfinished_) return fail("Socket.IO: attachment of no packet");
    unfinished_->bytes += bytes.size();
    if (unfinished_->bytes > kMostMessageBytes) return fail("Socket.IO: attachments over the limit of 16 MiB");
    unfinished_->packet.attachments.push_back(makeData(std::move(bytes)));
    if (--unfinished_->missing > 0) return true;
    auto const finished = std::move(unfinished_);
    return deliver(std::move(finished->packet));
}

bool ProtocolCore::deliver(ReceivedPacket&& packet) {
    host_.onPacket(std::move(packet));
    return true;
}

bool ProtocolCore::onTime(Time now) { return deadline_ && now >= *deadline_ ? fail("Ping timeout") : true; }

}  // namespace kv::sio
