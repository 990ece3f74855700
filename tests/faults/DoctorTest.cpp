// Each failure that a login can meet, before the doctor: the right step fails, with the right advice; what follows and
// needs it is not tried; and nobody is told a secret.
#include "Classes/KvPimDoctor.h"
#include "FailingServers.h"
#include "Proxies.h"
#include "Session.h"

#include <algorithm>
#include <cstdlib>

namespace kv::test {
namespace {

using Outcome = KvPimDoctor::Outcome;
using Step = KvPimDoctor::Step;
using Subject = KvPimDoctor::Subject;
using Adjust = std::function<void(Subject&)>;

constexpr std::string_view kRoad[] = {"address",   "names",        "tcp",        "proxy",        "tls",
                                      "discovery", "socket names", "socket tcp", "socket proxy", "socket tls",
                                      "upgrade",   "handshake",    "login",      "round trips"};

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

struct Examined {
    std::vector<Step> steps;
    KvPimDoctor::Summary summary;

    Step const* find(std::string_view name) const {
        auto const found = std::ranges::find(steps, name, &Step::name);
        return found != steps.end() ? &*found : nullptr;
    }
    std::string text() const {
        std::string all;
        for (auto const& step : steps) {
            all.append(step.name).append(" ").append(toString(step.outcome)).append(": ").append(step.found);
            all.append(" -> ").append(step.advice).append("\n");
            for (auto const& [name, fact] : step.details) all.append("  ").append(name + ": " + fact + '\n');
        }
        return all;
    }
};

class Doctor : public testing::Test {
protected:
    Subject subjectOf(std::string const& url, Adjust const& adjust = {}) const {
        Subject subject{.appId = "app", .userId = "alice", .token = kOddToken};
        subject.client.envConfig.apiServer = url;
        subject.client.envConfig.cachesDirectory = directory_.path("caches");
        subject.client.envConfig.keyStoreDirectory = directory_.path("keys");
        subject.client.envConfig.collectServer = "http://127.0.0.1:9/";
        subject.client.mainQueue = queue_;
        if (adjust) adjust(subject);
        return subject;
    }

    Examined examine(std::string const& url, Adjust const& adjust = {}) const {
        Examined examined;
        bool isOver = false;
        KvPimDoctor const doctor(
            subjectOf(url, adjust), [&](Step const& step) { examined.steps.push_back(step); },
            [&](auto const& summary) { examined.summary = summary, isOver = true; });
        EXPECT_TRUE(examined.steps.empty());
        EXPECT_TRUE(runUntil(*queue_, [&] { return isOver; }));
        auto const text = examined.text();
        for (std::string const secret : {kSecret, kOddToken, kOddTokenSent})
            EXPECT_FALSE(contains(text, secret.substr(0, 10)) || contains(text, secret.substr(6))) << text;
        EXPECT_TRUE(std::ranges::none_of(text, [](char c) { return c == '\x1b' || c == '\r'; })) << text;
        return examined;
    }

    // The step fails, with these words, and of the road what is behind it is skipped.
    void expectFailure(Examined const& examined, std::string_view name, char const* found, char const* advice) const {
        auto const text = examined.text();
        EXPECT_EQ(examined.summary.firstFailed, name) << text;
        auto const* const step = examined.find(name);
        ASSERT_NE(step, nullptr) << text;
        EXPECT_TRUE(contains(step->found, found)) << text;
        EXPECT_TRUE(contains(step->advice, advice)) << text;
        bool isBehind = false;
        for (auto const each : kRoad) {
            auto const* const other = examined.find(each);
            if (other == nullptr || other->found.starts_with("None is used")) continue;
            EXPECT_EQ(other->outcome == Outcome::skipped, isBehind) << each << '\n' << text;
            isBehind = isBehind || each == name;
        }
    }

    std::shared_ptr<KvMainQueue> const queue_ = KvMainQueue::create();
    TemporaryDirectory const directory_;
};

std::string answerNaming(std::string const& server) {
    return R"({"code":200,"data":{"brivelServers":[")" + server + R"("]}})";
}

TEST_F(Doctor, FindsTheStepThatFailsAndSaysWhatToDo) {
    FailingServers const servers;
    HttpTestServer const odd([](auto&) -> HttpTestAnswer { return {.body = answerNaming("nowhere")}; });
    HttpTestServer const elsewhere(
        [](auto&) -> HttpTestAnswer { return {.body = answerNaming("http://127.0.0.1:1")}; });
    HttpTestServer const proxy(
        [](auto&) -> HttpTestAnswer { return {.status = 407, .headers = {"Proxy-Authenticate: Basic"}}; });
    ScriptedServer const unopened([](ScriptedPeer& peer) { peer.acceptWebSocket(), peer.sleep(60s); });
    ScriptedServer const unanswered([](ScriptedPeer& peer) { peer.login(), peer.readToEnd(); });
    auto const withCaFile = [](Subject& s) { s.client.envConfig.caFile = "/nonexistent/ca.pem"; };
    auto const through = [](std::string const& address) -> Adjust {
        return [address](Subject& s) { s.client.network.proxy = "http://bob:" + (kSecret + ("@" + address)); };
    };
    auto const inHaste = [](Subject& s) { s.timeout = 300ms; };
    struct Case {
        std::string url;
        char const *step, *found, *advice;
        Adjust adjust{};
    };
    for (auto const& c : std::vector<Case>{
             {"http://localhost:80", "address", "its host has no dot in it", "Correct it"},
             {"http://127.0.0.1:1", "address", "`userAgent`", "Correct it",
              [](Subject& s) { s.client.network.userAgent = "a\nb"; }},
             {"http://no.such.host.invalid", "names", "Cannot find no.such.host.invalid", "spelling"},
             {"http://127.0.0.1:1", "tcp", "127.0.0.1:1: Connection refused", "Nobody listens"},
             {"http://127.0.0.1:1", "tcp", "Cannot connect to the proxy 127.0.0.1:1", "`network.proxy`",
              through("127.0.0.1:1")},
             {"http://127.0.0.1:1", "proxy", "does not take this user and password", "the user and the password",
              through(proxy.url().substr(7))},
             {servers.secure.url(), "tls", "self-signed certificate", "trust its authority"},
             {servers.secure.url(), "tls", "CA file /nonexistent/ca.pem", "Check the path", withCaFile},
             {"https://127.0.0.1" + FailingServers::port(servers.clear), "tls", "does not speak TLS", "http instead"},
             {"https://127.0.0.1" + FailingServers::port(servers.silent), "tls", "no answer within 300 ms",
              "nothing stands between", inHaste},
             {servers.alert.url(), "discovery", "spoken to in clear", "Use https"},
             {servers.lost.url(), "discovery", "HTTP status 404", "the app id"},
             {servers.rude.url(), "discovery", "names no server", "the app id"},
             {servers.silent.url(), "discovery", "No answer", "the app id", inHaste},
             {odd.url(), "discovery", "Not an address of a server: nowhere", "who runs it"},
             {elsewhere.url(), "socket tcp", "127.0.0.1:1: Connection refused", "Nobody listens"},
             {servers.gateway.url(), "upgrade", "HTTP status 403 Forbidden", "lets WebSocket through"},
             {servers.slow.url(), "upgrade", "no answer within 300 ms", "what stands between", inHaste},
             {unopened.url(), "upgrade", "no answer within 300 ms", "who runs the service", inHaste},
             {servers.refusing.url(), "handshake", "refused the session", "who runs the service"},
             {servers.judging.url(), "login", "refused the login. The server says: \"loginFail: InvalidToken\"",
              "new token"},
             {unanswered.url(), "round trips", "No answer", "Try again", inHaste},
         }) {
        SCOPED_TRACE(c.url + ' ' + c.step);
        expectFailure(examine(c.url, c.adjust), c.step, c.found, c.advice);
    }
}

TEST_F(Doctor, TellsWhatIsWrongWithACertificate) {
    CertificateAuthority const authority, stranger("Another authority");
    // What to do, by a part of the error.
    constexpr std::pair<std::string_view, char const*> kAdvice[] = {
        {"mismatch", "stands in the certificate"}, {"expired", "needs a new certificate"},
        {"not yet valid", "this machine's clock"}, {"issuer", "trust its authority"},
        {"self-signed", "trust its authority"},    {"versions", "needs a newer TLS"},
        {"does not speak", "http instead"}};
    for (auto const& c : tlsCases(authority, stranger)) {
        SCOPED_TRACE(c.what);
        ScriptedServer const server([](ScriptedPeer& peer) { peer.login(), peer.readToEnd(); }, c.server);
        auto const url = "https://" + (c.host + (":" + std::to_string(server.port())));
        HttpTestServer const api([&](auto&) -> HttpTestAnswer { return {.body = answerNaming(url)}; });
        auto const examined = examine(api.url(), [&](Subject& s) {
            s.client.envConfig.caFile = authority.caFile();
            s.userId.clear();
        });
        auto const* const advice =
            std::ranges::find_if(kAdvice, [&](auto const& row) { return contains(c.error, row.first); });
        if (*c.error != 0) {
            ASSERT_NE(advice, std::end(kAdvice));
            expectFailure(examined, "socket tls", c.error, advice->second);
            continue;
        }
        EXPECT_TRUE(examined.summary.isWell()) << examined.text();
        EXPECT_EQ(examined.find("socket tls")->outcome, Outcome::warned);  // for one day more
        EXPECT_TRUE(contains(examined.text(), "  chain: CN=Test server\n")) << examined.text();
    }
}

TEST_F(Doctor, GoesAllTheWayAndLooksAtItsOwnGround) {
    LocalService const service;
    SocksServer const socks;
    makeFile(directory_.path("file"), "");
    HttpTestServer const past([](auto&) -> HttpTestAnswer {
        return {.headers = {"Date: Sun, 06 Nov 1994 08:49:37 GMT"}, .body = answerNaming("http://127.0.0.1:1")};
    });
    auto const takes = [&](Subject& s) {
        s.token = kToken;
        s.triesUpload = true;
        s.client.envConfig.collectServer = service.url() + "/pim/v1/collect-logan";
    };
    struct Case {
        char const* step;
        Outcome outcome;
        char const *found, *advice;
        std::string url;
        Adjust adjust;
    };
    ::setenv("https_proxy", (std::string("http://bob:") + kSecret + "@127.0.0.1:1").c_str(), 1);  // NOLINT
    for (auto const& c : std::vector<Case>{
             {"round trips", Outcome::passed, "10 requests", "", service.url(), takes},
             {"upload", Outcome::passed, "takes reports", "", service.url(), takes},
             {"key store", Outcome::passed, "is not there yet", "", service.url(),
              [&](Subject& s) { s.client.envConfig.keyStoreDirectory = directory_.path("not yet"); }},
             {"proxy", Outcome::passed, "The proxy 127.0.0.1:", "", service.url(),
              [&](Subject& s) {
                  takes(s), s.client.network.proxy = "socks5://alice:" + (kProxyPassword + ("@" + socks.address()));
              }},
             {"proxy", Outcome::passed, "https_proxy is ignored", "", service.url(), takes},
             {"proxy",
              Outcome::warned,
              "https_proxy is ignored",
              "--proxy-from-environment",
              "https://127.0.0.1:1",
              {}},
             {"clock", Outcome::warned, "s ahead of the API server's", "Set this machine's clock", past.url(), {}},
             {"upload", Outcome::failed, "HTTP status 404", "--collect-url", service.url(),
              [&](Subject& s) { takes(s), s.client.envConfig.collectServer = service.url(); }},
             {"directories", Outcome::failed, "is no directory", "--caches-dir", service.url(),
              [&](Subject& s) { s.client.envConfig.cachesDirectory = directory_.path("file"); }},
             {"key store", Outcome::failed, "is no directory", "--key-store-dir", service.url(),
              [&](Subject& s) { s.client.envConfig.keyStoreDirectory = directory_.path("file/keys"); }},
             {"directories", Outcome::warned, "by others too: 777", "permissions 700", service.url(),
              [&](Subject& s) {
                  s.client.envConfig.cachesDirectory = directory_.path("open");
                  std::filesystem::create_directory(directory_.path("open"));
                  std::filesystem::permissions(directory_.path("open"), std::filesystem::perms(0777));
              }},
         }) {
        SCOPED_TRACE(c.found);
        auto const examined = examine(c.url, c.adjust);
        auto const* const step = examined.find(c.step);
        ASSERT_NE(step, nullptr);
        EXPECT_EQ(step->outcome, c.outcome) << examined.text();
        EXPECT_TRUE(contains(step->found, c.found) && contains(step->advice, c.advice)) << examined.text();
        EXPECT_EQ(step->advice.empty(), c.outcome == Outcome::passed);
    }
    ::unsetenv("https_proxy");  // NOLINT(concurrency-mt-unsafe)
}

TEST_F(Doctor, GoesAtAnyMomentAndIsNotHeardOfAnyMore) {
    CertificateAuthority const authority;
    auto const certificate = authority.issue("IP:127.0.0.1");
    ScriptedServer const server(
        [](ScriptedPeer& peer) {
            peer.login();
            for (;;) peer.acknowledge(peer.readEvent(), {{{"result", 0}, {"peers", json::array()}}});
        },
        {.certificateFile = certificate.certificateFile, .keyFile = certificate.keyFile});
    bool isOver = false;
    std::size_t steps = 0;
    auto const trust = [&](Subject& s) { s.client.envConfig.caFile = authority.caFile(); };
    // In each of its calls.
    for (std::size_t last = 1; !isOver; ++last) {
        steps = 0;
        auto queue = KvMainQueue::create();
        std::unique_ptr<KvPimDoctor> doctor;
        auto subject = subjectOf(server.url(), trust);
        subject.client.mainQueue = queue;
        doctor = std::make_unique<KvPimDoctor>(
            std::move(subject),
            [&](Step const&) {
                if (++steps == last) doctor.reset();
            },
            [&](auto const&) { isOver = true; });
        EXPECT_TRUE(runUntil(*queue, [&] { return !doctor || isOver; }));
        queue->runFor(5ms);
        EXPECT_TRUE(isOver || steps == last);
    }
    EXPECT_GT(steps, 10u);
    // Between its calls, with its queue, and behind it.
    for (int turns = 0; turns < 40; ++turns) {
        auto queue = KvMainQueue::create();
        auto subject = subjectOf(server.url(), trust);
        subject.client.mainQueue = queue;
        auto doctor = std::make_unique<KvPimDoctor>(std::move(subject), nullptr, nullptr);
        for (int turn = 0; turn < turns; ++turn) queue->runFor(1ms);
        if (turns % 2 == 0) doctor.reset();
        queue.reset();
    }
}

}  // namespace
}  // namespace kv::test
