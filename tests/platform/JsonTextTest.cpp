#include "Platform/KvJsonText.h"
#include "support/Json.h"
#include "support/Test.h"

#include <limits>

namespace kv {
namespace {

std::string repeated(std::string const& text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

std::string objectOf(std::size_t keys) {
    std::string text = "{";
    for (std::size_t i = 0; i < keys; ++i) text += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":1";
    return text + "}";
}

TEST(JsonText, IsReadWithinBounds) {
    struct Case {
        std::string text;
        std::string problem;  // a part of it; empty when there is none
    };
    std::vector<Case> cases{
        {repeated("[", 64) + repeated("]", 64), ""},
        {repeated("[", 65) + repeated("]", 65), "nested too deeply"},
        {objectOf(10'000), ""},
        {objectOf(10'001), "too many keys"},
        {"[" + objectOf(10'000) + "," + objectOf(10'000) + "]", ""},
        {"[" + repeated(objectOf(5'000) + ",", 17) + "0]", "too many keys"},
        {"[" + repeated(objectOf(30) + ",", 20'000) + "0]", ""},
        {"[" + repeated("0,", (1u << 20) - 2) + "0]", ""},
        {"[" + repeated("[],", 1u << 20) + "0]", "more than a million values"},
    };
    for (auto const* bad : {"", "[", "[1", R"(["a)", "[1]x", "[1][2]", "nul", "{]", R"({"a" 1})", "[01]",
                            R"(["\uD83"])", R"(["\ud83d)", "[\"\xED\xA0\xBD\"]"})
        cases.push_back({bad, "bad JSON"});
    for (auto const& c : cases) {
        json::value value;
        auto const problem = readJson(c.text, {}, value);
        EXPECT_EQ(problem.empty(), c.problem.empty()) << c.text.substr(0, 60) << ": " << problem;
        EXPECT_NE(problem.find(c.problem), std::string::npos) << problem;
    }
}

TEST(JsonText, TakesHalfAPairAsAReplacementCharacter) {
    for (auto const& [text, want] : std::vector<std::pair<char const*, json::value>>{
             {R"("cut \ud83d")", "cut \xEF\xBF\xBD"},
             {R"({"\ude00 key":"\uD83D\u0041"})",
              {{"\xEF\xBF\xBD key",
                "\xEF\xBF\xBD"
                "A"}}},
             {R"(["\ud83d\ud83d\ude00","\\ud83d","\ud83d\n"])",
              {"\xEF\xBF\xBD\xF0\x9F\x98\x80", "\\ud83d", "\xEF\xBF\xBD\n"}},
         }) {
        json::value value;
        EXPECT_EQ(readJson(text, {}, value), "") << text;
        EXPECT_EQ(value, want) << text;
    }
}

TEST(JsonText, IsWrittenAsJavaScriptWritesIt) {
    using Double = std::numeric_limits<double>;
    json::value const all{
        1.5,       100000.0,   1e21, -0.000001, 1e-7,          Double::quiet_NaN(), -Double::infinity(),
        INT64_MIN, UINT64_MAX, true, nullptr,   json::array{}, json::object{},      {{"a\x01", {{"\"\\\n", 2}}}}};
    std::string text;
    appendJson(text, all);
    EXPECT_EQ(text,
              "[1.5,100000,1e+21,-0.000001,1e-07,null,null,-9223372036854775808,18446744073709551615,true,null,[],{},"
              R"({"a\u0001":{"\"\\\n":2}}])");
}

}  // namespace
}  // namespace kv
