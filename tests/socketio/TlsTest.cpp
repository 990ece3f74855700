// TLS: who is trusted, who is not, and what is said about it.
#include "Net/Http.h"
#include "Platform/KvEngineThread.h"
#include "Sockets.h"
#include "support/Certificates.h"
#include "support/TemporaryDirectory.h"

#include <cstdio>
#include <filesystem>
#include <future>

#include <boost/json/parse.hpp>
#include <openssl/ssl.h>

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

// What the command prints, without line breaks.
std::string outputOf(std::string const& command) {
    std::string output;
    std::unique_ptr<FILE, decltype(&::pclose)> const pipe(::popen(command.c_str(), "r"), &::pclose);
    for (int c = std::fgetc(pipe.get()); c != EOF; c = std::fgetc(pipe.get()))
        if (c != '\n') output += static_cast<char>(c);
    return output;
}

std::string pinOf(std::string const& certificateFile) {
    return "sha256//" + outputOf("openssl x509 -in " + certificateFile +
                                 " -pubkey -noout | openssl pkey -pubin -outform der | openssl dgst -sha256 -binary |"
                                 " openssl enc -base64");
}

// How a request by HTTP ends: the other road to a server.
std::string httpError(std::string const& url, net::NetworkOptions const& network) {
    std::promise<std::string> ended;
    KvHttpTask task;
    task.url = url + "/config/";
    task.network = network;
    task.requestTimeout = 10s;
    startHttp(engineThreadQueue(), std::move(task),
              [&](KvHttpAnswer const& answer) { ended.set_value(answer.failure ? answer.failure->text : ""); });
    return ended.get_future().get();
}

TEST_P(Tls, IsAsTheOptionsWantIt) {
    CertificateAuthority const authority, stranger("Another authority");
    auto const certificate = authority.issue("DNS:server.example,IP:127.0.0.1"), own = authority.issue("DNS:client");
    auto const name = authority.issue("DNS:server.example");
    TemporaryDirectory directory;
    std::filesystem::copy_file(authority.caFile(), directory.path("ca.pem"));
    auto const lockedKey = directory.path("key");
    ASSERT_EQ(outputOf("openssl rehash " + directory.path() + " && openssl pkey -in " + own.keyFile +
                       " -aes256 -passout pass:secret -out " + lockedKey),
              "");
    auto const server = tlsOptions(certificate), named = tlsOptions(name);
    auto onlyTls12 = server, askingServer = server;
    onlyTls12.onlyTls = TLS1_2_VERSION;
    askingServer.clientAuthorities = authority.caFile();
    auto const pin = pinOf(certificate.certificateFile), otherPin = pinOf(own.certificateFile);
    auto const with = [&](auto change) {
        KvTlsOptions options;
        options.caFile = authority.caFile();
        change(options);
        return options;
    };
    auto const withOwn = [&](auto change) {
        return with([&](auto& o) { o.certificateFile = own.certificateFile, o.keyFile = own.keyFile, change(o); });
    };
    std::vector<KvPeerCertificate> seen;
    struct Case {
        char const* what;
        ScriptedServer::Options server;
        KvTlsOptions options;
        char const* error;  // how the reason begins; empty when all is well
    };
    for (auto const& c : std::vector<Case>{
             {"PEM text alone", server,
              with([&](auto& o) { o.trustsSystem = false, o.caFile = {}, o.caPem = contentOf(authority.caFile()); }),
              ""},
             {"a directory", server, with([&](auto& o) { o.caFile = {}, o.caDirectory = directory.path(); }), ""},
             {"other authorities", server, with([&](auto& o) { o.caFile = stranger.caFile(); }),
              "TLS: unable to get local issuer certificate: certificate \"CN=Test server\" for server.example, "
              "127.0.0.1, "
              "shown by 127.0.0.1, issued by \"CN=Test authority\", valid from 2"},
             {"no PEM", server, with([](auto& o) { o.caPem = "nothing"; }), "TLS: no certificate can be read"},
             {"no directory", server, with([](auto& o) { o.caDirectory = "/nonexistent"; }),
              "TLS: cannot be read, CA d"},
             {"the pin", server, with([&](auto& o) {
                  o.pins = {otherPin, pin};
              }),
              ""},
             {"another pin", server, with([&](auto& o) { o.pins = {otherPin}; }), "TLS: the public key is none of"},
             {"another name", named, with([](auto& o) { o.serverName = "server.example"; }), ""},
             {"a newer TLS", onlyTls12, with([](auto& o) { o.minimumVersion = KvTlsVersion::tls13; }),
              "TLS: the server speaks none of the versions"},
             {"TLS 1.2", onlyTls12, with([](auto&) {}), ""},
             {"no client certificate", askingServer, with([](auto&) {}), "TLS: the server wants a certificate"},
             {"a client certificate", askingServer, withOwn([](auto&) {}), ""},
             {"one in PEM text", askingServer,
              with([&](auto& o) { o.certificatePem = contentOf(own.certificateFile) + contentOf(own.keyFile); }), ""},
             {"an encrypted key", askingServer,
              withOwn([&](auto& o) { o.keyFile = lockedKey, o.keyPassword = [] { return "secret"; }; }), ""},
             {"a wrong password", askingServer,
              withOwn([&](auto& o) { o.keyFile = lockedKey, o.keyPassword = [] { return "wrong"; }; }),
              "TLS: the key of the client certificate cannot be read"},
             {"no password", askingServer, withOwn([&](auto& o) { o.keyFile = lockedKey; }), "TLS: the key of the"},
             {"another's key", askingServer, withOwn([&](auto& o) { o.keyFile = certificate.keyFile; }),
              "TLS: the key is not that"},
             {"an acceptance", server,
              with([&](auto& o) { o.accepts = [&](auto& peer) { return seen.push_back(peer), true; }; }), ""},
             {"a veto", server, with([](auto& o) { o.accepts = [](auto&) { return false; }; }),
              "TLS: the application does not accept the certificate \"CN=Test server\""},
         }) {
        SCOPED_TRACE(c.what);
        ScriptedServer const listening(kEcho, c.server);
        KvPimNetworkOptions network;
        network.tls = c.options;
        SocketConfig config;
        config.network = std::make_shared<KvPimNetworkOptions const>(network);
        auto const error = httpError(listening.url(), config.network);
        EXPECT_TRUE(error.starts_with(c.error) && error.empty() == (*c.error == 0)) << error;
        Client client(GetParam(), listening.url(), config);
        client.socket().connect();
        if (*c.error == 0) {
            EXPECT_TRUE(client.waitForEvent("connect")) << client.lineOf("disconnect");
        } else {
            auto const reason = client.disconnectReason();
            EXPECT_TRUE(reason.starts_with(c.error)) << reason;
        }
    }
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].host, "127.0.0.1");
    EXPECT_EQ(seen[1].subject, "CN=Test server");
    EXPECT_EQ(seen[1].names, (std::vector<std::string>{"server.example", "127.0.0.1"}));
    EXPECT_LT(seen[1].validFrom, std::chrono::system_clock::now());
    EXPECT_GT(seen[1].validUntil, std::chrono::system_clock::now());
    EXPECT_EQ(seen[1].chain.size(), 1u);
}

TEST_P(Tls, TakesUpASessionWhenItComesBack) {
    CertificateAuthority const authority;
    auto const certificate = authority.issue("IP:127.0.0.1");
    for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        auto options = tlsOptions(certificate);
        options.onlyTls = version;
        ScriptedServer server([](ScriptedPeer& peer) { peer.login(), peer.readEvent(), peer.reset(); }, options);
        auto network = std::make_shared<KvPimNetworkOptions>();
        network->tls.caFile = authority.caFile();
        network->tls.pins = {pinOf(certificate.certificateFile)};
        SocketConfig config;
        config.network = network;
        for (int connections = 1; connections <= 3; ++connections) {
            Client client(GetParam(), server.url(), config);
            ASSERT_TRUE(client.connect()) << client.lineOf("disconnect");
            EXPECT_EQ(server.resumptions(), connections - 1) << version;
            client.socket().emit("enough", {});
            EXPECT_TRUE(client.waitForEvent("disconnect"));
        }
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
