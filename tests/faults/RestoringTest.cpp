// A service that takes the client back, but not at once, or not for what it was: refusals on the road back, and what
// the restoring does while it is refused.
#include "Classes/Model/KvPimRestored.h"
#include "Session.h"

namespace kv::test {
namespace {

constexpr char kNewToken[] = "fedcba9876543210fedcba9876543210";
constexpr char const* kRestoring[] = {"join", "setLocalUserAttributes", "subscribePeersOnlineStatus",
                                      "subscribePeersUserAttributes"};

class Restoring : public EveryEngine {
protected:
    /// So does the service with every step of the restoring from now on.
    void refuseAll() {
        for (char const* command : kRestoring) service.refuseNextAsTooMany(command, 1000000);
    }
    void ignoreAll() {
        for (char const* command : kRestoring) service.ignoreNext(command, 1000000);
    }
    int asked() const {
        std::size_t sum = 0;
        for (char const* command : kRestoring) sum += service.requests(command, "alice").size();
        return static_cast<int>(sum);
    }

    Service service;
    Session session{service, GetParam()};
};
ON_EVERY_ENGINE(Restoring);

TEST_P(Restoring, RefusedLoginsOnTheRoadBackAreTriedAgain) {
    ASSERT_TRUE(session.begin());
    for (char const* reason : {"loginFail: ExpiredToken", "loginFail: AuthFail", "ExpireSession"})
        service.refuseNextLogin(reason);
    service.cut("alice");
    EXPECT_TRUE(session.waitForLoss());
    session.expectRestored(service);
    EXPECT_EQ(session.alice.states, (States{{4, 5}, {3, 2}}));
}

TEST_P(Restoring, AnExpiredTokenIsToldAndItsRenewalIsUsedForTheNextAttempt) {
    auto& alice = session.alice;
    ASSERT_TRUE(alice.login());
    std::int64_t renewed = -1;
    alice.delegate->tokenDidExpire = [&](KvPimKit& kit) {
        ++alice.expired;
        kit.renewToken(kNewToken, 2, [&](std::string const&, std::int64_t code) { renewed = code; });
    };
    service.expireToken(kToken);
    service.cut("alice");
    EXPECT_TRUE(session.waitFor([&] { return service.connections() == 3 && session.isConnected(); }));
    EXPECT_EQ(alice.expired, 1);
    EXPECT_EQ(renewed, 0);
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}, {4, 5}, {3, 2}}));
}

TEST_P(Restoring, RefusalsInARowAreFurtherAndFurtherApart) {
    ASSERT_TRUE(session.begin());
    refuseAll();
    auto const before = asked();
    service.cut("alice");
    EXPECT_TRUE(session.waitForLoss());
    auto& alice = session.alice;
    // Two of them are joins. The clock stands still but for what is said here.
    auto const comesTo = [&](int rounds) {
        bool const isThere = runUntil(*alice.queue, [&] { return asked() == before + 5 * rounds; });
        // Answered after the refusals, and all that they lead to at once.
        alice.codeOf(
            [&](auto done) { alice.kit->queryPeersOnlineStatus({"bob"}, [done](auto&, auto code) { done(code); }); });
        return isThere && asked() == before + 5 * rounds;
    };
    int rounds = 2;
    for (auto const pause : {10ms, 20ms, 40ms, 80ms, 100ms, 100ms}) {
        EXPECT_TRUE(comesTo(rounds)) << pause.count();
        alice.queue->advance(pause - 1ms);
        EXPECT_TRUE(comesTo(rounds++)) << pause.count();
        alice.queue->advance(1ms);
    }
    EXPECT_TRUE(comesTo(rounds));
}

TEST_P(Restoring, WhatTheApplicationChangesMeanwhileIsWhatIsRestored) {
    ASSERT_TRUE(session.begin());
    for (auto const& [command, times] :
         {std::pair("join", 4), std::pair("setLocalUserAttributes", 2), std::pair("subscribePeersOnlineStatus", 2)}) {
        service.refuseNextAsTooMany(command, times);
    }
    auto const before = asked();
    auto& alice = session.alice;
    std::vector<KvPimRestored> told;
    alice.delegate->connectionRestored = [&](KvPimKit&, KvPimRestored const& restored) { told.push_back(restored); };
    service.cut("alice");
    EXPECT_TRUE(session.waitForLoss());
    EXPECT_TRUE(runUntil(*alice.queue, [&] { return asked() == before + 9; }));  // the fourth kind is taken at once
    int unanswered = 2;
    auto const done = [&](std::int64_t code) { unanswered -= code == 0 ? 1 : 0; };
    alice.kit->addOrUpdateLocalUserAttributes({{"c", "9"}}, done);
    alice.kit->unsubscribePeersOnlineStatus({"bob"}, done);
    EXPECT_TRUE(alice.kit->destroyChannelWithId("lobby"));
    alice.queue->advance(100ms);  // the repetitions are due before there is an answer
    EXPECT_TRUE(session.waitFor([&] { return unanswered == 0 && told.size() == 2; }));
    for (int turn = 0; turn < 100; ++turn) alice.queue->advance(100ms);
    EXPECT_EQ(asked(), before + 11);  // another join, another set
    auto const user = json::parse(service.state()).at("apps").at("app").at("users").at("alice");
    EXPECT_EQ(user.at("channels"), json::array{"garden"});
    EXPECT_EQ(user.at("attributes"), (json::value{{"b", "3"}, {"c", "9"}}));
    EXPECT_EQ(user.at("statusSubscriptions"), json::array());

    std::vector<std::vector<std::size_t>> attempts;
    for (auto const& restored : told) {
        auto& ofItems = attempts.emplace_back();
        for (auto const& item : restored.items) ofItems.push_back(item.attempts);
        EXPECT_EQ(restored.isWhole(), restored.items.size() == 3);
    }
    EXPECT_EQ(attempts, (std::vector<std::vector<std::size_t>>{{1, 1, 1, 1, 1}, {3, 3, 1}}));
    EXPECT_EQ(told.at(0).items.at(0).code, KvPimJoinChannelErrorFailure);
    EXPECT_EQ(told.at(1).items.at(0).channelId, "garden");
    EXPECT_EQ(told.at(1).items.at(2).peerIds, (std::vector<std::string>{"bob", "dora"}));
}

TEST_P(Restoring, AChannelThatWasDestroyedIsNotAskedForAgain) {
    ASSERT_TRUE(session.begin());
    EXPECT_TRUE(session.alice.kit->destroyChannelWithId("lobby"));
    auto const before = asked();
    service.cut("alice");
    EXPECT_TRUE(session.waitFor([&] { return session.isConnected() && asked() == before + 4; }));
    // Behind the other answers: a clock that is moved before they are there lets the steps time out, and be repeated.
    session.alice.codeOf([&](auto done) {
        session.alice.kit->getChannelAttributes("garden", [done](auto const&, std::int64_t code) { done(code); });
    });
    for (int turn = 0; turn < 100; ++turn) session.alice.queue->advance(100ms);
    EXPECT_EQ(asked(), before + 4);  // one join beside the other three
}

TEST_P(Restoring, NothingIsToldOfItOnceTheConnectionIsLostAgain) {
    ASSERT_TRUE(session.begin());
    ignoreAll();
    auto const before = asked();
    auto& alice = session.alice;
    int told = 0;
    alice.delegate->connectionRestored = [&](KvPimKit&, KvPimRestored const&) { ++told; };
    service.cut("alice");
    EXPECT_TRUE(session.waitForLoss());
    EXPECT_TRUE(runUntil(*alice.queue, [&] { return asked() == before + 5; }));
    service.stop();
    EXPECT_TRUE(runUntil(*alice.queue, [&] { return !session.isConnected(); }));
    for (int turn = 0; turn < 100; ++turn) alice.queue->advance(100ms);  // all that is unanswered ends
    EXPECT_EQ(told, 0);
}

// Answers that were still to come when a login ended belong to it, not to the one that follows.
TEST_P(Restoring, OneLoginRestoresNothingOfAnother) {
    ASSERT_TRUE(session.begin());
    ignoreAll();
    auto const before = asked();
    service.cut("alice");
    EXPECT_TRUE(session.waitFor([&] { return asked() == before + 5; }));  // two of them are joins
    auto& alice = session.alice;
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->logoutWithCompletion(done); }), 0);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->loginByToken(kToken, 1, "eve", done); }), 0);
    for (int turn = 0; turn < 100; ++turn) alice.queue->advance(100ms);  // all that is unanswered ends
    EXPECT_EQ(alice.codeOf([&](auto done) {
        alice.kit->getChannelAttributes("garden", [done](auto const&, std::int64_t code) { done(code); });
    }),
              0);
    EXPECT_EQ(asked(), before + 5);
}

TEST_P(Restoring, ADestroyedClientIsNotKeptAliveByIt) {
    ASSERT_TRUE(session.begin());
    refuseAll();
    service.cut("alice");
    auto const before = asked();
    EXPECT_TRUE(session.waitFor([&] { return asked() > before + 20; }));
    std::weak_ptr<KvPimKit> const kit = session.alice.kit;
    session.alice.kit.reset();
    EXPECT_TRUE(kit.expired());
    EXPECT_TRUE(session.waitFor([&] { return session.difference(service) == "alice is not connected"; }));
    auto const last = asked();
    for (int turn = 0; turn < 100; ++turn) session.alice.queue->advance(100ms);
    EXPECT_EQ(asked(), last);
}

}  // namespace
}  // namespace kv::test
