// What the service of the test kit can be made to do, each by one call: the client has everything back afterwards.
#include "Session.h"

namespace kv::test {
namespace {

struct Misfortune {
    char const* name;
    void (*happen)(Service& service, Session& session);
    bool forgets = false;  // the service has lost its memory
};

// The next connections break where they are being made.
template <Moment moment, Break how>
void breakOnTheWayBack(Service& service, Session&) {
    service.breakNextAt(moment, how, 2);
    service.cut("alice");
}

// The present one breaks in what is sent next.
template <Moment moment, Break how>
void breakHere(Service& service, Session& session) {
    service.breakNextAt(moment, how);
    session.alice.kit->getUserAttributes("bob", [](auto const&, auto const&, std::int64_t) {});
    service.settle();
    if (moment == Moment::answer) return;
    service.emit("alice", "MessageToPeerReceived",
                 R"([{"msgs":[{"fromUserId":"x","content":{"binary":{"_placeholder":true,"num":0}}}]}])", {"bytes"});
}

Misfortune const kMisfortunes[] = {
    {"Cut", [](Service& service, Session&) { service.cut("alice"); }},
    {"Restarted", [](Service& service, Session&) { service.restart(); }, true},
    {"AwayForAWhile",
     [](Service& service, Session& session) {
         service.stop();
         service.clock().advance(20s);
         EXPECT_EQ(session.alice.kit->stateManager().state, KvPimConnectionStateReconnecting);
         service.start();
     },
     true},
    {"RefusedThreeTimes",
     [](Service& service, Session&) {
         service.refuseNextConnection(3);
         service.cut("alice");
     }},
    {"Frozen",
     [](Service& service, Session& session) {
         service.freeze("alice");
         service.clock().advance(44s);
         EXPECT_TRUE(session.isConnected());
         service.clock().advance(2s);
     }},
    {"CutInTheUpgrade", breakOnTheWayBack<Moment::upgrade, Break::cut>},
    {"SilentInTheUpgrade", breakOnTheWayBack<Moment::upgrade, Break::silence>},
    {"CutInTheOpening", breakOnTheWayBack<Moment::opening, Break::cut>},
    {"SilentInTheOpening", breakOnTheWayBack<Moment::opening, Break::silence>},
    {"CutInTheLogin", breakOnTheWayBack<Moment::login, Break::cut>},
    {"SilentInTheLogin", breakOnTheWayBack<Moment::login, Break::silence>},
    {"CutInAnEvent", breakHere<Moment::event, Break::cut>},
    {"SilentInAnEvent", breakHere<Moment::event, Break::silence>},
    {"CutInAnAnswer", breakHere<Moment::answer, Break::cut>},
    {"SilentInAnAnswer", breakHere<Moment::answer, Break::silence>},
    {"CutBeforeAnAttachment", breakHere<Moment::attachment, Break::cut>},
    {"Dismissed", [](Service& service, Session&) { service.disconnect("alice", "ExpireSession"); }},
    {"Closed", [](Service& service, Session&) { service.close("alice", 1001, "going away"); }},
    {"BytesThatAreNoFrame", [](Service& service, Session&) { service.sendBytes("alice", "\xFF\xFF\xFF\xFF"); }},
    {"OneByteAtATime",
     [](Service& service, Session&) {
         service.sendInPieces(1);
         service.cut("alice");
     }},
};

class Kit : public testing::TestWithParam<Misfortune> {};
INSTANTIATE_TEST_SUITE_P(Faults, Kit, testing::ValuesIn(kMisfortunes),
                         [](auto const& instance) { return std::string(instance.param.name); });

TEST_P(Kit, TheClientHasEverythingBackAfter) {
    Service service;
    Session session(service, Engine::mainQueue);
    ASSERT_TRUE(session.begin());
    ASSERT_EQ(session.difference(service), "");
    GetParam().happen(service, session);
    service.clock().advance(2min);
    session.expectRestored(service, GetParam().forgets);
    EXPECT_EQ(session.alice.states, (States{{4, 5}, {3, 2}}));
}

TEST(TestKit, RefusesWhatMakesNoSense) {
    Service service;
    EXPECT_THROW(service.refuseNext("jion", 3), std::invalid_argument);
    EXPECT_THROW(service.ignoreNext("join", 0), std::invalid_argument);
    EXPECT_THROW(service.answerNext("join", "7"), std::invalid_argument);
    EXPECT_THROW(service.cut("nobody"), std::invalid_argument);
    auto const port = service.listen();
    EXPECT_THROW(Service().listen(static_cast<std::uint16_t>(std::stoi(port.substr(port.rfind(':') + 1)))),
                 std::runtime_error);
}

TEST(TestKit, RequestsMayBeLateTooManyOrOneTooManyForTheService) {
    Service service({.rateLimit = 3, .users = {{"alice", kToken}}});
    Person alice(service, "alice", Engine::mainQueue), eve(service, "eve", Engine::mainQueue);
    ASSERT_TRUE(alice.login());
    EXPECT_EQ(eve.codeOf([&](auto done) { eve.kit->loginByToken(kToken, 1, "eve", done); }), 7);
    std::vector<std::int64_t> codes;
    auto const ask = [&] {
        alice.kit->getUserAttributes("bob", [&](auto&, auto&, std::int64_t code) { codes.push_back(code); });
    };
    service.delayNext("getUserAttributes", 2s);
    for (int i = 0; i < 4; ++i) ask();
    service.settle();
    EXPECT_EQ(codes, (std::vector<std::int64_t>{6, 6, 5}));
    service.clock().advance(2s);
    EXPECT_EQ(codes, (std::vector<std::int64_t>{6, 6, 5, 6}));
    EXPECT_EQ(service.requests("getUserAttributes", "alice").back().payload, R"({"userId":"bob"})");
}

// A client that outlives the service finds nobody; and so does one of another service's address.
TEST(TestKit, EndsBeforeItsClients) {
    auto service = std::make_optional<Service>();
    auto const queue = service->queue();
    Person alice(*service, "alice", Engine::mainQueue);
    ASSERT_TRUE(alice.login());
    service.reset();
    queue->advance(1min);
    EXPECT_EQ(alice.states, (States{{2, 1}, {3, 2}, {4, 5}}));
    EXPECT_EQ(alice.kit->stateManager().state, KvPimConnectionStateReconnecting);
}

}  // namespace
}  // namespace kv::test
