// Calls from a thread that does not drive the queue: builds with assertions end, and say what to do instead.
#ifndef NDEBUG

#include "Operations.h"
#include "Person.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"

#include <thread>

#include <boost/json/object.hpp>

namespace kv::test {
namespace {

TEST(ThreadDeathTest, ACallFromAnotherThreadEndsWithAdvice) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const queue = KvMainQueue::create();
    queue->poll();  // this is the queue's thread
    Person alice("http://127.0.0.1:9", "alice", queue);
    auto& kit = *alice.kit;
    auto const channel = kit.createChannelWithId("room", {});
    auto const invitations = kit.getPimInvitationKit();
    auto manager = std::make_unique<SocketManager>("http://127.0.0.1:9", SocketConfig(), queue, queue);
    auto const socket = manager->defaultSocket();
    auto const message = std::make_shared<KvPimMessage>("x");

    std::vector<std::function<void()>> calls{
        [&] { kit.loginByToken(kToken, 1, "alice", {}); },
        [&] { kit.loginWithConfig({}, {}); },
        [&] { kit.logoutWithCompletion({}); },
        [&] { kit.renewToken(kToken, 1, {}); },
        [&] { kit.createChannelWithId("room", {}); },
        [&] { kit.destroyChannelWithId("room"); },
        [&] { kit.getPimInvitationKit(); },
        [&] { kit.getDebugInfo(); },
        [&] { kit.stateManager(); },
        [&] { alice.kit.reset(); },
        [&] { invitations->setDelegate({}); },
        [&] { invitations->delegate(); },
        [&] { channel->setDelegate({}); },
        [&] { channel->delegate(); },
        [&] { invitations->sendInvitation(nullptr, {}); },
        [&] { invitations->cancelInvitation(nullptr, {}); },
        [&] { invitations->acceptInvitation(nullptr, {}); },
        [&] { invitations->refuseInvitation(nullptr, {}); },
        [&] { socket->on("event", [](auto const&) {}); },
        [&] { socket->connect(); },
        [&] { socket->connectWithTimeoutAfter(std::chrono::seconds(1), {}); },
        [&] { socket->disconnect(); },
        [&] { socket->emit("event", {}); },
        [&] { socket->emitWithAck("event", {}).timingOutAfter(std::chrono::seconds(1), {}); },
        [&] { socket->sid(); },
        [&] { socket->status(); },
        [&] { manager.reset(); },
    };
    for (auto const& request : kRequests) {
        if (std::string_view(request.command) == "invitationOp") continue;  // above
        calls.emplace_back([&] { request.start(kit, *channel, {}); });
    }
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_DEATH(std::thread(calls[i]).join(), "from the thread that drives its main queue, or post to that queue")
            << i;
    }
}

TEST(ThreadDeathTest, TwoThreadsDoNotDriveOneQueue) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const queue = KvMainQueue::create();
    auto const poll = [&] { queue->poll(); };
    queue->post([&] {
        poll();  // a handler may
        EXPECT_DEATH(std::thread(poll).join(), "a queue is driven by one thread at a time");
    });
    poll();
    std::thread(poll).join();  // one after the other may
}

}  // namespace
}  // namespace kv::test

#endif
