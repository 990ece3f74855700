// How connections end: each once, with the reason that is told, whatever happens around it.
#include "Net/Failure.h"
#include "Sockets.h"

#include <system_error>

namespace kv::test {
namespace {

using Stage = KvFailureStage;
class Ends : public EveryEngine {};
ON_EVERY_ENGINE(Ends);

struct Ending {
    char const* what;
    ScriptedServer::Script script;
    char const* reason;  // a part of it
    Stage stage = Stage::session;
};

ScriptedServer::Script afterLogin(ScriptedServer::Script const& end) {
    return [end](ScriptedPeer& peer) {
        peer.login();
        end(peer);
        peer.readToEnd();
    };
}

ScriptedServer::Script answering(std::string bytes) {
    return [bytes = std::move(bytes)](ScriptedPeer& peer) {
        peer.send(bytes);
        peer.readToEnd();
    };
}

TEST_P(Ends, EveryEndIsToldOnceWithItsReason) {
    std::vector<Ending> const endings = {
        {"namespace left by the server", afterLogin([](auto& peer) { peer.sendText("41"); }), "Got Disconnect"},
        {"close frame", afterLogin([](auto& peer) { peer.close(1001, "bye"); }), "1001 bye"},
        {"end of the connection", afterLogin([](auto& peer) { peer.hangUp(); }), "closed the connection"},
        {"reset", afterLogin([](auto& peer) {
             peer.sleep(20ms);
             peer.reset();
         }),
         "reset"},
        {"bad JSON", afterLogin([](auto& peer) { peer.sendText("42[\"event\","); }), "bad JSON"},
        {"frame over the limit",
         afterLogin([](auto& peer) { peer.send(std::string("\x82\x7F\0\0\0\0\x01\0\0\x01", 10)); }), "16 MiB"},
        {"connect error",
         [](ScriptedPeer& peer) {
             peer.acceptWebSocket();
             peer.sendText(ScriptedPeer::openPacket({}));
             peer.readText();
             peer.sendText("44{\"message\":\"not for you\"}");
             peer.readToEnd();
         },
         "not for you"},
        {"no HTTP", answering("SSH-2.0-OpenSSH\r\n"), "HTTP", Stage::upgrade},
        {"TLS", answering("\x15\x03\x03"), "HTTP", Stage::tls},
        {"refused", answering("HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n"), "403 Forbidden", Stage::upgrade},
        {"endless head", answering("HTTP/1.1 101 X\r\n" + std::string(100000, 'h')), "too long", Stage::upgrade},
        {"end within the handshake",
         [](ScriptedPeer& peer) {
             peer.send("HTTP/1.1 101");
             peer.hangUp();
         },
         "closed the connection", Stage::upgrade},
    };
    for (auto const& ending : endings) {
        SCOPED_TRACE(ending.what);
        ScriptedServer server(ending.script);
        Client client(GetParam(), server.url());
        client.socket().connect();
        EXPECT_TRUE(client.lines.empty()) << "inside connect";
        EXPECT_NE(client.disconnectReason().find(ending.reason), std::string::npos) << client.disconnectReason();
        EXPECT_EQ(client.socket().failure().stage, ending.stage);
        EXPECT_EQ(client.socket().status(), SocketStatus::disconnected);
        EXPECT_EQ(client.socket().sid(), "");
        auto const told = client.lines.size();
        client.socket().disconnect();
        client.queue->runFor(2ms);
        EXPECT_EQ(client.lines.size(), told) << client.lines.back();
    }
}

// The close frame must reach the server, though much that it sent is still unread.
TEST_P(Ends, TellsTheServerWhy) {
    for (auto const& [last, wanted] : {std::pair{serverFrame(0x88, "\x0F\xA1 why"), "\x0F\xA1"},
                                       {serverFrame(0x88, ""), "\x03\xE8"},
                                       {serverFrame(0x88, "\x03\xED"), "\x03\xEA"},
                                       {textFrame("42[\"\xFF\"]"), "\x03\xEF"},
                                       {std::string("\x09\x00", 2), "\x03\xEA"}}) {
        std::string code;
        std::atomic<bool> isOver{false};
        ScriptedServer server([&, last = last](ScriptedPeer& peer) {
            peer.login();
            peer.send(last + std::string(1u << 20, 'x'));
            for (auto const& message : peer.readToEnd()) code = message.opcode == 8 ? message.payload : "";
            isOver = true;
        });
        Client client(GetParam(), server.url());
        client.socket().connect();
        EXPECT_TRUE(client.waitForEvent("disconnect"));
        EXPECT_TRUE(runUntil(*client.queue, [&] { return isOver.load(); }));
        EXPECT_EQ(code, wanted);
    }
}

TEST_P(Ends, AddressesThatLeadNowhere) {
    struct Case {
        char const* url;
        char const* reason;
        Stage stage;
    };
    for (auto const& c : std::vector<Case>{{"http://127.0.0.1:1", "refused", Stage::tcp},
                                           {"ftp://127.0.0.1", "Not an address", Stage::address},
                                           {"http://no.such.host.invalid", "Cannot find", Stage::name}}) {
        Client client(GetParam(), c.url);
        client.socket().connect();
        EXPECT_EQ(client.socket().status(), SocketStatus::connecting);
        EXPECT_NE(client.disconnectReason().find(c.reason), std::string::npos)
            << c.url << ": " << client.disconnectReason();
        EXPECT_EQ(client.socket().failure().stage, c.stage) << c.url;
    }
}

TEST_P(Ends, DisconnectLeavesWithinTheCallAndSaysGoodbye) {
    std::vector<ClientFrame> goodbye;
    std::atomic<bool> isOver{false};
    {
        ScriptedServer server([&](ScriptedPeer& peer) {
            peer.login();
            auto messages = peer.readToEnd();
            if (peer.number() != 0) return;
            goodbye = std::move(messages);
            isOver = true;
        });
        Client client(GetParam(), server.url());
        ASSERT_TRUE(client.connect());
        client.socket().emit("last", {});
        client.socket().disconnect();
        EXPECT_EQ(client.lines.back(), "disconnect [\"Namespace leave\"]");
        auto const told = client.lines.size();
        ASSERT_TRUE(runUntil(*client.queue, [&] { return isOver.load(); }));
        EXPECT_EQ(client.lines.size(), told);
        client.socket().connect();
        EXPECT_TRUE(runUntil(*client.queue, [&] { return client.socket().status() == SocketStatus::connected; }));
    }
    ASSERT_GE(goodbye.size(), 3u);
    EXPECT_EQ(goodbye[0].payload, "42[\"last\"]");
    EXPECT_EQ(goodbye[1].payload, "41");
    EXPECT_EQ(goodbye[2].opcode, 8);
}

TEST(EngineOnMainQueue, TimesAreThoseOfTheQueue) {
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    for (auto const stage : {"Ping timeout", "WebSocket handshake", "timed out"}) {  // what the server does not do
        SCOPED_TRACE(stage);
        bool const connects = std::string_view(stage).starts_with("Ping"),
                   accepts = std::string_view(stage) == "timed out";
        ScriptedServer server([&](ScriptedPeer& peer) {
            if (connects) peer.connect({1000ms, 500ms});
            if (accepts) peer.acceptWebSocket();
            peer.readToEnd();
        });
        Client client(Engine::mainQueue, server.url(), {}, queue);
        int timeouts = 0;
        client.socket().connectWithTimeoutAfter(6s, [&] { ++timeouts; });
        ASSERT_TRUE(
            runUntil(*queue, [&] { return connects ? !client.lineOf("connect").empty() : server.connections() == 1; }));
        queue->runFor(50ms);
        queue->advance(connects ? 1499ms : 29999ms);
        EXPECT_EQ(client.lineOf("disconnect"), "");
        queue->advance(2ms);
        EXPECT_NE(client.disconnectReason().find(stage), std::string::npos) << client.disconnectReason();
        EXPECT_EQ(timeouts, connects ? 0 : 1);
    }
}

TEST(EngineOnMainQueue, AChangeOfTheNetworkPutsTheConnectionToTheTest) {
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    std::atomic<int> pings{0};
    std::atomic<bool> isAlive{true};
    ScriptedServer server([&](ScriptedPeer& peer) {
        if (peer.number() == 0) peer.readToEnd();  // its network is gone
        peer.login();
        while (peer.readMessage().opcode == 9) {
            if (isAlive) peer.emit("event");  // any sign of life counts
            ++pings;
        }
    });
    Client client(Engine::mainQueue, server.url(), {}, queue);
    auto const change = [&] {
        for (int i = 0; i < 3; ++i) client.socket().networkChanged();
    };
    change();  // of no interest yet
    client.socket().connect();
    ASSERT_TRUE(runUntil(*queue, [&] { return server.connections() == 1; }));
    change();
    queue->advance(999ms);
    EXPECT_EQ(server.connections(), 1);
    queue->advance(1ms);
    ASSERT_TRUE(client.waitForEvent("loginSuccess"));
    change();
    ASSERT_TRUE(client.waitForEvent("event"));
    isAlive = false;
    queue->advance(6s);
    change();
    ASSERT_TRUE(runUntil(*queue, [&] { return pings == 2; }));
    queue->advance(4999ms);
    EXPECT_EQ(client.lineOf("disconnect"), "");
    queue->advance(1ms);
    EXPECT_EQ(client.disconnectReason(), "The server is silent since the network changed");
    EXPECT_EQ(pings, 2);
}

TEST(EngineOnMainQueue, AcknowledgementsEndOnceWhateverBecomesOfTheSocket) {
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    ScriptedServer server([](ScriptedPeer& peer) {
        peer.login();
        auto const event = peer.readEvent();
        peer.acknowledge(event, {"in time"});
        peer.acknowledge(event, {"doubled"});
        peer.readToEnd();
    });
    std::vector<std::string> answers;
    auto const record = [&](SocketData const& data) { answers.emplace_back(data.items().at(0).as_string()); };
    {
        Client client(Engine::mainQueue, server.url(), {}, queue);
        client.socket().emitWithAck("never connected", {}).timingOutAfter(6s, record);
        client.socket().emitWithAck("at once", {}).timingOutAfter(-1s, record);
        EXPECT_TRUE(answers.empty()) << "inside the call";
        ASSERT_TRUE(client.connect());
        EXPECT_EQ(answers, (std::vector<std::string>{"NO ACK"}));
        EXPECT_EQ(client.lineOf("error"), "error [\"Tried emitting when not connected\"]");
        client.socket().emitWithAck("answered", {}).timingOutAfter(6s, record);
        ASSERT_TRUE(runUntil(*queue, [&] { return answers.size() == 2; }));
        client.socket().emitWithAck("lost", {}).timingOutAfter(7s, record);
    }
    queue->advance(20s);
    EXPECT_EQ(answers, (std::vector<std::string>{"NO ACK", "in time", "NO ACK", "NO ACK"}));
}

}  // namespace
}  // namespace kv::test
