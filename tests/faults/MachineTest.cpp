// What may be wrong with the machine: no descriptors, another time of day, a main thread that is busy.
#include "Classes/Utils/Logan/collector/Util/WnUUIDHelper.h"
#include "Session.h"
#include "SystemCalls.h"
#include "support/TemporaryDirectory.h"

namespace kv::test {
namespace {

class Machine : public EveryEngine {};
ON_EVERY_ENGINE(Machine);

TEST_P(Machine, WithoutDescriptorsItWaitsForSome) {
    LocalService const service;
    Session session(service.url(), GetParam(), Session::Time::manual);
    ASSERT_TRUE(session.begin());
    int answers = 0;
    service.answer("getUserAttributes", nullptr);
    session.alice.kit->getUserAttributes("bob", [&](auto const&, auto const&, std::int64_t) { ++answers; });
    EXPECT_TRUE(service.drop("alice"));
    EXPECT_TRUE(runUntil(*session.alice.queue, [&] { return !session.isConnected(); }));
    session.alice.kit->setLogFilters(1);
    Printed printed;
    {
        NoDescriptors const none;
        session.waitFor([&] { return answers == 1; });
        WnUUIDHelper::uuidForDevice();
        WnUUIDHelper::uuidForDevice();
    }
    session.alice.kit->setLogFilters(0);
    auto const log = printed.error();
    EXPECT_NE(log.find("Too many open files"), std::string::npos) << log;
    static int told = 0;  // once in a process
    for (auto at = log.find("(ulimit -n)"); at != std::string::npos; at = log.find("(ulimit -n)", at + 1)) ++told;
    EXPECT_EQ(told, 1) << log;
    EXPECT_EQ(answers, 1);
    EXPECT_FALSE(session.isConnected());
    session.expectRestored(service);
}

// However few the process has, from the start on: it comes to no harm, and to a session as soon as there are more.
TEST_P(Machine, FewDescriptorsOrThreadsAreNoEnd) {
    LocalService const service;
    TemporaryDirectory const home;
    struct Case {
        char const* what;
        int from, to;
    };
    for (auto const& [what, from, to] : {Case{"descriptors", 3, 20}, Case{"threads", 0, 5}}) {
        for (int count = from; count <= to; ++count) {
            ChildProcess probe({FAULTS_PROBE, service.url(), GetParam() == Engine::thread ? "thread" : "mainQueue",
                                home.path(), what, std::to_string(count)});
            EXPECT_EQ(probe.wait(std::chrono::steady_clock::now() + 60s), 0) << count << ' ' << what;
        }
    }
}

TEST_P(Machine, TheTimeOfDayMayJump) {
    LocalService const service(LocalService::Options{0, {"--ping-interval", "300", "--ping-timeout", "1000"}});
    Session session(service.url(), GetParam());
    ASSERT_TRUE(session.begin());
    for (auto const step : {1h, -1h}) {
        session.alice.states.clear();
        WallClockStep const jump{step};
        session.alice.queue->runFor(1500ms);  // longer than a missed heartbeat is forgiven
        EXPECT_TRUE(session.alice.states.empty()) << step.count();
        EXPECT_EQ(session.difference(service), "");
        service.control("drop", {{"userId", "alice"}});
        EXPECT_TRUE(session.waitForLoss());
        session.expectRestored(service);
    }
}

TEST_P(Machine, AMainThreadThatIsBusyForLongKeepsTheSession) {
    LocalService const service(LocalService::Options{0, {"--ping-interval", "300", "--ping-timeout", "400"}});
    Session session(service.url(), GetParam());
    ASSERT_TRUE(session.begin());
    auto const socketId = [&] { return service.state().at("apps").at("app").at("users").at("alice").at("socketId"); };
    auto const before = socketId();
    std::this_thread::sleep_for(1500ms);  // two heartbeats and more
    if (GetParam() == Engine::thread) {
        EXPECT_EQ(socketId(), before) << "the engine's own thread answers the pings";
        EXPECT_TRUE(session.alice.states.empty());
    } else {
        EXPECT_TRUE(session.waitForLoss());
    }
    session.expectRestored(service);
}

}  // namespace
}  // namespace kv::test
