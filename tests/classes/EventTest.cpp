// What the server pushes, well-formed and not, and who hears of it.
#include "Person.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>

namespace kv::test {
namespace {

template <class Delegate>
concept IsTaken = requires(Delegate&& delegate) {
    KvPimKit::initWithAppId("app", std::forward<Delegate>(delegate));
};
static_assert(IsTaken<std::shared_ptr<KvPimDelegate>&> && IsTaken<std::weak_ptr<KvPimDelegate>>);
static_assert(!IsTaken<std::shared_ptr<KvPimDelegate>>, "nobody would keep it");

namespace json = boost::json;

class EventTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(alice.login());
        listener->memberJoined = [this](KvPimChannel& c, KvPimMember const& m) {
            heard.push_back(c.channelId() + " joined " + m.userId);
        };
        listener->memberLeft = [this](KvPimChannel& c, KvPimMember const& m) {
            heard.push_back(c.channelId() + " left " + m.userId);
        };
        listener->memberLeftWithReason = [this](KvPimChannel&, KvPimMember const&, std::int64_t reason) {
            heard.push_back("reason " + std::to_string(reason));
        };
        listener->messageReceived = [this](KvPimChannel&, auto const& m, KvPimMember const& from) {
            heard.push_back(from.userId + (m->type() == KvPimMessageTypeRaw ? " raw " : " text ") +
                            m->text.value_or("-") + " " + std::to_string(m->serverReceivedTs));
        };
        listener->attributeUpdate = [this](KvPimChannel& c, std::vector<KvPimAttribute> const& all) {
            std::string line = c.channelId() + " has";
            for (auto const& attribute : all) line += " " + attribute.key + "=" + attribute.value.value_or("null");
            heard.push_back(line);
        };
        listener->memberCount = [this](KvPimChannel& c, std::int32_t count) {
            heard.push_back(c.channelId() + " counts " + std::to_string(count));
        };
        channel = alice.kit->createChannelWithId("c", listener);
    }

    /// What is heard of an event; a message to oneself behind it tells that it has arrived.
    std::vector<std::string> heardOf(std::string const& event, json::value const& item) {
        heard.clear();
        service.emit("alice", event, item);
        auto const before = alice.messages.size();
        service.emit("alice", "MessageToPeerReceived",
                     json::parse(R"({"msgs":[{"fromUserId":"mark","content":{"text":"end"}}]})"));
        EXPECT_TRUE(runUntil(*queue, [&] {
            return alice.messages.size() > before && alice.messages.back().first == "mark";
        })) << event;
        alice.messages.pop_back();
        return heard;
    }

    Service service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create();
    Person alice{service.url(), "alice", queue};
    std::shared_ptr<KvPimChannelDelegate> listener = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimChannel> channel;
    std::vector<std::string> heard;
};

TEST_F(EventTest, ChannelEventsReachTheirChannel) {
    struct Case {
        char const* event;
        char const* item;
        std::vector<std::string> want;
    };
    for (
        auto const& c : std::vector<Case>{
            {"MemberJoined", R"({"channelId":"c","userId":"bob"})", {"c joined bob"}},
            {"MemberJoined", R"({"channelId":"other","userId":"bob"})", {}},
            {"MemberLeft", R"({"channelId":"c","userId":"bob","reason":"Quit"})", {"c left bob", "reason 1"}},
            {"MemberLeft", R"({"channelId":"c","userId":"bob","reason":"Disconnect"})", {"c left bob", "reason 2"}},
            {"MemberLeft", R"({"channelId":"c","userId":"bob","reason":7})", {"c left bob", "reason 0"}},
            {"ChannelMessageReceived",
             R"({"from":{"channelId":"c","userId":"bob"},"serverReceivedTs":1700.9,"content":{"text":"x","binary":null}})",
             {"bob text x 1700"}},
            {"ChannelMessageReceived",
             R"({"from":{"channelId":"c","userId":"bob"},"serverReceivedTs":-3.7,"content":{"binary":{"$base64":"AAE="}}})",
             {"bob raw - -3"}},
            {"ChannelMessageReceived",
             R"({"from":{"channelId":"c","userId":"bob"},"serverReceivedTs":"12","content":{"text":"x","binary":{"_placeholder":true,"num":0}}})",
             {"bob text x 12"}},
            {"ChannelMessageReceived", R"({"from":{"channelId":"c","userId":"bob"},"content":{"binary":7}})", {}},
            {"ChannelAttributesUpdated", R"({"channelId":"c","attributes":{"b":"2","a":"1"}})", {"c has b=2 a=1"}},
            {"ChannelAttributesUpdated", R"({"channelId":"c","attributes":{"b":2,"a":"1"}})", {"c has a=1"}},
            {"ChannelAttributesUpdated", R"({"channelId":"c"})", {"c has"}},
            {"ChannelMemberCount", R"({"counts":{"c":3,"z":9}})", {"c counts 3"}},
            {"ChannelMemberCount", R"({"counts":{"c":"7"}})", {"c counts 7"}},
            {"ChannelMemberCount", R"({"counts":{"c":1e300}})", {"c counts 2147483647"}},
            {"ChannelMemberCount", R"({"counts":[]})", {"c counts 0"}},
        }) {
        EXPECT_EQ(heardOf(c.event, json::parse(c.item)), c.want) << c.event << ' ' << c.item;
    }
}

TEST_F(EventTest, AUselessMessageEndsItsBatch) {
    heardOf("MessageToPeerReceived", json::parse(R"({"msgs":[
        {"fromUserId":"bob","serverReceivedTs":1,"content":{"text":"first"}},
        {"fromUserId":"bob","content":{"text":null,"binary":null}},
        {"fromUserId":"bob","content":{"text":"third"}}]})"));
    ASSERT_EQ(alice.messages.size(), 1u);
    EXPECT_EQ(alice.messages[0].second->text, "first");
}

TEST_F(EventTest, OnlyRealChangesOfStatusAreTold) {
    auto const push = [&](char const* status) {
        alice.statuses.clear();
        heardOf("PeersOnlineStatusChanged", json::parse(status));
        return alice.statuses;
    };
    using Statuses = std::vector<KvPimPeerOnlineStatus>;
    EXPECT_EQ(push(R"({"status":{"a":0}})"), (Statuses{{"a", true}}));
    EXPECT_EQ(push(R"({"status":{"a":0}})"), Statuses{});
    EXPECT_EQ(push(R"({"status":{"a":1,"b":0}})"), (Statuses{{"a", false}, {"b", true}}));
    for (char const* odd : {R"({"status":{}})", R"({"status":{"a":null,"b":{},"c":"0","d":false}})",
                            R"({"status":{"$base64":"AAE="}})"}) {
        EXPECT_EQ(push(odd), Statuses{}) << odd;
    }
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->unsubscribePeersOnlineStatus({"a"}, done); }), 0);
    EXPECT_EQ(push(R"({"status":{"a":1}})"), (Statuses{{"a", false}}));
}

// Nobody can make a client remember without end. What it subscribed to it does remember.
TEST_F(EventTest, ACrowdOfStrangersIsToldAndForgotten) {
    auto const told = [&](json::object const& status) {
        alice.statuses.clear();
        heardOf("PeersOnlineStatusChanged", {{"status", status}});
        return alice.statuses.size();
    };
    EXPECT_EQ(told({{"stranger", 0}, {"friend", 1}}), 2u);
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->subscribePeersOnlineStatus({"friend"}, done); }), 0);
    alice.statuses.clear();
    EXPECT_EQ(told({{"stranger", 0}, {"friend", 1}}), 0u);
    json::object crowd;
    for (int peer = 0; peer < 10000; ++peer) crowd["peer" + std::to_string(peer)] = 0;
    EXPECT_EQ(told(crowd), 10000u);
    EXPECT_EQ(told({{"stranger", 0}, {"friend", 1}}), 1u);
}

TEST_F(EventTest, DeletedAttributesAreMarked) {
    heardOf("PeersUserAttributesChanged",
            json::parse(R"({"attributes":{"u":{"attributes":{"a":"1","b":"!!&@#DELETED#@&!!","c":null}}}})"));
    ASSERT_EQ(alice.attributes.size(), 1u);
    KvPimUserAttributes const want{"u", {{{{"a", "1"}, false}, {{"b", ""}, true}, {{"c", std::nullopt}, false}}}};
    EXPECT_EQ(alice.attributes[0], want);
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
