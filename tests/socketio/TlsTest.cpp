// TLS: who is trusted, who is not, and what is said about it.
#include "Sockets.h"
#include "support/Certificates.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>

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
    for (auto const& c : tlsCases(authority, stranger)) {
        SCOPED_TRACE(c.what);
        ScriptedServer server(kEcho, c.server);
        SocketConfig config;
        config.caFile = authority.caFile();
        Client client(GetParam(), "https://" + (c.host + (":" + std::to_string(server.port()))), config);
        client.socket().connect();
        if (*c.error == 0) {
            EXPECT_TRUE(client.waitForEvent("connect")) << client.lineOf("disconnect");
            continue;
        }
        auto const reason = client.disconnectReason();
        EXPECT_TRUE(reason.starts_with(c.error)) << reason;
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

TEST_P(Tls, ReadsAFileOfAuthoritiesAgainWhenItHasChanged) {
    CertificateAuthority const authority, stranger("Another authority");
    ScriptedServer server(kEcho, tlsOptions(authority.issue("IP:127.0.0.1")));
    TemporaryDirectory directory;
    SocketConfig config;
    config.caFile = directory.path("ca.pem");
    for (auto const* trusted : {&stranger, &authority, &stranger}) {
        std::filesystem::remove(config.caFile);
        std::filesystem::copy_file(trusted->caFile(), config.caFile);
        Client client(GetParam(), server.url(), config);
        client.socket().connect();
        EXPECT_TRUE(client.waitForEvent(trusted == &authority ? "connect" : "disconnect"));
    }
}

TEST_P(Tls, TellsWhatIsWrongWithTheAddressOrTheFile) {
    CertificateAuthority const authority;
    ScriptedServer secure(kEcho, tlsOptions(authority.issue("IP:127.0.0.1")));
    SocketConfig config;
    config.caFile = "/nonexistent/ca.pem";
    Client noCa(GetParam(), secure.url(), config);
    noCa.socket().connect();
    EXPECT_NE(noCa.disconnectReason().find("/nonexistent/ca.pem"), std::string::npos) << noCa.disconnectReason();

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
