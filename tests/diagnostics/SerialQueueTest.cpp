#include "Platform/KvSerialQueue.h"
#include "support/Test.h"

#include <future>

namespace kv {
namespace {

TEST(SerialQueue, RunsWorkOfManyThreadsOneAtATimeInTheOrderOfEach) {
    constexpr int kThreads = 4;
    constexpr int kPieces = 500;
    KvSerialQueue queue("test");
    std::atomic<int> atWork{0};
    std::atomic<int> overlaps{0};
    std::vector<std::vector<int>> seen(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int piece = 0; piece < kPieces; ++piece) {
                queue.async([&, thread, piece] {
                    if (++atWork != 1 || !queue.isCurrent()) ++overlaps;
                    seen[static_cast<std::size_t>(thread)].push_back(piece);
                    --atWork;
                });
            }
        });
    }
    for (auto& thread : threads) thread.join();
    queue.drain();
    EXPECT_EQ(overlaps, 0);
    EXPECT_FALSE(queue.isCurrent());
    for (auto const& pieces : seen) {
        ASSERT_EQ(pieces.size(), static_cast<std::size_t>(kPieces));
        EXPECT_TRUE(std::is_sorted(pieces.begin(), pieces.end()));
    }
}

TEST(SerialQueue, ABlockedQueueHoldsUpNoOther) {
    KvSerialQueue blocked("blocked");
    KvSerialQueue free("free");
    std::promise<void> release;
    blocked.async([gate = release.get_future().share()] { gate.wait(); });
    std::promise<void> ran;
    free.async([&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(5s), std::future_status::ready);
    release.set_value();
    blocked.drain();
}

TEST(SerialQueue, ADestroyedQueueStillDoesWhatWaitsButNotWhatIsDelayed) {
    auto const clock = std::make_shared<KvManualClock>(KvClock::WallTime{});
    std::promise<void> gate;
    auto const ran = std::make_shared<std::promise<void>>();  // it may still be at work when the waiting is over
    bool delayedRan = false;
    {
        KvSerialQueue queue("test", clock);
        queue.async([&, open = gate.get_future().share()] { open.wait(); });
        queue.async([ran] { ran->set_value(); });
        queue.asyncAfter(1s, [&] { delayedRan = true; });
    }
    gate.set_value();
    EXPECT_EQ(ran->get_future().wait_for(5s), std::future_status::ready);
    clock->advance(2s);
    KvSerialQueue("other").drain();
    EXPECT_FALSE(delayedRan);
}

TEST(SerialQueue, DelayedWorkComesWhenTheClockSaysSoAndInItsOrder) {
    auto const start = KvClock::WallTime{} + 100h;
    auto const clock = std::make_shared<KvManualClock>(start);
    KvSerialQueue queue("test", clock);
    std::vector<int> order;
    queue.asyncAfter(60s, [&] { order.push_back(60); });
    queue.asyncAfter(10s, [&] { order.push_back(10); });
    queue.asyncAfter(-1s, [&] { order.push_back(0); });
    struct Step {
        std::chrono::milliseconds advance;
        std::vector<int> expected;
    };
    for (auto const& step :
         {Step{0ms, {0}}, Step{9'999ms, {0}}, Step{1ms, {0, 10}}, Step{49'999ms, {0, 10}}, Step{1ms, {0, 10, 60}}}) {
        clock->advance(step.advance);
        queue.drain();
        EXPECT_EQ(order, step.expected) << step.advance.count();
    }
    EXPECT_EQ(clock->wallTime(), start + 60s);
}

TEST(SerialQueue, DelayedWorkComesOnTheRealClockToo) {
    KvSerialQueue queue("test");
    std::promise<void> ran;
    auto const start = std::chrono::steady_clock::now();
    queue.asyncAfter(30ms, [&] { ran.set_value(); });
    ASSERT_EQ(ran.get_future().wait_for(5s), std::future_status::ready);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST(SerialQueue, WorkThatMayWaitIsDoneInTimeOrWhenTheQueueIsDrained) {
    KvSerialQueue queue("test");
    std::vector<int> order;
    std::promise<void> ran;
    queue.asyncWithin(1h, [&] { order.push_back(1); });
    queue.asyncWithin(0s, [&] { order.push_back(2); });  // goes along
    queue.async([&] { order.push_back(0); });
    queue.drain();
    EXPECT_EQ(order, (std::vector{0, 1, 2}));
    queue.asyncWithin(10ms, [&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(5s), std::future_status::ready);
}

}  // namespace
}  // namespace kv
