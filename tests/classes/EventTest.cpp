// What the server pushes, well-formed and not, and who hears of it.
#include "Person.h"

namespace kv::test {
namespace {

template <class Delegate>
concept IsTaken = requires(Delegate&& delegate) {
    KvPimKit::initWithAppId("app", std::forward<Delegate>(delegate));
};
static_assert(IsTaken<std::shared_ptr<KvPimDelegate>&> && IsTaken<std::weak_ptr<KvPimDelegate>>);
static_assert(!IsTaken<std::shared_ptr<KvPimDelegate>>, "nobody would keep it");

class EventTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(alice.login());
        auto const say = [this](std::string line) { heard.push_back(std::move(line)); };
        auto const sayAttributes = [say](std::string line, auto const& all, auto const& isDeleted) {
            for (auto const& a : all) line += (isDeleted(a) ? " -" : " ") + a.key + "=" + a.value.value_or("null");
            say(line);
        };
        listener->memberJoined = [=](auto& c, auto& m) { say(c.channelId() + " joined " + m.userId); };
        listener->memberLeft = [=](auto& c, auto& m) { say(c.channelId() + " left " + m.userId); };
        listener->memberLeftWithReason = [=](auto&, auto&, auto reason) { say("reason " + std::to_string(reason)); };
        listener->messageReceived = [=](auto&, auto m, auto& from) {
            say(from.userId + (m->type() == KvPimMessageTypeRaw ? " raw " : " text ") + m->text.value_or("-") + " " +
                std::to_string(m->serverReceivedTs));
        };
        listener->attributeUpdate = [=](auto& c, auto& all) {
            sayAttributes(c.channelId() + " has", all, [](auto&) { return false; });
        };
        listener->memberCount = [=](auto& c, auto count) { say(c.channelId() + " counts " + std::to_string(count)); };
        alice.delegate->messageReceived = [=](auto&, auto m, auto& from) { say(from + " says " + *m->text); };
        alice.delegate->peersOnlineStatusChanged = [=](auto&, auto& changed) {
            for (auto const& peer : changed) say(peer.peerId + (peer.isOnline ? " is online" : " is offline"));
        };
        alice.delegate->peersUserAttributesChanged = [=](auto&, auto& changed) {
            for (auto const& user : changed)
                sayAttributes(user.userId + " has", *user.attributes, [](auto& a) { return a.deleted; });
        };
        channel = alice.kit->createChannelWithId("c", listener);
    }

    /// What is heard of an event; a message behind it tells that it has arrived.
    std::vector<std::string> heardOf(std::string const& event, json::value const& item) {
        heard.clear();
        service.emit("alice", event, item);
        service.emit("alice", "MessageToPeerReceived",
                     json::parse(R"({"msgs":[{"fromUserId":"mark","content":{"text":"end"}}]})"));
        EXPECT_TRUE(runUntil(*queue, [&] { return !heard.empty() && heard.back() == "mark says end"; })) << event;
        heard.pop_back();
        return heard;
    }

    LocalService service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create();
    Person alice{service.url(), "alice", queue};
    std::shared_ptr<KvPimChannelDelegate> listener = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimChannel> channel;
    std::vector<std::string> heard;
};

TEST_F(EventTest, AreHeardAsTheTranscriptHasIt) {
    std::vector<std::string> told, wanted;
    auto transcript = linesOf(EVENTS_TRANSCRIPT);
    transcript.emplace_back("> End {}");
    for (auto const& line : transcript) {
        if (line.starts_with("< ")) wanted.push_back(line.substr(2));
        if (!line.starts_with("> ")) continue;
        ASSERT_EQ(told, std::exchange(wanted, {})) << "before " << line;
        auto const at = line.find(' ', 2);
        told = heardOf(line.substr(2, at - 2), json::parse(line.substr(at)));
    }
}

TEST_F(EventTest, AStatusIsToldAgainToWhoHasUnsubscribed) {
    json::value const online{{"status", {{"a", 0}}}};
    EXPECT_EQ(heardOf("PeersOnlineStatusChanged", online).size(), 1u);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->unsubscribePeersOnlineStatus({"a"}, done); }), 0);
    EXPECT_EQ(heardOf("PeersOnlineStatusChanged", online).size(), 1u);
}

// Nobody can make a client remember without end. What it subscribed to it does remember.
TEST_F(EventTest, ACrowdOfStrangersIsToldAndForgotten) {
    auto const told = [&](json::object const& status) {
        return heardOf("PeersOnlineStatusChanged", {{"status", status}}).size();
    };
    EXPECT_EQ(told({{"stranger", 0}, {"friend", 1}}), 2u);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->subscribePeersOnlineStatus({"friend"}, done); }), 0);
    EXPECT_EQ(told({{"stranger", 0}, {"friend", 1}}), 0u);
    json::object crowd;
    for (int peer = 0; peer < 10000; ++peer) crowd["peer" + std::to_string(peer)] = 0;
    EXPECT_EQ(told(crowd), 10000u);
    EXPECT_EQ(told({{"stranger", 0}, {"friend", 1}}), 1u);
}

TEST_F(EventTest, AnswersWithPartsMissingAreReadAsEmpty) {
    using Users = std::vector<KvPimUserAttributes>;
    auto const usersOf = [&](char const* response) {
        std::optional<Users> users;
        service.answer("getPeersUserAttributes", json::array{json::parse(response)});
        alice.codeOf([&](auto done) {
            alice.kit->getPeersUserAttributes({"u"}, [&users, done](auto const& given, std::int64_t code) {
                users = given;
                done(code);
            });
        });
        return users;
    };
    EXPECT_EQ(usersOf(R"({"result":0})"), Users{});
    EXPECT_EQ(usersOf(R"({"result":0,"attributes":[]})"), Users{});
    EXPECT_EQ(usersOf(R"({"result":0,"attributes":{"u":{"result":3,"attributes":{"a":"1"}},"v":{"result":0}}})"),
              (Users{{"u", std::nullopt}, {"v", std::vector<KvPimAttributeWithState>{}}}));
    EXPECT_EQ(usersOf(R"({"result":1,"attributes":{}})"), std::nullopt);

    service.answer("queryPeersOnlineStatus",
                   json::array{json::parse(R"({"result":0,"status":{"a":1,"b":false,"c":null}})")});
    std::optional<std::vector<KvPimPeerOnlineStatus>> statuses;
    alice.kit->queryPeersOnlineStatus({"a"}, [&](auto const& given, std::int64_t) { statuses = given; });
    EXPECT_TRUE(runUntil(*queue, [&] { return statuses.has_value(); }));
    EXPECT_EQ(statuses, (std::vector<KvPimPeerOnlineStatus>{{"a", true}, {"b", false}, {"c", false}}));
}

}  // namespace
}  // namespace kv::test
