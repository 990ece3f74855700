// Every callback against everything an application may do in it, its client's destruction first of all. What these
// tests look for is found by the sanitizers; they also count that each completion is called, and no delegate of a dead
// client.
#include "Person.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace kv::test {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

// A client in the middle of things, and one action to take when one of its callbacks comes.
struct Scene {
    Scene(Service const& service, std::shared_ptr<KvMainQueue> queue, KvPimEngine engine)
        : person(service.url(), "alice", std::move(queue), engine) {
        auto& client = *person.delegate;
        client.connectionStateChanged = [this](KvPimKit&, std::int64_t state, std::int64_t) {
            on("state " + std::to_string(state));
        };
        client.messageReceived = [this](KvPimKit&, auto const&, std::string const&) { on("message"); };
        client.peersOnlineStatusChanged = [this](KvPimKit&, auto const&) { on("status"); };
        client.peersUserAttributesChanged = [this](KvPimKit&, auto const&) { on("attributes"); };
        listener->memberJoined = [this](KvPimChannel&, KvPimMember const&) { on("joined"); };
        listener->memberLeft = [this](KvPimChannel&, KvPimMember const&) { on("left"); };
        listener->messageReceived = [this](KvPimChannel&, auto, KvPimMember const&) { on("channel message"); };
        listener->attributeUpdate = [this](KvPimChannel&, auto const&) { on("channel attributes"); };
        listener->memberCount = [this](KvPimChannel&, std::int32_t) { on("count"); };
        invitations->invitationArrived = [this](KvPimInvitationKit&, auto) { on("arrived"); };
        invitations->invitationFailed = [this](KvPimInvitationKit&, auto, std::int64_t) { on("failed"); };
    }

    void on(std::string const& callback) {
        EXPECT_TRUE(person.kit != nullptr) << callback << " after the client was destroyed";
        if (callback != trigger) return;
        trigger.clear();
        action(*this);
    }

    void destroy() {
        channel.reset();
        kit.reset();
        person.kit.reset();
    }

    KvPimKit::Completion counted() {
        ++begun;
        return [this](std::int64_t) { ++ended; };
    }
    auto countedList() {
        return [done = counted()](auto const&, std::int64_t code) { done(code); };
    }

    Person person;
    std::shared_ptr<KvPimChannelDelegate> listener = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimInvitationDelegate> invitations = std::make_shared<KvPimInvitationDelegate>();
    std::shared_ptr<KvPimChannel> channel;
    std::shared_ptr<KvPimInvitationKit> kit;
    std::string trigger;
    std::function<void(Scene&)> action;
    int begun = 0, ended = 0;
};

void startEverything(Scene& scene) {
    auto& kit = *scene.person.kit;
    std::vector<std::string> const ids{"bob"}, keys{"k"};
    std::vector<KvPimAttribute> const attributes{{"k", "v"}};
    auto const message = std::make_shared<KvPimRawMessage>(makeData("bytes"));
    if (scene.channel) {
        scene.channel->joinWithCompletion(scene.counted());
        scene.channel->getMembersWithCompletion(scene.countedList());
        scene.channel->sendMessage(message, {}, scene.counted());
    }
    kit.setChannelAttributes("room", attributes, {true}, scene.counted());
    kit.deleteChannelAttributesByKeys("room", keys, {}, scene.counted());
    kit.getChannelAttributes("room", scene.countedList());
    kit.getChannelMemberCount({"room"}, scene.countedList());
    kit.setLocalUserAttributes(attributes, scene.counted());
    kit.clearLocalUserAttributesWithCompletion(scene.counted());
    kit.getUserAttributes("bob", [done = scene.counted()](auto const&, auto const&, std::int64_t code) { done(code); });
    kit.subscribePeersUserAttribes(ids, scene.counted());
    kit.subscribePeersOnlineStatus(ids, scene.counted());
    kit.queryPeersOnlineStatus(ids, scene.countedList());
    kit.sendMessageToPeer(message, "bob", {}, scene.counted());
    if (scene.kit) scene.kit->sendInvitation(KvPimInvitation::initWithInviter("alice", "bob"), scene.counted());
    kit.loginByToken(kToken, 1, "alice", [](std::int64_t) {});  // refused, or a second login
    kit.renewToken("short", 1, [](std::string const&, std::int64_t) {});
}

class LifetimeTest : public testing::TestWithParam<KvPimEngine> {
protected:
    struct Trigger {
        char const* name;
        std::function<void(Service const&)> cause;
    };
    static std::vector<Trigger> triggers() {
        auto const emitting = [](char const* event, json::value const& item) {
            return [event, item](Service const& server) { server.emit("alice", event, item); };
        };
        json::value const from{{"channelId", "room"}, {"userId", "bob"}};
        json::value const content{{"text", "x"}};
        return {
            {"message", emitting("MessageToPeerReceived",
                                 {{"msgs", {{{"content", content}}, {{"content", content}}, {{"content", content}}}}})},
            {"status", emitting("PeersOnlineStatusChanged", {{"status", {{"bob", 0}}}})},
            {"attributes",
             emitting("PeersUserAttributesChanged", {{"attributes", {{"bob", {{"attributes", {{"k", "v"}}}}}}}})},
            {"joined", emitting("MemberJoined", from)},
            {"left", emitting("MemberLeft", from)},
            {"channel message", emitting("ChannelMessageReceived", {{"from", from}, {"content", content}})},
            {"channel attributes",
             emitting("ChannelAttributesUpdated", {{"channelId", "room"}, {"attributes", json::object()}})},
            {"count", emitting("ChannelMemberCount", {{"counts", {{"room", 2}}}})},
            {"arrived",
             emitting("InvitationNotify", {{"invitation", {{"inviter", "bob"}, {"invitee", "alice"}, {"state", 2}}}})},
            {"failed",
             emitting("InvitationNotify", {{"invitation", {{"inviter", "bob"}, {"invitee", "alice"}, {"state", 1}}}})},
            {"state 4",
             [](Service const& server) {
                 server.control("drop", {{"userId", "alice"}});
             }},
        };
    }

    void play(char const* name, std::function<void(Service const&)> const& cause,
              std::function<void(Scene&)> const& action) {
        Scene scene(service, queue, GetParam());
        ASSERT_TRUE(scene.person.login());
        scene.channel = scene.person.join("room", scene.listener);
        scene.kit = scene.person.kit->getPimInvitationKit();
        scene.kit->setDelegate(scene.invitations);
        scene.trigger = name;
        scene.action = action;
        cause(service);
        EXPECT_TRUE(runUntil(*queue, [&] {
            queue->advance(50ms);
            return scene.trigger.empty();
        })) << name;
        EXPECT_TRUE(runUntil(*queue,
                             [&] {
                                 queue->advance(1s);  // what the server does not answer any more ends at its time-out
                                 return scene.begun == scene.ended;
                             }))
            << name << ": " << scene.begun - scene.ended << " completions were never called";
    }

    Service service;
    std::shared_ptr<KvMainQueue> queue = KvMainQueue::create(KvMainQueue::Time::manual);
};

INSTANTIATE_TEST_SUITE_P(Engines, LifetimeTest, testing::Values(KvPimEngine::thread, KvPimEngine::mainQueue),
                         [](auto const& instance) {
                             return instance.param == KvPimEngine::thread ? "Thread" : "MainQueue";
                         });

TEST_P(LifetimeTest, TheClientMayBeDestroyedInEachCallback) {
    for (auto const& [name, cause] : triggers()) {
        play(name, cause, [](Scene& scene) { scene.destroy(); });
        play(name, cause, [](Scene& scene) {
            startEverything(scene);
            scene.destroy();
        });
    }
}

TEST_P(LifetimeTest, EverythingMayBeDoneInEachCallback) {
    for (auto const& [name, cause] : triggers()) {
        play(name, cause, startEverything);
        play(name, cause, [](Scene& scene) { scene.person.kit->logoutWithCompletion(scene.counted()); });
        play(name, cause, [](Scene& scene) {
            scene.person.kit->destroyChannelWithId("room");
            scene.channel.reset();
            scene.person.kit->createChannelWithId("room", scene.listener);
        });
    }
}

TEST_P(LifetimeTest, TheClientMayBeDestroyedAtEachMomentOfALogin) {
    for (int turns = 0; turns < 40; ++turns) {
        Scene scene(service, queue, GetParam());
        std::int64_t code = -1;
        scene.person.kit->loginByToken(kToken, 1, "alice", [&](std::int64_t result) { code = result; });
        for (int turn = 0; turn < turns; ++turn) {
            pollfd waiting{queue->fd(), POLLIN, 0};
            ::poll(&waiting, 1, 1);
            queue->poll();
        }
        scene.destroy();
        EXPECT_TRUE(runUntil(*queue, [&] { return code >= 0; })) << turns;
    }
}

TEST_P(LifetimeTest, TheClientMayBeDestroyedInACompletion) {
    for (auto const& refuses : {true, false}) {
        Scene scene(service, queue, GetParam());
        if (!refuses) {
            ASSERT_TRUE(scene.person.login());
        }
        int called = 0;
        auto const destroys = [&](std::int64_t) {
            ++called;
            scene.destroy();
        };
        auto const tooLong = std::make_shared<KvPimMessage>(std::string(40000, 'x'));
        scene.person.kit->sendMessageToPeer(tooLong, "bob", {}, destroys);
        EXPECT_TRUE(runUntil(*queue, [&] {
            queue->advance(1s);
            return called == (refuses ? 1 : 2);
        }));
    }
}

TEST_P(LifetimeTest, LogoutAndDestructionOfALoggedInClientNeedNoServer) {
    Scene scene(service, queue, GetParam());
    ASSERT_TRUE(scene.person.login());
    service.freeze();
    scene.person.kit->logoutWithCompletion(scene.counted());
    scene.destroy();
    EXPECT_TRUE(runUntil(*queue, [&] { return scene.begun == scene.ended; }));
    service.thaw();
}

}  // namespace
}  // namespace kv::test
