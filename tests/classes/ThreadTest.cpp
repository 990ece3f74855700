// Calls from a thread that does not drive the queue: who asked for it, and each build with assertions, ends with the
// name of the call and what to do instead.
#include "Operations.h"
#include "Person.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/SocketManager.h"

namespace kv::test {
namespace {

TEST(ThreadDeathTest, ACallFromAnotherThreadEndsWithAdvice) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TemporaryDirectory const ofAll;               // the processes that end so leave theirs behind
    ::setenv("TMPDIR", ofAll.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    auto const queue = KvMainQueue::create();
    queue->poll();  // this is the queue's thread
    Person alice("http://127.0.0.1:9", "alice", queue, Engine::thread,
                 [](KvPimOptions& options) { options.checkThreads = true; });
    auto& kit = *alice.kit;
    auto const channel = kit.createChannelWithId("room", {});
    auto const invitations = kit.getPimInvitationKit();
    auto manager = std::make_unique<SocketManager>("http://127.0.0.1:9", SocketConfig(), queue, queue);
    auto const socket = manager->defaultSocket();
    auto const message = std::make_shared<KvPimMessage>("x");

    std::vector<std::pair<char const*, std::function<void()>>> calls{
        {"loginByToken", [&] { kit.loginByToken(kToken, 1, "alice", {}); }},
        {"loginWithConfig", [&] { kit.loginWithConfig({}, {}); }},
        {"logoutWithCompletion", [&] { kit.logoutWithCompletion({}); }},
        {"renewToken", [&] { kit.renewToken(kToken, 1, {}); }},
        {"createChannelWithId", [&] { kit.createChannelWithId("room", {}); }},
        {"destroyChannelWithId", [&] { kit.destroyChannelWithId("room"); }},
        {"getPimInvitationKit", [&] { kit.getPimInvitationKit(); }},
        {"getDebugInfo", [&] { kit.getDebugInfo(); }},
        {"stateManager", [&] { kit.stateManager(); }},
        {"~KvPimKit", [&] { alice.kit.reset(); }},
        {"setDelegate", [&] { invitations->setDelegate({}); }},
        {"delegate", [&] { invitations->delegate(); }},
        {"setDelegate", [&] { channel->setDelegate({}); }},
        {"delegate", [&] { channel->delegate(); }},
        {"sendInvitation", [&] { invitations->sendInvitation(nullptr, {}); }},
        {"cancelInvitation", [&] { invitations->cancelInvitation(nullptr, {}); }},
        {"acceptInvitation", [&] { invitations->acceptInvitation(nullptr, {}); }},
        {"refuseInvitation", [&] { invitations->refuseInvitation(nullptr, {}); }},
#ifndef NDEBUG
        {"", [&] { socket->on("event", [](auto const&) {}); }},
        {"", [&] { socket->connect(); }},
        {"", [&] { socket->connectWithTimeoutAfter(std::chrono::seconds(1), {}); }},
        {"", [&] { socket->disconnect(); }},
        {"", [&] { socket->emit("event", {}); }},
        {"", [&] { socket->emitWithAck("event", {}).timingOutAfter(std::chrono::seconds(1), {}); }},
        {"", [&] { socket->sid(); }},
        {"", [&] { socket->status(); }},
        {"", [&] { manager.reset(); }},
#endif
    };
    for (auto const& request : kCalls) {
        if (std::string_view(request.command) == "invitationOp") continue;  // above
        calls.emplace_back("", [&] { request.start(kit, *channel, {}); });
    }
    for (std::size_t i = 0; i < calls.size(); ++i) {
        auto const& [name, call] = calls[i];
        EXPECT_DEATH(std::thread(call).join(),
                     std::string(name) + ".*from the thread that drives its main queue, or post to that queue")
            << i;
    }
}

#ifndef NDEBUG
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
#endif

}  // namespace
}  // namespace kv::test
