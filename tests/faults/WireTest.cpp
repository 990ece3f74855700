// What may become of the bytes on their way: they come one at a time, stop in the middle of a frame, or are not read.
#include "Relay.h"
#include "Session.h"
#include "SystemCalls.h"

#include <random>

namespace kv::test {
namespace {

class Wire : public EveryEngine {};
ON_EVERY_ENGINE(Wire);

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
    auto const text = std::string("\x81\x20") + "42[\"Mem",
               header = std::string("\x81\x2B") + "451-[\"event\",{\"_placeholder\":true,\"num\":0}]";
    for (auto const& c : {Case{"length", "\x81"}, Case{"text", text}, Case{"before the attachment", header}}) {
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
