// Why something failed, in the words that applications get: each cause with its stage, and none with a secret.
#include "Classes/Model/KvFailure.h"
#include "Session.h"
#include "support/Certificates.h"
#include "support/HttpTestServer.h"
#include "support/ScriptedServer.h"

#include <algorithm>

namespace kv::test {
namespace {

using Stage = KvFailureStage;
class Failures : public EveryEngine {};
ON_EVERY_ENGINE(Failures);

constexpr char kSecret[] = "sesame-open-word";
// A token as it is, and as the request that bears it has it.
constexpr char kOddToken[] = "q+w/e=r+t/y=u+i/o=p+a/s=d+f/g=h+", kOddTokenSent[] = "q%2Bw%2Fe%3Dr%2Bt%2Fy";

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
    CertificateAuthority const authority;
    auto const itself = authority.selfSigned("IP:127.0.0.1");
    ScriptedServer const secure([](auto&) {}, {.certificateFile = itself.certificateFile, .keyFile = itself.keyFile});
    ScriptedServer const alert(
        [](auto&) {}, {.certificateFile = {}, .keyFile = {}, .greeting = std::string("\x15\x03\x03\0\2\2\x28", 7)});
    ScriptedServer const clear([](auto&) {},
                               {.certificateFile = {}, .keyFile = {}, .greeting = "HTTP/1.1 400 Bad Request\r\n\r\n"});
    HttpTestServer const lost([](auto&) -> HttpTestAnswer { return {.status = 404, .body = "<h1>\x1b[31mLost</h1>"}; });
    HttpTestServer const rude(
        [](auto&) -> HttpTestAnswer { return {.body = R"({"code":403,"message":"no such app"})"}; });
    HttpTestServer const silent([](auto&) -> HttpTestAnswer { return {.ending = HttpTestAnswer::Ending::silence}; });
    ScriptedServer const gateway(
        [](ScriptedPeer& peer) { peer.send("HTTP/1.1 403 Forbidden\r\n\r\nno way for " + peer.request()); });
    ScriptedServer const refusing([](ScriptedPeer& peer) {
        peer.acceptWebSocket();
        peer.sendText(ScriptedPeer::openPacket({}));
        peer.readText();
        peer.sendText(R"(44{"message":"not for you"})");
        peer.readToEnd();
    });
    ScriptedServer const judging([](ScriptedPeer& peer) {
        peer.connect();
        peer.emit("disconnectReason", {std::string("loginFail: InvalidToken")});
        peer.sendText("41");
        peer.readToEnd();
    });
    ScriptedServer const slow([](ScriptedPeer& peer) { peer.sleep(60s); });
    auto const port = [](auto const& server) { return server.url().substr(server.url().rfind(':')); };
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
             {secure.url(), {9, Stage::tls, "self-signed certificate: certificate \"CN=Test server\"", ""}},
             {secure.url(), {9, Stage::tls, "CA file /nonexistent/ca.pem", ""}, withCaFile},
             {"https://127.0.0.1" + port(clear), {9, Stage::tls, "does not speak TLS", ""}},
             {alert.url(), {9, Stage::tls, "spoken to in clear", ""}},
             {lost.url(), {9, Stage::discovery, "HTTP status 404", "<h1> [31mLost</h1>"}},
             {rude.url(), {9, Stage::discovery, "names no server", "no such app"}},
             {silent.url(), {9, Stage::discovery, "No answer", ""}, inHaste},
             {gateway.url(), {1, Stage::upgrade, "HTTP status 403 Forbidden", "%22token%22%3A%22***"}},
             {refusing.url(), {1, Stage::session, "refused the session", "not for you"}},
             {judging.url(), {5, Stage::login, "refused the login", "loginFail: InvalidToken"}},
             {slow.url(), {9, Stage::upgrade, "Not connected within 300 ms", "", true}, inHaste},
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
