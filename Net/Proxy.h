// Proxies: which one leads to a server, and what is said to it until it is a tunnel.
#pragma once

#include "Net/KvPimNetworkOptions.h"
#include "Net/Talk.h"
#include "Net/Url.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kv::net {

struct Proxy {
    enum class Kind { http, socks5 };
    Kind kind = Kind::http;
    Url url;  // secure when it is spoken to in TLS
    std::string user{}, password{};

    /// Nothing for what is no address of a proxy.
    static std::optional<Proxy> parse(std::string_view text);
    /// The one that leads to a server, as its address; empty for the direct way.
    static std::string const& to(Url const& server, KvProxy const& options);

    bool hasUser() const { return !user.empty() || !password.empty(); }
    /// User and password as an HTTP proxy is told them.
    std::string login() const;
    /// For people: without user and password.
    std::string text() const { return "the proxy " + url.text(); }
    /// What makes it a tunnel to the server.
    std::unique_ptr<Script> tunnel(Url const& server) const;
};

/// What cannot be in what an application says of its proxy, for people; empty for nothing. Never tells a password.
std::string problemOfProxy(KvProxy const& proxy);

}  // namespace kv::net
