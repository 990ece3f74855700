// Every operation against every outcome: each has its own codes.
#include "Operations.h"
#include "Person.h"

#include <map>

namespace kv::test {
namespace {

struct Outcome {
    std::optional<std::int64_t> tooMany, noAck;  // for those texts; absent where the result alone counts
    std::map<int, std::int64_t> codes;           // of server results; any other gives `otherwise`
    std::int64_t otherwise;
    int timeout = 6;
    bool refusalBeatsSuccess = false;
};

Outcome const& outcomeOf(Call const& request) {
    static std::map<std::string, Outcome> const outcomes{
        {"join", {std::nullopt, 4, {{3, 3}, {5, 5}, {6, 6}}, 1}},
        {"leave", {std::nullopt, std::nullopt, {{6, 3}}, 1}},
        {"getChannelMembers", {4, 3, {{5, 5}}, 1}},
        {"sendChannelMessage", {3, 2, {{4, 4}, {5, 5}}, 1}},
        {"setChannelAttributes", {5, 7, {{4, 4}}, 2, 6, true}},
        {"addOrUpdateChannelAttributes", {5, 7, {{4, 4}}, 2, 6, true}},
        {"deleteChannelAttributesByKeys", {5, 7, {{4, 4}}, 2, 6, true}},
        {"clearChannelAttributes", {5, 7, {{4, 4}}, 2, 6, true}},
        {"getChannelAttributes", {5, 7, {}, 2}},
        {"getChannelAttributesByKeys", {5, 7, {{3, 3}}, 2}},
        {"getChannelMemberCount", {3, 4, {{2, 2}, {5, 5}}, 1}},
        {"setLocalUserAttributes", {5, 7, {{4, 4}}, 2}},
        {"addOrUpdateLocalUserAttributes", {5, 7, {{4, 4}}, 2}},
        {"deleteLocalUserAttributesByKeys", {5, 7, {}, 2}},
        {"clearLocalUserAttributes", {5, 7, {}, 2, 10}},
        {"getUserAttributes", {5, 7, {{6, 6}}, 2}},
        {"getUserAttributesByKeys", {5, 7, {{6, 6}}, 2}},
        {"subscribePeersUserAttributes", {5, 4, {{6, 6}}, 1}},
        {"unsubscribePeersUserAttributes", {5, 4, {}, 1}},
        {"getPeersUserAttributes", {5, 4, {}, 1}},
        {"getPeersUserAttributesByKeys", {5, 4, {}, 1}},
        {"subscribePeersOnlineStatus", {5, 4, {{6, 6}}, 1}},
        {"unsubscribePeersOnlineStatus", {5, 4, {}, 1}},
        {"queryPeersOnlineStatus", {5, 4, {}, 1}},
        {"queryPeersBySubscriptionOption", {5, 4, {}, 1}},
        {"sendMessageToPeer", {5, 2, {{3, 3}, {4, 4}, {6, 6}, {7, 7}}, 1}},
        {"invitationOp", {std::nullopt, 1, {{3, 3}, {4, 4}}, 0, 6, true}},
    };
    return outcomes.at(request.command);
}

class OperationTest : public testing::Test {
protected:
    Service service;
    std::shared_ptr<KvMainQueue> queue = service.queue();
    Person alice{service, "alice", Engine::mainQueue};
};

TEST_F(OperationTest, EachOutcomeHasTheOperationsOwnCode) {
    ASSERT_TRUE(alice.login());
    auto const channel = alice.join("c");
    for (auto const& request : kCalls) {
        auto const& outcome = outcomeOf(request);
        auto const answered = [&](json::value const& items) {
            if (!channel->isInChannel()) alice.join("c");  // a leave that worked would refuse what comes after it
            service.answerNext(request.command, json::serialize(items));
            return alice.codeOf([&](Done done) { request.start(*alice.kit, *channel, done); });
        };
        EXPECT_EQ(answered(json::array{{{"result", 0}}}), 0) << request.name;
        EXPECT_EQ(answered(json::array{"done", {{"result", "0"}}}), 0) << request.name;
        for (auto const& [text, refusal] :
             {std::pair("Too Many Requests", outcome.tooMany), std::pair("NO ACK", outcome.noAck)}) {
            EXPECT_EQ(answered(json::array{text}), refusal.value_or(outcome.otherwise)) << request.name;
            EXPECT_EQ(answered(json::array{text, {{"result", 0}}}),
                      outcome.refusalBeatsSuccess ? refusal.value_or(0) : 0)
                << request.name;
            for (auto const& [result, code] : outcome.codes) {
                EXPECT_EQ(answered(json::array{text, {{"result", result}}}), refusal.value_or(code)) << request.name;
            }
        }
        for (int result = 1; result <= 9; ++result) {
            auto const own = outcome.codes.find(result);
            EXPECT_EQ(answered(json::array{{{"result", result}}}),
                      own != outcome.codes.end() ? own->second : outcome.otherwise)
                << request.name << ' ' << result;
        }
        for (json::value const& odd :
             {json::value(json::array()), json::value(json::array{"?"}), json::value(json::array{7})}) {
            EXPECT_EQ(answered(odd), outcome.otherwise) << request.name << ' ' << odd;
        }
    }
}

TEST_F(OperationTest, SilenceEndsAtTheTimeOutAndNotBefore) {
    ASSERT_TRUE(alice.login());
    auto const channel = alice.join("c");
    for (auto const& request : kCalls) {
        auto const& outcome = outcomeOf(request);
        service.ignoreNext(request.command);
        std::int64_t code = -1;
        request.start(*alice.kit, *channel, [&](std::int64_t result) { code = result; });
        queue->advance(std::chrono::seconds(outcome.timeout) - std::chrono::milliseconds(1));
        EXPECT_EQ(code, -1) << request.name;
        queue->advance(std::chrono::milliseconds(1));
        EXPECT_EQ(code, outcome.noAck.value_or(outcome.otherwise)) << request.name;
    }
}

TEST_F(OperationTest, WithoutALoginNothingIsSent) {
    auto const channel = alice.kit->createChannelWithId("c", {});
    for (auto const& request : kCalls) {
        std::int64_t code = -1;
        request.start(*alice.kit, *channel, [&](std::int64_t result) { code = result; });
        EXPECT_EQ(code, 102) << request.name;
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
             {"text, not joined", 5, [&](Done d) { channel->sendMessage("x", d); }},
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
    service.settle();
    EXPECT_TRUE(service.requests().empty());
    for (char const* id : {"", "a/b", "a\"b", "caf\xC3\xA9"}) EXPECT_EQ(kit.createChannelWithId(id, {}), nullptr) << id;
    EXPECT_NE(kit.createChannelWithId(std::string(63, ' ') + "\t", {}), nullptr);
    EXPECT_NE(kit.createChannelWithId("[\\]^_{}|~,!#$%&()+-:;<=.>?@", {}), nullptr);
}

// In a callback the client is still there for the application that has let go of it.
TEST_F(OperationTest, WhatIsRefusedInTheLastCallbackIsAnsweredToo) {
    std::vector<std::int64_t> codes;
    alice.delegate->messageReceived = [&](KvPimKit& kit, auto, auto&) {
        auto const done = [&](auto const&, std::int64_t code) { codes.push_back(code); };
        alice.kit.reset();
        kit.getPeersUserAttributes({}, done);
        kit.getPeersUserAttributesByKeys(kIds, {}, done);
    };
    ASSERT_TRUE(alice.login());
    alice.kit->sendMessageToPeer("x", "alice", [](std::int64_t) {});
    EXPECT_TRUE(runUntil(*queue, [&] { return !alice.kit; }));
    EXPECT_EQ(codes, (std::vector<std::int64_t>{2, 2}));
}

TEST_F(OperationTest, LongMessagesAreReportedAndSentAllTheSame) {
    ASSERT_TRUE(alice.login());
    auto const channel = alice.join("c");
    auto const message = [](std::size_t text, std::size_t data) {
        return std::make_shared<KvPimRawMessage>(makeData(std::string(data, 'd')), std::string(text, 't'));
    };
    struct Case {
        std::size_t text, data;
        std::vector<std::int64_t> toPeer, toChannel;
    };
    for (auto const& c : std::vector<Case>{
             {32768, 32768, {0}, {0}}, {32769, 1, {7, 7}, {4, 4}}, {32769, 32769, {7, 7, 7}, {4, 4, 4}}}) {
        std::vector<std::int64_t> toPeer, toChannel;
        alice.kit->sendMessageToPeer(message(c.text, c.data), "alice", {}, [&](auto code) { toPeer.push_back(code); });
        channel->sendMessage(message(c.text, c.data), [&](std::int64_t code) { toChannel.push_back(code); });
        EXPECT_TRUE(runUntil(
            *queue, [&] { return toPeer.size() >= c.toPeer.size() && toChannel.size() >= c.toChannel.size(); }));
        EXPECT_EQ(toPeer, c.toPeer);
        EXPECT_EQ(toChannel, c.toChannel);
    }
}

}  // namespace
}  // namespace kv::test
