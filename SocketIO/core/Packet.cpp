#include "SocketIO/core/Packet.h"

#include "SocketIO/core/Utf8.h"

#include <charconv>

#include <boost/json/parser.hpp>
#include <boost/json/serializer.hpp>

namespace kv::sio {
namespace json = boost::json;
namespace {

constexpr std::size_t kMostDigits = 15;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Takes a number off the front of `text`; nothing when there is none or it is absurdly long.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    std::size_t digits = 0;
    while (digits < text.size() && isDigit(text[digits])) ++digits;
    if (digits == 0 || digits > kMostDigits) return {};
    std::uint64_t value = 0;
    std::from_chars(text.data(), text.data() + digits, value);
    text.remove_prefix(digits);
    return value;
}

bool hasAttachments(PacketType type) { return type == PacketType::binaryEvent || type == PacketType::binaryAck; }

void appendNumber(std::string& out, std::uint64_t value) {
    std::array<char, 20> digits;
    out.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
}

template <class Json>
void appendJson(std::string& out, Json const& value) {
    thread_local json::serializer serializer;
    serializer.reset(&value);
    std::array<char, 4096> piece;
    while (!serializer.done()) out.append(serializer.read(piece.data(), piece.size()));
}

}  // namespace

std::string readPacketHeader(std::string_view packet, PacketHeader& header) {
    if (packet.empty()) return "Socket.IO: empty packet";
    if (packet[0] < '0' || packet[0] > '6') return "Socket.IO: unknown packet type";
    header.type = static_cast<PacketType>(packet[0]);
    packet.remove_prefix(1);
    if (hasAttachments(header.type)) {
        auto const count = takeNumber(packet);
        if (!count || packet.empty() || packet[0] != '-') return "Socket.IO: bad number of attachments";
        if (*count > kMostAttachments) return "Socket.IO: more than 1000 attachments";
        header.attachments = *count;
        packet.remove_prefix(1);
    }
    if (!packet.empty() && packet[0] == '/') {
        auto const end = packet.find(',');
        auto const space = packet.substr(0, end);
        if (space != "/" && !space.starts_with("/?")) return "Socket.IO: packet for another namespace";
        packet.remove_prefix(end == std::string_view::npos ? packet.size() : end + 1);
    }
    if (!packet.empty() && isDigit(packet[0])) {
        header.id = takeNumber(packet);
        if (!header.id) return "Socket.IO: bad acknowledgement id";
    }
    header.json = packet;
    return {};
}

std::string parseJson(std::string_view text, json::storage_ptr storage, json::value& out) {
    thread_local json::parser parser({}, [] {
        json::parse_options options;
        options.max_depth = kMostJsonDepth;
        return options;
    }());
    parser.reset(std::move(storage));
    json::error_code error;
    parser.write(text.data(), text.size(), error);
    if (!error) {
        out = parser.release();
    } else if (error == json::error::too_deep) {
        return "Socket.IO: JSON nested too deeply";
    } else {
        return "Socket.IO: bad JSON: " + error.message();
    }
    return {};
}

void writeEvent(std::string& out, std::string_view event, SocketItems const& items, std::optional<std::uint64_t> id) {
    auto const start = out.size();
    out.push_back(static_cast<char>(EngineType::message));
    if (items.attachments.empty()) {
        out.push_back(static_cast<char>(PacketType::event));
    } else {
        out.push_back(static_cast<char>(PacketType::binaryEvent));
        appendNumber(out, items.attachments.size());
        out.push_back('-');
    }
    if (id) appendNumber(out, *id);
    out.push_back('[');
    json::string_view const name(event.data(), event.size());
    thread_local json::serializer serializer;
    serializer.reset(name);
    std::array<char, 256> piece;
    while (!serializer.done()) out.append(serializer.read(piece.data(), piece.size()));
    for (auto const& item : items.values) {
        out.push_back(',');
        appendJson(out, item);
    }
    out.push_back(']');
    // Not only the serializer's text is at stake: a server drops the whole connection for one bad byte.
    if (std::string_view const written = std::string_view(out).substr(start); !isValidUtf8(written)) {
        std::string repaired(written);
        replaceInvalidUtf8(repaired);
        out.replace(start, std::string::npos, repaired);
    }
}

}  // namespace kv::sio
