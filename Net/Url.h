// The address of a server.
#pragma once

#include "Platform/KvExport.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kv::net {

/// As a query has it: what is not unreserved as "%" and two capital digits.
KV_EXPORT std::string percentEncoded(std::string_view text);

struct KV_EXPORT Url {
    bool isSecure = false;
    std::string host;  // without the brackets of an IPv6 address
    std::uint16_t port = 0;
    std::string target = "/";  // path and query

    /// As the Host header has it: without the scheme's own port.
    std::string authority() const;
    /// Host and port, for people.
    std::string text() const;
    /// http, https, ws or wss, a host, an optional port, a path. Nothing for anything else.
    static std::optional<Url> parse(std::string_view text);
    /// Host and optional port.
    static std::optional<Url> ofAuthority(std::string_view text, bool isSecure, std::uint16_t defaultPort);
    /// Where a `Location` of its answer leads.
    std::optional<Url> redirected(std::string_view location) const;
};

}  // namespace kv::net
