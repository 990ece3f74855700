// TLS: who is trusted, who is not, and what is said about it.
#include "Certificates.h"
#include "Sockets.h"

#include <boost/json/parse.hpp>

namespace kv::test {
namespace {

class Tls : public EveryEngine {};
INSTANTIATE_TEST_SUITE_P(Engines, Tls, testing::Values(Engine::mainQueue, Engine::thread), engineName);

ScriptedServer::Script const kEcho = [](ScriptedPeer& peer) {
    peer.login();
    for (;;) {
        auto const event = peer.readEvent();
        peer.acknowledge(event, {event.items.at(1)}, event.attachments);
    }
};

ScriptedServer::Options tlsOptions(CertificateAuthority::Certificate const& certificate) {
    ScriptedServer::Options options;
    options.certificateFile = certificate.certificateFile;
    options.keyFile = certificate.keyFile;
    return options;
}

TEST_P(Tls, TrustsWhoIsToBeTrusted) {
    CertificateAuthority const authority, stranger("Another authority");
    struct Case {
        char const* what;
        CertificateAuthority const& issuer;
        char const* names;
        int days;
        char const* host;
        char const* error;  // empty when the connection is to succeed
    };
    for (auto const& c :
         std::vector<Case>{{"a name", authority, "DNS:localhost", 1, "localhost", ""},
                           {"an address", authority, "IP:127.0.0.1", 1, "127.0.0.1", ""},
                           {"another name", authority, "DNS:example.org", 1, "localhost", "mismatch"},
                           {"a name for an address", authority, "DNS:localhost", 1, "127.0.0.1", "mismatch"},
                           {"too old", authority, "DNS:localhost", -1, "localhost", "certificate has expired"},
                           {"a stranger's", stranger, "DNS:localhost", 1, "localhost", "issuer certificate"}}) {
        SCOPED_TRACE(c.what);
        ScriptedServer server(kEcho, tlsOptions(c.issuer.issue(c.names, c.days)));
        SocketConfig config;
        config.caFile = authority.caFile();
        Client client(GetParam(), server.url(c.host), config);
        client.socket().connect();
        if (*c.error == 0) {
            EXPECT_TRUE(client.waitForEvent("connect")) << client.lineOf("disconnect");
            continue;
        }
        auto const reason = client.disconnectReason();
        EXPECT_TRUE(reason.starts_with("TLS: ")) << reason;
        EXPECT_NE(reason.find(c.error), std::string::npos) << reason;
    }
}

TEST_P(Tls, CarriesMuchBothWays) {
    CertificateAuthority const authority;
    ScriptedServer server(kEcho, tlsOptions(authority.issue("IP:127.0.0.1")));
    SocketConfig config;
    config.caFile = authority.caFile();
    Client client(GetParam(), server.url(), config);
    ASSERT_TRUE(client.connect());
    KvBytes const blob(5u << 20, 3);
    bool isEqual = false;
    SocketItems items;
    items.values = {items.binary(makeData(blob))};
    client.socket().emitWithAck("echo", std::move(items)).timingOutAfter(20s, [&](SocketData const& data) {
        auto const bytes = data.binary(data.items().at(0));
        isEqual = bytes && *bytes == blob;
    });
    EXPECT_TRUE(runUntil(*client.queue, [&] { return isEqual; }));
}

TEST_P(Tls, TellsTlsFromPlain) {
    ScriptedServer::Options early;
    early.greeting = "220 mail.example ready\r\n";
    ScriptedServer plain([](ScriptedPeer&) {}, early);
    Client tlsToPlain(GetParam(), "https://127.0.0.1:" + std::to_string(plain.port()));
    tlsToPlain.socket().connect();
    EXPECT_NE(tlsToPlain.disconnectReason().find("does not speak TLS"), std::string::npos)
        << tlsToPlain.disconnectReason();

    SocketConfig config;
    config.caFile = "/nonexistent/ca.pem";
    Client noCa(GetParam(), "https://127.0.0.1:" + std::to_string(plain.port()), config);
    noCa.socket().connect();
    EXPECT_NE(noCa.disconnectReason().find("/nonexistent/ca.pem"), std::string::npos) << noCa.disconnectReason();

    CertificateAuthority const authority;
    ScriptedServer secure(kEcho, tlsOptions(authority.issue("IP:127.0.0.1")));
    Client plainToTls(GetParam(), "http://127.0.0.1:" + std::to_string(secure.port()));
    plainToTls.socket().connect();
    auto const reason = plainToTls.disconnectReason();
    // Some servers send an alert, others end the connection.
    EXPECT_TRUE(reason.find("HTTP") != std::string::npos || reason.find("connection") != std::string::npos ||
                reason == "Connection reset by peer")
        << reason;
}

}  // namespace
}  // namespace kv::test
