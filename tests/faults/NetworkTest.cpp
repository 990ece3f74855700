// The network of the machine itself: a cable to the service, and a machine that sleeps.
#include "Session.h"
#include "SystemCalls.h"

#include <cstdlib>
#include <fstream>
#include <iostream>

#include <sched.h>
#include <unistd.h>

namespace kv::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kNotPermitted = 77;
constexpr char kDeadAddress[] = "fd00::1";

// The service behind a cable, each end of which has a network of its own. Takes the calling thread, and those that it
// starts, out of the machine's own.
class Cable {
public:
    Cable() : service((enterNetwork(), LocalService::Options{0, {"--host", "0.0.0.0"}})) {
        enterNetwork();
        auto const there = std::to_string(service.pid());
        run("ip link set lo up && ip link add kv0 type veth peer name kv1 && ip link set kv1 netns " + there +
            " && ip addr add 10.99.0.2/24 dev kv0 && ip link set kv0 addrgenmode none up && nsenter -n -t " + there +
            " sh -c 'ip addr add 10.99.0.1/24 dev kv1 && ip link set kv1 up'");
    }
    static void run(std::string const& command) {
        ChildProcess shell({"sh", "-c", command});
        if (shell.wait(Clock::now() + 10s) != 0) std::_Exit(kNotPermitted);
    }
    std::string url(std::string const& host) const { return "http://" + host + ":" + std::to_string(service.port()); }

    LocalService const service;

private:
    static void enterNetwork() {
        if (::unshare(CLONE_NEWNET) == 0) return;
        auto const user = std::to_string(::geteuid());
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) std::_Exit(kNotPermitted);
        std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    }
};

class Network : public EveryEngine {
protected:
    static void watchItself(KvPimOptions& options) { options.network.watchesNetwork = true; }
    /// In a process of its own, which is in no network before.
    static void inNamespaces(void (*body)(Engine engine)) {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        bool isPermitted = true;
        auto const isWell = [&](int status) {
            isPermitted = !WIFEXITED(status) || WEXITSTATUS(status) != kNotPermitted;
            return status == 0 || !isPermitted;
        };
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing else ends the process
        EXPECT_EXIT((body(GetParam()), std::exit(testing::Test::HasFailure() ? 1 : 0)), isWell, "");
        if (!isPermitted) GTEST_SKIP() << "this machine lets nobody make networks";
    }
};
ON_EVERY_ENGINE(Network);

// A cable that is out for a moment costs nothing, one that is out for long the connection.
TEST_P(Network, IsUsedAgainAtOnceWhenTheCableIsBack) {
    inNamespaces([](Engine engine) {
        Cable const cable;
        Session session(cable.url("10.99.0.1"), engine, Session::Time::real, watchItself);
        ASSERT_TRUE(session.begin());
        auto& alice = session.alice;
        for (auto const& [out, states] : {std::pair{7s, States{{4, 5}, {3, 2}}}, {2s, States{}}}) {
            alice.queue->runFor(500ms);  // what is on its way when the cable goes is sent again when TCP sees fit
            Cable::run("ip link set kv0 down");
            alice.queue->runFor(out);
            EXPECT_EQ(session.isConnected(), states.empty());
            auto const back = Clock::now();
            Cable::run("ip link set kv0 up");
            EXPECT_TRUE(session.waitFor([&] { return session.isConnected(); }));
            EXPECT_EQ(alice.codeOf([&](auto done) { alice.kit->setLocalUserAttributes({{"b", "3"}}, done); }), 0);
            auto const time = Clock::now() - back;
            EXPECT_LT(time, 4s);  // a busy machine; 0.2 s mostly, and without watching it is the heartbeat's time
            EXPECT_EQ(alice.states, states);
            std::cerr << out / 1s << " s without, back after " << time / 1ms << " ms\n";  // for who sees it fail
            alice.states.clear();
        }
    });
}

TEST_P(Network, ADeadAddressOfANameHoldsUpNobody) {
    inNamespaces([](Engine engine) {
        Cable const cable;
        Cable::run("ip addr add fd00::2/64 nodad dev kv0");
        Names names;
        auto const timeOfLogin = [&](std::string const& addresses) {
            names.set(addresses);
            Person alice(cable.url("pim.test"), "alice", KvMainQueue::create(), engine);
            auto const start = Clock::now();
            EXPECT_TRUE(alice.login());
            return Clock::now() - start;
        };
        timeOfLogin("10.99.0.1");
        auto const usual = timeOfLogin("10.99.0.1");
        auto const lost = timeOfLogin(kDeadAddress + std::string(",10.99.0.1")) - usual;
        EXPECT_LT(lost, 2 * 300ms);  // of the discovery, and of the connection
        EXPECT_GT(lost, 200ms) << "it is not dead";
    });
}

TEST_P(Network, IsTriedAtOnceWhenTheMachineWakesUp) {
    LocalService const service;
    Session session(service.url(), GetParam(), Session::Time::manual, watchItself);
    ASSERT_TRUE(session.begin());
    service.control("drop", {{"userId", "alice"}});
    ASSERT_TRUE(runUntil(*session.alice.queue, [&] { return !session.isConnected(); }));
    sleepAndWakeUp(60s);
    auto moved = 0ms;  // less than an attempt would wait
    EXPECT_TRUE(runUntil(*session.alice.queue, [&] {
        if (moved < 900ms) session.alice.queue->advance(50ms);
        moved += 50ms;
        return session.isConnected();
    }));
}

}  // namespace
}  // namespace kv::test
