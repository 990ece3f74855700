// What travels between a socket and a server that follows a script.
#include "Sockets.h"

namespace kv::test {
namespace {

class Conversation : public EveryEngine {};
ON_EVERY_ENGINE(Conversation);

SocketItems itemsOf(json::array values) {
    SocketItems items;
    items.values = std::move(values);
    return items;
}

TEST_P(Conversation, ConnectsAndDeliversInOrderWhateverTheCut) {
    ScriptedServer server([](ScriptedPeer& peer) {
        auto const all = peer.upgradeAnswer() + textFrame(ScriptedPeer::openPacket({})) +
                         textFrame("40{\"sid\":\"S\"}") + textFrame("42[\"loginSuccess\",{}]") +
                         textFrame("451-[\"event\",{\"_placeholder\":true,\"num\":0}]") +
                         textFrame("2") +  // a ping between a packet and its attachment is lawful
                         binaryFrame(std::string(300, 'x'));
        std::size_t const cuts[] = {all.size(), 1, 2, 7, 100};
        peer.sendInPieces(all, cuts[peer.number()]);
        peer.readToEnd();
    });
    for (int i = 0; i < 5; ++i) {
        Client client(GetParam(), server.url());
        ASSERT_TRUE(client.connect());
        EXPECT_EQ(client.socket().sid(), "S");
        EXPECT_EQ(client.socket().status(), SocketStatus::connected);
        ASSERT_TRUE(client.waitForEvent("event"));
        EXPECT_EQ(client.lines, (std::vector<std::string>{"connect", "loginSuccess [{}]",
                                                          "event [{\"_placeholder\":true,\"num\":0}]"}));
    }
}

TEST_P(Conversation, AFloodKeepsItsOrderBothWays) {
    constexpr int kCount = 5000;
    ScriptedServer server([](ScriptedPeer& peer) {
        peer.login();
        for (;;) {
            auto const event = peer.readEvent();
            peer.acknowledge(event, {event.items.at(1), event.items.at(2)}, event.attachments);
        }
    });
    Client client(GetParam(), server.url());
    ASSERT_TRUE(client.connect());
    int next = 0;
    for (int i = 0; i < kCount; ++i) {
        SocketItems items;
        items.values = {i, items.binary(makeData(std::string(static_cast<std::size_t>(i % 700), 'b')))};
        client.socket().emitWithAck("count", std::move(items)).timingOutAfter(30s, [&](SocketData const& data) {
            EXPECT_EQ(data.items().at(0), next);
            auto const bytes = data.binary(data.items().at(1));
            ASSERT_TRUE(bytes);
            EXPECT_EQ(bytes->size(), static_cast<std::size_t>(next++ % 700));
        });
    }
    EXPECT_TRUE(runUntil(*client.queue, [&] { return next == kCount; })) << next;
}

TEST_P(Conversation, AMainThreadThatFallsBehindGetsAll) {
    constexpr int kCount = 400'000;
    ScriptedServer server([](ScriptedPeer& peer) {
        peer.login();
        for (int i = 0; i < kCount; i += 1000) {
            std::string bytes;
            for (int j = i; j < i + 1000; ++j) bytes += textFrame("42[\"push\"," + std::to_string(j) + "]");
            peer.send(bytes);
        }
        peer.readToEnd();
    });
    Client client(GetParam(), server.url());
    int next = 0;
    client.socket().on("push", [&](SocketData const& data) {
        auto const hasPaused = [&] { return client.socket().pressure().readingPauses > 0; };
        for (int i = 0; next == 0 && GetParam() == Engine::thread && !hasPaused() && i < 10000; ++i)
            std::this_thread::sleep_for(1ms);
        if (next % 64 == 0) std::this_thread::sleep_for(10us);
        if (data.items().at(0).as_int64() == next) ++next;
    });
    ASSERT_TRUE(client.connect());
    runUntil(*client.queue, [&] { return next == kCount || !client.lineOf("disconnect").empty(); });
    EXPECT_EQ(next, kCount) << client.lineOf("disconnect");
    auto const pressure = client.socket().pressure();
    EXPECT_EQ(pressure.readingPauses > 0, GetParam() == Engine::thread);
    EXPECT_LT(pressure.mostBytesUnhandled, 33u << 20);
    EXPECT_EQ(pressure.bytesUnhandled, 0u);
}

// Pings wait unread behind what the main queue has not taken, and the server must not take the client for dead.
TEST(EngineOnThread, AMainThreadThatStandsStillKeepsItsConnection) {
    constexpr std::size_t kCount = 96, kBytes = 32768;  // more than is read, less than the system holds beside it
    auto const network = std::make_shared<KvPimNetworkOptions>();
    network->maxUnhandledBytes = 1u << 20;
    network->maxMessageBytes = 40000;
    network->socketPath = "/gate/socket.io/";
    network->userAgent = "tests";
    SocketConfig config;
    config.network = network;
    std::atomic<int> beats{0};
    ScriptedServer server([&](ScriptedPeer& peer) {
        EXPECT_TRUE(peer.request().starts_with("GET /gate/socket.io/?EIO=4"));
        EXPECT_NE(peer.request().find("\r\nUser-Agent: tests\r\n"), std::string::npos);
        peer.connect({200ms, 60s});
        for (std::size_t i = 0; i < kCount; ++i)
            peer.emit("blob", {ScriptedPeer::placeholder(0)}, {std::string(kBytes, 'b')});
        while (beats < 3) beats += peer.readText() == "3";
        peer.sendText(std::string(40001, 'x'));
        peer.readToEnd();
    });
    Client client(Engine::thread, server.url(), config);
    std::size_t blobs = 0;
    client.socket().on("blob", [&](SocketData const&) {
        for (int i = 0; blobs == 0 && beats < 3 && i < 10000; ++i) std::this_thread::sleep_for(1ms);
        ++blobs;
    });
    ASSERT_TRUE(client.connect());
    EXPECT_TRUE(runUntil(*client.queue, [&] { return blobs == kCount; })) << blobs;
    EXPECT_EQ(beats, 3);
    EXPECT_EQ(client.disconnectReason(), "WebSocket: message over the limit of 40000 bytes");
    auto const pressure = client.socket().pressure();
    EXPECT_GT(pressure.readingPauses, 0u);
    EXPECT_LT(pressure.mostBytesUnhandled, 2u << 20);
}

TEST_P(Conversation, TellsWhenThereIsRoomAgain) {
    constexpr std::size_t kBlob = 1u << 20, kBound = 8u << 20;
    std::atomic<bool> mayRead{false};
    ScriptedServer server([&](ScriptedPeer& peer) {
        peer.login();
        while (!mayRead) peer.sleep(1ms);
        if (peer.number() == 1) peer.reset();
        peer.readToEnd();
    });
    SocketConfig config;
    config.maxQueuedBytes = kBound;
    Client client(GetParam(), server.url(), config);
    auto& socket = client.socket();
    std::vector<std::size_t> writable;  // what waited by then
    socket.onWritable([&] { writable.push_back(socket.bytesQueued()); });
    auto const fill = [&] {
        SocketItems items;
        items.values = {items.binary(makeData(KvBytes(kBlob)))};
        for (auto const before = socket.pressure().dropped; socket.pressure().dropped == before; client.queue->poll())
            socket.emit("blob", items);
    };
    ASSERT_TRUE(client.connect());
    fill();
    EXPECT_GT(socket.bytesQueued(), kBound - 2 * kBlob);
    EXPECT_TRUE(writable.empty());
    mayRead = true;
    ASSERT_TRUE(runUntil(*client.queue, [&] { return !writable.empty() && socket.bytesQueued() == 0; }));
    EXPECT_LE(writable.front(), kBound / 2);
    EXPECT_EQ(writable.size(), 1u);

    // The next connection begins with an empty queue and, where a call is owed, with that.
    mayRead = false;
    socket.disconnect();
    client.lines.clear();
    ASSERT_TRUE(client.connect());
    fill();
    mayRead = true;
    ASSERT_TRUE(client.waitForEvent("disconnect"));
    EXPECT_EQ(socket.bytesQueued(), 0u);
    EXPECT_EQ(writable.size(), 1u);
    client.lines.clear();
    ASSERT_TRUE(client.connect());
    EXPECT_EQ(writable.size(), 2u);
    EXPECT_EQ(socket.pressure().dropped, 2u);
    EXPECT_LE(socket.pressure().mostBytesQueued, kBound);
}

TEST_P(Conversation, BelievesNoServerThatSpeaksForThisSide) {
    ScriptedServer server([](ScriptedPeer& peer) {
        auto const text = textFrame;
        peer.acceptWebSocket();
        peer.send(text(ScriptedPeer::openPacket({})) + text("42[\"event\",\"early\"]") + text("40{\"sid\":\"S\"}") +
                  text("42[\"late\"]") + text("42[\"connect\"]") + text("42[\"error\",\"x\"]") +
                  text("42[\"disconnect\",\"Namespace leave\"]") + text("42[\"disconnect\",\"Got Disconnect\"]") +
                  text("42[\"disconnect\",\"Ping timeout\"]") + text("437[]") + text("43[]") +
                  text("42[\"event\",\"last\"]") + text("42[\"disconnect\",\"a server's own\"]"));
        peer.readToEnd();
    });
    std::vector<std::string> log;
    SocketConfig config;
    config.log = [&](std::string_view line) { log.emplace_back(line); };
    Client client(GetParam(), server.url(), config);
    client.socket().on("connect", [&](SocketData const&) {
        client.record("late");
        client.socket().emit("disconnect", {});
        client.socket().emit("photos", {{}, std::vector<KvData>(11, makeData(KvBytes()))});
        client.socket().emit("photos", {{}, std::vector<KvData>(10, makeData(KvBytes()))});
    });
    client.socket().connect();
    ASSERT_TRUE(client.waitForEvent("disconnect"));
    EXPECT_EQ(client.lines, (std::vector<std::string>{"connect", "event [\"early\"]", "late", "event [\"last\"]",
                                                      "disconnect [\"a server's own\"]"}));
    EXPECT_EQ(client.socket().status(), SocketStatus::connected);
    EXPECT_EQ(client.socket().unaskedAcknowledgements(), 2u);
    ASSERT_EQ(log.size(), 2u);
    EXPECT_NE(log[0].find("disconnect, whose name is reserved"), std::string::npos);
    EXPECT_NE(log[1].find("11 attachments"), std::string::npos);
}

TEST_P(Conversation, CompressesWhatIsWorthIt) {
    std::atomic<int> small{-1}, large{-1};  // 1 for a message that came compressed
    ScriptedServer server([&](ScriptedPeer& peer) {
        EXPECT_NE(peer.request().find("permessage-deflate; client_no_context_takeover"), std::string::npos);
        peer.connect({}, "Sec-WebSocket-Extensions: permessage-deflate; client_no_context_takeover\r\n");
        // "42["event"]" deflated, from another implementation.
        peer.send(serverFrame(0xC1, std::string("\x32\x31\x8a\x56\x4a\x2d\x4b\xcd\x2b\x51\x8a\x05\x00", 13)));
        small = peer.readMessage().isCompressed ? 1 : 0;
        large = peer.readMessage().isCompressed ? 1 : 0;
        peer.hangUp();
    });
    SocketConfig config;
    config.compress = true;
    Client client(GetParam(), server.url(), config);
    ASSERT_TRUE(client.connect());
    EXPECT_TRUE(client.waitFor("event"));
    client.socket().emit("small", itemsOf({std::string(900, 'a')}));
    client.socket().emit("large", itemsOf({std::string(1100, 'a')}));
    EXPECT_TRUE(client.waitForEvent("disconnect"));
    EXPECT_EQ(small, 0);
    EXPECT_EQ(large, 1);
}

TEST(EngineOnMainQueue, ARequestWhoseTimeIsOverIsNotSentLater) {
    std::atomic<bool> mayRead{false}, isOver{false};
    std::vector<std::string> seen;
    ScriptedServer server([&](ScriptedPeer& peer) {
        peer.login();
        while (!mayRead) peer.sleep(1ms);
        do seen.emplace_back(peer.readEvent().items.at(0).as_string());
        while (seen.back() != "last");
        isOver = true;
    });
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Client client(Engine::mainQueue, server.url(), {}, queue);
    ASSERT_TRUE(client.connect());
    for (int i = 0; i < 32; ++i) {
        SocketItems items;
        items.values = {items.binary(makeData(KvBytes(1u << 20)))};
        client.socket().emit("blob", items);
    }
    queue->poll();  // the socket takes what it can
    client.socket().emitWithAck("late", {}).timingOutAfter(6s, nullptr);
    client.socket().emit("last", {});
    queue->advance(6s);
    mayRead = true;
    ASSERT_TRUE(runUntil(*queue, [&] { return isOver.load(); }));
    EXPECT_EQ(seen.size(), 33u);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "late"), 0);
}

}  // namespace
}  // namespace kv::test
