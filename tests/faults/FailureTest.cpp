// Why something failed, in the words that applications get: each cause with its stage, and none with a secret.
#include "Classes/Model/KvFailure.h"
#include "FailingServers.h"
#include "Session.h"

#include <algorithm>

namespace kv::test {
namespace {

using Stage = KvFailureStage;
class Failures : public EveryEngine {};
ON_EVERY_ENGINE(Failures);

// What there is to be told of one failure, and how.
struct Told {
    std::int64_t code;
    Stage stage;
    std::string cause, words;  // parts of them
    bool goesOn = false;
};

bool contains(std::string const& text, std::string_view part) { return text.find(part) != std::string::npos; }

// A client that keeps what is said of its failures.
struct Unlucky : Person {
    Unlucky(std::string const& url, Engine engine, std::function<void(KvPimOptions&)> const& adjust = {})
        : Person(url, "alice", KvMainQueue::create(), engine, adjust) {
        delegate->failureOccurred = [this](KvPimKit&, KvFailure const& failure) { told.push_back(failure); };
    }

    /// Runs an operation, and looks at what its completion finds.
    void expect(Told const& want, std::string const& operation,
                std::function<void(KvPimKit::Completion)> const& start) {
        told.clear();
        std::shared_ptr<KvFailure const> failure;
        start([&](std::int64_t code) {
            EXPECT_EQ(code, want.code);
            failure = currentFailure();
            EXPECT_EQ(failure, kit->lastFailure());
        });
        ASSERT_TRUE(runUntil(*queue, [&] { return failure != nullptr; }));
        EXPECT_EQ(currentFailure(), nullptr);
        ASSERT_EQ(told.size(), 1u);
        EXPECT_EQ(describe(told[0]), describe(*failure));
        EXPECT_EQ(failure->operation, operation);
        EXPECT_EQ(failure->code, want.code);
        check(*failure, want);
    }

    static void check(KvFailure const& failure, Told const& want) {
        auto const text = describe(failure);
        EXPECT_EQ(failure.stage, want.stage) << text;
        EXPECT_TRUE(contains(failure.cause, want.cause)) << text;
        EXPECT_TRUE(contains(failure.serverWords, want.words) && want.words.empty() == failure.serverWords.empty())
            << text;
        EXPECT_EQ(failure.goesOn, want.goesOn) << text;
        EXPECT_FALSE(failure.advice.empty()) << text;
        for (std::string const secret : {kToken, kSecret, kOddToken, kOddTokenSent}) {
            EXPECT_FALSE(contains(text, secret.substr(0, 10)) || contains(text, secret.substr(6))) << text;
        }
        EXPECT_TRUE(std::ranges::none_of(text, [](unsigned char c) { return c < ' '; })) << text;
    }

    std::vector<KvFailure> told;
};

TEST_P(Failures, OfALoginNameStageAndCause) {
    FailingServers const servers;
    auto const withCaFile = [](KvPimOptions& o) { o.network.tls.caFile = "/nonexistent/ca.pem"; };
    auto const withProxy = [](KvPimOptions& o) {
        o.network.proxy = std::string("http://bob:") + kSecret + "@127.0.0.1:1";
        o.network.headers = {{"X-Key", kSecret}};
    };
    auto const inHaste = [](KvPimOptions& o) { o.network.discoveryTimeout = o.network.connectTimeout = 300ms; };
    struct Case {
        std::string url;
        Told want;
        std::function<void(KvPimOptions&)> adjust{};
    };
    for (auto const& c : std::vector<Case>{
             {"http://no.such.host.invalid", {9, Stage::name, "Cannot find no.such.host.invalid", ""}},
             {"http://127.0.0.1:1", {9, Stage::tcp, "127.0.0.1:1: Connection refused", ""}},
             {"http://127.0.0.1:1", {9, Stage::proxy, "Cannot connect to the proxy 127.0.0.1:1", ""}, withProxy},
             {servers.secure.url(), {9, Stage::tls, "self-signed certificate: certificate \"CN=Test server\"", ""}},
             {servers.secure.url(), {9, Stage::tls, "CA file /nonexistent/ca.pem", ""}, withCaFile},
             {"https://127.0.0.1" + FailingServers::port(servers.clear), {9, Stage::tls, "does not speak TLS", ""}},
             {servers.alert.url(), {9, Stage::tls, "spoken to in clear", ""}},
             {servers.lost.url(), {9, Stage::discovery, "HTTP status 404", "<h1> [31mLost</h1>"}},
             {servers.rude.url(), {9, Stage::discovery, "names no server", "no such app"}},
             {servers.silent.url(), {9, Stage::discovery, "No answer", ""}, inHaste},
             {servers.gateway.url(), {1, Stage::upgrade, "HTTP status 403 Forbidden", "%22token%22%3A%22***"}},
             {servers.refusing.url(), {1, Stage::session, "refused the session", "not for you"}},
             {servers.judging.url(), {5, Stage::login, "refused the login", "loginFail: InvalidToken"}},
             {servers.slow.url(), {9, Stage::upgrade, "Not connected within 300 ms", "", true}, inHaste},
         }) {
        SCOPED_TRACE(c.url + ' ' + c.want.cause);
        Unlucky alice(c.url, GetParam(), c.adjust);
        alice.expect(c.want, "loginByToken", [&](auto done) { alice.kit->loginByToken(kOddToken, 1, "alice", done); });
    }
}

TEST_P(Failures, OfASessionNameOperationAndCause) {
    LocalService service;
    Unlucky alice(service.url(), GetParam(), [](KvPimOptions& o) { o.network.requestTimeout = 300ms; });
    auto& kit = *alice.kit;
    auto const read = [&](auto done) {
        kit.getUserAttributes("bob", [done](auto const&, auto const&, std::int64_t code) { done(code); });
    };
    alice.expect({102, Stage::request, "not logged in", ""}, "getUserAttributes", read);
    ASSERT_TRUE(alice.login());
    auto const again = [&](auto done) { kit.loginByToken(kToken, 1, "alice", done); };
    alice.expect({8, Stage::login, "in progress", ""}, "loginByToken", again);
    alice.expect({3, Stage::request, "arguments", ""}, "setLocalUserAttributes",
                 [&](auto done) { kit.setLocalUserAttributes({}, done); });
    alice.expect({2, Stage::request, "token", ""}, "renewToken", [&](auto done) {
        kit.renewToken(kSecret, 1, [done](auto const&, std::int64_t code) { done(code); });
    });
    auto const garden = kit.createChannelWithId("garden", {});
    service.answer("join", json::array{"Full of\nroses", {{"result", 6}}});
    alice.expect({6, Stage::request, "result 6", "Full of roses"}, "joinWithCompletion",
                 [&](auto done) { garden->joinWithCompletion(done); });
    service.answer("getUserAttributes", nullptr);
    alice.expect({7, Stage::request, "No answer within 300 ms", ""}, "getUserAttributes", read);

    service.kill();
    ASSERT_TRUE(runUntil(*alice.queue, [&] { return kit.stateManager().state != KvPimConnectionStateConnected; }));
    alice.expect({7, Stage::request, "no connection", ""}, "getUserAttributes", read);
    alice.told.clear();
    ASSERT_TRUE(runUntil(*alice.queue, [&] { return !alice.told.empty() && alice.told.back().code == 0; }));
    EXPECT_EQ(alice.told.back().operation, "reconnect");
    Unlucky::check(alice.told.back(), {0, Stage::tcp, "refused", "", true});
    // What succeeds within a completion that failed has no failure.
    kit.setLocalUserAttributes({}, [&](std::int64_t) {
        kit.renewToken(kToken, 1, [](auto const&, std::int64_t) { EXPECT_EQ(currentFailure(), nullptr); });
        EXPECT_NE(currentFailure(), nullptr);
    });
}

}  // namespace
}  // namespace kv::test
