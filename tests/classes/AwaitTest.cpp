// The awaited form: of operations, on both engines, and of what waits by itself, on a clock that stands still.
#include "Classes/KvPimAwait.h"
#include "Person.h"

#include <future>
#include <stdexcept>

namespace kv::test {
namespace {

class AwaitTest : public EveryEngine {
protected:
    LocalService service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create();
    Person alice{service.url(), "alice", queue, GetParam()};
    Person bob{service.url(), "bob", queue, GetParam()};
};

ON_EVERY_ENGINE(AwaitTest);

KvTask<std::string> listen(KvStream<KvPimEvent> events) {
    std::string heard;
    while (auto const event = co_await events.next()) {
        std::visit(KvMatch{[&](event::MessageReceived const& it) { heard += it.peerId + ':' + *it.message->text; },
                           [&](event::ConnectionStateChanged const& it) { heard += std::to_string(it.state); },
                           [&](event::FailureOccurred const& it) { heard += it.failure.operation; },
                           [&](auto const&) { heard += '?'; }},
                   *event);
        heard += ' ';
    }
    co_return heard;
}

KvTask<> talk(std::shared_ptr<KvPimKit> client, std::shared_ptr<KvPimKit> other) {
    EXPECT_EQ((co_await client->logout()).error(), KvErrc::notLoggedIn);
    auto const login = co_await client->loginByToken(kToken, 1, "alice");
    EXPECT_TRUE(login) << login.error().message();
    EXPECT_EQ((co_await client->loginByToken(kToken, 1, "alice")).error(), KvPimLoginErrorAlreadyLogin);
    EXPECT_TRUE(co_await other->loginByToken(kToken, 1, "bob"));

    auto const room = client->createChannelWithId("garden", nullptr), same = other->createChannelWithId("garden");
    auto messages = room->messages({.limit = 1, .drop = KvDrop::newest});
    auto letters = client->messages();
    EXPECT_TRUE(co_await room->join());
    EXPECT_TRUE(co_await same->join());
    auto const members = co_await room->getMembers();
    EXPECT_EQ(members.value().size(), 2u);
    EXPECT_TRUE(co_await same->sendMessage("good morning"));
    EXPECT_TRUE(co_await same->sendMessage("is dropped"));

    EXPECT_TRUE(co_await client->setLocalUserAttributes({{"mood", "fine"}}));
    auto const [own, nobodys] = co_await all(other->getUserAttributes("alice"), other->getUserAttributes(""));
    EXPECT_EQ(own->at(0).value, "fine");
    EXPECT_EQ(nobodys.error(), KvErrc::invalidArgument);
    EXPECT_THROW(static_cast<void>(nobodys.value()), std::system_error);
    auto const tooLong = co_await other->sendMessageToPeer(std::string(40000, 'x'), "nobody");
    EXPECT_EQ(tooLong.error(), KvPimPeerMessageErrorTooLong);
    EXPECT_TRUE(co_await other->sendMessageToPeer("hello", "alice"));

    EXPECT_EQ((co_await letters.next())->peerId, "bob");
    auto const first = co_await messages.next();
    EXPECT_EQ(first->message->text, "good morning");
    EXPECT_TRUE(client->destroyChannelWithId("garden"));
    EXPECT_FALSE(co_await messages.next());
    EXPECT_EQ(messages.dropped(), 1u);
    EXPECT_TRUE(room->events().isOver());
    EXPECT_TRUE(co_await client->logout().within(1min));
}

TEST_P(AwaitTest, AConversation) {
    auto heard = spawn(queue, listen(alice.kit->events()));
    run(queue, talk(alice.kit, bob.kit));
    auto pending = alice.kit->getPeersUserAttributes({"bob"});
    std::thread([&] {
        auto sent = submit(queue, [&] { return bob.kit->sendMessageToPeer("from a thread", "bob"); });
        EXPECT_TRUE(sent.get());
        queue->post([&] { alice.kit.reset(); });
        queue->stop();
    }).detach();
    queue->run();
    queue->runFor(10ms);
    EXPECT_EQ(*heard.take(), "logoutWithCompletion 2 3 loginByToken bob:hello 1 getPeersUserAttributes ");
    EXPECT_EQ(pending.take().error(), KvErrc::notLoggedIn);
    EXPECT_EQ(alice.messages.size(), 1u);  // the delegate heard it too
}

KvTask<int> answerAfter(KvMainQueue& queue, std::chrono::milliseconds delay, int answer, bool fails = false) {
    co_await sleep(queue, delay);
    if (fails) throw std::runtime_error("as asked");
    co_return answer;
}

TEST(AwaitedTime, GoesByTheQueuesClock) {
    auto queue = KvMainQueue::create(KvMainQueue::Time::manual);
    auto const answer = [&](int delay, int value, bool fails = false) {
        return spawn(queue, answerAfter(*queue, std::chrono::milliseconds(delay), value, fails));
    };
    std::stop_source stop;
    auto bounded = answer(20, 1).within(10ms), stopped = answer(20, 2).until(stop.get_token()),
         cancelled = answer(20, 3);
    std::vector<KvPending<int>> racers;
    for (int const delay : {30, 5, 5}) racers.push_back(answer(delay, delay));
    auto first = spawn(queue, any(std::move(racers)));
    auto doubled = answer(20, 4).then([](KvResult<int> result) { return *result * 2; });
    auto future = answer(20, 5).future(), never = answer(60'000, 6).future();
    auto failed = answer(20, 7, true), dropped = answer(21, 8, true);
    auto early = sleep(queue, std::chrono::nanoseconds::max());

    cancelled.cancel();
    early.cancel();
    std::thread([&] { stop.request_stop(); }).join();
    EXPECT_EQ(cancelled.take().error(), KvWaitError::cancelled);
    queue->advance(5ms);
    EXPECT_EQ(stopped.take().error(), KvErrc::cancelled);
    EXPECT_EQ(first.take()->first, 1u);
    queue->advance(14ms);
    EXPECT_EQ(bounded.take().error(), KvErrc::timedOut);
    EXPECT_FALSE(doubled.isReady());
    dropped = KvPending<int>(0);
    queue->advance(1ms);
    EXPECT_EQ(*doubled.take(), 8);
    EXPECT_EQ(*future.get(), 5);
    EXPECT_THROW(failed.take(), std::runtime_error);
    EXPECT_THROW(queue->advance(1ms), std::runtime_error);  // nobody awaits it
    EXPECT_EQ(run(queue, answerAfter(*queue, 0ms, 9)), 9);
    queue.reset();
    EXPECT_THROW(never.get(), std::future_error);
}

}  // namespace
}  // namespace kv::test
