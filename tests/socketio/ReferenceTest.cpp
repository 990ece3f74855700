// Against the reference socket.io server, in a process of its own.
#include "Sockets.h"
#include "support/ChildProcess.h"

#include <cmath>

namespace kv::test {
namespace {

class Reference : public EveryEngine {};
ON_EVERY_ENGINE(Reference);

class ReferenceServer {
public:
    /// `deflate`: its settings of permessage-deflate.
    explicit ReferenceServer(char const* deflate = "false")
        : ReferenceServer(std::vector<std::string>{"node", KV_REFERENCE_SERVER, KV_SERVICE_PACKAGE, deflate}) {}
    static ReferenceServer python() {
        return ReferenceServer(std::vector<std::string>{"/usr/bin/python3", KV_PYTHON_SERVER});
    }
    std::string url() const { return "http://127.0.0.1:" + port_; }
    std::string nextLine() { return process_.readLine(std::chrono::steady_clock::now() + 20s).value_or("nothing"); }

private:
    explicit ReferenceServer(std::vector<std::string> const& command) : process_(command) { port_ = nextLine(); }

    ChildProcess process_;
    std::string port_;
};

void answerQuestions(Client& client) {
    client.socket().on("question", [&](SocketData const& data) {
        SocketItems items;
        items.values = {{data.items().at(0), std::nan(""), "\xF0\x9F\x98\x80"}};
        client.queue->post([answer = data.answer(), items] {
            answer(items);
            answer({});  // once is enough
        });
    });
    client.socket().emit("ask", {});
    EXPECT_TRUE(client.waitFor("event [[1,null,\"\xF0\x9F\x98\x80\"]]"));
}

void talk(Client& client) {
    ASSERT_TRUE(client.connect()) << client.lineOf("disconnect");
    EXPECT_TRUE(client.waitForEvent("loginSuccess"));
    EXPECT_NE(client.lineOf("loginSuccess").find("\"a key\":\"a&b=ü\""), std::string::npos)
        << client.lineOf("loginSuccess");
    int answers = 0;
    for (std::size_t const size : {0u, 1u, 125u, 126u, 1023u, 1024u, 65535u, 65536u, 2000000u}) {
        KvBytes bytes(size);
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * i >> 3);
        auto const text = std::string(size, 'x') + "ü";
        SocketItems items;
        items.values = {json::string(text), {{"list", {items.binary(makeData(bytes)), 2.5, nullptr}}}};
        client.socket()
            .emitWithAck("echo", std::move(items))
            .timingOutAfter(20s, [&, bytes, text](SocketData const& data) {
                ++answers;
                ASSERT_EQ(data.items().size(), 2u) << json::serialize(data.items());
                EXPECT_EQ(data.items()[0].as_string(), text);
                auto const& list = data.items()[1].at("list").as_array();
                ASSERT_TRUE(data.binary(list.at(0)));
                EXPECT_TRUE(*data.binary(list.at(0)) == bytes);
            });
    }
    EXPECT_TRUE(runUntil(*client.queue, [&] { return answers == 9; })) << client.lineOf("disconnect");
    answerQuestions(client);
    int pushed = 0;
    client.socket().on("pushed", [&](SocketData const& data) {
        EXPECT_EQ(data.items().at(0).as_int64(), pushed);
        EXPECT_EQ(data.binary(data.items().at(1))->size(), static_cast<std::size_t>(pushed % 7));
        ++pushed;
    });
    SocketItems count;
    count.values = {500};
    client.socket().emit("push", count);
    EXPECT_TRUE(runUntil(*client.queue, [&] { return pushed == 500; })) << pushed;
}

SocketConfig withQuery(bool compress) {
    SocketConfig config;
    config.connectParams = {{"a key", "a&b=ü"}};
    config.compress = compress;
    return config;
}

TEST_P(Reference, TalksToTheReferenceServer) {
    for (auto const* deflate : {"false", R"({"threshold":0})", R"({"threshold":0,"serverNoContextTakeover":false})",
                                R"({"threshold":0,"clientMaxWindowBits":9,"serverMaxWindowBits":10})"}) {
        SCOPED_TRACE(deflate);
        ReferenceServer server(deflate);
        Client client(GetParam(), server.url(), withQuery(true));
        talk(client);
        client.queue->runFor(700ms);  // two heartbeats
        EXPECT_EQ(client.socket().status(), SocketStatus::connected);
        client.socket().disconnect();
        client.queue->runFor(50ms);
        EXPECT_EQ(server.nextLine(), "left: client namespace disconnect");
    }
}

TEST_P(Reference, TalksToThePythonServer) {
    auto const server = ReferenceServer::python();
    if (server.url().ends_with("nothing")) GTEST_SKIP() << "this machine has no python3-socketio";
    Client client(GetParam(), server.url(), withQuery(true));
    ASSERT_TRUE(client.connect()) << client.lineOf("disconnect");
    EXPECT_TRUE(client.waitFor("event [\"early\"]"));
    answerQuestions(client);
}

TEST_P(Reference, HearsHowTheReferenceServerEnds) {
    ReferenceServer server;
    struct Case {
        char const* event;
        char const* reason;
    };
    for (auto const& c : std::vector<Case>{
             {"leaveMe", "Got Disconnect"}, {"closeMe", "Got Disconnect"}, {"dropMe", "closed the connection"}}) {
        Client client(GetParam(), server.url(), withQuery(false));
        ASSERT_TRUE(client.connect());
        client.socket().emit(c.event, {});
        EXPECT_NE(client.disconnectReason().find(c.reason), std::string::npos)
            << c.event << ": " << client.disconnectReason();
    }
    auto config = withQuery(false);
    config.connectParams.emplace_back("refuse", "loginFail: InvalidToken");
    Client refused(GetParam(), server.url(), config);
    refused.socket().connect();
    EXPECT_EQ(refused.disconnectReason(), "loginFail: InvalidToken");
}

}  // namespace
}  // namespace kv::test
