#include "Platform/KvUtf8.h"
#include "SocketIO/core/Packet.h"
#include "support/Json.h"
#include "support/Test.h"

namespace kv::sio {
namespace {

TEST(PacketHeader, IsReadInAllItsForms) {
    struct Case {
        char const* packet;
        char const* header;  // type, attachments, id, JSON
    };
    for (auto const& c : {Case{R"(0{"sid":"x"})", R"(0 0 - {"sid":"x"})"},
                          {"1", "1 0 - "},
                          {R"(2["a"])", R"(2 0 - ["a"])"},
                          {R"(2/,["a"])", R"(2 0 - ["a"])"},
                          {R"(2/?token=1,["a"])", R"(2 0 - ["a"])"},
                          {"1/", "1 0 - "},
                          {R"(217["a"])", R"(2 0 17 ["a"])"},
                          {R"(3999999999999999["a"])", R"(3 0 999999999999999 ["a"])"},
                          {"31234567890123456[]", "3 0 - []"},
                          {"3[]", "3 0 - []"},
                          {R"(51000-["a"])", R"(5 1000 - ["a"])"},
                          {"60-5[]", "6 0 5 []"},
                          {"62-/,12[]", "6 2 12 []"}}) {
        PacketHeader header;
        EXPECT_EQ(readPacketHeader(c.packet, header), "") << c.packet;
        auto const id = header.id ? std::to_string(*header.id) : "-";
        EXPECT_EQ(std::string(1, static_cast<char>(header.type)) + ' ' + std::to_string(header.attachments) + ' ' + id +
                      ' ' + std::string(header.json),
                  c.header);
    }
}

TEST(PacketWriting, WritesEventsAsTheServerReadsThem) {
    struct Case {
        std::string event;
        json::array values;
        std::size_t attachments;
        std::optional<std::uint64_t> id;
        std::string text;
    };
    std::vector<Case> const cases{
        {"hello", {}, 0, {}, R"(42["hello"])"},
        {"hello", {}, 0, 0, R"(420["hello"])"},
        {"command",
         {"join", json::object{{"channelId", "room"}}},
         0,
         12,
         R"(4212["command","join",{"channelId":"room"}])"},
        {"a\"\\\n", {nullptr, true, 1.5, -3}, 0, {}, R"(42["a\"\\\n",null,true,1.5,-3])"},
        {"photo", {}, 2, {}, R"(452-["photo"])"},
        {"photo", {}, 1, 7, R"(451-7["photo"])"},
        {"bad \xFF", {"\xC0"}, 0, {}, "42[\"bad \xEF\xBF\xBD\",\"\xEF\xBF\xBD\"]"},
        {"\xE2\x82\xAC", {}, 0, {}, "42[\"\xE2\x82\xAC\"]"},
    };
    for (auto const& c : cases) {
        SocketItems items{c.values, std::vector<KvData>(c.attachments, makeData(std::string_view("x")))};
        std::string text;
        writeEvent(text, c.event, items, c.id);
        EXPECT_EQ(text, c.text);
    }
}

TEST(PacketWriting, WritesAnswersAsTheServerReadsThem) {
    std::string text;
    writeAck(text, {{1, "two"}, {}}, 7);
    writeAck(text, {{}, {makeData(std::string_view("x"))}}, 0);
    EXPECT_EQ(text, R"(437[1,"two"]461-0[])");
}

TEST(PacketReading, FindsTheNameWithoutReadingTheRest) {
    struct Case {
        char const* json;
        std::optional<std::string> name;
    };
    for (auto const& c : std::vector<Case>{
             {R"(["plain",{{{)", "plain"},
             {R"([ "a\"\u0041\ud83d")", "a\"A\xEF\xBF\xBD"},
             {"[17]", "17"},
             {"[\t-3 ,{}]", "-3"},
             {R"(["")", ""},
             {R"(["open)", {}},
             {R"(["bad \x"])", {}},
             {"[1.5]", {}},
             {"[1234567890123456]", {}},
             {"[null]", {}},
             {"[", {}},
             {"", {}},
         }) {
        std::string decoded;
        EXPECT_EQ(eventNameOf(c.json, decoded), c.name) << c.json;
    }
}

TEST(SocketData, FindsBytesOnlyBehindRealPlaceholders) {
    SocketItems items;
    items.values = {items.binary(makeData(std::string_view("one"))), items.binary(nullptr)};
    ASSERT_EQ(items.attachments.size(), 1u);
    EXPECT_EQ(json::serialize(items.values), R"([{"_placeholder":true,"num":0},null])");

    SocketData const data(items.values, items.attachments);
    EXPECT_EQ(data.binary(items.values[0]), items.attachments[0]);
    auto const impostors = json::parse(R"([null, "text", {}, {"_placeholder":true}, {"_placeholder":false,"num":0},
        {"_placeholder":"true","num":0}, {"_placeholder":true,"num":1}, {"_placeholder":true,"num":-1},
        {"_placeholder":true,"num":0.5}, {"_placeholder":true,"num":"0"},
        {"_placeholder":true,"num":18446744073709551615}])");
    for (auto const& value : impostors.as_array()) EXPECT_EQ(data.binary(value), nullptr) << value;
}

}  // namespace
}  // namespace kv::sio
