// Sockets and managers may go at any moment, in every handler, and may be called from every handler.
#include "Sockets.h"

namespace kv::test {
namespace {

class Lifetime : public EveryEngine {};
ON_EVERY_ENGINE(Lifetime);

ScriptedServer::Script const kChatty = [](ScriptedPeer& peer) {
    peer.login();
    for (int i = 0; i < 5; ++i) peer.emit("event", {i, ScriptedPeer::placeholder(0)}, {"bytes"});
    auto const event = peer.readEvent();
    peer.acknowledge(event, {1});
    peer.sendText("41");
    peer.readToEnd();
};

TEST_P(Lifetime, MayBeDestroyedInEachHandler) {
    ScriptedServer server(kChatty);
    for (auto const* event : {"connect", "loginSuccess", "event", "disconnect", "acknowledgement"}) {
        SCOPED_TRACE(event);
        auto client = std::make_unique<Client>(GetParam(), server.url());
        auto const queue = client->queue;
        std::shared_ptr<SocketIOClient> kept;
        int calls = 0, answers = 0, unanswered = 0;
        auto const destroy = [&](SocketData const&) {
            ++calls;
            kept = client->manager->defaultSocket();
            client->manager.reset();
        };
        client->socket().on("connect", [&](SocketData const&) {
            client->socket().emitWithAck("request", {}).timingOutAfter(0.3s, [&](SocketData const& data) {
                ++(data.items().at(0) == "NO ACK" ? unanswered : answers);
                if (std::string("acknowledgement") == event) destroy(data);
            });
        });
        client->socket().on(event, destroy);
        client->socket().on(event, [&](SocketData const&) { calls += 100; });  // is behind the destruction
        client->socket().connect();
        ASSERT_TRUE(runUntil(*queue, [&] { return calls > 0 && answers + unanswered == 1; }));
        auto const told = client->lines.size();
        queue->runFor(20ms);
        EXPECT_EQ(client->lines.size(), told);
        EXPECT_EQ(answers + unanswered, 1);
        EXPECT_EQ(calls, std::string("disconnect") == event ? 101 : 1);
        EXPECT_EQ(kept->status(), SocketStatus::disconnected);
        kept->connect();  // of no manager any more: stays disconnected
        kept->emit("event", {});
        queue->runFor(5ms);
        EXPECT_EQ(kept->status(), SocketStatus::disconnected);
    }
}

TEST_P(Lifetime, MayBeDestroyedAtAnyMomentOfConnecting) {
    ScriptedServer server(kChatty);
    for (int step = 0; step < 40; ++step) {
        Client client(GetParam(), step % 3 == 0 ? server.url("localhost") : server.url());
        client.socket().connect();
        auto const end = std::chrono::steady_clock::now() + std::chrono::microseconds(step * step * 5);
        while (std::chrono::steady_clock::now() < end) client.queue->poll();
        if (step % 2 == 0) {
            client.manager.reset();
            client.queue->runFor(1ms);
        } else if (client.socket().status() != SocketStatus::disconnected) {
            client.socket().disconnect();
            EXPECT_EQ(client.lines.back(), "disconnect [\"Namespace leave\"]");
        }
        auto const told = client.lines.size();
        client.queue->runFor(1ms);
        EXPECT_EQ(client.lines.size(), told);
    }
}

TEST_P(Lifetime, HandlersMayCallEverything) {
    ScriptedServer server(kChatty);
    Client client(GetParam(), server.url());
    int rounds = 0, events = 0, later = 0;
    client.socket().on("event", [&](SocketData const&) {
        ++events;
        client.socket().on("event", [](SocketData const&) {});
        client.socket().emit("nothing", {});
        client.socket().disconnect();
        client.socket().connect();
    });
    client.socket().on("disconnect", [&](SocketData const&) {
        ++rounds;
        client.socket().on("disconnect", [&](SocketData const&) { ++later; });
    });
    client.socket().connect();
    ASSERT_TRUE(runUntil(*client.queue, [&] { return rounds >= 5; }));
    EXPECT_EQ(later, rounds * (rounds - 1) / 2) << "each hears of what happens after it was added";
    EXPECT_EQ(events, rounds) << "an event of a connection that was left";
}

TEST_P(Lifetime, AQueueInsideAHandlerRunsOtherConnections) {
    ScriptedServer server(kChatty);
    auto const queue = KvMainQueue::create();
    Client outer(GetParam(), server.url(), {}, queue), inner(GetParam(), server.url(), {}, queue);
    std::string before, after;
    outer.socket().on("loginSuccess", [&](SocketData const& data) {
        before = json::serialize(data.items());
        inner.waitForEvent("event");
        after = json::serialize(data.items());
    });
    outer.socket().connect();
    inner.socket().connect();
    EXPECT_TRUE(outer.waitForEvent("event"));
    EXPECT_TRUE(inner.waitForEvent("event"));
    EXPECT_EQ(before, "[{}]");
    EXPECT_EQ(after, before);
}

TEST(EngineOnMainQueue, AQueueMayGoWithEverythingUnderWay) {
    ScriptedServer server(kChatty);
    for (int step = 0; step < 10; ++step) {
        Client client(Engine::mainQueue, server.url());
        client.socket().connect();
        client.socket().emitWithAck("request", {}).timingOutAfter(60s, [](SocketData const&) { FAIL(); });
        client.queue->runFor(std::chrono::microseconds(step * 200));
    }
}

}  // namespace
}  // namespace kv::test
