// The road of event reports: what a client does becomes lines in a file, which the service's collector takes.
#include "Classes/Catagory/KvDate.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Logan/collector/WnDataCollectManager.h"
#include "classes/Person.h"
#include "support/ScriptedServer.h"

#include <filesystem>
#include <map>

namespace kv::test {
namespace {

namespace fs = std::filesystem;

// How often each type of event was reported about a user.
std::map<std::string, int> reportsAbout(std::string const& uid, LocalService const& service) {
    std::map<std::string, int> counts;
    for (auto const& report : service.reports()) {
        auto const& event = report.at("event");
        if (event.at("uid").as_string() == uid) ++counts[std::string(event.at("type").as_string())];
    }
    return counts;
}

// What has been reported about a user, as it stands in the files.
std::vector<json::value> eventsOf(std::string const& uid, Person const& person) {
    LoganManager::sharedInstance().drain();
    std::vector<json::value> events;
    for (auto const& file : fs::directory_iterator(person.cachesDirectory + "/logan")) {
        for (auto const& line : linesOf(file.path())) {
            json::error_code none;
            auto const envelope = json::parse(line, none);
            if (none || !envelope.is_object()) continue;
            auto event = json::parse(envelope.at("content").as_string());
            if (event.at("uid").as_string() == uid) events.push_back(std::move(event));
        }
    }
    return events;
}

TEST(Reports, OfASessionReachTheCollectorAndAreKept) {
    LocalService service;
    ASSERT_FALSE(service.url().empty());
    auto const queue = KvMainQueue::create();
    Person person(service.url(), "r e p o r t e r", queue);
    ASSERT_TRUE(person.login());
    auto const channel = person.join("lobby");
    EXPECT_EQ(person.codeOf([&](auto done) { channel->leaveWithCompletion(done); }), 0);
    EXPECT_EQ(person.codeOf([&](auto done) { person.kit->setChannelAttributes("c", {}, {}, done); }), 3);
    EXPECT_EQ(person.codeOf([&](auto done) { person.kit->logoutWithCompletion(done); }), 0);
    ASSERT_TRUE(runUntil(*queue, [&] { return person.states.size() == 3; }));
    LoganManager::sharedInstance().drain();

    // The reporter's own timer takes a minute. This one, like another process in the same directory, has its own clock.
    auto const directory = person.cachesDirectory + "/logan";
    auto const clock = std::make_shared<KvManualClock>(std::chrono::system_clock::now());
    auto const uploads =
        WnDataCollectManager::initWithURL(service.url() + "/pim/v1/collect-logan", directory, true, {}, clock);
    uploads->startUploadTimerWithInterval(60s);
    auto const before = entriesOf(directory + "_bak").size();
    std::map<std::string, int> reports;
    EXPECT_TRUE(runUntil(*queue, [&] {
        clock->advance(60s);
        reports = reportsAbout("reporter", service);  // no blank survives
        return reports.contains("Logout") && entriesOf(directory + "_bak").size() > before;
    }));
    EXPECT_EQ(reports, (std::map<std::string, int>{{"StartLogin", 1},
                                                   {"LoginResult", 1},
                                                   {"JoinChannel", 1},
                                                   {"LeaveChannel", 1},
                                                   {"ChannelAttributes", 1},
                                                   {"Logout", 1},
                                                   {"ConnectState", 3}}));
}

// What was begun later must not change the duration of what began before.
TEST(Reports, TellDurationsAlsoOfWhatOverlaps) {
    ScriptedServer server([](ScriptedPeer& peer) {
        if (peer.number() == 1) return peer.sleep(10s);
        peer.login();
        auto const first = peer.readEvent(), second = peer.readEvent();
        peer.acknowledge(first, {{{"result", 0}}});
        peer.acknowledge(second, {{{"result", 0}}});
        peer.readToEnd();
    });
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Person person(server.url(), "overlapping", queue);
    ASSERT_TRUE(person.login());
    int joined = 0;
    for (char const* id : {"one", "two"}) {
        person.kit->createChannelWithId(id, {})->joinWithCompletion([&](std::int64_t) { ++joined; });
    }
    EXPECT_TRUE(runUntil(*queue, [&] { return joined == 2; }));
    EXPECT_EQ(person.codeOf([&](auto done) { person.kit->logoutWithCompletion(done); }), 0);
    std::int64_t code = -1;
    person.kit->loginByToken(kToken, currentTimeStamp(), "overlapping", [&](std::int64_t result) { code = result; });
    EXPECT_TRUE(runUntil(*queue, [&] {
        if (server.connections() == 2) queue->advance(100ms);
        return code == 9;
    }));
    std::map<std::string, int> counts;
    for (auto const& event : eventsOf("overlapping", person)) {
        for (char const* name : {"elapsed", "getServers", "connectServer"}) {
            auto const* elapsed = event.as_object().if_contains("elapsedInfo");
            auto const* value = (elapsed != nullptr ? elapsed : &event)->as_object().if_contains(name);
            if (value == nullptr) continue;
            EXPECT_LT(value->as_int64(), 60000) << event;
            ++counts[name];
        }
    }
    EXPECT_EQ(counts, (std::map<std::string, int>{{"elapsed", 3}, {"getServers", 2}, {"connectServer", 2}}));
}

// A batch of attributes whose reader is gone is nobody's failure; what else a client asked for still is.
TEST(Reports, OfUnansweredRequestsOutliveTheirClientOrNot) {
    LocalService service;
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Person person(service.url(), "vanished", queue);
    ASSERT_TRUE(person.login());
    service.answer("getPeersUserAttributes", nullptr);
    service.answer("queryPeersOnlineStatus", nullptr);
    person.kit->getPeersUserAttributes({"bob"}, {});
    person.kit->queryPeersOnlineStatus({"bob"}, {});
    person.kit.reset();
    queue->advance(7s);
    std::string failures;
    for (auto const& event : eventsOf("vanished", person)) {
        if (event.at("type").as_string() == "UserAttributes") failures += event.at("interface").as_string();
    }
    EXPECT_EQ(failures, "-[KvPimKitqueryPeersOnlineStatus:completion:]_block_invoke");
}

}  // namespace
}  // namespace kv::test
