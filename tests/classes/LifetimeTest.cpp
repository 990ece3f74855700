// Every operation in every callback, and the end of the client in each of them and wherever it waits for something.
// What these tests look for is found by the sanitizers; they also count that each completion is called as often as its
// operation says, and no delegate of a client that is gone.
#include "Classes/KvScope.h"
#include "Operations.h"
#include "Platform/KvFiles.h"
#include "Scene.h"
#include "support/ScriptedServer.h"

#include <algorithm>
#include <list>

#include <arpa/inet.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

struct Operation {
    std::string name;
    Scene::Action start;
    bool completes = false;
};

/// All operations: the requests, and what else can be called. Those that end the session come last.
std::vector<Operation> const& operations() {
    static auto const all = [] {
        std::vector<Operation> list;
        for (auto const& request : kRequests) {
            bool const isSilent = std::string_view(request.name).starts_with("get peers");
            list.push_back({request.name,
                            [&request, calls = isSilent ? Calls::unlessDestroyed : Calls::once](auto& s) {
                                request.start(s.kit(), s.channel(), s.counted(request.name, calls));
                            },
                            true});
        }
        static auto const tooLong = std::make_shared<KvPimMessage>(std::string(40000, 'x'));
        std::vector<Operation> const others{
            {"long peer message",
             [](auto& s) {
                 s.kit().sendMessageToPeer(tooLong, "bob", {}, s.counted("long peer message", Calls::asLongMessage));
             },
             true},
            {"long channel message",
             [](auto& s) {
                 s.channel().sendMessage(tooLong, {}, s.counted("long channel message", Calls::asLongMessage));
             },
             true},
            {"channelId", [](auto& s) { EXPECT_EQ(s.channel().channelId(), "room"); }},
            {"isInChannel", [](auto& s) { s.channel().isInChannel(); }},
            {"getPimInvitationKit", [](auto& s) { EXPECT_NE(s.kit().getPimInvitationKit(), nullptr); }},
            {"setDelegate", [](auto& s) { s.kit().getPimInvitationKit()->setDelegate({}); }},
            {"getDebugInfo", [](auto& s) { EXPECT_FALSE(s.kit().getDebugInfo().empty()); }},
            {"getSDKVersion", [](auto&) { EXPECT_FALSE(KvPimKit::getSDKVersion().empty()); }},
            {"setParameters", [](auto& s) { EXPECT_EQ(s.kit().setParameters("{}"), 0); }},
            {"setLogFile", [](auto& s) { s.kit().setLogFile(""); }},
            {"setLogFilters", [](auto& s) { s.kit().setLogFilters(0); }},
            {"stateManager", [](auto& s) { EXPECT_EQ(s.kit().stateManager().appId, "app"); }},
            {"generateSocketConfig", [](auto& s) { s.kit().generateSocketConfig(kToken, "alice", "app", 1); }},
            {"createChannelWithId", [](auto& s) { s.createChannel(); }},
            {"destroyChannelWithId", [](auto& s) { s.destroyChannel(); }},
            {"loginByToken",
             [](auto& s) { s.kit().loginByToken(kToken, 1, "alice", s.counted("loginByToken", Calls::asLogin)); }},
            {"loginWithConfig",
             [](auto& s) {
                 auto const info = s.kit().getDebugInfo();
                 if (!info.at("brivelSocket").as_object().contains("brivelServer")) return;  // nothing found yet
                 auto const config = s.kit().generateSocketConfig(kToken, "alice", "app", 1);
                 s.kit().loginWithConfig(config, s.counted("loginWithConfig", Calls::asLogin));
             }},
            {"renewToken",
             [](auto& s) {
                 auto const done = s.counted("renewToken");
                 s.kit().renewToken(kToken, 1, [done](auto const&, std::int64_t code) { done(code); });
             },
             true},
            {"logoutWithCompletion", [](auto& s) { s.kit().logoutWithCompletion(s.counted("logoutWithCompletion")); },
             true},
        };
        list.insert(list.end(), others.begin(), others.end());
        return list;
    }();
    return all;
}

void startAll(Scene& scene) {
    for (auto const& operation : operations()) operation.start(scene);
}

// ---- Servers

using Script = std::function<void(ScriptedPeer&)>;

std::atomic<bool> isReleased{false};

/// Says nothing until the test has seen what it waits for.
void waitForRelease(ScriptedPeer& peer) {
    for (int turn = 0; turn < 5000 && !isReleased; ++turn) peer.sleep(2ms);
}

/// A login whose client needs no heartbeat, since the clock of these tests runs fast.
void logIn(ScriptedPeer& peer) {
    peer.connect({.interval = 1h, .timeout = 1h});
    peer.emit("loginSuccess", {json::object()});
}

/// Answers every command, after each of which `then` may do something.
void serve(
    ScriptedPeer& peer, std::function<void(std::string_view command)> const& then = [](auto) {}) {
    for (;;) {
        auto const event = peer.readEvent();
        if (event.id) peer.acknowledge(event, {{{"result", 0}}});
        then(event.items.at(1).as_string());
    }
}

/// Logs in, and does it once the channel is joined.
Script afterJoin(Script cause) {
    return [cause = std::move(cause)](ScriptedPeer& peer) {
        logIn(peer);
        serve(peer, [&](std::string_view command) {
            if (command == "join") cause(peer);
        });
    };
}

Script emitting(char const* event, json::value const& item) {
    return afterJoin([=](ScriptedPeer& peer) { peer.emit(event, json::array{item}); });
}

Script inviting(int state) {
    return emitting("InvitationNotify", {{"invitation", {{"inviter", "bob"}, {"invitee", "alice"}, {"state", state}}}});
}

void leaveSocket(ScriptedPeer& peer) { peer.sendText("41"); }

struct Callback {
    std::string name;
    Script script;                  // what makes the server cause it
    Scene::Action whenJoined = {};  // what makes the client cause it
};

/// All callbacks of the delegates, and the completions of a login.
std::vector<Callback> callbacks() {
    json::value const from{{"channelId", "room"}, {"userId", "bob"}};
    json::value const content{{"text", "x"}};
    json::value const changed{{"attributes", {{"bob", {{"attributes", {{"k", "v"}}}}}}}};
    json::value const messages{{"msgs", {{{"content", content}}, {{"content", content}}, {{"content", content}}}}};
    auto const serving = afterJoin([](auto&) {});
    std::vector<Callback> list{
        {"2,1", serving},
        {"3,2", serving},
        {"1,3",
         [](ScriptedPeer& peer) {
             peer.connect();
             peer.emit("disconnectReason", {"loginFail: AuthFail"});
             leaveSocket(peer);
         }},
        {"1,4", waitForRelease},
        {"1,6", serving, [](Scene& scene) { scene.kit().logoutWithCompletion({}); }},
        {"1,8", afterJoin([](ScriptedPeer& peer) {
             peer.emit("disconnectReason", {"KickOff"});
             leaveSocket(peer);
         })},
        {"4,5", afterJoin([](ScriptedPeer& peer) { peer.hangUp(); })},
        {"tokenDidExpire", emitting("disconnect", "loginFail: ExpiredToken")},
        {"messageReceived", emitting("MessageToPeerReceived", messages)},
        {"peersOnlineStatusChanged", emitting("PeersOnlineStatusChanged", {{"status", {{"bob", 0}}}})},
        {"peersUserAttributesChanged", emitting("PeersUserAttributesChanged", changed)},
        {"memberJoined", emitting("MemberJoined", from)},
        {"memberLeft", emitting("MemberLeft", from)},
        {"memberLeftWithReason", emitting("MemberLeft", from)},
        {"channel messageReceived", emitting("ChannelMessageReceived", {{"from", from}, {"content", content}})},
        {"attributeUpdate",
         emitting("ChannelAttributesUpdated", {{"channelId", "room"}, {"attributes", json::object()}})},
        {"memberCount", emitting("ChannelMemberCount", {{"counts", {{"room", 2}, {"hall", 3}}}})},
        {"invitationFailed", inviting(1)},
        {"invitationArrived", inviting(2)},
        {"invitationCanceled", inviting(3)},
        {"invitationAccept", inviting(4)},
        {"invitationRefused", inviting(5)},
        {"login", serving},
        {"joined", serving},
    };
    return list;
}

/// Completions are callbacks too.
std::vector<Callback> completions() {
    std::vector<Callback> list;
    for (auto const& operation : operations()) {
        if (operation.completes) list.push_back({operation.name, afterJoin([](auto&) {}), operation.start});
    }
    return list;
}

// ---- What may be done in a callback

struct Turn {
    std::string name;
    Scene::Action action;
};
Scene::Action thenDestroy(Scene::Action action) {
    return [action = std::move(action)](Scene& scene) {
        action(scene);
        scene.destroy();
    };
}
// As a dialogue does that the application shows there.
Scene::Action thenRunTheQueue(Scene::Action action) {
    return [action = std::move(action)](Scene& scene) {
        action(scene);
        for (int turn = 0; turn < 5; ++turn) scene.queue().poll();
    };
}
std::vector<Turn> const kAll{{"destruction", &Scene::destroy},
                             {"destruction, other turns", thenRunTheQueue(&Scene::destroy)},
                             {"everything", startAll},
                             {"everything, other turns", thenRunTheQueue(startAll)},
                             {"everything, destruction", thenDestroy(startAll)}};
std::vector<Turn> const& each() {
    static auto const turns = [] {
        auto list = kAll;
        for (auto const& [name, start, completes] : operations()) {
            list.push_back({name, start});
            list.push_back({name + ", destruction", thenDestroy(start)});
        }
        return list;
    }();
    return turns;
}

// ---- Where a client may wait

struct Wait {
    char const* name;
    Script script;
    bool (*isReached)(KvPimStateManager const& now, int connections);
    Scene::Action whenJoined = {};
};

Script onceLost(Script const& next, char const* lastCommand = "join") {
    return [=](ScriptedPeer& peer) {
        if (peer.number() > 0) return next(peer);
        logIn(peer);
        serve(peer, [&](std::string_view command) {
            if (command == lastCommand) peer.hangUp();
        });
    };
}
void waitForLogin(ScriptedPeer& peer) {
    peer.connect();
    waitForRelease(peer);
}
void waitForAnswers(ScriptedPeer& peer) {
    logIn(peer);
    waitForRelease(peer);
}
void refuse(ScriptedPeer& peer) {
    logIn(peer);
    for (;;) peer.acknowledge(peer.readEvent(), {"Too Many Requests"});
}

std::vector<Wait> waits() {
    auto const buildUp = [](Scene& scene) {
        auto& kit = scene.kit();
        kit.subscribePeersOnlineStatus(kIds, scene.counted("subscribe status"));
        kit.subscribePeersUserAttribes(kIds, scene.counted("subscribe attributes"));
        kit.setLocalUserAttributes(kAttributes, scene.counted("set own"));
    };
    auto const isConnecting = [](auto& now, int connections) {
        return now.state == KvPimConnectionStateConnecting && connections == 1;
    };
    auto const isReconnecting = [](auto& now, int connections) {
        return now.state == KvPimConnectionStateReconnecting && connections == 2;
    };
    auto const isBack = [](auto& now, int connections) {
        return now.state == KvPimConnectionStateConnected && connections == 2;
    };
    return {
        {"discovery", nullptr, [](auto& now, int) { return now.state == KvPimConnectionStateConnecting; }},
        {"connecting", waitForRelease, isConnecting},
        {"loginSuccess", waitForLogin, isConnecting},
        {"answers", waitForAnswers, [](auto& now, int) { return now.login; }},
        {"reconnection delay", onceLost(waitForRelease),
         [](auto& now, int) { return now.login && now.state == KvPimConnectionStateDisconnected; }},
        {"reconnecting", onceLost(waitForRelease), isReconnecting},
        {"loginSuccess again", onceLost(waitForLogin), isReconnecting},
        {"restoring, refused", onceLost(refuse, "setLocalUserAttributes"), isBack, buildUp},
        {"restoring, unanswered", onceLost(waitForAnswers, "setLocalUserAttributes"), isBack, buildUp},
    };
}

/// A server that is there and never says a word.
class SilentServer {
public:
    SilentServer() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_TRUE(::bind(listener_.get(), generic, size) == 0 && ::listen(listener_.get(), 8) == 0 &&
                    ::getsockname(listener_.get(), generic, &size) == 0);
        port_ = ntohs(address.sin_port);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    KvFileDescriptor listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::uint16_t port_ = 0;
};

class LifetimeTest : public testing::TestWithParam<KvPimEngine> {
protected:
    LifetimeTest() { isReleased = false; }

    /// Runs the queue until it holds, for some seconds. The clock moves by a step whenever nothing else does.
    bool waitFor(std::function<bool()> const& holds, std::chrono::milliseconds step) {
        auto const end = std::chrono::steady_clock::now() + 10s;
        while (!holds()) {
            if (std::chrono::steady_clock::now() > end) return false;
            pollfd waiting{queue->fd(), POLLIN, 0};
            ::poll(&waiting, 1, 1);
            if (queue->poll() == 0) queue->advance(step);
        }
        return true;
    }

    void expectSettled(std::list<Scene>& scenes, std::string const& when) {
        isReleased = true;
        bool const areSettled = waitFor([&] { return std::ranges::all_of(scenes, &Scene::isSettled); }, 1s);
        queue->advance(11s);  // nothing more comes
        for (auto const& scene : scenes) {
            EXPECT_TRUE(areSettled && scene.isSettled()) << when << ", " << scene.name << scene.unsettled();
        }
    }

    /// Takes each turn in a callback, each with a client of its own, some of them side by side.
    void play(Callback const& callback, std::vector<Turn> const& turns, bool logsIn = true,
              std::chrono::milliseconds step = 20ms) {
        constexpr std::size_t kAtOnce = 50;
        for (std::size_t first = 0; first < turns.size(); first += kAtOnce) {
            isReleased = false;
            ScriptedServer server(callback.script);
            std::list<Scene> scenes;
            for (auto i = first; i < std::min(first + kAtOnce, turns.size()); ++i) {
                auto& scene = scenes.emplace_back(server.url(), queue, GetParam());
                scene.name = turns[i].name;
                scene.awaited = callback.name;
                scene.action = turns[i].action;
                scene.whenJoined = callback.whenJoined;
                if (logsIn) {
                    scene.login();
                } else {
                    callback.whenJoined(scene);
                }
            }
            EXPECT_TRUE(
                waitFor([&] { return std::ranges::all_of(scenes, &std::string::empty, &Scene::awaited); }, step))
                << callback.name << " never came";
            expectSettled(scenes, callback.name);
        }
    }

    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create(KvMainQueue::Time::manual);
};

INSTANTIATE_TEST_SUITE_P(Engines, LifetimeTest, testing::Values(KvPimEngine::thread, KvPimEngine::mainQueue),
                         [](auto const& instance) {
                             return instance.param == KvPimEngine::thread ? "Thread" : "MainQueue";
                         });

TEST_P(LifetimeTest, EachOperationMayBeCalledInEachCallbackAndBeTheLast) {
    for (auto const& callback : callbacks()) play(callback, each());
    play({"invitationFailed", inviting(2)}, kAll, true, 1s);  // a time-out is a callback too
}

TEST_P(LifetimeTest, EverythingMayBeDoneInEachCompletion) {
    for (auto const& completion : completions()) {
        play(completion, kAll);
        play(completion, kAll, false);  // called inside the call, which is refused
    }
}

TEST_P(LifetimeTest, AClientMayEndWhereverItWaits) {
    auto const logout = operations().back().start;
    for (auto const& wait : waits()) {
        for (auto const& [name, action] : std::vector<Turn>{{"destruction", &Scene::destroy},
                                                            {"logout", logout},
                                                            {"logout, destruction", thenDestroy(logout)},
                                                            {"everything", startAll},
                                                            {"everything, destruction", thenDestroy(startAll)}}) {
            isReleased = false;
            SilentServer const silent;
            ScriptedServer server(wait.script ? wait.script : Script(waitForRelease));
            std::list<Scene> scenes;
            auto& scene = scenes.emplace_back(wait.script ? server.url() : silent.url(), queue, GetParam());
            scene.name = name;
            scene.whenJoined = wait.whenJoined;
            scene.login();
            EXPECT_TRUE(waitFor([&] { return wait.isReached(scene.kit().stateManager(), server.connections()); }, 20ms))
                << wait.name;
            action(scene);
            isReleased = true;
            int turns = 0;
            waitFor([&] { return scene.isSettled() || ++turns > 100; }, 1s);
            if (scene.isAlive()) scene.destroy();
            expectSettled(scenes, wait.name);
        }
    }
}

TEST_P(LifetimeTest, AClientMayEndAtEachMomentOfALogin) {
    ScriptedServer server(afterJoin([](auto&) {}));
    for (int turns = 0; turns < 40; ++turns) {
        std::list<Scene> scenes;
        auto& scene = scenes.emplace_back(server.url(), queue, GetParam());
        scene.name = std::to_string(turns);
        scene.login();
        for (int turn = 0; turn < turns; ++turn) {
            pollfd waiting{queue->fd(), POLLIN, 0};
            ::poll(&waiting, 1, 1);
            queue->poll();
        }
        scene.destroy();
        expectSettled(scenes, "login");
    }
}

TEST(Scope, KeepsCompletionsThatAreStillOwedFromWhatIsGone) {
    auto const queue = KvMainQueue::create();
    int owed = 0, guarded = 0;
    {
        Person const alice("http://127.0.0.1:9", "alice", queue);
        KvScope const scope;
        auto const guard = [&] { return scope.wrap([&](std::int64_t) { ++guarded; }); };
        alice.kit->logoutWithCompletion(guard());
        alice.kit->loginByToken(kToken, 1, "alice", [&owed, guard = guard()](std::int64_t code) mutable {
            ++owed;
            guard(code);
        });
    }
    EXPECT_TRUE(runUntil(*queue, [&] { return owed == 1; }));
    EXPECT_EQ(guarded, 1);
}

}  // namespace
}  // namespace kv::test
