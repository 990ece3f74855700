// What may become of the bytes on their way: they come one at a time, stop in the middle of a frame, or are not read.
#include "Session.h"
#include "SystemCalls.h"

#include <fstream>

#include <unistd.h>

namespace kv::test {
namespace {

class Wire : public EveryEngine {};
ON_EVERY_ENGINE(Wire);

TEST_P(Wire, CarriesEverythingOneByteAtATime) {
    LocalService const service;
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

/// What the process takes of the machine's memory.
std::size_t residentBytes() {
    std::size_t all = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsOurs = false;  // a sanitizer has a heap of its own
#else
constexpr bool kMemoryIsOurs = true;
#endif

// A service that stands still reads nothing: what waits for it stays within the bound, the client says so, and says
// when there is room again. Afterwards the memory is given back.
TEST_P(Wire, AServiceThatDoesNotReadFillsNoMemory) {
    constexpr std::size_t kMessageBytes = 32768, kMessages = 2000, kBound = 32u << 20;
    constexpr std::size_t kMostTaken = kBound + (15u << 20);  // and what the kernel holds for both ends
    Service service;
    Session session(service, GetParam(), [](KvPimOptions& options) { options.maxQueuedBytes = kBound; });
    ASSERT_TRUE(session.begin());
    auto& kit = *session.alice.kit;
    std::string const bytes(kMessageBytes, 'x');
    std::size_t answers = 0, unanswered = 0;
    int writable = 0;
    session.alice.delegate->onWritable = [&](KvPimKit& client) {
        ++writable;
        EXPECT_LE(client.bytesQueued(), kBound / 2);
    };
    auto const pressure = [&] { return kit.getDebugInfo().at("pressure").as_object(); };
    auto const before = residentBytes();
    service.freeze("alice");
    kit.setLogFilters(4);
    Printed printed;
    for (std::size_t i = 0; i < kMessages; ++i) {
        auto const message = std::make_shared<KvPimRawMessage>(makeData(bytes));
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
    EXPECT_EQ(pressure().at("dropped"), dropped);
    EXPECT_LE(pressure().at("mostBytesQueued").to_number<std::size_t>(), kBound);
    EXPECT_GT(kit.bytesQueued(), kBound / 2);
    EXPECT_TRUE(session.waitFor([&] { return answers == kMessages; }));
    EXPECT_EQ(unanswered, kMessages);
    EXPECT_EQ(writable, 0);
    service.thaw("alice");
    EXPECT_TRUE(session.waitFor([&] { return writable > 0 && kit.bytesQueued() == 0; }));
    EXPECT_EQ(writable, 1);
    EXPECT_GT(pressure().at("overdue").to_number<std::size_t>(), 0u);
    session.expectRestored(service);
    EXPECT_TRUE(session.alice.states.empty()) << "a busy server is no reason to reconnect";
    if (kMemoryIsOurs) {
        EXPECT_TRUE(session.waitFor([&] { return residentBytes() < before + (kBound / 4); }))
            << before << " before, and " << residentBytes();
    }
}

}  // namespace
}  // namespace kv::test
