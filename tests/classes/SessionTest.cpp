// Login, logout, renewal; what each end of a connection leads to.
#include "Classes/KvPimAwait.h"
#include "Classes/KvScope.h"
#include "Classes/Model/KvFailure.h"
#include "Operations.h"
#include "Person.h"
#include "support/Printed.h"
#include "support/ScriptedServer.h"

namespace kv::test {
namespace {

class SessionTest : public EveryEngine {
protected:
    bool waitFor(std::function<bool()> const& holds, std::chrono::milliseconds step = 0ms) {
        return runUntil(*queue, holds, step);
    }
    bool isConnected() const { return alice.kit->stateManager().state == KvPimConnectionStateConnected; }
    /// Moves the clock, and then runs the queue until the library has logged this.
    bool advanceUntilLogged(std::chrono::nanoseconds duration, std::string const& text) {
        std::string logged;
        alice.kit->setLogFilters(1);
        Printed printed;
        for (int turn = 0; turn < 2000 && logged.find(text) == std::string::npos; ++turn) {
            if (turn == 0) queue->advance(duration);
            isReadable(queue->fd(), 5ms);
            queue->poll();
            logged += printed.error();
        }
        connectIndices = printed.out();
        alice.kit->setLogFilters(0);
        return logged.find(text) != std::string::npos;
    }
    std::string connectIndices;  // printed meanwhile
    json::value userAtServer() { return service.state().at("apps").at("app").at("users").at("alice"); }

    LocalService service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Person alice{service.url(), "alice", queue, GetParam()};
};

ON_EVERY_ENGINE(SessionTest);

TEST_P(SessionTest, LoginAndLogoutTellEachStateOnce) {
    auto& kit = *alice.kit;
    EXPECT_EQ(alice.codeOf([&](auto done) { kit.logoutWithCompletion(done); }), 102);
    ASSERT_TRUE(alice.login());
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}}));
    EXPECT_EQ(alice.codeOf([&](auto done) { kit.loginByToken(kToken, 1, "alice", done); }), 8);
    alice.join("room");
    EXPECT_EQ(alice.codeOf([&](auto done) { kit.logoutWithCompletion(done); }), 0);
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}, {1, 6}}));
    EXPECT_FALSE(kit.stateManager().login);
    EXPECT_EQ(kit.getDebugInfo().size(), 2u);  // the version, and a socket with nothing but the API server
    EXPECT_TRUE(waitFor([&] { return !userAtServer().at("connected").as_bool(); }));
    ASSERT_TRUE(alice.login());
    EXPECT_TRUE(userAtServer().at("channels").as_array().empty());
}

TEST_P(SessionTest, ARefusedLoginHasItsReasonsCode) {
    struct Case {
        char const* reason;
        std::int64_t code;
    };
    for (auto const& c :
         {Case{"loginFail: InvalidAppId", 4}, Case{"loginFail: InvalidArgument", 3}, Case{"loginFail: InvalidToken", 5},
          Case{"loginFail: ExpiredToken", 6}, Case{"loginFail: AuthFail", 7}, Case{"loginFail: AppForbidden", 2},
          Case{"loginFail: Whatever", 1}}) {
        service.control("login", {{"reason", c.reason}});
        alice.states.clear();
        EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "alice", done); }), c.code)
            << c.reason;
        EXPECT_EQ(alice.states, (States{{2, 1}, {1, 3}})) << c.reason;
    }
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "a/b", done); }), 3);
    EXPECT_EQ(alice.kit->stateManager().state, 1);
    EXPECT_TRUE(alice.login());
}

TEST_P(SessionTest, ALoginThatTheServerNeverAnswersEndsWithItsConnection) {
    service.control("login", {{"reason", nullptr}});
    std::vector<std::int64_t> codes;
    alice.kit->loginByToken(kToken, 1, "alice", [&](std::int64_t code) { codes.push_back(code); });
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "alice", done); }), 8);
    EXPECT_TRUE(
        waitFor([&] { return alice.kit->getDebugInfo().at("brivelSocket").as_object().contains("brivelServer"); }));
    EXPECT_TRUE(codes.empty());
    service.kill();
    EXPECT_TRUE(waitFor([&] { return !codes.empty(); }));
    EXPECT_EQ(codes, std::vector<std::int64_t>{1});
    EXPECT_EQ(alice.states, (States{{2, 1}, {1, 3}}));
}

TEST_P(SessionTest, ALoginThatTimesOutIsAnsweredAgainWhenTheServerThaws) {
    std::atomic<bool> isFrozen{true};
    ScriptedServer server([&](ScriptedPeer& peer) {
        while (isFrozen) peer.sleep(1ms);
        peer.login();
        peer.readToEnd();
    });
    auto const impatient = [](KvPimOptions& options) {
        options.network.connectTimeout = 3s;
        options.network.requestTimeout = 2s;
    };
    Person dora(server.url(), "dora", queue, GetParam(), impatient),
        eve(server.url(), "eve", queue, GetParam(), impatient);
    std::vector<std::int64_t> codes;
    dora.kit->loginByToken(kToken, 1, "dora", [&](std::int64_t code) { codes.push_back(code); });
    auto awaited = eve.kit->loginByToken(kToken, 1, "eve");
    EXPECT_TRUE(waitFor([&] { return server.connections() == 2; }));
    queue->advance(3s);
    EXPECT_EQ(codes, std::vector<std::int64_t>{9});
    EXPECT_FALSE(awaited.isReady()) << "it ends once, with its outcome";
    isFrozen = false;
    EXPECT_TRUE(waitFor([&] { return codes.size() == 2 && awaited.isReady(); }));
    EXPECT_TRUE(awaited.take());
    EXPECT_EQ(codes.back(), 0);
    EXPECT_EQ(dora.states, (States{{2, 1}, {1, 4}, {3, 2}}));
    EXPECT_TRUE(dora.kit->stateManager().login);
    dora.kit->setLocalUserAttributes({{"k", "v"}}, [&](std::int64_t code) { codes.push_back(code); });
    dora.kit->clearLocalUserAttributesWithCompletion([&](std::int64_t code) { codes.push_back(code); });
    queue->advance(1999ms);
    EXPECT_EQ(codes.size(), 2u);
    queue->advance(1ms);
    EXPECT_EQ(codes, (std::vector<std::int64_t>{9, 0, 7, 7}));
}

TEST_P(SessionTest, WithoutAServerTheLoginEndsWithoutAWordToTheDelegate) {
    service.kill();
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "alice", done); }), 9);
    EXPECT_EQ(alice.kit->stateManager().state, 1);
    EXPECT_EQ(alice.states, (States{{2, 1}}));
}

TEST_P(SessionTest, UnusableOptionsOfTheNetworkMakeNoClient) {
    KvPimOptions options;
    options.network.connectTimeout = 0s;
    KvPimKit::setLogFilters(4);
    Printed printed;
    EXPECT_EQ(KvPimKit::initWithAppId("app", {}, options), nullptr);
    // Another client's first words may come meanwhile.
    EXPECT_NE(printed.error().find(
                  "kv_pim_error_log:no client: `connectTimeout` is 0 ms, and must be between 1 ms and a day\n"),
              std::string::npos);
    KvPimKit::setLogFilters(0);
}

TEST_P(SessionTest, AttemptsWaitOneTwoFourSixSeconds) {
    ASSERT_TRUE(alice.login());
    service.kill();
    EXPECT_TRUE(waitFor([&] { return alice.kit->stateManager().state == KvPimConnectionStateDisconnected; }));
    alice.states.clear();
    int attempt = 0;
    for (auto const delay : {1s, 2s, 4s, 6s, 6s}) {
        queue->advance(delay - 1ms);
        if (attempt == 0) {
            EXPECT_EQ(alice.kit->stateManager().state, KvPimConnectionStateDisconnected);
        }
        EXPECT_TRUE(advanceUntilLogged(1ms, "disconnect, params"));  // the attempt is refused
        std::string const index = std::to_string(std::min(++attempt, 4));
        EXPECT_EQ(connectIndices, "connectIndex:" + index + " \n");
        EXPECT_EQ(alice.kit->stateManager().state, KvPimConnectionStateReconnecting);
    }
    EXPECT_EQ(alice.states, (States{{4, 5}}));
    LocalService again(service.port());
    queue->advance(6s);
    EXPECT_TRUE(waitFor([&] { return isConnected(); }));
    EXPECT_EQ(alice.states, (States{{4, 5}, {3, 2}}));
    // A later loss goes on at six seconds.
    again.control("drop", {{"userId", "alice"}});
    EXPECT_TRUE(waitFor([&] { return alice.kit->stateManager().state == KvPimConnectionStateDisconnected; }));
    queue->advance(5999ms);
    EXPECT_EQ(alice.kit->stateManager().state, KvPimConnectionStateDisconnected);
    queue->advance(1ms);
    EXPECT_TRUE(waitFor([&] { return isConnected(); }));
}

TEST_P(SessionTest, ARemoteLoginEndsTheSessionUntilLogout) {
    ASSERT_TRUE(alice.login());
    int arrived = 0, failed = 0;
    auto const listener = std::make_shared<KvPimInvitationDelegate>();
    listener->invitationArrived = [&](auto&, auto const&) { ++arrived; };
    listener->invitationFailed = [&](auto&, auto const&, std::int64_t) { ++failed; };
    alice.kit->getPimInvitationKit()->setDelegate(listener);
    service.emit("alice", "InvitationNotify", {{"invitation", {{"inviter", "x"}, {"invitee", "alice"}, {"state", 2}}}});
    EXPECT_TRUE(waitFor([&] { return arrived == 1; }));
    Person elsewhere(service.url(), "alice", queue, GetParam());
    ASSERT_TRUE(elsewhere.login());
    EXPECT_TRUE(waitFor([&] { return alice.states.back() == States::value_type{1, 8}; }));
    queue->advance(10s);
    EXPECT_TRUE(alice.kit->stateManager().login);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "alice", done); }), 8);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->logoutWithCompletion(done); }), 0);
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}, {1, 8}}));
    EXPECT_EQ(alice.kit->getDebugInfo().size(), 2u);
    EXPECT_TRUE(alice.login());
    queue->advance(61s);
    EXPECT_EQ(failed, 0) << "an invitation of the login before";
}

TEST_P(SessionTest, OtherGoodbyesLeadToReconnection) {
    ASSERT_TRUE(alice.login());
    for (char const* reason : {"ExpireSession", "whatever"}) {
        alice.states.clear();
        service.control("disconnect", {{"userId", "alice"}, {"reason", reason}});
        EXPECT_TRUE(waitFor([&] { return alice.states.size() == 2; }, 100ms));
        EXPECT_EQ(alice.states, (States{{4, 5}, {3, 2}})) << reason;
    }
}

TEST_P(SessionTest, ALogoutDuringTheWaitForAnAttemptEndsTheCycle) {
    ASSERT_TRUE(alice.login());
    service.control("drop", {{"userId", "alice"}});
    EXPECT_TRUE(waitFor([&] { return alice.kit->stateManager().state == KvPimConnectionStateDisconnected; }));
    queue->advance(500ms);
    std::int64_t code = -1;
    alice.kit->logoutWithCompletion([&](std::int64_t result) { code = result; });
    queue->poll();
    EXPECT_EQ(code, -1);  // behind the attempt
    queue->advance(500ms);
    EXPECT_TRUE(waitFor([&] { return code == 0; }));
    EXPECT_EQ(alice.states.back(), (States::value_type{1, 6}));
    queue->advance(30s);
    EXPECT_EQ(alice.kit->stateManager().state, KvPimConnectionStateDisconnected);
}

TEST_P(SessionTest, AChangeOfTheNetworkEndsTheWaitForAnAttempt) {
    alice.kit->networkChanged();  // without a session
    ASSERT_TRUE(alice.login());
    for (bool const isLast : {false, true}) {
        alice.states.clear();
        service.control("drop", {{"userId", "alice"}});
        EXPECT_TRUE(waitFor([&] { return alice.kit->stateManager().state == KvPimConnectionStateDisconnected; }));
        for (int i = 0; i < 3; ++i) alice.kit->networkChanged();
        std::int64_t code = -1;
        if (isLast) alice.kit->logoutWithCompletion([&](std::int64_t result) { code = result; });  // behind the attempt
        EXPECT_TRUE(waitFor([&] { return isLast ? code == 0 : isConnected(); }));  // and the clock stands still
        EXPECT_EQ(alice.states, (States{{4, 5}, isLast ? States::value_type{1, 6} : States::value_type{3, 2}}));
    }
}

// The news of the end waits in the queue when the application logs out, and comes first.
TEST_P(SessionTest, ALogoutBehindTheEndOfTheConnectionIsTold) {
    for (int const attempts : {0, 1}) {
        std::atomic<bool> mayEnd{false};
        ScriptedServer server([&](ScriptedPeer& peer) {
            if (peer.number() == 0) peer.login();
            while (peer.number() == attempts && !mayEnd) peer.sleep(1ms);
            peer.hangUp();
        });
        Person dora(server.url(), "dora", queue, GetParam());
        ASSERT_TRUE(dora.login());
        EXPECT_TRUE(waitFor([&] { return server.connections() > attempts; }, 100ms));
        for (int turn = 0; turn < 100; ++turn) queue->poll();  // the connection is all that is left to come
        mayEnd = true;
        EXPECT_TRUE(isReadable(queue->fd(), 10s));
        EXPECT_EQ(dora.codeOf([&](auto done) { dora.kit->logoutWithCompletion(done); }), 0);
        EXPECT_EQ(dora.states,
                  attempts == 0 ? (States{{2, 1}, {3, 2}, {1, 6}}) : (States{{2, 1}, {3, 2}, {4, 5}, {1, 6}}));
        EXPECT_EQ(dora.kit->stateManager().state, KvPimConnectionStateDisconnected);
        EXPECT_EQ(dora.kit->getDebugInfo().size(), 2u);
    }
}

TEST_P(SessionTest, AnotherDelegateMayTakeOver) {
    auto const successor = std::make_shared<KvPimDelegate>();
    States told;
    successor->connectionStateChanged = [&](KvPimKit&, std::int64_t state, std::int64_t reason) {
        told.emplace_back(state, reason);
    };
    EXPECT_EQ(alice.kit->connectionState(), KvPimConnectionStateDisconnected);
    ASSERT_TRUE(alice.login());
    EXPECT_TRUE(alice.kit->isLoggedIn() && alice.kit->connectionState() == KvPimConnectionStateConnected);
    auto const options = alice.kit->options();
    EXPECT_EQ(options.mainQueue, queue);
    EXPECT_EQ(options.engine, GetParam() == Engine::thread ? KvPimEngine::thread : KvPimEngine::mainQueue);
    EXPECT_EQ(options.envConfig.cachesDirectory, alice.cachesDirectory);
    EXPECT_EQ(alice.kit->delegate(), alice.delegate);
    EXPECT_EQ(alice.kit->apiServer(), service.url());
    EXPECT_EQ(alice.kit->brivelServer(), service.url());
    alice.kit->setDelegate(successor);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->logoutWithCompletion(done); }), 0);
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}}));
    EXPECT_EQ(told, (States{{1, 6}}));
    alice.kit->loginByToken(kToken, std::chrono::sys_time<std::chrono::milliseconds>(1700000000123ms), "alice", {});
    EXPECT_NE(alice.kit->getDebugInfoText().find("\"timestamp\":1700000000123}"), std::string::npos);
}

TEST_P(SessionTest, WhatIsHandedOverInVainIsToldToTheLog) {
    std::vector<std::string> warnings;
    alice.kit->setLogFilters(2);
    alice.kit->setLogHandler([&](std::int64_t level, std::string_view line) {
        if (level == 2) warnings.emplace_back(line);
    });
    std::weak_ptr<KvPimChannelDelegate> const gone = std::make_shared<KvPimChannelDelegate>();
    auto const channel = alice.kit->createChannelWithId("room", {});
    EXPECT_EQ(alice.kit->createChannelWithId("a/b", {}), nullptr);
    channel->setDelegate(gone);
    channel->setDelegate({});
    alice.kit->createChannelWithId("room", gone);
    alice.kit->setLogHandler({});
    alice.kit->setLogFilters(0);
    ASSERT_EQ(warnings.size(), 3u);
    EXPECT_NE(warnings[0].find("a/b is not a valid id"), std::string::npos);
    EXPECT_NE(warnings[1].find("setDelegate: the delegate is gone"), std::string::npos);
    EXPECT_NE(warnings[2].find("createChannelWithId: the delegate is gone"), std::string::npos);
}

TEST_P(SessionTest, RenewalReplacesTheTokenOfConnectionsToCome) {
    auto renewed = [&](std::string const& token) {
        std::pair<std::string, std::int64_t> result;
        alice.kit->renewToken(token, 2, [&](std::string const& given, std::int64_t code) { result = {given, code}; });
        return result;
    };
    std::string const fresh = "f" + std::string(kToken).substr(1);
    EXPECT_EQ(renewed(fresh), std::pair(fresh, std::int64_t{102}));
    ASSERT_TRUE(alice.login());
    for (std::string const& bad : {fresh + "x", fresh.substr(1), " " + fresh.substr(1)}) {
        EXPECT_EQ(renewed(bad), std::pair(bad, std::int64_t{2})) << bad;
    }
    EXPECT_EQ(renewed(fresh), std::pair(fresh, std::int64_t{0}));
    EXPECT_EQ(alice.states.back(), (States::value_type{1, 6}));
    EXPECT_TRUE(alice.kit->stateManager().login);
}

TEST_P(SessionTest, ATokenThatIsRenewedDuringAnAttemptEndsTheAttempts) {
    ScriptedServer server([&](ScriptedPeer& peer) {
        if (peer.number() == 1) {  // never answered
            peer.readToEnd();
        } else {
            peer.login();
            if (peer.number() == 0) return peer.hangUp();
            peer.readToEnd();
        }
    });
    Person dora(server.url(), "dora", queue, GetParam());
    ASSERT_TRUE(dora.login());
    EXPECT_TRUE(waitFor([&] { return server.connections() == 2; }, 100ms));
    dora.kit->renewToken(kToken, 2, {});
    EXPECT_EQ(dora.states, (States{{2, 1}, {3, 2}, {4, 5}, {1, 6}}));
    for (int turn = 0; turn < 100; ++turn) queue->advance(100ms);
    EXPECT_EQ(server.connections(), 2);
    EXPECT_EQ(dora.codeOf([&](auto done) { dora.kit->logoutWithCompletion(done); }), 0);
    EXPECT_TRUE(dora.login());
}

TEST_P(SessionTest, AClientMayEndAtEachMomentOfALogin) {
    for (int turns = 0; turns < 40; ++turns) {
        int codes = 0;
        Person dora(service.url(), "dora", queue, GetParam());
        dora.kit->loginByToken(kToken, 1, "dora",
                               [&](std::int64_t code) { codes += code == 0 || currentFailure() ? 1 : 0; });
        for (int turn = 0; turn < turns; ++turn) {
            isReadable(queue->fd(), 1ms);
            queue->poll();
        }
        dora.kit.reset();
        auto const told = dora.states;
        EXPECT_TRUE(waitFor([&] { return codes == 1; }, 100ms));
        queue->advance(20s);
        EXPECT_EQ(codes, 1);
        EXPECT_EQ(dora.states, told);
    }
}

// The tests of lifetimes run on the main queue. Here the engine may be at work while the client ends.
TEST_P(SessionTest, AClientMayEndInEachCallback) {
    for (int last = 0, heard = 1; last < heard; ++last) {
        heard = 0;
        Person dora(service.url(), "dora", queue, GetParam());
        auto const hear = [&](auto&&...) {
            if (heard++ == last) dora.kit.reset();
        };
        *dora.delegate = {hear, hear, hear, hear, hear};
        auto const listener = std::make_shared<KvPimChannelDelegate>();
        *listener = {hear, hear, hear, hear, hear, hear};
        auto const channel = dora.kit->createChannelWithId("c", listener);
        int unanswered = 1;
        auto const done = [&](std::int64_t) {
            --unanswered;
            hear();
        };
        dora.kit->loginByToken(kToken, 1, "dora", done);
        EXPECT_TRUE(waitFor([&] { return unanswered == 0; }, 100ms));
        for (auto const& request : kCalls) {
            if (!dora.kit) break;
            ++unanswered;
            request.start(*dora.kit, *channel, done);
        }
        EXPECT_TRUE(waitFor([&] { return unanswered <= 2; }, 100ms));  // two owe nothing to a client that is gone
        queue->advance(20s);
        EXPECT_GE(unanswered, 0);
    }
}

TEST(Scope, KeepsCompletionsThatAreStillOwedFromWhatIsGone) {
    auto const queue = KvMainQueue::create();
    int owed = 0, guarded = 0;
    {
        Person const alice("http://127.0.0.1:9", "alice", queue);
        KvScope const scope;
        auto const guard = [&] { return scope.wrap([&](std::int64_t) { ++guarded; }); };
        alice.kit->logoutWithCompletion(guard());
        alice.kit->loginByToken(kToken, 1, "alice", [&owed, guard = guard()](std::int64_t code) mutable {
            ++owed;
            guard(code);
        });
    }
    EXPECT_TRUE(runUntil(*queue, [&] { return owed == 1; }));
    EXPECT_EQ(guarded, 1);
}

}  // namespace
}  // namespace kv::test
