// The road of event reports: what a client does becomes lines in a file, which the service's collector takes.
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Logan/collector/WnDataCollectManager.h"
#include "classes/Person.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace kv::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::size_t filesIn(std::string const& directory) {
    std::error_code none;
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory, none), fs::directory_iterator()));
}

// How often each type of event was reported about a user.
std::map<std::string, int> reportsAbout(std::string const& uid, Service const& service) {
    std::map<std::string, int> counts;
    for (auto const& report : service.reports()) {
        auto const& event = report.at("event");
        if (event.at("uid").as_string() == uid) ++counts[std::string(event.at("type").as_string())];
    }
    return counts;
}

TEST(Reports, OfASessionReachTheCollectorAndAreKept) {
    Service service;
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
        WnDataCollectManager::initWithURL(service.url() + "/pim/v1/collect-logan", directory, true, "", clock);
    uploads->startUploadTimerWithInterval(60s);
    auto const before = filesIn(directory + "_bak");
    std::map<std::string, int> reports;
    EXPECT_TRUE(runUntil(*queue, [&] {
        clock->advance(60s);
        reports = reportsAbout("reporter", service);  // no blank survives
        return reports.contains("Logout") && filesIn(directory + "_bak") > before;
    }));
    EXPECT_EQ(reports, (std::map<std::string, int>{{"StartLogin", 1},
                                                   {"LoginResult", 1},
                                                   {"JoinChannel", 1},
                                                   {"LeaveChannel", 1},
                                                   {"ChannelAttributes", 1},
                                                   {"Logout", 1},
                                                   {"ConnectState", 3}}));
}

// A batch of attributes whose reader is gone is nobody's failure; what else a client asked for still is.
TEST(Reports, OfUnansweredRequestsOutliveTheirClientOrNot) {
    Service service;
    auto const queue = KvMainQueue::create(KvMainQueue::Time::manual);
    Person person(service.url(), "vanished", queue);
    ASSERT_TRUE(person.login());
    service.answer("getPeersUserAttributes", nullptr);
    service.answer("queryPeersOnlineStatus", nullptr);
    person.kit->getPeersUserAttributes({"bob"}, {});
    person.kit->queryPeersOnlineStatus({"bob"}, {});
    person.kit.reset();
    queue->advance(7s);
    LoganManager::sharedInstance().drain();
    std::vector<std::string> failures;
    for (auto const& file : fs::directory_iterator(person.cachesDirectory + "/logan")) {
        for (auto const& line : linesOf(file.path())) {
            bool const isOfPerson = line.find("vanished") != std::string::npos;
            if (isOfPerson && line.find("UserAttributes") != std::string::npos) failures.push_back(line);
        }
    }
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_NE(failures[0].find("queryPeersOnlineStatus"), std::string::npos);
}

}  // namespace
}  // namespace kv::test
