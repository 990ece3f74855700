#include "Classes/Catagory/KvDate.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Logan/collector/Util/WnKeyChainStore.h"
#include "Classes/Utils/Logan/collector/Util/WnUUIDHelper.h"
#include "Platform/KvKeyStore.h"
#include "support/HttpTestServer.h"
#include "support/Json.h"
#include "support/Printed.h"
#include "support/TemporaryDirectory.h"
#include "support/Test.h"

#include <map>
#include <mutex>

#include <fnmatch.h>

namespace kv {
namespace {

constexpr char kDeviceKey[] = "com.wn.device.uuid", kDeviceId[] = "0123456789abcdef0123456789abcdef";

// A store in memory, which may refuse, and which holds its callers up while the test holds its gate.
class MemoryKeyStore final : public KvKeyStore {
public:
    KvKeyStoreStatus add(KvKeyStoreQuery const& query, std::string_view value) override {
        if (!refuses) values_[query.account] = value;
        return refuses ? KvKeyStoreStatus::notAvailable : KvKeyStoreStatus::success;
    }
    KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) override {
        std::lock_guard lock(gate);
        if (!values_.contains(query.account)) return {KvKeyStoreStatus::itemNotFound};
        return {KvKeyStoreStatus::success, values_[query.account]};
    }
    KvKeyStoreStatus remove(KvKeyStoreQuery const& query) override {
        return values_.erase(query.account) > 0 ? KvKeyStoreStatus::success : KvKeyStoreStatus::itemNotFound;
    }
    bool refuses = false;
    std::mutex gate;

private:
    std::map<std::string, std::string> values_;
};

class LoganReports : public testing::Test {
protected:
    LoganReports() {
        KvKeyStore::setShared(store);
        store->add({"", kDeviceKey}, kDeviceId);
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
            auto const start = R"({"logType":1,"deviceId":")" + std::string(kDeviceId) + R"(","os":"ios","timestamp":)";
            EXPECT_EQ(::fnmatch((start + R"(*,"encrypt":false,"content":"*"})").c_str(), line.c_str(), 0), 0) << line;
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

    // As `fnmatch` has patterns; "?" stands for brackets, too.
    std::pair<char const*, std::string> const expected[] = {
        {"StartLogin", R"("loginParams":{"token":"token","uid":"anna","timestamp":?????????????})"},
        {"LoginResult", R"("result":1,"errorCode":0,"totalElapsed":1[0-8]??,)"
                        R"("elapsedInfo":{"getServers":11,"connectServer":22})"},
        {"Logout", R"("result":0,"errorCode":102,"elapsed":33)"},
        {"JoinChannel", R"("channelId":"room","channelSessionId":"*","result":1,"errorCode":0,"elapsed":2[0-8]??)"},
        {"LeaveChannel", R"("channelId":"room","channelSessionId":"*","result":0,"errorCode":5,"elapsed":3[0-8]??)"},
        {"UserAttributes",
         R"("result":0,"errorCode":3,"action":"set","interface":"-?KvPimKitsetLocalUserAttributes:completion:?")"},
        {"ChannelAttributes", R"("channelId":"room","action":"delete",)"
                              R"("interface":"-?KvPimKitclearChannelAttributes:?","result":0,"errorCode":-4)"},
        {"ConnectState", R"("state":4,"reason":7)"},
    };
    auto const written = records();
    ASSERT_EQ(written.size(), std::size(expected));
    for (std::size_t i = 0; i < written.size(); ++i) {
        // A login start does not set the common session.
        auto const pattern = R"({"uid":"anna","appId":"app","os":"ios","platform":"native","clientSessionId":"",)"
                             R"("sdkVer":"sdkVersion/KvPim-*","deviceId":")" +
                             std::string(kDeviceId) + R"(",)" + expected[i].second + R"(,"type":")" +
                             expected[i].first + R"(","timestamp":?????????????})";
        auto const record = json::serialize(written[i]);
        EXPECT_EQ(::fnmatch(pattern.c_str(), record.c_str(), 0), 0) << record << " is not like " << pattern;
    }
    auto const session = std::string(written[3].at("channelSessionId").as_string());
    EXPECT_EQ(session.find_first_not_of("0123456789ABCDEF-"), std::string::npos) << session;
    EXPECT_EQ(session.size(), 36u);
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
        json::string const kept(texts[i].second);
        EXPECT_EQ(written[2 * i].at("uid"), kept);
        EXPECT_EQ(written[2 * i].at("loginParams").at("token"), kept);
        EXPECT_EQ(written[2 * i + 1].at("channelId"), kept);
    }
}

TEST_F(LoganReports, NeverHoldUpTheirCaller) {
    std::unique_lock gate(store->gate);
    auto const start = std::chrono::steady_clock::now();
    open();
    for (int i = 0; i < 50; ++i) manager->connectState(1, i);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(contentOf(home.path("logan/logan")), "");  // all of that waits for the key store
    gate.unlock();
    std::int64_t next = 0;
    for (auto const& record : records()) EXPECT_EQ(record.at("reason"), next++);
    EXPECT_EQ(next, 50);
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
    EXPECT_EQ(server.requests().at(0).target + line, "/pim/v1/collect-logan" + server.requests().at(0).body);
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
