#include "SocketIO/transport/Upgrade.h"

#include "Net/Base64.h"
#include "Net/Url.h"
#include "SocketIO/core/WebSocketCodec.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <utility>

#include <openssl/evp.h>

namespace kv::sio {
namespace {

constexpr std::size_t kMostStatusText = 80;
// The best first. Servers can be set so that they take only one that keeps context, or one whose window they may
// choose.
constexpr char const* kDeflateOffers =
    "permessage-deflate; client_no_context_takeover; server_no_context_takeover; client_max_window_bits, "
    "permessage-deflate; client_max_window_bits, permessage-deflate";
// zlib cannot deflate for a window of 256 bytes; nothing obliges this side to deflate.
constexpr int kLeastDeflateBits = 9;

std::string acceptFor(std::string const& key) {
    std::string const text = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    static EVP_MD const* const sha1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);  // else looked up for each connection
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, sha1, nullptr);
    return net::base64({digest, size});
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
}

std::string_view trimmed(std::string_view text) {
    auto const start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos) return {};
    return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

template <class Visit>
void forEachPart(std::string_view text, char separator, Visit visit) {
    while (!text.empty()) {
        auto const end = std::min(text.find(separator), text.size());
        visit(trimmed(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::optional<std::string> headerOf(std::string_view head, std::string_view name) {
    std::optional<std::string> found;
    forEachPart(head, '\n', [&](std::string_view line) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        auto const colon = line.find(':');
        if (colon == std::string_view::npos || !equalsIgnoringCase(line.substr(0, colon), name)) return;
        auto const value = trimmed(line.substr(colon + 1));
        found = found ? *found + ", " + std::string(value) : std::string(value);
    });
    return found;
}

bool listContains(std::optional<std::string> const& list, std::string_view wanted) {
    bool contains = false;
    if (list)
        forEachPart(*list, ',',
                    [&](std::string_view part) { contains = contains || equalsIgnoringCase(part, wanted); });
    return contains;
}

std::string_view statusOf(std::string_view head) { return trimmed(head.substr(9, head.find_first_of("\r\n") - 9)); }

// The bits of a window as a server may write them: 8 to 15, perhaps in quotes; 0 for anything else.
int windowBits(std::string_view text) {
    if (text.size() > 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
    if (text == "8" || text == "9") return text[0] - '0';
    return text.size() == 2 && text[0] == '1' && text[1] >= '0' && text[1] <= '5' ? 10 + text[1] - '0' : 0;
}

// Reads what the server agreed to, of what was offered. Returns whether it makes sense.
bool readAgreement(std::string_view extension, DeflateAgreement& agreement) {
    agreement = {true, true, 15};
    std::set<std::string_view> names;
    bool isGood = true;
    forEachPart(extension, ';', [&](std::string_view part) {
        auto const equals = part.find('=');
        auto const name = trimmed(part.substr(0, equals));
        auto const bits = equals == std::string_view::npos ? 0 : windowBits(trimmed(part.substr(equals + 1)));
        bool const isFirst = names.empty(), isNew = names.insert(name).second;
        bool isKnown = false;
        if (isFirst) {
            isKnown = part == "permessage-deflate";
        } else if (name == "server_max_window_bits" || name == "client_max_window_bits") {
            isKnown = bits != 0;
            if (name == "client_max_window_bits") agreement.clientWindowBits = bits >= kLeastDeflateBits ? bits : 0;
        } else {
            isKnown = part == "server_no_context_takeover" || part == "client_no_context_takeover";
            if (part == "server_no_context_takeover") agreement.serverKeepsContext = false;
        }
        isGood = isGood && isNew && isKnown;
    });
    return isGood;
}

}  // namespace

std::string requestTarget(std::string_view path, std::vector<std::pair<std::string, std::string>> const& parameters) {
    auto target = std::string(path) + "?EIO=4&transport=websocket";
    for (auto const& [key, value] : parameters)
        target += '&' + net::percentEncoded(key) + '=' + net::percentEncoded(value);
    return target;
}

Upgrade::Upgrade(std::string_view authority, std::string_view target, bool offersDeflate, std::string_view headerLines)
    : offersDeflate_(offersDeflate) {
    std::array<std::uint8_t, 16> random;
    randomBytes(random);
    std::string const key = net::base64(random);
    expectedAccept_ = acceptFor(key);
    request_.append("GET ").append(target).append(" HTTP/1.1\r\nHost: ").append(authority);
    request_ +=
        "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key +
        "\r\n";
    if (offersDeflate) request_.append("Sec-WebSocket-Extensions: ").append(kDeflateOffers).append("\r\n");
    request_.append(headerLines).append("\r\n");
}

bool Upgrade::mayBeHttp(std::string_view start) {
    constexpr std::string_view kStart = "HTTP/";
    auto const size = std::min(start.size(), kStart.size());
    return start.substr(0, size) == kStart.substr(0, size);
}

bool Upgrade::isInterim(std::string_view head) {
    if (!head.starts_with("HTTP/1.1 1")) return false;
    auto const code = statusOf(head).substr(0, statusOf(head).find(' '));
    return code.size() == 3 && code != "101";
}

std::string Upgrade::check(std::string_view head, DeflateAgreement& agreement) const {
    if (!head.starts_with("HTTP/1.1 ")) return "The server does not speak HTTP";
    auto const status = statusOf(head);
    if (status.substr(0, status.find(' ')) != "101")
        return "The server answered with HTTP status " + std::string(status.substr(0, kMostStatusText));
    if (!listContains(headerOf(head, "Upgrade"), "websocket") ||
        !listContains(headerOf(head, "Connection"), "upgrade")) {
        return "The server did not switch to WebSocket";
    }
    if (headerOf(head, "Sec-WebSocket-Accept") != expectedAccept_) return "Bad Sec-WebSocket-Accept from the server";
    auto const extensions = headerOf(head, "Sec-WebSocket-Extensions");
    if (!extensions) return {};
    if (!offersDeflate_ || !readAgreement(*extensions, agreement))
        return "The server answered with an extension that was not offered";
    return {};
}

}  // namespace kv::sio
