#include "Classes/Catagory/KvDate.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Logan/collector/Util/WnKeyChainStore.h"
#include "Classes/Utils/Logan/collector/Util/WnUUIDHelper.h"
#include "Platform/KvKeyStore.h"
#include "support/HttpTestServer.h"
#include "support/Printed.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <future>
#include <map>
#include <optional>
#include <thread>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

namespace kv {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

constexpr char kDeviceKey[] = "com.wn.device.uuid";

// A store in memory, which may refuse, and which holds its callers up while the test wants it to.
class MemoryKeyStore final : public KvKeyStore {
public:
    KvKeyStoreStatus add(KvKeyStoreQuery const& query, std::string_view value) override {
        if (refuses) return KvKeyStoreStatus::notAvailable;
        values_[query.account] = value;
        return KvKeyStoreStatus::success;
    }
    KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) override {
        gate.wait();
        auto const found = values_.find(query.account);
        if (found == values_.end()) return {KvKeyStoreStatus::itemNotFound};
        return {KvKeyStoreStatus::success, found->second};
    }
    KvKeyStoreStatus remove(KvKeyStoreQuery const& query) override {
        return values_.erase(query.account) > 0 ? KvKeyStoreStatus::success : KvKeyStoreStatus::itemNotFound;
    }
    bool refuses = false;
    std::shared_future<void> gate = [] {
        std::promise<void> open;
        open.set_value();
        return open.get_future().share();
    }();

private:
    std::map<std::string, std::string> values_;
};

class LoganReports : public testing::Test {
protected:
    LoganReports() {
        KvKeyStore::setShared(store);
        store->add({"", kDeviceKey}, "0123456789abcdef0123456789abcdef");
        config.cachesDirectory = home.path();
        config.collectServer = "http://127.0.0.1:9/";  // nobody is there
    }
    void open() { manager.emplace(config, clock); }
    // The lines of the current file, checked for what holds for every record.
    std::vector<json::object> records() {
        manager->drain();
        std::vector<json::object> contents;
        for (auto const& line : linesOf(home.path("logan/logan"))) {
            EXPECT_EQ(line.find_first_of(" \n\r"), std::string::npos) << line;
            auto const envelope = json::parse(line).as_object();
            EXPECT_EQ(envelope.size(), 6u);
            EXPECT_EQ(envelope.at("logType"), 1);
            EXPECT_EQ(envelope.at("deviceId"), "0123456789abcdef0123456789abcdef");
            EXPECT_EQ(envelope.at("os"), "ios");
            EXPECT_EQ(envelope.at("encrypt"), false);
            EXPECT_LE(std::abs(envelope.at("timestamp").as_int64() - currentTimeStamp()), 60'000);
            contents.push_back(json::parse(envelope.at("content").as_string()).as_object());
        }
        return contents;
    }

    TemporaryDirectory home;
    std::shared_ptr<MemoryKeyStore> const store = std::make_shared<MemoryKeyStore>();
    std::shared_ptr<KvManualClock> const clock = std::make_shared<KvManualClock>(std::chrono::system_clock::now());
    KvPimEnvConfig config;
    std::optional<LoganManager> manager;
};

bool isUpperCaseUuid(json::value const& value) {
    auto const& text = value.as_string();
    return text.size() == 36 && std::ranges::count(text, '-') == 4 &&
           text.find_first_not_of("0123456789ABCDEF-") == json::string::npos;
}

TEST_F(LoganReports, HoldWhatIsToldOfEachEvent) {
    open();
    auto& logan = *manager;
    logan.setAppId("app");
    logan.setUId("anna");
    logan.startLogan("token", "anna", currentTimeStamp() - 1000);
    logan.setTsGetServers(11);
    logan.setTsConnectServer(22);
    logan.loginResult(1, 0);
    logan.setTsLogout(33);
    logan.logout(0, 102);
    logan.setTsJoinChannel(currentTimeStamp() - 2000);
    logan.joinChannel(1, "room", 0);
    logan.setTsLeaveChannel(currentTimeStamp() - 3000);
    logan.leaveChannel(0, "room", 5);
    logan.userAttributes(KvLoganActionStringSet, "-[KvPimKit setLocalUserAttributes:completion:]", 0, 3);
    logan.channelAttributes("room", KvLoganActionStringDelete, "-[KvPimKit clearChannelAttributes:]", 0, -4);
    logan.connectState(4, 7);

    struct Expected {
        char const* type;
        json::object keys;     // beside the common ones
        std::int64_t elapsed;  // of the key that is 0 in `keys` and not exact
        char const* elapsedKey;
    };
    std::vector<Expected> const expected{
        {"StartLogin", {{"loginParams", nullptr}}, 0, nullptr},
        {"LoginResult",
         {{"result", 1},
          {"errorCode", 0},
          {"totalElapsed", 0},
          {"elapsedInfo", {{"getServers", 11}, {"connectServer", 22}}}},
         1000,
         "totalElapsed"},
        {"Logout", {{"result", 0}, {"errorCode", 102}, {"elapsed", 33}}, 0, nullptr},
        {"JoinChannel",
         {{"channelId", "room"}, {"channelSessionId", nullptr}, {"result", 1}, {"errorCode", 0}, {"elapsed", 0}},
         2000,
         "elapsed"},
        {"LeaveChannel",
         {{"channelId", "room"}, {"channelSessionId", nullptr}, {"result", 0}, {"errorCode", 5}, {"elapsed", 0}},
         3000,
         "elapsed"},
        {"UserAttributes",
         {{"result", 0},
          {"errorCode", 3},
          {"action", "set"},
          {"interface", "-[KvPimKitsetLocalUserAttributes:completion:]"}},
         0,
         nullptr},
        {"ChannelAttributes",
         {{"channelId", "room"},
          {"action", "delete"},
          {"interface", "-[KvPimKitclearChannelAttributes:]"},
          {"result", 0},
          {"errorCode", -4}},
         0,
         nullptr},
        {"ConnectState", {{"state", 4}, {"reason", 7}}, 0, nullptr},
    };
    auto const written = records();
    ASSERT_EQ(written.size(), expected.size());
    for (std::size_t i = 0; i < written.size(); ++i) {
        auto const& record = written[i];
        auto const& [type, keys, elapsed, elapsedKey] = expected[i];
        EXPECT_EQ(record.at("type"), type);
        EXPECT_EQ(record.size(), keys.size() + 9) << type;  // the seven common ones, the time, the type
        EXPECT_EQ(record.at("uid"), "anna");
        EXPECT_EQ(record.at("appId"), "app");
        EXPECT_EQ(record.at("os"), "ios");
        EXPECT_EQ(record.at("platform"), "native");
        EXPECT_TRUE(record.at("sdkVer").as_string().starts_with("sdkVersion/KvPim-"));
        EXPECT_EQ(record.at("clientSessionId"), "");  // a login start does not set the common one
        EXPECT_TRUE(record.at("timestamp").is_int64());
        for (auto const& key : keys) {
            ASSERT_TRUE(record.contains(key.key())) << type << " " << key.key();
            if (elapsedKey != nullptr && key.key() == elapsedKey) {
                EXPECT_GE(record.at(elapsedKey).as_int64(), elapsed) << type;
                EXPECT_LT(record.at(elapsedKey).as_int64(), elapsed + 900) << type;
            } else if (!key.value().is_null()) {
                EXPECT_EQ(json::serialize(record.at(key.key())), json::serialize(key.value()))
                    << type << " " << key.key();
            }
        }
    }
    auto const& parameters = written[0].at("loginParams").as_object();
    EXPECT_EQ(parameters.at("token"), "token");
    EXPECT_EQ(parameters.at("uid"), "anna");
    EXPECT_TRUE(parameters.at("timestamp").is_int64());
    EXPECT_TRUE(isUpperCaseUuid(written[3].at("channelSessionId")));
    EXPECT_EQ(written[4].at("channelSessionId"), written[3].at("channelSessionId"));
}

TEST_F(LoganReports, KeepTheOddWaysOfSessionsAndTimes) {
    open();
    manager->loginResult(0, 9);
    manager->startLogan("t", "u", 5);
    auto const first = manager->clientSessionId();
    manager->startLogan("t", "u", 6);
    EXPECT_NE(manager->clientSessionId(), first);
    manager->setClientSessionId("set by hand");
    manager->leaveChannel(1, "c", 0);
    manager->joinChannel(1, "c", 0);
    manager->joinChannel(1, "d", 0);
    auto const written = records();
    // Without a login start the whole time stamp has "elapsed".
    EXPECT_LE(std::abs(written[0].at("totalElapsed").as_int64() - currentTimeStamp()), 60'000);
    EXPECT_EQ(written[1].at("clientSessionId"), "");
    EXPECT_EQ(written[3].at("clientSessionId"), "setbyhand");
    EXPECT_EQ(written[3].at("channelSessionId"), "");
    EXPECT_NE(written[4].at("channelSessionId"), written[5].at("channelSessionId"));
}

TEST_F(LoganReports, AreValidJsonWhateverTheirTextsAre) {
    open();
    std::vector<std::pair<std::string, std::string>> const texts{
        {"", ""},
        {"a b  c ", "abc"},
        {"say \"hi\" \\ / '", "say\"hi\"\\/'"},
        {std::string("nul\0tab\tline\nreturn\r\x01\x1f\x7f", 23),
         std::string("nul\0tab\tline\nreturn\r\x01\x1f\x7f", 23)},
        {"ä中文😀\u2028", "ä中文😀\u2028"},
        {"bad \xff\xc3(", "bad\xef\xbf\xbd\xef\xbf\xbd("},
        {"\\ n \\u0020 \" , \"type\":\"x", "\\n\\u0020\",\"type\":\"x"},
        {std::string(100'000, 'x') + " ", std::string(100'000, 'x')},
    };
    for (auto const& [text, kept] : texts) {
        manager->setUId(text);
        manager->startLogan(text, text, 1);
        manager->channelAttributes(text, text, text, 0, 1);
    }
    auto const written = records();
    ASSERT_EQ(written.size(), 2 * texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        auto const& kept = texts[i].second;
        auto const& start = written[2 * i];
        EXPECT_EQ(start.at("uid").as_string(), kept);
        EXPECT_EQ(start.at("loginParams").at("token").as_string(), kept);
        EXPECT_EQ(written[2 * i + 1].at("channelId").as_string(), kept);
        EXPECT_EQ(written[2 * i + 1].at("type"), "ChannelAttributes");
    }
}

TEST_F(LoganReports, NeverHoldUpTheirCaller) {
    std::promise<void> release;
    store->gate = release.get_future().share();
    auto const start = std::chrono::steady_clock::now();
    open();
    for (int i = 0; i < 50; ++i) manager->connectState(1, i);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(contentOf(home.path("logan/logan")), "");  // all of that waits for the key store
    release.set_value();
    auto const written = records();
    ASSERT_EQ(written.size(), 50u);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(written[static_cast<std::size_t>(i)].at("reason"), i);
}

TEST_F(LoganReports, OfManyThreadsAreWholeAndInOrder) {
    open();
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 30; ++i) {
                manager->setUId("user" + std::to_string(i));
                manager->connectState(thread, i);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::map<std::int64_t, std::int64_t> next;
    for (auto const& record : records())
        EXPECT_EQ(record.at("reason").as_int64(), next[record.at("state").as_int64()]++);
    EXPECT_EQ(next, (std::map<std::int64_t, std::int64_t>{{0, 30}, {1, 30}, {2, 30}}));
}

TEST_F(LoganReports, AreKeptApartFromThoseOfOtherApplications) {
    ::setenv("XDG_CACHE_HOME", home.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): nobody else looks at it
    config.cachesDirectory.clear();
    for (auto const& [identifier, place] :
         {std::pair{"com.example/chat", "com.example%2Fchat"}, {"", "diagnostics_test"}}) {
        config.applicationIdentifier = identifier;
        open();
        manager->connectState(2, 1);
        manager->drain();
        EXPECT_EQ(linesOf(home.path(std::string("kvpim/") + place + "/logan/logan")).size(), 1u) << place;
    }
    ::unsetenv("XDG_CACHE_HOME");  // NOLINT(concurrency-mt-unsafe)
}

TEST_F(LoganReports, ReachTheEndpointAMinuteAfterTheFirstUse) {
    HttpTestServer server([](HttpTestRequest const&) { return HttpTestAnswer{.status = 204}; });
    config.collectServer = server.url() + "/pim/v1/collect-logan";
    open();
    manager->connectState(2, 1);
    manager->drain();
    auto const line = contentOf(home.path("logan/logan"));
    clock->advance(60s);
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(server.requests().at(0).body, line);
    EXPECT_EQ(server.requests().at(0).target, "/pim/v1/collect-logan");
}

TEST(DeviceIdentity, IsMadeOnceKeptAndToldOnStandardOutputWhenItCannotBe) {
    auto const store = std::make_shared<MemoryKeyStore>();
    KvKeyStore::setShared(store);
    std::string const notFound = "SecItemCopyMatching error, status: -25300 FFFF9D2C ,\x9d\xff\xff \n";

    test::Printed printed;
    auto const made = WnUUIDHelper::uuidForDevice();
    EXPECT_EQ(WnUUIDHelper::uuidForDevice(), made);
    EXPECT_EQ(printed.out(), notFound);
    EXPECT_EQ(made.size(), 32u);
    EXPECT_EQ(made.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(made[12], '4');
    EXPECT_EQ(WnKeyChainStore::stringForKey(kDeviceKey), made);

    EXPECT_TRUE(WnKeyChainStore::deleteKey(kDeviceKey));
    EXPECT_FALSE(WnKeyChainStore::deleteKey(kDeviceKey));
    EXPECT_EQ(printed.out(), "SecItemDelete error, status: -25300 FFFF9D2C ,\x9d\xff\xff \n");

    store->refuses = true;
    EXPECT_NE(WnUUIDHelper::uuidForDevice(), WnUUIDHelper::uuidForDevice());
    std::string const refused = notFound + "SecItemAdd error, status: -25291 FFFF9D35 5\x9d\xff\xff\n";
    EXPECT_EQ(printed.out(), refused + refused);
}

}  // namespace
}  // namespace kv
