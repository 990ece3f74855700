#include "Platform/KvMainQueue.h"
#include "support/Test.h"

#include <array>
#include <map>
#include <stdexcept>

namespace kv {
namespace {

using test::isReadable;

TEST(MainQueue, RunsWorkInOrderAndNeverInsideTheCallThatQueuesIt) {
    auto const queue = KvMainQueue::create();
    std::string order;
    queue->post([&] {
        order += 'a';
        queue->post([&] { order += 'd'; });
        queue->dispatch([&] { order += 'b'; });
        EXPECT_TRUE(queue->isCurrent());
    });
    queue->post([&order, c = std::make_unique<char>('c')] { order += *c; });
    EXPECT_EQ(order, "");
    EXPECT_FALSE(queue->isCurrent());
    EXPECT_EQ(queue->poll(), 3u);
    EXPECT_EQ(order, "abcd");
    EXPECT_EQ(queue->poll(), 0u);
}

TEST(MainQueue, TakesWorkFromAnyThreadWhileItRuns) {
    constexpr int kThreads = 4, kEach = 2000;
    auto const queue = KvMainQueue::create();
    std::array<int, kThreads> next{};
    int left = kThreads * kEach;
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < kEach; ++i) {
                queue->post([&, thread, i] {
                    EXPECT_EQ(next.at(thread)++, i);
                    if (--left == 0) queue->stop();
                });
            }
        });
    }
    queue->runFor(60s);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(left, 0);
}

// An application's own loop sleeps until the descriptor is readable, so it must be whenever there is something to do,
// and must not be when there is not.
TEST(MainQueue, IsReadableExactlyWhileThereIsSomethingToDo) {
    struct Case {
        char const* what;
        std::function<void(KvMainQueue&)> prepare;
        std::size_t work;
    };
    std::optional<KvQueueTimer> timer;
    std::vector<Case> const cases{
        {"posted by the driving thread", [](KvMainQueue& queue) { queue.post([] {}); }, 1},
        {"posted by another thread", [](KvMainQueue& queue) { std::thread([&] { queue.post([] {}); }).join(); }, 1},
        {"a timer that is due", [&](KvMainQueue& queue) { timer = queue.after(1ms, [] {}); }, 1},
        {"a timer that is due at once", [&](KvMainQueue& queue) { timer = queue.after(-1s, [] {}); }, 1},
        {"posted by work", [](KvMainQueue& queue) { queue.post([&] { queue.post([] {}); }); }, 2},
        {"posted before a handler threw",
         [](KvMainQueue& queue) {
             queue.post([] { throw std::runtime_error("an application's own"); });
             queue.post([] {});
             EXPECT_THROW(queue.poll(), std::runtime_error);
         },
         1},
    };
    for (auto const& c : cases) {
        auto const queue = KvMainQueue::create();
        queue->poll();  // a new queue may be readable for nothing
        EXPECT_FALSE(isReadable(queue->fd())) << c.what;
        c.prepare(*queue);
        EXPECT_TRUE(isReadable(queue->fd(), 5s)) << c.what;
        std::size_t work = 0;
        while (isReadable(queue->fd()) && work < 10) work += queue->poll();
        EXPECT_EQ(work, c.work) << c.what;
        EXPECT_FALSE(isReadable(queue->fd(), 5ms)) << c.what;
    }
}

TEST(MainQueue, LetsItsCallerHaveATurnWhenWorkQueuesWork) {
    auto const queue = KvMainQueue::create();
    bool isOn = true;
    std::function<void()> const again = [&] {
        if (isOn) queue->post(again);
    };
    again();
    EXPECT_GT(queue->poll(), 100u);
    EXPECT_TRUE(isReadable(queue->fd()));
    isOn = false;
    queue->poll();
    EXPECT_EQ(queue->poll(), 0u);
}

TEST(MainQueue, StopsARunNowOrTheNextOne) {
    auto const queue = KvMainQueue::create();
    int ran = 0;
    queue->stop();
    queue->post([&] { ++ran; });
    queue->run();  // returns at once
    queue->post([&] {
        ++ran;
        queue->stop();
    });
    queue->run();
    EXPECT_EQ(ran, 2);
    std::thread other([&] { queue->stop(); });
    queue->run();
    other.join();
    auto const start = KvMainQueue::Clock::now();
    queue->runFor(5ms);
    EXPECT_GE(KvMainQueue::Clock::now() - start, 5ms);
}

TEST(MainQueue, MayBeRunWithinItsOwnWork) {
    auto const queue = KvMainQueue::create();
    std::string order;
    queue->post([&] {
        queue->post([&] { order += 'b'; });
        order += 'a';
        queue->poll();
        order += 'c';
    });
    queue->poll();
    EXPECT_EQ(order, "abc");
}

TEST(MainQueue, KnowsTheThreadThatDrovItLast) {
    auto const queue = KvMainQueue::create();
    EXPECT_TRUE(queue->isOwnThread());  // nobody has driven it
    std::thread([&] {
        queue->poll();
        EXPECT_TRUE(queue->isOwnThread());
    }).join();
    EXPECT_FALSE(queue->isOwnThread());
    queue->poll();
    EXPECT_TRUE(queue->isOwnThread());
}

class Timers : public testing::Test {
protected:
    void add(char name, std::chrono::nanoseconds delay) {
        timers.push_back(queue->after(delay, [this, name] { order += name; }));
    }
    std::shared_ptr<KvMainQueue> const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    std::vector<KvQueueTimer> timers;
    std::string order;
};

TEST_F(Timers, RingInTheOrderInWhichTheyAreDue) {
    add('d', 30s);
    add('b', 10s);
    add('c', 10s);
    add('a', 0s);
    EXPECT_EQ(order, "");
    queue->poll();
    EXPECT_EQ(order, "a");
    queue->advance(10s - 1ns);
    EXPECT_EQ(order, "a");
    queue->advance(1h);
    EXPECT_EQ(order, "abcd");
    EXPECT_FALSE(timers[0].isActive());
}

TEST_F(Timers, SeeTheirOwnTimeWhenAClockIsMovedFar) {
    auto const start = queue->now();
    std::vector<std::chrono::nanoseconds> rang;
    KvQueueTimer timer;
    std::function<void()> const ring = [&] {
        rang.push_back(queue->now() - start);
        if (rang.size() < 3) timer = queue->after(10s, ring);
    };
    timer = queue->after(10s, ring);
    queue->advance(1min);
    EXPECT_EQ(rang, (std::vector<std::chrono::nanoseconds>{10s, 20s, 30s}));
    EXPECT_EQ(queue->now() - start, 1min);
}

TEST_F(Timers, AreNotCalledOnceGivenUp) {
    for (char const name : {'a', 'b', 'c', 'd'}) add(name, 1s);
    timers[0].cancel();
    timers[1] = KvQueueTimer();
    auto const moved = std::move(timers[2]);
    timers.pop_back();
    EXPECT_TRUE(moved.isActive());
    auto const first = queue->after(1ms, [this] { timers.clear(); });
    add('e', 1ms);
    queue->advance(1s);
    EXPECT_EQ(order, "c");
}

TEST_F(Timers, MayOwnThemselvesAndOutliveTheirQueue) {
    auto const witness = std::make_shared<int>();
    for (bool const isCancelled : {true, false}) {
        auto own = std::make_shared<KvQueueTimer>();
        auto const temporary = KvMainQueue::create();
        *own = temporary->after(1h, [own, witness] {});
        if (isCancelled) own->cancel();
    }
    EXPECT_EQ(witness.use_count(), 1);
    KvQueueTimer left;
    {
        auto const temporary = KvMainQueue::create();
        left = temporary->after(1h, [witness] {});
    }
    EXPECT_FALSE(left.isActive());
    left.cancel();
    EXPECT_EQ(witness.use_count(), 1);
}

TEST(RealTimers, RingInTimeAlsoWhenEarlierOnesAreGivenUp) {
    auto const queue = KvMainQueue::create();
    auto const start = KvMainQueue::Clock::now();
    auto early = queue->after(1ms, [] { ADD_FAILURE() << "given up"; });
    auto const late = queue->after(20ms, [&] { queue->stop(); });
    early.cancel();
    queue->runFor(60s);
    EXPECT_GE(KvMainQueue::Clock::now() - start, 20ms);
    EXPECT_FALSE(late.isActive());
}

}  // namespace
}  // namespace kv
