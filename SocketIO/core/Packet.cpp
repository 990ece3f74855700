#include "SocketIO/core/Packet.h"

#include "Platform/KvJsonText.h"
#include "Platform/KvUtf8.h"

#include <algorithm>
#include <array>
#include <charconv>

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

bool hasAttachments(SocketIoType type) { return type == SocketIoType::binaryEvent || type == SocketIoType::binaryAck; }

bool isAck(SocketIoType type) { return type == SocketIoType::ack || type == SocketIoType::binaryAck; }

void appendNumber(std::string& out, std::uint64_t value) {
    std::array<char, 20> digits;
    out.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
}

void writeStart(std::string& out, bool isAnswer, SocketItems const& items, std::optional<std::uint64_t> id) {
    out.push_back(static_cast<char>(EngineIoType::message));
    if (items.attachments.empty()) {
        out.push_back(static_cast<char>(isAnswer ? SocketIoType::ack : SocketIoType::event));
    } else {
        out.push_back(static_cast<char>(isAnswer ? SocketIoType::binaryAck : SocketIoType::binaryEvent));
        appendNumber(out, items.attachments.size());
        out.push_back('-');
    }
    if (id) appendNumber(out, *id);
    out.push_back('[');
}

// A server drops the whole connection for one bad byte.
void repairUtf8(std::string& out, std::size_t start) {
    std::string_view const written = std::string_view(out).substr(start);
    if (isValidUtf8(written)) return;
    std::string repaired(written);
    replaceInvalidUtf8(repaired);
    out.replace(start, std::string::npos, repaired);
}

// The JSON text that begins with a quote, up to the quote that ends it.
std::string_view firstText(std::string_view json) {
    for (std::size_t at = 1; at < json.size(); ++at) {
        if (json[at] == '"') return json.substr(0, at + 1);
        if (json[at] == '\\') ++at;
    }
    return {};
}

}  // namespace

std::string readPacketHeader(std::string_view packet, PacketHeader& header) {
    if (packet.empty()) return "Socket.IO: empty packet";
    if (packet[0] < '0' || packet[0] > '6') return "Socket.IO: unknown packet type";
    header.type = static_cast<SocketIoType>(packet[0]);
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
        // An answer to what cannot have been asked is none; a question whose number cannot be kept is an error.
        if (!header.id && !isAck(header.type)) return "Socket.IO: bad acknowledgement id";
        packet.remove_prefix(std::min(packet.find_first_not_of("0123456789"), packet.size()));
    }
    header.json = packet;
    return {};
}

std::optional<std::string_view> eventNameOf(std::string_view json, std::string& decoded) {
    constexpr std::string_view kSpace = " \t\r\n", kBehindNumber = " \t\r\n,]";
    if (!json.starts_with('[')) return {};
    json.remove_prefix(std::min(json.find_first_not_of(kSpace, 1), json.size()));
    if (!json.starts_with('"')) {  // an integer is a name too; nothing else is
        auto const number = json.substr(0, json.find_first_of(kBehindNumber));
        auto const digits = number.substr(number.starts_with('-') ? 1 : 0);
        bool const isInteger = !digits.empty() && digits.size() <= kMostDigits && std::ranges::all_of(digits, isDigit);
        return isInteger ? std::optional(number) : std::nullopt;
    }
    auto const quoted = firstText(json);
    if (quoted.empty()) return {};
    if (quoted.find('\\') == std::string_view::npos) return quoted.substr(1, quoted.size() - 2);
    json::value name;
    if (!readJson(quoted, {}, name).empty()) return {};
    decoded = name.get_string();
    return decoded;
}

std::string readItems(std::string_view json, bool isEvent, json::array& items) {
    json::value value(items.storage());
    if (auto problem = readJson(json, items.storage(), value); !problem.empty()) return "Socket.IO: " + problem;
    auto* read = value.if_array();
    if (!read) return "Socket.IO: the items are not an array";
    if (isEvent) {
        if (read->empty()) return "Socket.IO: event without a name";
        read->erase(read->begin());
    }
    items = std::move(*read);
    return {};
}

void writeEvent(std::string& out, std::string_view event, SocketItems const& items, std::optional<std::uint64_t> id) {
    auto const start = out.size();
    writeStart(out, false, items, id);
    appendJson(out, json::string_view(event.data(), event.size()));
    for (auto const& item : items.values) {
        out.push_back(',');
        appendJson(out, item);
    }
    out.push_back(']');
    repairUtf8(out, start);
}

void writeAck(std::string& out, SocketItems const& items, std::uint64_t id) {
    auto const start = out.size();
    writeStart(out, true, items, id);
    for (auto const& item : items.values) {
        if (&item != items.values.data()) out.push_back(',');
        appendJson(out, item);
    }
    out.push_back(']');
    repairUtf8(out, start);
}

}  // namespace kv::sio
