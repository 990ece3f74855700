// Invitations between two clients, and the objects, timers and store behind them.
#include "Classes/Utils/KvInvitationStore.h"
#include "Person.h"

namespace kv::test {
namespace {

using Invitation = std::shared_ptr<KvPimInvitation>;

struct Party {
    Party(LocalService const& service, std::string userId, std::shared_ptr<KvMainQueue> queue)
        : person(service.url(), std::move(userId), std::move(queue)),
          listener(std::make_shared<KvPimInvitationDelegate>()) {
        auto const note = [this](char const* what) {
            return [this, what](KvPimInvitationKit&, Invitation const& invitation) {
                heard.emplace_back(what, invitation);
            };
        };
        listener->invitationArrived = note("arrived");
        listener->invitationCanceled = note("canceled");
        listener->invitationAccept = note("accepted");
        listener->invitationRefused = note("refused");
        listener->invitationFailed = [this](KvPimInvitationKit&, Invitation const& invitation, std::int64_t code) {
            heard.emplace_back("failed " + std::to_string(code), invitation);
        };
        kit = person.kit->getPimInvitationKit();
        kit->setDelegate(listener);
    }

    /// Waits for news of this kind, and takes it.
    Invitation hears(std::string const& what) {
        Invitation found;
        EXPECT_TRUE(runUntil(*person.queue, [&] {
            auto const at = std::ranges::find(heard, what, [](auto const& news) { return news.first; });
            if (at == heard.end()) return false;
            found = at->second;
            heard.erase(at);
            return true;
        })) << what;
        return found;
    }
    void succeeds(void (KvPimInvitationKit::*operation)(Invitation, KvPimInvitationKit::Completion),
                  Invitation const& invitation) {
        EXPECT_EQ(person.codeOf([&](auto done) { (*kit.*operation)(invitation, done); }), 0);
    }

    Person person;
    std::shared_ptr<KvPimInvitationDelegate> listener;
    std::shared_ptr<KvPimInvitationKit> kit;
    std::vector<std::pair<std::string, Invitation>> heard;
};

class InvitationTest : public testing::Test {
protected:
    InvitationTest() {
        EXPECT_TRUE(alice.person.login());
        EXPECT_TRUE(bob.person.login());
    }

    Invitation send(std::string const& info = "tea?") {
        auto invitation = KvPimInvitation::initWithInviter("alice", "bob");
        invitation->requestInfo = info;
        alice.succeeds(&KvPimInvitationKit::sendInvitation, invitation);
        return invitation;
    }
    LocalService service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Party alice{service, "alice", queue};
    Party bob{service, "bob", queue};
};

TEST_F(InvitationTest, AcceptedRefusedAndCanceled) {
    struct Case {
        char const* told;
        std::int64_t state;
        bool byBob;
        void (KvPimInvitationKit::*answer)(Invitation, KvPimInvitationKit::Completion);
    };
    for (auto const& c : {Case{"accepted", 4, true, &KvPimInvitationKit::acceptInvitation},
                          Case{"refused", 5, true, &KvPimInvitationKit::refuseInvitation},
                          Case{"canceled", 3, false, &KvPimInvitationKit::cancelInvitation}}) {
        auto const mine = send();
        EXPECT_EQ(mine->state, KvPimInvitationStatePending);
        auto const arrived = bob.hears("arrived");
        ASSERT_TRUE(arrived);
        EXPECT_EQ(arrived->requestInfo, "tea?");
        EXPECT_NE(arrived, mine) << "each client has its own";
        Party& answering = c.byBob ? bob : alice;
        Party& told = c.byBob ? alice : bob;
        answering.succeeds(c.answer, arrived);
        auto const answered = told.hears(c.told);
        ASSERT_TRUE(answered);
        EXPECT_EQ(answered->state, c.state);
        queue->advance(61s);
        EXPECT_TRUE(alice.heard.empty() && bob.heard.empty()) << c.told << " invitations do not expire";
        EXPECT_EQ(KvInvitationStore::shared().getInvitation(*mine, *alice.kit), nullptr);
    }
}

TEST_F(InvitationTest, AcceptHandsOverTheNoticeAndAllOthersTheStoredObject) {
    auto const mine = KvPimInvitation::initWithInviter("alice", "bob");
    auto const notice = [&](std::int64_t state) {
        alice.heard.clear();
        KvInvitationStore::shared().addInvitation(mine);
        service.emit("alice", "InvitationNotify",
                     {{"invitation", {{"inviter", "alice"}, {"invitee", "bob"}, {"state", state}}}});
        EXPECT_TRUE(runUntil(*queue, [&] { return !alice.heard.empty(); })) << state;
        EXPECT_EQ(mine->state, state);
        return alice.heard.back().second;
    };
    for (std::int64_t const state : {1, 2, 3, 5}) EXPECT_EQ(notice(state), mine) << state;
    EXPECT_NE(notice(4), mine);
}

TEST_F(InvitationTest, NobodyAnswersForSixtySeconds) {
    auto const mine = send();
    bob.hears("arrived");
    queue->advance(59s);
    EXPECT_TRUE(alice.heard.empty());
    queue->advance(1s);
    alice.hears("failed 3");
    bob.hears("failed 3");
    EXPECT_TRUE(alice.heard.empty() && bob.heard.empty());
    EXPECT_EQ(mine->state, KvPimInvitationStateFailed);
    EXPECT_EQ(KvInvitationStore::shared().getInvitation(*mine, *alice.kit), mine);
}

TEST_F(InvitationTest, AnUnansweredSendFailsWithoutATimer) {
    service.answer("invitationOp", nullptr);
    auto const invitation = KvPimInvitation::initWithInviter("alice", "bob");
    std::int64_t code = -1;
    alice.kit->sendInvitation(invitation, [&](std::int64_t result) { code = result; });
    queue->advance(6s);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(invitation->state, KvPimInvitationStateFailed);
    queue->advance(61s);
    EXPECT_TRUE(alice.heard.empty());
}

TEST_F(InvitationTest, WhereTheDelegateIsMissingTheStoreKeepsTheInvitation) {
    auto const stored = KvPimInvitation::initWithInviter("alice", "bob");
    alice.listener->invitationRefused = nullptr;
    alice.listener->invitationArrived = nullptr;
    alice.listener->invitationFailed = nullptr;
    for (std::int64_t const state : {2, 5, 1}) {
        service.emit("alice", "InvitationNotify",
                     {{"invitation", {{"inviter", "alice"}, {"invitee", "bob"}, {"state", state}}}});
        EXPECT_TRUE(runUntil(*queue, [&] { return stored->state == state; }));
        EXPECT_EQ(KvInvitationStore::shared().getInvitation(*stored, *alice.kit), stored);
    }
    queue->advance(61s);
    EXPECT_EQ(stored->state, 1);
    EXPECT_TRUE(alice.heard.empty());
}

TEST_F(InvitationTest, LogoutStopsTheOwnTimersSilently) {
    auto const sent = send();
    auto const arrived = bob.hears("arrived");
    auto const later = KvPimInvitation::initWithInviter("alice", "bob");
    EXPECT_EQ(KvInvitationStore::shared().getInvitation(*sent, *bob.kit), arrived);
    EXPECT_EQ(KvInvitationStore::shared().getInvitation(*sent, *alice.kit), later);
    EXPECT_EQ(alice.person.codeOf([&](auto done) { alice.person.kit->logoutWithCompletion(done); }), 0);
    EXPECT_EQ(KvInvitationStore::shared().getInvitation(*sent, *alice.kit), nullptr);
    queue->advance(61s);
    EXPECT_TRUE(alice.heard.empty());
    bob.hears("failed 3");
}

// What they share is for the thread sanitizer to see.
TEST_F(InvitationTest, ClientsOfTwoThreadsInviteEachOther) {
    std::atomic<int> ready{0};
    auto const play = [&](std::string const& me, std::string const& other) {
        Party party(service, me, KvMainQueue::create());
        EXPECT_TRUE(party.person.login());
        ++ready;
        EXPECT_TRUE(runUntil(*party.person.queue, [&] { return ready == 2; }));
        for (int round = 0; round < 10; ++round) {
            auto const mine = KvPimInvitation::initWithInviter(me, other);
            party.succeeds(&KvPimInvitationKit::sendInvitation, mine);
            party.succeeds(&KvPimInvitationKit::refuseInvitation, party.hears("arrived"));
            EXPECT_EQ(party.hears("refused"), mine);
        }
    };
    std::thread dora(play, "dora", "eve");
    play("eve", "dora");
    dora.join();
}

TEST_F(InvitationTest, ATimerOutlivesItsClientQuietly) {
    send();
    std::weak_ptr<KvPimInvitationKit> const kit = alice.kit;
    alice.kit.reset();
    alice.person.kit.reset();
    queue->advance(61s);
    EXPECT_TRUE(alice.heard.empty());
    bob.kit.reset();
    EXPECT_TRUE(kit.expired());
}

TEST_F(InvitationTest, ANoticeBeforeTheKitIsDropped) {
    Person carol(service.url(), "carol", queue);
    ASSERT_TRUE(carol.login());
    service.emit("carol", "InvitationNotify", {{"invitation", {{"inviter", "x"}, {"invitee", "carol"}, {"state", 2}}}});
    EXPECT_EQ(carol.codeOf([&](auto done) { carol.kit->subscribePeersOnlineStatus({"x"}, done); }), 0);
    KvPimInvitation probe;
    probe.inviter = "x";
    probe.invitee = "carol";
    EXPECT_EQ(KvInvitationStore::shared().getInvitation(probe, *carol.kit->getPimInvitationKit()), nullptr);
}

}  // namespace
}  // namespace kv::test
