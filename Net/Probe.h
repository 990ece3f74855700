// The way to a server, one question at a time, for whoever tells people how far it leads. A probe is made on its queue
// and belongs to it; it takes no longer than its limit. When what was returned is dropped it ends, and `done` is not
// called any more.
#pragma once

#include "Net/Failure.h"
#include "Net/NameLookup.h"
#include "Net/NetworkOptions.h"
#include "Net/Url.h"
#include "Platform/KvExport.h"
#include "Platform/KvMainQueue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::net {

/// Whom this side connects to on its way to a server: the server itself, or a proxy.
struct KV_EXPORT Way {
    Url server, hop;
    bool isProxied = false;

    /// Nothing for what is no address of a server.
    static std::optional<Way> to(std::string_view address, NetworkOptions const& network);
    /// Host and port, for people.
    std::string hopText() const { return (isProxied ? "the proxy " : "") + hop.text(); }
};

/// What the environment says of proxies, and the options do not.
struct UnusedProxies {
    std::vector<std::string> variables;
    bool wouldLead = false;  // to this server, if the options were made from the environment
};
KV_EXPORT UnusedProxies unusedProxies(Way const& way, NetworkOptions const& network);

using Probe = std::shared_ptr<void>;
using ProbeLimit = std::chrono::milliseconds;
/// How the text of a failure ends that is one of time alone.
KV_EXPORT std::string noAnswer(ProbeLimit limit);

struct NamesFound {
    Endpoints endpoints;  // none when it failed
    Failure failure;
};
[[nodiscard]] KV_EXPORT Probe probeNames(std::shared_ptr<KvMainQueue> const& queue, Way const& way, ProbeLimit limit,
                                         std::function<void(NamesFound)> done);

/// One address, tried for itself.
struct TcpAttempt {
    boost::asio::ip::tcp::endpoint endpoint;
    std::chrono::microseconds took{};
    std::string error{"no answer"};  // empty when it has answered
};
[[nodiscard]] KV_EXPORT Probe probeTcp(std::shared_ptr<KvMainQueue> const& queue, Endpoints const& endpoints,
                                       ProbeLimit limit, std::function<void(std::vector<TcpAttempt>)> done);

/// The proxy's part of a way that has one, its own TLS included.
[[nodiscard]] KV_EXPORT Probe probeTunnel(std::shared_ptr<KvMainQueue> const& queue, Way const& way,
                                          NetworkOptions const& network, ProbeLimit limit,
                                          std::function<void(Failure)> done);

/// What TLS with a server has come to.
struct TlsFound {
    std::string version, cipher;
    std::vector<std::string> chain;  // whose certificates, the server's own first
    KvPeerCertificate certificate;
    Failure failure;  // with a text when it failed; the rest is empty then
};
/// A handshake from the beginning: no session is taken up again.
[[nodiscard]] KV_EXPORT Probe probeTls(std::shared_ptr<KvMainQueue> const& queue, Way const& way,
                                       NetworkOptions const& network, ProbeLimit limit,
                                       std::function<void(TlsFound)> done);
/// Whom these options trust, for people.
KV_EXPORT std::string trustText(KvTlsOptions const& options);

}  // namespace kv::net
