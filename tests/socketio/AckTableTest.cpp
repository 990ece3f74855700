#include "SocketIO/AckTable.h"
#include "support/Json.h"
#include "support/Test.h"

#include <cmath>
#include <limits>
#include <random>

namespace kv::sio {
namespace {

class AckTableTest : public ::testing::Test {
protected:
    std::shared_ptr<KvMainQueue> const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    std::shared_ptr<AckTable> table = std::make_shared<AckTable>(queue);
    std::vector<std::string> ended;  // "name: first item"

    AckTable::Handler note(std::string name) {
        return [this, name = std::move(name)](SocketData const& data) {
            auto const* text = data.items().empty() ? nullptr : data.items()[0].if_string();
            ended.push_back(name + ": " + (text ? std::string(text->c_str()) : "-"));
        };
    }
    void answer(std::uint64_t id) {
        json::array const items{"answer"};
        table->answer(id, SocketData(items, {}), queue->now());
    }
};

TEST_F(AckTableTest, GoesWithItsQueue) {
    auto captured = std::make_shared<int>();
    std::weak_ptr<int> const weak = captured;
    {
        auto const shortLived = KvMainQueue::create(KvMainQueue::Time::manual);
        std::make_shared<AckTable>(shortLived)->add(6s, [kept = std::move(captured)](SocketData const&) { FAIL(); });
    }
    EXPECT_TRUE(weak.expired());
}

TEST_F(AckTableTest, LetsHandlersDoAnything) {
    table->add(1s, [this](SocketData const&) {
        ended.push_back("outer");
        table->add(0s, note("inner"));
        table->add(1s, note("later"));
        answer(1);  // what would have ended next
    });
    table->add(1s, note("answered by the first"));
    table->add(1s, [this](SocketData const&) {
        table.reset();
        ended.push_back("owner is gone");
    });
    table->add(1s, note("last"));
    queue->advance(1s);
    EXPECT_EQ(ended, (std::vector<std::string>{"outer", "answered by the first: answer", "owner is gone",
                                               "last: NO ACK", "inner: NO ACK"}));
    queue->advance(1s);
    EXPECT_EQ(ended.back(), "later: NO ACK");
}

TEST_F(AckTableTest, TakesAnyTimeOut) {
    for (double const seconds : {0.0, -5.0, -std::numeric_limits<double>::infinity(), std::nan("")}) {
        table->add(std::chrono::duration<double>(seconds), note("at once"));
    }
    table->add(std::chrono::duration<double>(std::numeric_limits<double>::infinity()), note("never"));
    table->add(6s, nullptr);
    EXPECT_TRUE(ended.empty()) << "not inside the call";
    queue->advance(0s);
    EXPECT_EQ(ended, std::vector<std::string>(4, "at once: NO ACK"));
    queue->advance(24h * 365);
    EXPECT_EQ(ended.size(), 4u);
    EXPECT_EQ(table->size(), 1u);
}

TEST_F(AckTableTest, EndsManyInTheOrderOfTheirDeadlines) {
    constexpr int kMany = 100000;
    std::minstd_rand random(7);
    std::vector<std::chrono::milliseconds> ends;
    std::vector<std::uint64_t> ids;
    auto const start = queue->now();
    for (int i = 0; i < kMany; ++i) {
        std::chrono::milliseconds const timeout(1 + random() % 10000);
        auto const pending = table->add(timeout, [&ends, this, start](SocketData const&) {
            ends.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(queue->now() - start));
        });
        EXPECT_EQ(pending.deadline - start, timeout);
        ids.push_back(pending.id);
    }
    for (int i = 0; i < kMany; i += 2) answer(ids[static_cast<std::size_t>(i)]);
    EXPECT_EQ(ends.size(), kMany / 2);
    ends.clear();
    queue->advance(10s);
    EXPECT_EQ(ends.size(), kMany / 2);
    EXPECT_TRUE(std::is_sorted(ends.begin(), ends.end()));
}

}  // namespace
}  // namespace kv::sio
