// The ways out through a proxy: to the API server and to the socket server, plain and in TLS, and what is said when a
// proxy does not lead there. The servers have names that this side does not find.
#include "Classes/Network/KvApiHelper.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvEngineThread.h"
#include "Proxies.h"
#include "Session.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"
#include "support/HttpTestServer.h"
#include "support/ScriptedServer.h"

#include <filesystem>

namespace kv::test {
namespace {

using Time = KvMainQueue::Time;

constexpr char kSecret[] = "s3cret";

std::string at(std::string const& host, int port) { return host + ':' + std::to_string(port); }

ScriptedServer::Options secured(CertificateAuthority::Certificate const& certificate) {
    ScriptedServer::Options options;
    options.certificateFile = certificate.certificateFile;
    options.keyFile = certificate.keyFile;
    return options;
}

void welcome(ScriptedPeer& peer) {
    peer.login();
    peer.readToEnd();
}

// The two roads to a server, each as far as its first answer. Both tell what went wrong, or nothing.
class Roads {
public:
    Roads(Engine placement, KvPimNetworkOptions options, Time time = Time::real)
        : queue_(KvMainQueue::create(time)),
          engine_(placement == Engine::thread ? engineThreadQueue() : queue_),
          network_(std::make_shared<KvPimNetworkOptions const>(std::move(options))),
          isManual_(time == Time::manual) {}

    std::string discover(std::string const& url) {
        auto const told = std::make_shared<std::optional<std::string>>();
        auto const tell = [queue = queue_, told](std::optional<std::string> const& server, net::Failure const& why) {
            queue->post([told, text = server ? std::string() : why.text] { *told = text; });
        };
        KvApiHelper::apiServer(url, "app", network_, engine_, tell);
        return resultOf(*told);
    }

    std::string connect(std::string const& url) {
        SocketConfig config;
        config.network = network_;
        SocketManager manager(url, config, queue_, engine_);
        manager.setReconnects(false);
        std::optional<std::string> told;
        auto& socket = *manager.defaultSocket();
        socket.on("loginSuccess", [&](SocketData const&) { told.emplace(); });
        socket.on("disconnect", [&](SocketData const& data) { told = data.items().at(0).as_string().c_str(); });
        socket.connect();
        return resultOf(told);
    }

private:
    std::string resultOf(std::optional<std::string> const& told) {
        auto const isTold = [&] {
            if (isManual_) queue_->advance(1s);
            return told.has_value();
        };
        return runUntil(*queue_, isTold) ? *told : "nothing is told";
    }

    std::shared_ptr<KvMainQueue> const queue_, engine_;
    net::NetworkOptions const network_;
    bool const isManual_;
};

class ProxyTest : public EveryEngine {
protected:
    KvPimNetworkOptions through(std::string const& proxy) const {
        KvPimNetworkOptions options;
        options.proxy = proxy;
        options.tls.caFile = authority.caFile();
        return options;
    }
    void expectOnBothRoads(std::string const& proxy, std::string const& url, std::string const& want,
                           Time time = Time::real) const {
        Roads roads(GetParam(), through(proxy), time);
        for (auto const& told : {roads.discover(url), roads.connect(url)}) {
            EXPECT_TRUE(want.empty() ? told.empty() : told.starts_with(want)) << told << "\nwanted: " << want;
            EXPECT_EQ(told.find(kSecret), std::string::npos) << told;
        }
    }

    CertificateAuthority const authority;
    CertificateAuthority::Certificate const certificate =
        authority.issue(std::string("IP:127.0.0.1,DNS:localhost,DNS:") + kInnerName);
    ScriptedServer plain{welcome};
    ScriptedServer secure{welcome, secured(certificate)};
    std::string const login = std::string("alice:") + kProxyPassword + '@';
    std::string const closed = at("127.0.0.1", freePort());
};

ON_EVERY_ENGINE(ProxyTest);

TEST_P(ProxyTest, LeadsThereOrSaysWhyNot) {
    if (!Squid::isInstalled() || !Danted::isInstalled()) GTEST_SKIP() << "squid and danted are not installed";
    Squid squid(certificate);
    squid.start();
    Danted danted;
    danted.start();
    SocksServer socks;
    auto const plainName = plain.url(kInnerName), secureName = secure.url(kInnerName);
    auto const the = [](std::string const& address) { return "The proxy " + address; };
    struct Row {
        std::string proxy, url, want;
    };
    for (auto const& row : std::vector<Row>{
             {"http://" + squid.open(), plainName, ""},
             {squid.open() + '/', secureName, ""},
             {"http://" + login + squid.locked(), plainName, ""},
             {"http://" + login + squid.locked(), secureName, ""},
             {"https://" + login + squid.secure(), plainName, ""},
             {"https://" + login + squid.secure(), secureName, ""},
             {"http://" + squid.locked(), secureName,
              the(squid.locked()) + " wants a user and a password (HTTP status 407 "},
             {"http://alice:s3cret@" + squid.locked(), secureName,
              the(squid.locked()) + " does not take this user and password (HTTP status 407 "},
             {"http://" + squid.open(), plain.url(kForbiddenName),
              the(squid.open()) + " does not lead there: HTTP status 403 Forbidden"},
             {"http://" + squid.open(), "http://" + closed,
              the(squid.open()) + " does not lead there: HTTP status 503 Service Unavailable"},
             {"http://" + squid.secure(), plainName, the(squid.secure()) + " "},
             {"https://" + squid.open(), plainName,
              "TLS handshake with the proxy " + squid.open() + ": TLS: the server does not speak TLS"},
             {"https://localhost:" + squid.secure().substr(squid.secure().find(':') + 1), secureName,
              "The proxy localhost:" + squid.secure().substr(squid.secure().find(':') + 1) + " wants a user"},

             {"socks5://" + danted.address(), plain.url(), ""},
             {"socks5://" + login + danted.address(), secure.url("localhost"), ""},
             {"socks5://" + danted.address(), plainName,
              the(danted.address()) + " does not lead there: host unreachable"},
             {"socks5h://" + danted.address(), plain.url(kForbiddenAddress),
              the(danted.address()) + " does not lead there: its rules forbid it"},
             {"socks5://" + danted.address(), "https://" + closed,
              the(danted.address()) + " does not lead there: connection refused"},
             {"http://" + danted.address(), plainName, the(danted.address()) + " has closed the connection"},

             {"socks5://" + login + socks.address(), plainName, ""},
             {"socks5://" + login + socks.address(), secureName, ""},
             {"socks5://" + socks.address(), plainName, the(socks.address()) + " wants a user and a password"},
             {"socks5://" + login + socks.address(), "http://" + closed,
              the(socks.address()) + " does not lead there: connection refused"},  // in no more than two bytes
             {"socks5://alice:s3cret@" + socks.address(), plainName,
              the(socks.address()) + " does not take this user and password"},
         }) {
        SCOPED_TRACE(row.proxy + " to " + row.url);
        expectOnBothRoads(row.proxy, row.url, row.want);
    }
    for (int i = 0; i < 4; ++i) EXPECT_EQ(socks.nextHost(), kInnerName);  // and not what this side makes of it

    CertificateAuthority const stranger("Another authority");
    Squid untrusted(stranger.issue("IP:127.0.0.1"));
    untrusted.start();
    expectOnBothRoads("https://" + untrusted.secure(), secureName,
                      "TLS handshake with the proxy " + untrusted.secure() + ": TLS: unable to get local issuer");
}

TEST_P(ProxyTest, ThatBreaksDownHasATextOfItsOwn) {
    struct Row {
        char const* what;
        std::string scheme;
        ScriptedServer::Script script;
        std::string greeting;
        std::string want;
    };
    auto const answers = [](std::string const& answer) { return [=](ScriptedPeer& peer) { peer.send(answer); }; };
    auto const nothing = answers("");
    std::string const head = "HTTP/1.1 407 Wait\r\nProxy-Authenticate: ";
    for (auto const& row : std::vector<Row>{
             {"closes at once", "http", nothing, "", "The proxy * has closed the connection"},
             {"closes within its answer", "http", answers("HTTP/1.1 200 OK\r\n"), "",
              "The proxy * has closed the connection"},
             {"resets", "http", [](ScriptedPeer& peer) { peer.reset(); }, "",
              "Asking the proxy * for only-there.test:1: Connection reset by peer"},
             {"is no proxy", "http", answers("SSH-2.0-OpenSSH\r\n"), "", "The proxy * does not speak HTTP"},
             {"a page", "http", answers("HTTP/1.1 502 Bad Gateway\r\nContent-Length: 5\r\n\r\n<html"), "",
              "The proxy * does not lead there: HTTP status 502 Bad Gateway"},
             {"no end", "http", answers("HTTP/1.1 200 OK\r\n" + std::string(20'000, 'x')), "",
              "The proxy * gives too long an answer"},
             {"more than the answer", "http", answers("HTTP/1.1 200 OK\r\n\r\nHTTP/1.1 101 "), "",
              "The proxy * speaks before it is asked"},
             {"tickets only", "http", answers(head + "Negotiate\r\nproxy-authenticate:NTLM\r\n\r\n"), "",
              "The proxy * wants a kind of login that is not supported: Negotiate, NTLM (HTTP status 407 Wait)"},
             {"tickets or a password", "http", answers(head + "Negotiate\r\nProxy-Authenticate: basic realm=x\r\n\r\n"),
              "", "The proxy * does not take this user and password (HTTP status 407 Wait)"},
             {"is no proxy", "socks5", nothing, "SSH-2.0-OpenSSH\r\n", "The proxy * does not speak SOCKS 5"},
             {"knows passwords only by name", "socks5", nothing, "\5\1", "The proxy * does not take a user and a pass"},
             {"answers in advance", "socks5", nothing, std::string("\5\2\1\0\5\0\0\1\0\0\0\0\0\0", 14),
              "The proxy * speaks before it is asked"},
         }) {
        SCOPED_TRACE(row.scheme + ": " + row.what);
        ScriptedServer::Options options;
        options.greeting = row.greeting;
        ScriptedServer const proxy(row.script, options);
        auto const address = at("127.0.0.1", proxy.port());
        auto want = row.want;
        want.replace(want.find('*'), 1, address);
        expectOnBothRoads(row.scheme + "://" + login + address, at(std::string("http://") + kInnerName, 1), want);
    }
    auto const anywhere = at(std::string("https://") + kInnerName, 1);
    expectOnBothRoads(login + closed, anywhere, "Cannot connect to the proxy " + closed + ": Connection refused");
    expectOnBothRoads(login + "no-proxy.test:1", anywhere,
                      "No way to the proxy no-proxy.test:1: Cannot find no-proxy.test: ");
}

TEST(Proxy, ThatSaysNothingIsGivenUp) {
    ScriptedServer const silent([](ScriptedPeer& peer) { peer.readToEnd(); });
    auto const address = at("127.0.0.1", silent.port());
    auto const stage = "Asking the proxy " + address + " for 127.0.0.1:9";
    KvPimNetworkOptions options;
    for (std::string const scheme : {"http", "socks5"}) {
        options.proxy = scheme + "://alice:s3cret@" + address;
        Roads roads(Engine::mainQueue, options, Time::manual);
        EXPECT_EQ(roads.discover("https://127.0.0.1:9"), "timed out: " + stage);
        EXPECT_EQ(roads.connect("https://127.0.0.1:9"), stage + ": timed out");
    }
}

TEST_P(ProxyTest, ThatDiesAndComesBackIsGoneThroughAgain) {
    if (!Squid::isInstalled()) GTEST_SKIP() << "squid is not installed";
    Squid squid(certificate);
    squid.start();
    LocalService const service;
    Session session(service.url(), GetParam(), Session::Time::real,
                    [&](KvPimOptions& options) { options.network = through(squid.open()); });
    ASSERT_TRUE(session.begin());
    squid.kill();
    EXPECT_TRUE(session.waitForLoss());
    runUntil(*session.alice.queue, [end = std::chrono::steady_clock::now() + 1500ms] {
        return std::chrono::steady_clock::now() > end;  // with an attempt that finds no proxy
    });
    EXPECT_FALSE(session.isConnected());
    squid.start();
    session.expectRestored(service);
}

// A login through a proxy with a password, one that it refuses, and one that it refuses the socket server alone: all
// that is written down says so, and never with the password.
TEST_P(ProxyTest, IsLoggedWithoutItsPassword) {
    if (!Squid::isInstalled()) GTEST_SKIP() << "squid is not installed";
    Squid squid(certificate);
    squid.start();
    auto const queue = KvMainQueue::create();
    HttpTestServer const discovery([&](HttpTestRequest const&) {
        return HttpTestAnswer{.body = R"({"code":200,"data":{"brivelServers":[")" + secure.url() + R"("]}})"};
    });
    auto const refusal = "The proxy " + squid.locked() + " does not take this user and password";
    KvProxy right = "http://" + login + squid.locked(), wrong = "http://alice:s3cret@" + squid.locked();
    KvProxy later = wrong;
    later.forHttp.clear();
    struct Row {
        KvProxy proxy;
        std::string apiServer;
        std::int64_t code;
        std::string line;
    };
    Printed printed;
    std::string caches;
    for (auto const& row : std::vector<Row>{{right, secure.url(kInnerName), 0, ""},
                                            {wrong, secure.url(kInnerName), 9, "discovery: " + refusal},
                                            {later, discovery.url(), 1, refusal}}) {
        Person alice(row.apiServer, "alice", queue, GetParam(), [&](KvPimOptions& options) {
            options.network = through("");
            options.network.proxy = row.proxy;
        });
        ASSERT_TRUE(alice.kit);
        alice.kit->setLogFilters(8);
        EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "alice", done); }), row.code);
        KvLog::shared().drain();
        auto const lines = printed.out() + printed.error();
        EXPECT_NE(lines.find(row.line), std::string::npos) << lines;
        EXPECT_EQ((lines + alice.kit->getDebugInfoText()).find(kSecret), std::string::npos) << lines;
        caches = alice.cachesDirectory;
    }
    KvLog::shared().setLogFilter(0);
    LoganManager::sharedInstance().drain();
    for (auto const& file : std::filesystem::recursive_directory_iterator(caches)) {
        if (!file.is_regular_file()) continue;
        EXPECT_EQ(contentOf(file.path()).find(kSecret), std::string::npos) << file.path();
    }
}

}  // namespace
}  // namespace kv::test
