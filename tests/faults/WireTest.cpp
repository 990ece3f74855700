// What may become of the bytes on their way: they come one at a time, stop in the middle of a frame, or are not read.
#include "Relay.h"
#include "Session.h"
#include "SystemCalls.h"

#include <random>
#include <string_view>

namespace kv::test {
namespace {

class Wire : public testing::TestWithParam<KvPimEngine> {};
INSTANTIATE_TEST_SUITE_P(Engines, Wire, testing::Values(KvPimEngine::thread, KvPimEngine::mainQueue), engineName);

TEST_P(Wire, CarriesEverythingOneByteAtATime) {
    Service const service;
    ShortReadsAndWrites const one(1);
    Session session(service.url(), GetParam());
    ASSERT_TRUE(session.begin());
    session.expectRestored(service);
    auto const blob = std::make_shared<KvPimRawMessage>(makeData(std::string(5000, 'x')));
    auto& alice = session.alice;
    alice.messages.clear();
    EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->sendMessageToPeer(blob, "alice", {}, done); }), 0);
    ASSERT_TRUE(session.waitFor([&] { return !alice.messages.empty(); }));
    auto const received = std::dynamic_pointer_cast<KvPimRawMessage>(alice.messages[0].second);
    ASSERT_TRUE(received);
    EXPECT_EQ(*received->rawData, *blob->rawData);
    EXPECT_TRUE(alice.states.empty());
}

TEST_P(Wire, MayBreakInTheMiddleOfEachKindOfFrame) {
    struct Case {
        char const* what;
        std::string_view lastBytes;
    };
    Service const service;
    Relay relay(service.port());
    Session session(relay.url(), GetParam(), Session::Time::manual);
    ASSERT_TRUE(session.begin());
    auto& alice = session.alice;
    for (auto const& c : {Case{"nothing", {}}, Case{"length", {"\x81", 1}},
                          Case{"text",
                               {"\x81\x20"
                                "42[\"Mem",
                                9}},
                          Case{"long text", {"\x81\x7E\x01", 3}},
                          Case{"fragment",
                               {"\x01\x03"
                                "42[",
                                5}},
                          Case{"binary",
                               {"\x82\x05"
                                "ab",
                                4}},
                          Case{"before the attachment",
                               {"\x81\x2F"
                                "451-[\"event\",{\"_placeholder\":true,\"num\":0}]    ",
                                49}},
                          Case{"ping", {"\x89\x04p", 3}}, Case{"close", {"\x88\x05\x03\xE8", 4}}}) {
        SCOPED_TRACE(c.what);
        alice.states.clear();
        int answers = 0;
        service.answer("getUserAttributes", nullptr);
        alice.kit->getUserAttributes("bob", [&](auto const&, auto const&, std::int64_t code) {
            ++answers;
            EXPECT_EQ(code, 7);
        });
        int const broken = relay.broken();
        relay.breakOff(c.lastBytes);
        EXPECT_TRUE(session.waitFor([&] { return relay.broken() > broken && !session.isConnected(); }));
        session.expectRestored(service);
        EXPECT_TRUE(session.waitFor([&] { return answers > 0; }));
        EXPECT_EQ(answers, 1);
        EXPECT_EQ(alice.states, (States{{4, 5}, {3, 2}}));
    }
}

TEST_P(Wire, MayBreakInTheMiddleOfTheHandshake) {
    Service const service;
    Relay relay(service.port());
    Session session(relay.url(), GetParam(), Session::Time::manual);
    ASSERT_TRUE(session.begin());
    relay.breakOff({});
    std::string const answer =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: AA";
    for (std::size_t cut : {std::size_t{0}, std::size_t{1}, std::size_t{12}, answer.size()}) {
        int const broken = relay.broken();
        relay.breakNext(std::string_view(answer).substr(0, cut));
        EXPECT_TRUE(session.waitFor([&] { return relay.broken() > broken; })) << cut;
        EXPECT_FALSE(session.isConnected());
    }
    session.expectRestored(service);
    EXPECT_EQ(session.alice.states, (States{{4, 5}, {3, 2}}));
}

// A service that stands still reads nothing: what waits for it stays within the bound, and the client says so.
TEST_P(Wire, AServiceThatDoesNotReadFillsNoMemory) {
    constexpr std::size_t kMessageBytes = 32768, kMessages = 1500;
    constexpr std::size_t kMostTaken = 16u << 20;  // the bound, and what the kernel holds for both ends
    Service service;
    Session session(service.url(), GetParam(), Session::Time::manual,
                    [](KvPimOptions& options) { options.maxQueuedBytes = 1u << 20; });
    ASSERT_TRUE(session.begin());
    auto& kit = *session.alice.kit;
    std::string bytes(kMessageBytes, '\0');
    std::minstd_rand random;
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);  // or it would be deflated to nothing
    auto const message = std::make_shared<KvPimRawMessage>(makeData(bytes));
    std::size_t answers = 0, unanswered = 0;
    service.freeze();
    kit.setLogFilters(4);
    Printed printed;
    for (std::size_t i = 0; i < kMessages; ++i) {
        kit.sendMessageToPeer(message, "nobody", {}, [&](std::int64_t code) {
            ++answers;
            unanswered += code == 2;
        });
        if (i % 16 == 0) session.alice.queue->poll();
    }
    auto const log = printed.error();
    kit.setLogFilters(0);
    std::size_t dropped = 0;
    std::string_view const line = "kv_pim_error_log:Too much waits to be sent: dropped the event command\n";
    for (auto at = log.find(line); at != std::string::npos; at = log.find(line, at + line.size())) ++dropped;
    EXPECT_LT((kMessages - dropped) * kMessageBytes, kMostTaken) << dropped << " were dropped";
    EXPECT_TRUE(session.waitFor([&] { return answers == kMessages; }));
    EXPECT_EQ(unanswered, kMessages);
    service.thaw();
    session.expectRestored(service);
    EXPECT_TRUE(session.alice.states.empty()) << "a busy server is no reason to reconnect";
}

}  // namespace
}  // namespace kv::test
