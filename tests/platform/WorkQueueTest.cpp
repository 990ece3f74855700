#include "Platform/KvWorkQueue.h"
#include "support/Test.h"

namespace kv {
namespace {

class WorkQueue : public testing::Test {
protected:
    std::shared_ptr<KvMainQueue> const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    std::optional<KvWorkQueue> work{queue};
    std::string order;
};

TEST_F(WorkQueue, RunsItemsOneAtATimeHoweverLongTheyWait) {
    for (char const name : {'a', 'b'}) {
        work->add([this, name]() -> KvWork {
            order += name;
            co_await KvDelay{*queue, 10s};
            order += name;
            co_await KvDelay{*queue, 0s};
            order += name;
        });
    }
    EXPECT_EQ(order, "");
    queue->poll();
    EXPECT_EQ(order, "a");
    queue->advance(10s);
    EXPECT_EQ(order, "aaab");
    queue->advance(10s);
    EXPECT_EQ(order, "aaabbb");
    auto const last = [this]() -> KvWork {
        order += 'd';
        co_return;
    };
    work->add([this, last]() -> KvWork {  // an item may add another
        work->add(last);
        order += 'c';
        co_return;
    });
    queue->poll();
    EXPECT_EQ(order, "aaabbbcd");
}

// What an item begins, say a connection, the next one finds begun: nothing that was posted meanwhile has ended it.
TEST_F(WorkQueue, LetsNothingGetBetweenTwoItems) {
    for (bool const hasWaited : {false, true}) {
        work->add([this, hasWaited]() -> KvWork {
            if (hasWaited) co_await KvDelay{*queue, 1s};
            queue->post([this] { order += 'c'; });
            order += 'a';
        });
        work->add([this]() -> KvWork {
            order += 'b';
            co_return;
        });
        queue->advance(1s);
    }
    EXPECT_EQ(order, "abcabc");
}

TEST_F(WorkQueue, EndsItemsWhereTheyWaitAndDropsTheOthers) {
    auto const witness = std::make_shared<int>();
    auto const signal = std::make_shared<KvSignal>(queue);
    auto const delayed = [this, witness]() -> KvWork {
        auto const held = std::make_unique<std::shared_ptr<int>>(witness);
        co_await KvDelay{*queue, 1s};
        ADD_FAILURE() << "the queue is gone";
    };
    auto const signalled = [witness, signal]() -> KvWork {
        auto const held = std::make_unique<std::shared_ptr<int>>(witness);
        co_await KvSignal::Wait{signal};
        ADD_FAILURE() << "the queue is gone";
    };
    auto const alone = witness.use_count();
    for (auto const& item : {KvWorkQueue::Item(delayed), KvWorkQueue::Item(signalled)}) {
        work.emplace(queue);
        work->add(item);
        work->add(item);
        queue->poll();
        work.reset();
    }
    signal->set();
    queue->advance(1min);
    EXPECT_EQ(witness.use_count(), alone);
}

TEST_F(WorkQueue, MayBeDestroyedByTheItemAtWork) {
    for (bool const hasWaited : {false, true}) {
        work.emplace(queue);
        work->add([this, hasWaited]() -> KvWork {
            auto const text = std::make_unique<std::string>("still here ");
            if (hasWaited) co_await KvDelay{*queue, 1s};
            work.reset();
            queue->poll();  // as a dialogue in a callback does
            order += *text;
            co_await KvDelay{*queue, 0s};
            order += "no more";
        });
        work->add([this]() -> KvWork {
            order += "dropped";
            co_return;
        });
        queue->advance(1min);
    }
    EXPECT_EQ(order, "still here still here ");
}

TEST_F(WorkQueue, SignalsReachTheirWaiterFromAnyThreadEarlyOrLate) {
    auto const early = std::make_shared<KvSignal>(queue), late = std::make_shared<KvSignal>(queue);
    early->set();
    queue->poll();
    work->add([this, early, late]() -> KvWork {
        co_await KvSignal::Wait{early};
        order += 'a';
        co_await KvSignal::Wait{late};
        order += 'b';
    });
    queue->poll();
    EXPECT_EQ(order, "a");
    std::thread([&] {
        late->set();
        late->set();
    }).join();
    EXPECT_EQ(order, "a");
    queue->poll();
    EXPECT_EQ(order, "ab");
}

}  // namespace
}  // namespace kv
