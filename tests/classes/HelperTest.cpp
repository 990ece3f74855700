// The helpers whose exact results end up on the wire and in logs, and the configuration of a login.
#include "Classes/Catagory/KvJson.h"
#include "Classes/Internal/KvCollections.h"
#include "Classes/Internal/KvPimLoginParams.h"
#include "Classes/Internal/KvPimStateHelper.h"
#include "Classes/Internal/KvWireForms.h"
#include "Classes/Model/KvPimErrors.h"
#include "Classes/Model/KvPimPeerOnlineStatus.h"
#include "Classes/Model/KvPimResult.h"
#include "Classes/Model/KvPimUserAttributes.h"
#include "SocketIO/SocketData.h"
#include "support/Json.h"
#include "support/Test.h"

#include <cmath>
#include <limits>
#include <set>

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

TEST(HelperTest, MessagesAreComparedByWhatIsInThem) {
    auto const raw = [](char const* data) { return KvPimRawMessage(makeData(std::string_view(data)), "a cat"); };
    KvPimMessage const text("a cat");
    EXPECT_EQ(raw("1"), raw("1"));
    EXPECT_NE(raw("1"), raw("2"));
    EXPECT_NE(raw("1"), KvPimRawMessage(nullptr, "a cat"));
    EXPECT_NE(text, static_cast<KvPimMessage const&>(KvPimRawMessage(nullptr, "a cat")));
    auto later = text;
    later.serverReceivedTs = 1;
    EXPECT_NE(text, later);
}

constexpr KvErrc kConditions[] = {KvErrc::timedOut,        KvErrc::notLoggedIn, KvErrc::tooManyRequests,
                                  KvErrc::invalidArgument, KvErrc::refused,     KvErrc::cancelled};

// The names of codes that are in no condition.
template <KvPimErrorCode... Codes>
std::set<std::string_view> unconditional() {
    std::set<std::string_view> names, categories;
    auto const look = [&](auto code, std::set<std::string>& said) {
        std::error_code const error = code;
        if (toString(code) == "unknown") return;
        EXPECT_TRUE(said.insert(error.message()).second && error.message() == describe(code)) << error;
        auto const count = std::ranges::count_if(kConditions, [&](KvErrc condition) { return error == condition; });
        EXPECT_LE(count, error ? 1 : 0) << error;
        if (error && count == 0) names.insert(toString(code));
    };
    auto const lookAtAll = [&]<class Code>(Code) {
        EXPECT_TRUE(categories.insert(make_error_code(Code{}).category().name()).second);
        std::set<std::string> said;
        for (int number = 0; number <= KvPimErrorNotLogin; ++number) look(Code(number), said);
    };
    (lookAtAll(Codes{}), ...);
    return names;
}

TEST(HelperTest, EachFailureIsInOneConditionOrKnownNotToBe) {
    auto const names =
        unconditional<KvPimLoginErrorCode, KvPimLogoutErrorCode, KvPimRenewTokenErrorCode, KvPimJoinChannelErrorCode,
                      KvPimLeaveChannelErrorCode, KvPimChannelMembersErrorCode, KvPimChannelMessageErrorCode,
                      KvPimChannelAttributesErrorCode, KvPimMemberCountErrorCode, KvPimLocalUserAttributesErrorCode,
                      KvPimUserAttributesErrorCode, KvPimPeersErrorCode, KvPimPeerMessageErrorCode,
                      KvPimInvitationErrorCode, KvWaitError>();
    EXPECT_EQ(names,
              (std::set<std::string_view>{"KvPimLoginErrorUnknown", "KvPimLeaveChannelErrorFailure", "abandoned"}));
}

TEST(HelperTest, ConditionsHoldAcrossOperationsAndLibraries) {
    struct Case {
        std::error_code error;
        std::error_condition is, isNot;
    };
    for (auto const& c :
         {Case{KvPimLoginErrorTimeout, KvErrc::timedOut, KvErrc::refused},
          Case{KvPimInvitationErrorTimeout, std::errc::timed_out, std::errc::invalid_argument},
          Case{KvWaitError::waitedTooLong, KvErrc::timedOut, KvErrc::cancelled},
          Case{KvWaitError::cancelled, std::errc::operation_canceled, std::errc::timed_out},
          Case{make_error_code(std::errc::timed_out), KvErrc::timedOut, KvErrc::cancelled},
          Case{KvPimPeersErrorInvalidArgument, std::errc::invalid_argument, std::errc::timed_out},
          Case{KvPimLogoutErrorNotLogin, KvErrc::notLoggedIn, std::errc::not_connected},
          Case{KvPimLoginErrorOk, make_error_code(KvPimLoginErrorOk).default_error_condition(), KvErrc::refused}}) {
        EXPECT_TRUE(c.error == c.is) << c.error;
        EXPECT_FALSE(c.error == c.isNot) << c.error;
    }
    EXPECT_FALSE(make_error_code(KvPimLoginErrorTimeout) == make_error_code(KvPimUserAttributesErrorCode(9)));
    EXPECT_EQ(toString(KvPimConnectionStateReconnecting), "KvPimConnectionStateReconnecting");
    EXPECT_NE(describe(KvPimConnectionState(77)).find("not known"), std::string_view::npos);
}

}  // namespace
}  // namespace kv::test
