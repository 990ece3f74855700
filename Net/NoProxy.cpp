#include "Net/NoProxy.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

#include <boost/asio/ip/address.hpp>

namespace kv::net {
namespace {

namespace ip = boost::asio::ip;

constexpr unsigned kBitsBeforeV4 = 96;  // of an IPv4 address as IPv6 has it

struct Entry {
    std::string name;  // lowered, without a dot before it; empty for a range
    ip::address_v6::bytes_type start{};
    unsigned bits = 0;  // of the range, which begins at `start`
    std::optional<std::uint16_t> port{};
};

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// A dot behind a name says that it is complete, which all of these are.
std::string nameOf(std::string_view text) {
    if (text.ends_with('.')) text.remove_suffix(1);
    std::string name(text);
    std::ranges::transform(name, name.begin(), lower);
    return name;
}

// The bytes of an address, those of IPv4 as IPv6 has them too.
std::optional<ip::address_v6::bytes_type> bytesOf(std::string_view text) {
    boost::system::error_code error;
    auto const address = ip::make_address(std::string(text), error);
    if (error) return std::nullopt;
    return address.is_v4() ? ip::make_address_v6(ip::v4_mapped, address.to_v4()).to_bytes()
                           : address.to_v6().to_bytes();
}

template <class Number>
bool readNumber(std::string_view text, Number most, Number& number) {
    auto const [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    return problem == std::errc() && end == text.data() + text.size() && number <= most;
}

bool mayBeInName(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

std::optional<Entry> entryOf(std::string_view text) {
    Entry entry;
    auto const colon = text.rfind(':');
    bool const hasPort =
        colon != std::string_view::npos && (text.find(':') == colon || (colon > 0 && text[colon - 1] == ']'));
    if (hasPort) {
        entry.port.emplace();
        if (!readNumber<std::uint16_t>(text.substr(colon + 1), UINT16_MAX, *entry.port)) return std::nullopt;
        text = text.substr(0, colon);
    }
    if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
    auto const slash = text.find('/');
    if (auto const start = bytesOf(text.substr(0, slash))) {
        bool const isV4 = text.find(':') == std::string_view::npos;
        unsigned const before = isV4 ? kBitsBeforeV4 : 0;
        entry.start = *start;
        entry.bits = 8 * entry.start.size() - before;
        bool const isRange = slash != std::string_view::npos;
        if (isRange && !readNumber(text.substr(slash + 1), entry.bits, entry.bits)) return std::nullopt;
        entry.bits += before;
        return entry;
    }
    entry.name = nameOf(text);
    if (entry.name == "*") return entry;
    if (entry.name.starts_with("*.")) entry.name.erase(0, 1);
    if (entry.name.starts_with('.')) entry.name.erase(0, 1);
    if (entry.name.empty() || !std::ranges::all_of(entry.name, mayBeInName)) return std::nullopt;
    return entry;
}

bool isMeant(Url const& server, Entry const& entry) {
    if (entry.port && entry.port != server.port) return false;
    if (entry.name == "*") return true;
    auto const address = bytesOf(server.host);
    if (address.has_value() != entry.name.empty()) return false;
    if (address) {
        for (unsigned i = 0; i < entry.bits; ++i) {
            if ((((*address)[i / 8] ^ entry.start[i / 8]) >> (7 - i % 8) & 1) != 0) return false;
        }
        return true;
    }
    auto const host = nameOf(server.host);
    if (!host.ends_with(entry.name)) return false;
    return host.size() == entry.name.size() || host[host.size() - entry.name.size() - 1] == '.';
}

}  // namespace

std::string takeEntry(std::string_view& noProxy) {
    constexpr std::string_view kBetween = ", \t\r\n";
    noProxy.remove_prefix(std::min(noProxy.find_first_not_of(kBetween), noProxy.size()));
    std::string const entry(noProxy.substr(0, noProxy.find_first_of(kBetween)));
    noProxy.remove_prefix(entry.size());
    return entry;
}

bool namesSomebody(std::string_view entry) { return entryOf(entry).has_value(); }

bool isDirect(Url const& server, std::string_view noProxy) {
    for (auto text = takeEntry(noProxy); !text.empty(); text = takeEntry(noProxy)) {
        if (auto const entry = entryOf(text); entry && isMeant(server, *entry)) return true;
    }
    return false;
}

}  // namespace kv::net
