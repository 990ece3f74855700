// The address of a server.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kv::net {

struct Url {
    bool isSecure = false;
    std::string host;  // without the brackets of an IPv6 address
    std::uint16_t port = 0;

    /// As the Host header has it: without the scheme's own port.
    std::string authority() const;
    /// Host and port, for people.
    std::string text() const;
    /// http, https, ws or wss, a host, an optional port; a path is ignored. Nothing for anything else.
    static std::optional<Url> parse(std::string_view text);
};

}  // namespace kv::net
