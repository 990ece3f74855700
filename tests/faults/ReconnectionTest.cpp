// A whole client whose service or network fails in earnest: processes that are killed and stopped, connections that
// carry nothing any more. The service is asked whether everything is there again.
#include "Relay.h"
#include "Session.h"

namespace kv::test {
namespace {

// A connection is given up after less than a second of silence.
std::vector<std::string> const kHastyHeartbeat{"--ping-interval", "300", "--ping-timeout", "500"};
constexpr auto kLongerThanTheHeartbeat = 1500ms;

struct Scene {
    Scene(Engine engine, bool isRelayed) : session(isRelayed ? relay.url() : service->url(), engine) {}

    void restart() {
        int const port = service->port();
        service.reset();
        service.emplace(LocalService::Options{port, kHastyHeartbeat});
    }
    void run(std::chrono::milliseconds time) { session.alice.queue->runFor(time); }

    std::optional<LocalService> service{LocalService::Options{0, kHastyHeartbeat}};
    Relay relay{service->port()};
    Session session;
};

struct Fault {
    char const* name;
    void (*happen)(Scene& scene);
    bool forgets = false;    // the service has lost its memory
    bool isRelayed = false;  // the client reaches the service through the relay
};

std::vector<Fault> const kFaults{
    {"KilledAndRestarted",
     [](Scene& scene) {
         scene.service->kill();
         EXPECT_TRUE(scene.session.waitForLoss());
         scene.run(200ms);  // the first attempt is refused
         scene.restart();
     },
     true},
    {"AcceptsAndSaysNothing",
     [](Scene& scene) {
         auto const port = scene.service->port();
         scene.service->kill();
         {
             std::atomic<bool> isReached{false};
             Listener const silent(
                 [&](Connection& connection) {
                     isReached = true;
                     while (!connection.receive().empty()) continue;
                 },
                 {"127.0.0.1", port});
             EXPECT_TRUE(runUntil(*scene.session.alice.queue, [&] { return isReached.load(); }));
             scene.run(kLongerThanTheHeartbeat);
             EXPECT_EQ(scene.session.alice.kit->stateManager().state, KvPimConnectionStateReconnecting);
         }
         scene.restart();
     },
     true},
    {"StopsWhenTheClientConnects",
     [](Scene& scene) {
         scene.service->control("drop", {{"userId", "alice"}});
         scene.service->freeze();
         EXPECT_TRUE(scene.session.waitForLoss());
         scene.run(500ms);
         EXPECT_FALSE(scene.session.isConnected());
         scene.service->thaw();
     }},
    {"StopsForLongerThanTheHeartbeat",
     [](Scene& scene) {
         scene.service->freeze();
         EXPECT_TRUE(scene.session.waitForLoss());
         scene.run(kLongerThanTheHeartbeat);
         scene.service->thaw();
     }},
    {"GoesWithoutAWord",
     [](Scene& scene) {
         scene.relay.goSilent();
         EXPECT_TRUE(scene.session.waitForLoss());
     },
     false, true},
    {"GoesWithoutAWordAndTheServiceDies",
     [](Scene& scene) {
         scene.relay.goSilent();
         scene.service->kill();
         EXPECT_TRUE(scene.session.waitForLoss());
         scene.restart();
     },
     true, true},
};

class Reconnection : public testing::TestWithParam<std::tuple<Fault, Engine>> {};

INSTANTIATE_TEST_SUITE_P(Faults, Reconnection,
                         testing::Combine(testing::ValuesIn(kFaults),
                                          testing::Values(Engine::thread, Engine::mainQueue)),
                         [](auto const& instance) {
                             return std::get<0>(instance.param).name +
                                    std::string(std::get<1>(instance.param) == Engine::thread ? "OnThread"
                                                                                              : "OnMainQueue");
                         });

TEST_P(Reconnection, BringsEverythingBack) {
    auto const& [fault, engine] = GetParam();
    Scene scene(engine, fault.isRelayed);
    ASSERT_TRUE(scene.session.begin());
    ASSERT_EQ(scene.session.difference(*scene.service), "");
    fault.happen(scene);
    scene.session.expectRestored(*scene.service, fault.forgets);
    auto const& states = scene.session.alice.states;
    ASSERT_GE(states.size(), 2u);
    EXPECT_EQ(states[0], (States::value_type{4, 5}));
    EXPECT_EQ(states[1], (States::value_type{3, 2})) << "told more than once that it reconnects";
}

}  // namespace
}  // namespace kv::test
