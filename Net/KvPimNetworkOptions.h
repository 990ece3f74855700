// The network as an application describes it: how to get out, whom to trust, how long to wait, how much to take. One
// description serves discovery, the connection and the uploads of event reports.
#pragma once

#include "Platform/KvExport.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kv {

/// The way out of a network that lets nobody out directly: none, unless the application names one. All servers, with
/// TLS or without, are reached through the tunnel that the proxy makes (CONNECT, or SOCKS5 with names resolved there).
struct KV_EXPORT KvProxy {
    KvProxy() = default;
    /// The same for all servers: "http://proxy.example:3128", "https://..." or "socks5://...", with "user:password@"
    /// before the host where the proxy asks for it (percent-encoded). Without a port: 80, 443 or 1080.
    KvProxy(std::string url);  // NOLINT(google-explicit-constructor): one word for who has one
    /// The same.
    KvProxy(char const* url) : KvProxy(std::string(url)) {}  // NOLINT(google-explicit-constructor)
    /// What http_proxy, https_proxy, all_proxy and no_proxy say now, in small letters or else in capitals. HTTP_PROXY
    /// is not read: web servers make it from what a client sends. What means nothing in no_proxy is left out.
    static KvProxy fromEnvironment();

    /// For servers without TLS, and for those with it; empty for none.
    std::string forHttp, forHttps;
    /// Who is reached directly, with commas or spaces between: "*" for everybody, a name with all below ("example.com",
    /// ".example.com"), an address ("10.1.2.3", "::1") or a range of them ("10.0.0.0/8"), each with ":port" or without.
    std::string noProxy;
};

/// What a server has shown to prove who it is.
struct KvPeerCertificate {
    std::string host;                ///< whom it had to prove: the name or address of the server
    std::string subject, issuer;     ///< as RFC 2253 writes them
    std::vector<std::string> names;  ///< DNS names and addresses that it is for
    std::chrono::system_clock::time_point validFrom, validUntil;
    std::vector<std::vector<std::uint8_t>> chain;  ///< DER: the server's own first, then what it is signed with
};

/// The least that is spoken.
enum class KvTlsVersion { tls12, tls13 };

/// Whom TLS trusts, and who this side is. There is no switch that turns verification off.
struct KvTlsOptions {
    /// Whether the authorities of the system are trusted, beside those that follow.
    bool trustsSystem = true;
    /// Authorities: a PEM file, a directory as `openssl rehash` prepares it, PEM text. Files are read again when they
    /// have changed.
    std::string caFile, caDirectory, caPem;
    /// Who this side is, to servers that ask: a certificate with what it is signed with, and its key, each as a PEM
    /// file or as PEM text. A key in the file or text of the certificate needs not be named.
    std::string certificateFile, certificatePem;
    std::string keyFile, keyPem;
    /// Asked for the password of an encrypted key, on the engine's thread; it must not block.
    std::function<std::string()> keyPassword;
    /// Public keys, one of which each server must have, in addition to a chain that is trusted: "sha256//" and the
    /// Base64 form of the SHA-256 digest of its SubjectPublicKeyInfo. Name the next key before a rotation.
    std::vector<std::string> pins;
    KvTlsVersion minimumVersion = KvTlsVersion::tls12;
    /// The name that is asked for and that the certificate must be for, instead of the one in the address.
    std::string serverName;
    /// The last word, after all checks have passed: false refuses the server. Asked on the engine's thread for each
    /// connection; it must not block.
    std::function<bool(KvPeerCertificate const& certificate)> accepts;
};

/// All of it may stay as it is. What cannot be is refused when the client is made: `KvPimKit::initWithAppId` returns
/// null, and the log's error line "no client: ..." says what is wrong. A `SocketManager` ends its attempts with that
/// text.
struct KvPimNetworkOptions {
    KvProxy proxy;
    KvTlsOptions tls;

    /// The application's own way to a server: returns a connected stream socket, which is the library's from then on,
    /// or -1 with the reason in errno. Then no name is looked up and no proxy is used; TLS is as ever. Called on the
    /// engine's thread for discovery, for each connection and each upload; it must neither block nor throw. For
    /// tunnels, for sockets that a supervisor hands out, for tests.
    std::function<int(std::string const& host, std::uint16_t port)> connector;

    /// Sent with discovery, uploads and the connection's handshake; gateways may want to know who passes. Empty for
    /// none. Without line breaks and other control characters, which would let it pass for headers of its own.
    std::string userAgent;
    /// Further headers for the same, name and value each, as gateways ask for them. None that the requests have of
    /// themselves (Host, Connection, Upgrade, User-Agent, Sec-WebSocket-..., Proxy-... and their like); values without
    /// control characters. With `userAgent` 8192 bytes at most: servers refuse more, each at its own number.
    std::vector<std::pair<std::string, std::string>> headers;
    /// Where the socket server listens, for gateways that serve several things: a slash first, and mostly last, because
    /// servers tell the two apart; percent-encoded, without query. 2048 bytes at most.
    std::string socketPath = "/socket.io/";

    /// How long the API server may show no sign of life; the whole discovery may take six times as long.
    std::chrono::milliseconds discoveryTimeout{6'000};
    /// How long a login waits for the connection before it is told 9. Guards the user, not the connection: the attempt
    /// goes on, and each attempt, one to reconnect too, is given up after 30 seconds, or after this if it is longer.
    /// From 1 millisecond to a day.
    std::chrono::milliseconds connectTimeout{6'000};
    /// How long a request waits for its answer before it ends with its operation's time-out code; zero for the time
    /// that each operation names (6 seconds, 10 for clearing the user's attributes). Guards against answers that never
    /// come: a short one ends requests that a slow network would have carried. A day at most.
    std::chrono::milliseconds requestTimeout{};

    /// The largest message that is taken, in bytes, inflated, and with its attachments. A larger one ends the
    /// connection, which then comes back. Guards against a server that announces more than there is memory. 1 KiB to 1
    /// GiB; a message of this service with text and data of the largest size can take some 230 KiB.
    std::size_t maxMessageBytes = 16u << 20;
    /// What may wait for the main queue, in bytes of memory, before reading from the server pauses; a message of
    /// `maxMessageBytes` may come on top. Guards against a main queue that is not run. Nothing is lost. 64 KiB at
    /// least.
    std::size_t maxUnhandledBytes = 32u << 20;

    /// Watch the system's network, so that a connection is tried or put to the test at once when the network comes back
    /// or changes (links, addresses, the ways to everywhere), or the machine wakes up. Where the system does not let
    /// it, a line of the log says so. Without it applications that know can say so: `KvPimKit::networkChanged`.
    bool watchesNetwork = false;
};

}  // namespace kv
