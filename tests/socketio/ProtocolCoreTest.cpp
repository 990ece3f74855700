#include "SocketIO/core/ProtocolCore.h"

#include <string>
#include <vector>

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

namespace kv::sio {
namespace {

using namespace std::chrono_literals;
using Kind = ReceivedPacket::Kind;

constexpr char const* kOpen =
    R"(0{"sid":"engine","upgrades":[],"pingInterval":25000,"pingTimeout":20000,"maxPayload":1000000})";
constexpr char const* kConnect = R"(40{"sid":"socket"})";

struct Packet {
    Kind kind;
    std::optional<std::uint64_t> id;
    std::string name;
    std::string items;
    std::vector<std::string> attachments;
    bool operator==(Packet const&) const = default;
};

// A core and all that it said.
class Bench final : ProtocolHost {
public:
    ProtocolCore core{*this};
    std::vector<Packet> packets;
    std::vector<std::string> sent;
    ProtocolCore::Time now{};

    bool text(std::string_view message) { return core.onText(message, now); }
    bool binary(std::string_view bytes) { return core.onBinary(KvBytes(bytes.begin(), bytes.end())); }
    void connect() {
        ASSERT_TRUE(text(kOpen));
        ASSERT_TRUE(text(kConnect));
        packets.clear();
        sent.clear();
    }

private:
    std::shared_ptr<PacketMemory> const& packetMemory() override {
        memory_ = std::make_shared<PacketMemory>();
        return memory_;
    }
    void onPacket(ReceivedPacket&& packet) override {
        std::vector<std::string> attachments;
        for (auto const& data : packet.attachments) attachments.emplace_back(data->begin(), data->end());
        packets.push_back({packet.kind, packet.id, std::string(packet.name.c_str()),
                           packet.unread + boost::json::serialize(packet.items), std::move(attachments)});
    }
    bool isAwaited(std::string_view event) override { return event != "nobody's"; }
    void sendText(std::string_view text) override { sent.emplace_back(text); }

    std::shared_ptr<PacketMemory> memory_;
};

TEST(ProtocolCore, OpensTheSessionAndJoinsTheNamespace) {
    Bench bench;
    EXPECT_FALSE(bench.core.deadline());
    ASSERT_TRUE(bench.text(kOpen));
    EXPECT_EQ(bench.sent, std::vector<std::string>{"40"});
    EXPECT_TRUE(bench.core.isOpen());
    EXPECT_FALSE(bench.core.isConnected());
    ASSERT_TRUE(bench.text(kConnect));
    EXPECT_TRUE(bench.core.isConnected());
    EXPECT_EQ(bench.packets, (std::vector<Packet>{{Kind::connected, {}, "socket", "[]", {}}}));
}

TEST(ProtocolCore, DeliversEventsAndAcknowledgements) {
    Bench bench;
    bench.connect();
    ASSERT_TRUE(bench.text(R"(42["news",{"a":[1,2]},null])"));
    ASSERT_TRUE(bench.text(R"(4217["asks for an answer"])"));
    ASSERT_TRUE(bench.text(R"(42[1,"by number"])"));
    ASSERT_TRUE(bench.text(R"(42["nobody's",{{{)"));
    ASSERT_TRUE(bench.text(R"(43["answers nothing"])"));
    ASSERT_TRUE(bench.text(R"(433[{"result":0}])"));
    ASSERT_TRUE(bench.text("434[]"));
    ASSERT_TRUE(bench.text(R"(450-["no attachments",{"_placeholder":true,"num":0}])"));
    EXPECT_EQ(bench.packets, (std::vector<Packet>{
                                 {Kind::event, {}, "news", R"([{"a":[1,2]},null])", {}},
                                 {Kind::event, 17, "asks for an answer", "[]", {}},
                                 {Kind::event, {}, "1", R"(["by number"])", {}},
                                 {Kind::event, {}, "nobody's", R"(["nobody's",{{{[])", {}},
                                 {Kind::ack, {}, "", R"(["answers nothing"])", {}},
                                 {Kind::ack, 3, "", R"([{"result":0}])", {}},
                                 {Kind::ack, 4, "", "[]", {}},
                                 {Kind::event, {}, "no attachments", R"([{"_placeholder":true,"num":0}])", {}},
                             }));
}

TEST(ProtocolCore, CollectsAttachmentsAcrossHeartbeats) {
    Bench bench;
    bench.connect();
    ASSERT_TRUE(bench.text(R"(452-["photo",{"_placeholder":true,"num":1}])"));
    ASSERT_TRUE(bench.binary("one"));
    ASSERT_TRUE(bench.text("2"));
    EXPECT_TRUE(bench.packets.empty());
    ASSERT_TRUE(bench.binary(""));
    ASSERT_TRUE(bench.text(R"(461-8[{"_placeholder":true,"num":0}])"));
    ASSERT_TRUE(bench.binary("answer"));
    EXPECT_EQ(bench.packets, (std::vector<Packet>{
                                 {Kind::event, {}, "photo", R"([{"_placeholder":true,"num":1}])", {"one", ""}},
                                 {Kind::ack, 8, "", R"([{"_placeholder":true,"num":0}])", {"answer"}},
                             }));
    EXPECT_EQ(bench.sent, std::vector<std::string>{"3"});
}

TEST(ProtocolCore, HoldsWhatComesBeforeTheNamespaceIsConnected) {
    Bench bench;
    ASSERT_TRUE(bench.text(kOpen));
    ASSERT_TRUE(bench.text(R"(42["early"])"));
    ASSERT_TRUE(bench.text(R"(451-["photo",{"_placeholder":true,"num":0}])"));
    ASSERT_TRUE(bench.binary("bytes"));
    EXPECT_TRUE(bench.packets.empty());
    ASSERT_TRUE(bench.text(kConnect));
    ASSERT_EQ(bench.packets.size(), 3u);
    EXPECT_EQ(bench.packets[0].kind, Kind::connected);
    EXPECT_EQ(bench.packets[1].name, "early");
    EXPECT_EQ(bench.packets[2].attachments, std::vector<std::string>{"bytes"});
}

TEST(ProtocolCore, AnswersPingsWithTheirPayload) {
    Bench bench;
    bench.connect();
    ASSERT_TRUE(bench.text("2probe"));
    ASSERT_TRUE(bench.text("6"));
    EXPECT_EQ(bench.sent, std::vector<std::string>{"3probe"});
    EXPECT_TRUE(bench.packets.empty());
}

TEST(ProtocolCore, EndsWhenNoPingComesInTime) {
    Bench bench;
    bench.connect();
    ASSERT_EQ(bench.core.deadline(), bench.now + 45s);
    bench.now += 44s;
    ASSERT_TRUE(bench.core.onTime(bench.now));
    ASSERT_TRUE(bench.text("2"));
    bench.now += 44s;
    ASSERT_TRUE(bench.text(R"(42["an event is no ping"])"));
    ASSERT_TRUE(bench.core.onTime(bench.now));
    bench.now += 1s;
    EXPECT_FALSE(bench.core.onTime(bench.now));
    EXPECT_EQ(bench.core.reason(), "Ping timeout");
}

// A message that begins with '#' is binary; the last one is refused.
TEST(ProtocolCore, EndsWithTheServersReasonOrTheCause) {
    std::string const deep = "42[\"a\"," + std::string(64, '[') + std::string(64, ']') + "]";
    struct Case {
        std::vector<std::string> messages;
        char const* cause;
    };
    std::vector<Case> const cases{
        {{""}, "Engine.IO: empty packet"},
        {{"2"}, "before the session was opened"},
        {{"42[\"a\"]"}, "before the session was opened"},
        {{"#bytes"}, "attachment of no packet"},
        {{"x"}, "Engine.IO: unexpected packet type"},
        {{"0"}, "bad JSON"},
        {{"0[]"}, "bad open packet"},
        {{R"(0{"sid":"a"})"}, "bad open packet"},
        {{R"(0{"sid":7,"pingInterval":1,"pingTimeout":1})"}, "bad open packet"},
        {{R"(0{"sid":"a","pingInterval":"25000","pingTimeout":1})"}, "bad open packet"},
        {{R"(0{"sid":"a","pingInterval":-1,"pingTimeout":1})"}, "bad open packet"},
        {{R"(0{"sid":"a","pingInterval":9223372036854775807,"pingTimeout":9223372036854775807})"}, "bad open packet"},
        {{kOpen, kOpen}, "opened twice"},
        {{kOpen, "41"}, "Got Disconnect"},
        {{kOpen, kConnect, "41/,"}, "Got Disconnect"},
        {{kOpen, "1"}, "The server closed the session"},
        {{kOpen, kConnect, R"(44{"message":"not allowed","data":{}})"}, "not allowed"},
        {{kOpen, R"(44"old servers say it so")"}, "old servers say it so"},
        {{kOpen, "44{}"}, "Socket.IO: the server refused the connection"},
        {{kOpen, R"(44{"message":"Namespace leave"})"}, "Socket.IO: the server refused the connection"},
        {{kOpen, "42[\"a\"]" + std::string(9u << 20, ' '), "42[\"a\"]" + std::string(9u << 20, ' ')},
         "too much before the namespace was connected"},
        {{kOpen, "42x", kConnect}, "without a name"},
        {{kOpen, "40"}, "speaks version 2"},
        {{kOpen, "2" + std::string(126, 'x')}, "ping of more than 125 bytes"},
        {{kOpen, kConnect, "421234567890123456[\"a\"]"}, "acknowledgement id"},
        {{kOpen, "40{}"}, "bad connect packet"},
        {{kOpen, kConnect, kConnect}, "connected twice"},
        {{kOpen, kConnect, ""}, "Engine.IO: empty packet"},
        {{kOpen, kConnect, "5"}, "unexpected packet type"},
        {{kOpen, kConnect, "9"}, "unexpected packet type"},
        {{kOpen, kConnect, "4"}, "Socket.IO: empty packet"},
        {{kOpen, kConnect, "47[]"}, "unknown packet type"},
        {{kOpen, kConnect, "42[\"a\""}, "bad JSON"},
        {{kOpen, kConnect, "42[\"a\"]x"}, "bad JSON"},
        {{kOpen, kConnect, deep}, "nested too deeply"},
        {{kOpen, kConnect, "42{}"}, "without a name"},
        {{kOpen, kConnect, "42[]"}, "without a name"},
        {{kOpen, kConnect, "42[1.5]"}, "without a name"},
        {{kOpen, kConnect, "431{}"}, "not an array"},
        {{kOpen, kConnect, "42/chat,[\"a\"]"}, "another namespace"},
        {{kOpen, kConnect, "451000000-[\"a\"]"}, "more than 1000 attachments"},
        {{kOpen, kConnect, "45[\"a\"]"}, "number of attachments"},
        {{kOpen, kConnect, "4599999999999999999999-[]"}, "number of attachments"},
        {{kOpen, kConnect, "#bytes"}, "attachment of no packet"},
        {{kOpen, kConnect, "451-[\"a\"]", "#one", "#two"}, "attachment of no packet"},
        {{kOpen, kConnect, "452-[\"a\"]", "#one", "42[\"b\"]"}, "text instead of an attachment"},
        {{kOpen, kConnect, "452-[\"a\"]", "41"}, "text instead of an attachment"},
        {{kOpen, kConnect, "452-[\"a\"]", "451-[\"b\"]"}, "text instead of an attachment"},
        {{kOpen, kConnect, "452-[\"a\"]", "#" + std::string(9u << 20, 'x'), "#" + std::string(9u << 20, 'x')},
         "over the limit"},
    };
    for (auto const& c : cases) {
        Bench bench;
        bool goesOn = true;
        for (auto const& message : c.messages) {
            ASSERT_TRUE(goesOn) << c.cause << ": " << bench.core.reason();
            goesOn = message.starts_with('#') ? bench.binary(message.substr(1)) : bench.text(message);
        }
        EXPECT_FALSE(goesOn) << c.cause;
        EXPECT_NE(bench.core.reason().find(c.cause), std::string::npos) << c.cause << ": " << bench.core.reason();
    }
}

}  // namespace
}  // namespace kv::sio
