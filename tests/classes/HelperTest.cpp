// The helpers whose exact results end up on the wire and in logs, and the configuration of a login.
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/Internal/KvPimLoginParams.h"
#include "Classes/Internal/KvPimRequest.h"
#include "Classes/Internal/KvPimStateHelper.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/Model/KvPimPeerOnlineStatus.h"
#include "Classes/Model/KvPimResult.h"
#include "Classes/Model/KvPimUserAttributes.h"
#include "SocketIO/SocketData.h"
#include "support/Json.h"
#include "support/Test.h"

#include <cmath>
#include <limits>

namespace kv::test {
namespace {

TEST(HelperTest, IntegersAreReadFromWhateverTheServerSent) {
    using Limits = std::numeric_limits<std::int64_t>;
    struct Case {
        char const* text;
        std::int64_t want;
    };
    for (auto const& c :
         {Case{"7", 7}, Case{"-7", -7}, Case{"7.9", 7}, Case{"-7.9", -7}, Case{"1e300", Limits::max()},
          Case{"-1e300", Limits::min()}, Case{"18446744073709551615", Limits::max()}, Case{"true", 1}, Case{"null", 0},
          Case{"[]", 0}, Case{"\"200\"", 200}, Case{"\" -12x\"", -12}, Case{"\"x\"", 0},
          Case{"\"99999999999999999999\"", Limits::max()}, Case{"\"-99999999999999999999\"", Limits::min()},
          Case{"\"-9223372036854775808\"", Limits::min()}, Case{"9223372036854775807", Limits::max()}}) {
        auto const value = json::parse(c.text);
        EXPECT_EQ(asInteger(&value), c.want) << c.text;
    }
    json::value const big(5000000000);
    EXPECT_EQ(asInteger32(&big), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(asInteger(nullptr), 0);
}

TEST(HelperTest, JsonTextIsForListsAndDictionaries) {
    EXPECT_EQ(jsonString("text"), "");
    EXPECT_EQ(jsonString(7), "");
    EXPECT_EQ(jsonString(json::object{{"a", json::array{1, "b"}}}), R"({"a":[1,"b"]})");
    EXPECT_EQ(jsonString(json::array{std::nan("")}), std::nullopt);
}

TEST(HelperTest, PatternsCoverTheWholeText) {
    EXPECT_TRUE(match(std::string(32, 'x'), R"(\S{32,32})"));
    EXPECT_FALSE(match(std::string(33, 'x'), R"(\S{32,32})"));
    EXPECT_FALSE(match("x", "("));
    EXPECT_EQ(md5Value(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Value("abc"), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(HelperTest, ALoginsConfigurationCarriesItsCredentialsAsText) {
    KvPimLoginParams parameters;
    EXPECT_TRUE(parameters.generateSocketConfig().empty());
    parameters.loginWithToken("t\"oken", "app", "user", 5);
    auto const config = parameters.generateSocketConfig();
    EXPECT_EQ(config.at("compress"), true);
    EXPECT_EQ(config.at("forceWebsockets"), true);
    auto parameter = config.at("connectParams").as_object();
    auto credentials = json::parse(parameter.at("token").as_string()).as_object();
    EXPECT_GT(std::exchange(credentials["connectTimeStamp"], 0).as_int64(), 1600000000000);
    EXPECT_EQ(credentials,
              (json::object{{"token", "t\"oken"}, {"userId", "user"}, {"timestamp", 5}, {"connectTimeStamp", 0}}));
    parameter.erase("token");
    EXPECT_EQ(parameter, (json::object{{"app", "brivel"}, {"roomId", "app"}}));
    parameters.logout();
    EXPECT_TRUE(parameters.generateSocketConfig().empty());
}

TEST(HelperTest, ListsAreMadeOfCollectionsUntilStopped) {
    EXPECT_EQ(kv_map(std::vector{5, 6, 7},
                     [](int number, std::size_t index, bool& stop) {
                         stop = index == 1;
                         return std::pair(number, index);
                     }),
              (std::vector<std::pair<int, std::size_t>>{{5, 0}, {6, 1}}));
    std::string seen;
    kv_each(json::object{{"b", 1}, {"a", 2}, {"c", 3}}, [&](auto const& key, auto const& value, bool& stop) {
        seen += key;
        stop = value == 2;
    });
    EXPECT_EQ(seen, "ba");
}

TEST(HelperTest, RecordsAreReadAndWrittenWithoutWhatTheyLack) {
    KvPimInvitation invitation;
    invitation.inviter = "anna";
    invitation.invitee = "ben";
    json::object const bare{{"inviter", "anna"}, {"invitee", "ben"}, {"state", 0}};
    EXPECT_EQ(dictionaryFrom(invitation), bare);
    EXPECT_EQ(invitationFrom(&bare)->requestInfo, std::nullopt);
    invitation.responseInfo = "";  // empty is not absent
    EXPECT_EQ(dictionaryFrom(invitation).at("responseInfo"), "");
    std::vector<KvPimAttribute> const attributes{{"a", "1"}, {"b", "2"}, {"a", std::nullopt}, {"c", ""}};
    EXPECT_EQ(attributeMapOf(attributes), (json::object{{"b", "2"}, {"c", ""}}));
    EXPECT_EQ(storedAttributesOf(attributes), (KvPimLocalUserAttributes::Map{{"b", "2"}, {"c", ""}}));
    json::array const dictionaries{{{"channelId", "c"}, {"userId", "anna"}}, {{"userId", 7}, {"channelId", "c"}}, 7};
    auto const members = KvPimMember::membersFromArray(dictionaries);
    EXPECT_EQ(members, (std::vector<KvPimMember>{{"anna", "c"}, {"", "c"}, {"", ""}}));
    EXPECT_EQ(dictionaryFrom(members[1]), (json::object{{"channelId", "c"}}));
}

// On the wire binary data are a placeholder, which looks like a dictionary.
TEST(HelperTest, BytesAreNoDictionaryOfAnAnswer) {
    json::array const items{{{"_placeholder", true}, {"num", 0}}};
    std::vector<KvData> const attachments{makeData(std::string("\1\2"))};
    EXPECT_EQ(KvPimResult::resultWithArray(SocketData(items, attachments)).code, -1);
    EXPECT_EQ(KvPimResult::resultWithArray(SocketData(items, {})).code, 0);  // no attachment: it is one
    json::array const answer{{{"result", 0}, {"status", items[0]}}};
    SocketData const data(answer, attachments);
    EXPECT_EQ(dictionaryOf(KvPimResult::resultWithArray(data), "status"), nullptr);
}

TEST(HelperTest, RecordsHaveATextForm) {
    KvPimAttribute const mood{"mood", "say \"hi\""};
    std::string const text = R"({"key":"mood","value":"say \"hi\""})";
    EXPECT_EQ(mood.description(), text);
    KvPimAttributeWithState const kept{mood, false}, deleted{{"city", std::nullopt}, true};
    EXPECT_EQ(kept.description(), R"({"key":"mood","value":"say \"hi\"","deleted":0})");
    EXPECT_EQ(
        (KvPimUserAttributes{"anna", {{kept, deleted}}}.description()),
        R"({"userId":"anna","attributes":[)" + kept.description() + R"(,{"key":"city","value":"","deleted":1}]})");
    EXPECT_EQ((KvPimUserAttributes{"anna", std::nullopt}.description()), R"({"userId":"anna","attributes":[]})");
    EXPECT_EQ((KvPimPeerOnlineStatus{"anna", true}.description()), "peerId: anna, isOnline: 1");
}

}  // namespace
}  // namespace kv::test
