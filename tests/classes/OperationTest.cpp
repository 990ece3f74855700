// Every operation against every outcome: each has its own codes.
#include "Person.h"

#include <map>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace kv::test {
namespace {

namespace json = boost::json;
using Done = KvPimKit::Completion const&;

/// What a completion hears of answers.
struct Codes {
    std::int64_t tooMany, noAck;
    std::map<int, std::int64_t> results;  // of the server; any other gives `otherwise`
    std::int64_t otherwise;
    bool refusalBeatsSuccess = false;
};

struct Operation {
    char const* command;
    Codes codes;
    std::function<void(Person&, KvPimChannel&, Done)> start;
    int timeout = 6;
};

auto codeOnly(Done done) {
    return [done](auto const&, std::int64_t code) { done(code); };
}
auto codeOfUser(Done done) {
    return [done](auto const&, std::string const&, std::int64_t code) { done(code); };
}

std::vector<KvPimAttribute> const kAttributes{{"k", "v"}};
std::vector<std::string> const kIds{"bob"};

std::vector<Operation> operations() {
    Codes const writeChannel{5, 7, {{4, 4}}, 2, true};
    Codes const writeOwn{5, 7, {{4, 4}}, 2};
    Codes const readUser{5, 7, {{6, 6}}, 2};
    Codes const subscribe{5, 4, {{6, 6}}, 1};
    Codes const otherPeers{5, 4, {}, 1};
    return {
        {"join",
         {1, 4, {{3, 3}, {5, 5}, {6, 6}}, 1},
         [](Person&, KvPimChannel& c, Done d) { c.joinWithCompletion(d); }},
        {"leave", {1, 1, {{6, 3}}, 1}, [](Person&, KvPimChannel& c, Done d) { c.leaveWithCompletion(d); }},
        {"getChannelMembers",
         {4, 3, {{5, 5}}, 1},
         [](Person&, KvPimChannel& c, Done d) { c.getMembersWithCompletion(codeOnly(d)); }},
        {"sendChannelMessage",
         {3, 2, {{4, 4}, {5, 5}}, 1},
         [](Person&, KvPimChannel& c, Done d) { c.sendMessage(std::make_shared<KvPimMessage>("x"), {}, d); }},
        {"setChannelAttributes", writeChannel,
         [](Person& p, KvPimChannel&, Done d) { p.kit->setChannelAttributes("c", kAttributes, {}, d); }},
        {"addOrUpdateChannelAttributes", writeChannel,
         [](Person& p, KvPimChannel&, Done d) { p.kit->addOrUpdateChannelAttributes("c", kAttributes, {}, d); }},
        {"deleteChannelAttributesByKeys", writeChannel,
         [](Person& p, KvPimChannel&, Done d) { p.kit->deleteChannelAttributesByKeys("c", {"k"}, {}, d); }},
        {"clearChannelAttributes", writeChannel,
         [](Person& p, KvPimChannel&, Done d) { p.kit->clearChannelAttributes("c", {}, d); }},
        {"getChannelAttributes",
         {5, 7, {}, 2},
         [](Person& p, KvPimChannel&, Done d) { p.kit->getChannelAttributes("c", codeOnly(d)); }},
        {"getChannelAttributesByKeys",
         {5, 7, {{3, 3}}, 2},
         [](Person& p, KvPimChannel&, Done d) { p.kit->getChannelAttributesByKeys("c", {"k"}, codeOnly(d)); }},
        {"getChannelMemberCount",
         {3, 4, {{2, 2}, {5, 5}}, 1},
         [](Person& p, KvPimChannel&, Done d) { p.kit->getChannelMemberCount({"c"}, codeOnly(d)); }},
        {"setLocalUserAttributes", writeOwn,
         [](Person& p, KvPimChannel&, Done d) { p.kit->setLocalUserAttributes(kAttributes, d); }},
        {"addOrUpdateLocalUserAttributes", writeOwn,
         [](Person& p, KvPimChannel&, Done d) { p.kit->addOrUpdateLocalUserAttributes(kAttributes, d); }},
        {"deleteLocalUserAttributesByKeys",
         {5, 7, {}, 2},
         [](Person& p, KvPimChannel&, Done d) { p.kit->deleteLocalUserAttributesByKeys({"k"}, d); }},
        {"clearLocalUserAttributes",
         {5, 7, {}, 2},
         [](Person& p, KvPimChannel&, Done d) { p.kit->clearLocalUserAttributesWithCompletion(d); },
         10},
        {"getUserAttributes", readUser,
         [](Person& p, KvPimChannel&, Done d) { p.kit->getUserAttributes("bob", codeOfUser(d)); }},
        {"getUserAttributesByKeys", readUser,
         [](Person& p, KvPimChannel&, Done d) { p.kit->getUserAttributesByKeys("bob", {"k"}, codeOfUser(d)); }},
        {"subscribePeersUserAttributes", subscribe,
         [](Person& p, KvPimChannel&, Done d) { p.kit->subscribePeersUserAttribes(kIds, d); }},
        {"unsubscribePeersUserAttributes", otherPeers,
         [](Person& p, KvPimChannel&, Done d) { p.kit->unsubscribePeersUserAttribes(kIds, d); }},
        {"getPeersUserAttributes", otherPeers,
         [](Person& p, KvPimChannel&, Done d) { p.kit->getPeersUserAttributes(kIds, codeOnly(d)); }},
        {"getPeersUserAttributesByKeys", otherPeers,
         [](Person& p, KvPimChannel&, Done d) { p.kit->getPeersUserAttributesByKeys(kIds, {"k"}, codeOnly(d)); }},
        {"subscribePeersOnlineStatus", subscribe,
         [](Person& p, KvPimChannel&, Done d) { p.kit->subscribePeersOnlineStatus(kIds, d); }},
        {"unsubscribePeersOnlineStatus", otherPeers,
         [](Person& p, KvPimChannel&, Done d) { p.kit->unsubscribePeersOnlineStatus(kIds, d); }},
        {"queryPeersOnlineStatus", otherPeers,
         [](Person& p, KvPimChannel&, Done d) { p.kit->queryPeersOnlineStatus(kIds, codeOnly(d)); }},
        {"queryPeersBySubscriptionOption", otherPeers,
         [](Person& p, KvPimChannel&, Done d) { p.kit->queryPeersBySubscriptionOption(0, codeOnly(d)); }},
        {"sendMessageToPeer",
         {5, 2, {{3, 3}, {4, 4}, {6, 6}, {7, 7}}, 1},
         [](Person& p, KvPimChannel&, Done d) {
             p.kit->sendMessageToPeer(std::make_shared<KvPimMessage>("x"), "", {}, d);
         }},
        {"invitationOp",
         {0, 1, {{3, 3}, {4, 4}}, 0, true},
         [](Person& p, KvPimChannel&, Done d) {
             p.kit->getPimInvitationKit()->cancelInvitation(KvPimInvitation::initWithInviter("alice", "bob"), d);
         }},
    };
}

class OperationTest : public testing::Test {
protected:
    Service service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Person alice{service.url(), "alice", queue};
};

TEST_F(OperationTest, EachOutcomeHasTheOperationsOwnCode) {
    ASSERT_TRUE(alice.login());
    auto const channel = alice.join("c");
    for (auto const& operation : operations()) {
        auto const answered = [&](json::value const& items) {
            if (!channel->isInChannel()) alice.join("c");  // a leave that worked would refuse what comes after it
            service.answer(operation.command, items);
            return alice.codeOf([&](Done done) { operation.start(alice, *channel, done); });
        };
        EXPECT_EQ(answered(json::array{{{"result", 0}}}), 0) << operation.command;
        EXPECT_EQ(answered(json::array{"done", {{"result", "0"}}}), 0) << operation.command;
        EXPECT_EQ(answered(json::array{"Too Many Requests"}), operation.codes.tooMany) << operation.command;
        auto const both = answered(json::array{"Too Many Requests", {{"result", 0}}});
        EXPECT_EQ(both, operation.codes.refusalBeatsSuccess ? operation.codes.tooMany : 0) << operation.command;
        for (int result = 1; result <= 9; ++result) {
            auto const own = operation.codes.results.find(result);
            EXPECT_EQ(answered(json::array{{{"result", result}}}),
                      own != operation.codes.results.end() ? own->second : operation.codes.otherwise)
                << operation.command << ' ' << result;
        }
        for (json::value const& odd :
             {json::value(json::array()), json::value(json::array{"?"}), json::value(json::array{7})}) {
            EXPECT_EQ(answered(odd), operation.codes.otherwise) << operation.command << ' ' << odd;
        }
    }
}

TEST_F(OperationTest, SilenceEndsAtTheTimeOutAndNotBefore) {
    ASSERT_TRUE(alice.login());
    auto const channel = alice.join("c");
    for (auto const& operation : operations()) {
        auto const sent = [&] {
            auto const state = service.state();
            auto const* count = state.at("commands").as_object().if_contains(operation.command);
            return count == nullptr ? 0 : count->as_int64();
        };
        auto const before = sent();
        service.answer(operation.command, nullptr);
        std::int64_t code = -1;
        operation.start(alice, *channel, [&](std::int64_t result) { code = result; });
        EXPECT_TRUE(runUntil(*queue, [&] { return sent() == before + 1; })) << operation.command;
        queue->advance(std::chrono::seconds(operation.timeout) - std::chrono::milliseconds(1));
        EXPECT_EQ(code, -1) << operation.command;
        queue->advance(std::chrono::milliseconds(1));
        EXPECT_EQ(code, operation.codes.noAck) << operation.command;
    }
}

TEST_F(OperationTest, WithoutALoginNothingIsSent) {
    auto const channel = alice.kit->createChannelWithId("c", {});
    for (auto const& operation : operations()) {
        std::int64_t code = -1;
        operation.start(alice, *channel, [&](std::int64_t result) { code = result; });
        EXPECT_EQ(code, 102) << operation.command;
    }
}

TEST_F(OperationTest, ArgumentsAreRefusedInsideTheCall) {
    ASSERT_TRUE(alice.login());
    auto& kit = *alice.kit;
    auto const channel = kit.createChannelWithId("never joined", {});
    std::string const tooLong(65, 'a');
    struct Case {
        char const* when;
        std::int64_t want;
        std::function<void(Done)> start;
    };
    std::vector<std::string> const many(33, "c");
    auto const foreign = std::make_shared<KvPimInvitation>();
    auto const wordy = std::make_shared<KvPimInvitation>();
    wordy->inviter = wordy->invitee = "alice";
    wordy->responseInfo = std::string(8193, 'x');
    auto const invitations = kit.getPimInvitationKit();
    for (auto const& c : std::vector<Case>{
             {"members, not joined", 5, [&](Done d) { channel->getMembersWithCompletion(codeOnly(d)); }},
             {"message, not joined", 5,
              [&](Done d) { channel->sendMessage(std::make_shared<KvPimMessage>("x"), {}, d); }},
             {"set channel, no attributes", 3, [&](Done d) { kit.setChannelAttributes("c", {}, {}, d); }},
             {"set channel, slash", 3, [&](Done d) { kit.setChannelAttributes("a/b", kAttributes, {}, d); }},
             {"delete channel, no keys", 3, [&](Done d) { kit.deleteChannelAttributesByKeys("c", {}, {}, d); }},
             {"clear channel, too long", 3, [&](Done d) { kit.clearChannelAttributes(tooLong, {}, d); }},
             {"get channel, slash", 3, [&](Done d) { kit.getChannelAttributes("a/b", codeOnly(d)); }},
             {"get channel, no keys", 3, [&](Done d) { kit.getChannelAttributesByKeys("c", {}, codeOnly(d)); }},
             {"counts, none", 2, [&](Done d) { kit.getChannelMemberCount({}, codeOnly(d)); }},
             {"counts, 33", 5, [&](Done d) { kit.getChannelMemberCount(many, codeOnly(d)); }},
             {"counts, third too long", 2,
              [&](Done d) {
                  kit.getChannelMemberCount({"a", "b", tooLong}, codeOnly(d));
              }},
             {"set own, none", 3, [&](Done d) { kit.setLocalUserAttributes({}, d); }},
             {"delete own, none", 3, [&](Done d) { kit.deleteLocalUserAttributesByKeys({}, d); }},
             {"get user, quote", 3, [&](Done d) { kit.getUserAttributes("a\"b", codeOfUser(d)); }},
             {"get user, no keys", 3, [&](Done d) { kit.getUserAttributesByKeys("bob", {}, codeOfUser(d)); }},
             {"subscribe, none", 2, [&](Done d) { kit.subscribePeersUserAttribes({}, d); }},
             {"unsubscribe, empty id", 2, [&](Done d) { kit.unsubscribePeersUserAttribes({""}, d); }},
             {"get peers, no keys", 2, [&](Done d) { kit.getPeersUserAttributesByKeys({"bob"}, {}, codeOnly(d)); }},
             {"status, too long", 2,
              [&](Done d) {
                  kit.subscribePeersOnlineStatus({"bob", tooLong}, d);
              }},
             {"query, not UTF-8", 2, [&](Done d) { kit.queryPeersOnlineStatus({"\xFF"}, codeOnly(d)); }},
             {"invitation of others", 5, [&](Done d) { invitations->sendInvitation(foreign, d); }},
             {"invitation to others", 5, [&](Done d) { invitations->acceptInvitation(foreign, d); }},
             {"no invitation", 5, [&](Done d) { invitations->cancelInvitation(nullptr, d); }},
             {"invitation too long", 2, [&](Done d) { invitations->sendInvitation(wordy, d); }},
         }) {
        std::int64_t code = -1;
        c.start([&](std::int64_t result) { code = result; });
        EXPECT_EQ(code, c.want) << c.when;
    }
    EXPECT_TRUE(service.state().at("commands").as_object().empty());
    for (char const* id : {"", "a/b", "a\"b", "caf\xC3\xA9"}) EXPECT_EQ(kit.createChannelWithId(id, {}), nullptr) << id;
    EXPECT_NE(kit.createChannelWithId(std::string(63, ' ') + "\t", {}), nullptr);
    EXPECT_NE(kit.createChannelWithId("[\\]^_{}|~,!#$%&()+-:;<=.>?@", {}), nullptr);
}

TEST_F(OperationTest, LongMessagesAreReportedAndSentAllTheSame) {
    ASSERT_TRUE(alice.login());
    auto const channel = alice.join("c");
    auto const message = [](std::size_t text, std::size_t data) {
        auto made = std::make_shared<KvPimRawMessage>(makeData(std::string(data, 'd')));
        made->text = std::string(text, 't');
        return made;
    };
    struct Case {
        std::size_t text, data;
        std::vector<std::int64_t> toPeer, toChannel;
    };
    for (auto const& c : std::vector<Case>{
             {32768, 32768, {0}, {0}}, {32769, 1, {7, 7}, {4, 4}}, {32769, 32769, {7, 7, 7}, {4, 4, 4}}}) {
        std::vector<std::int64_t> toPeer, toChannel;
        alice.kit->sendMessageToPeer(message(c.text, c.data), "alice", {}, [&](auto code) { toPeer.push_back(code); });
        channel->sendMessage(message(c.text, c.data), {}, [&](auto code) { toChannel.push_back(code); });
        EXPECT_TRUE(runUntil(
            *queue, [&] { return toPeer.size() >= c.toPeer.size() && toChannel.size() >= c.toChannel.size(); }));
        EXPECT_EQ(toPeer, c.toPeer);
        EXPECT_EQ(toChannel, c.toChannel);
    }
}

}  // namespace
}  // namespace kv::test
