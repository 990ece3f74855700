#include "SocketIO/core/ProtocolCore.h"

#include "Platform/KvJsonText.h"
#include "SocketIO/core/ByteStore.h"

#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv::sio {
namespace json = boost::json;
namespace {

constexpr std::int64_t kMostMilliseconds = 86'400'000;  // a day
constexpr std::size_t kMostPingBytes = 125;             // its echo goes ahead of everything: a small frame

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

bool isOwnReason(std::string_view text) {
    return text == kGotDisconnect || text == kNamespaceLeave || text == kPingTimeout;
}

bool ProtocolCore::fail(std::string reason, std::string cause, std::string serverWords) {
    failure_ = {KvFailureStage::session, std::move(reason), std::move(cause), std::move(serverWords)};
    unfinished_.reset();
    early_.clear();
    return false;
}

bool ProtocolCore::onText(std::string_view text, Time now) {
    if (text.empty()) return fail("Engine.IO: empty packet");
    auto const body = text.substr(1);
    switch (static_cast<EngineIoType>(text[0])) {
        case EngineIoType::open:
            return onOpen(body, now);
        case EngineIoType::close:
            return fail("The server closed the session");
        case EngineIoType::ping:
            if (!isOpen()) return fail("Engine.IO: packet before the session was opened");
            if (body.size() > kMostPingBytes) return fail("Engine.IO: ping of more than 125 bytes");
            heard_ = now;
            deadline_ = now + patience_;
            host_.onPing(now - std::exchange(pinged_, now));
            host_.sendText(std::string(1, static_cast<char>(EngineIoType::pong)).append(body));
            return true;
        case EngineIoType::message:
            return onMessage(body);
        case EngineIoType::noop:
            return true;
        default:
            return fail("Engine.IO: unexpected packet type");
    }
}

bool ProtocolCore::onOpen(std::string_view text, Time now) {
    if (isOpen()) return fail("Engine.IO: the session was opened twice");
    json::value value;
    if (auto problem = readJson(text, {}, value); !problem.empty()) return fail("Engine.IO: " + problem);
    auto const* sid = stringAt(value, "sid");
    auto const* object = value.if_object();
    auto const interval = object ? durationAt(*object, "pingInterval") : std::nullopt;
    auto const timeout = object ? durationAt(*object, "pingTimeout") : std::nullopt;
    if (!sid || !interval || !timeout) return fail("Engine.IO: bad open packet");
    interval_ = std::chrono::milliseconds(*interval);
    patience_ = std::chrono::milliseconds(*interval + *timeout);
    heard_ = pinged_ = now;
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
        case SocketIoType::connect:
            return onConnect(header);
        case SocketIoType::disconnect:
            return fail(std::string(kGotDisconnect), "The server has ended the session");
        case SocketIoType::connectError:
            return onConnectError(header);
        default:
            return isConnected() ? onItems(header) : onEarly(text, true);
    }
}

bool ProtocolCore::onConnect(PacketHeader const& header) {
    if (isConnected()) return fail("Socket.IO: the namespace was connected twice");
    if (header.json.empty()) return fail("Socket.IO: the server speaks version 2, and this side only later ones");
    json::value value;
    if (auto problem = readJson(header.json, {}, value); !problem.empty()) return fail("Socket.IO: " + problem);
    auto const* sid = stringAt(value, "sid");
    if (!sid) return fail("Socket.IO: bad connect packet");
    state_ = State::connected;
    ReceivedPacket packet(ReceivedPacket::Kind::connected);
    packet.name = *sid;
    host_.onPacket(std::move(packet));
    for (auto& early : std::exchange(early_, {})) {
        bool const goesOn =
            early.isText ? onMessage(early.message) : onBinary({early.message.begin(), early.message.end()});
        if (!goesOn) return false;
    }
    return true;
}

bool ProtocolCore::onEarly(std::string_view message, bool isText) {
    earlyBytes_ += sizeof(Early) + message.size();
    if (earlyBytes_ > mostBytes_) return fail("Socket.IO: too much before the namespace was connected");
    early_.push_back({std::string(message), isText});
    return true;
}

bool ProtocolCore::onConnectError(PacketHeader const& header) {
    json::value value;
    if (auto problem = readJson(header.json, {}, value); !problem.empty()) return fail("Socket.IO: " + problem);
    auto const* message = value.is_string() ? value.if_string() : stringAt(value, "message");
    bool const isSaid = message && !isOwnReason(*message);
    if (!isSaid) return fail("Socket.IO: the server refused the connection");
    return fail(std::string(*message), "The server refused the session", std::string(*message));
}

bool ProtocolCore::onItems(PacketHeader const& header) {
    bool const isEvent = header.type == SocketIoType::event || header.type == SocketIoType::binaryEvent;
    auto const memory = host_.packetMemory();
    ReceivedPacket packet(isEvent ? ReceivedPacket::Kind::event : ReceivedPacket::Kind::ack, memory->storage());
    packet.id = header.id;
    bool isRead = true;
    if (isEvent) {
        std::string decoded;
        auto const name = eventNameOf(header.json, decoded);
        if (!name) return fail("Socket.IO: event without a name");
        packet.name = *name;
        isRead = host_.isAwaited(*name);
    }
    if (!isRead) {
        packet.unread = header.json;
    } else if (auto problem = readItems(header.json, isEvent, packet.items); !problem.empty()) {
        return fail(std::move(problem));
    }
    if (header.attachments == 0) {
        host_.onPacket(std::move(packet));
        return true;
    }
    packet.memory = memory;
    unfinished_ = std::make_unique<Unfinished>(Unfinished{std::move(packet), header.attachments});
    return true;
}

bool ProtocolCore::onBinary(KvBytes bytes) {
    if (!isConnected() && !early_.empty())
        return onEarly({reinterpret_cast<char const*>(bytes.data()), bytes.size()}, false);
    if (!unfinished_) return fail("Socket.IO: attachment of no packet");
    unfinished_->bytes += bytes.size();
    if (unfinished_->bytes > mostBytes_)
        return fail("Socket.IO: attachments over the limit of " + limitText(mostBytes_));
    unfinished_->packet.attachments.push_back(makeReceived(std::move(bytes)));
    if (--unfinished_->missing > 0) return true;
    auto const finished = std::move(unfinished_);
    host_.onPacket(std::move(finished->packet));
    return true;
}

bool ProtocolCore::onUnread(Time now) {
    if (!isOpen() || now < nextPulse()) return false;
    heard_ = now;
    host_.sendText(std::string(1, static_cast<char>(EngineIoType::pong)));
    return true;
}

bool ProtocolCore::onTime(Time now) {
    return deadline_ && now >= *deadline_ ? fail(std::string(kPingTimeout), "The server's pings have stopped") : true;
}

}  // namespace kv::sio
