#include "fuzz/support/Application.h"

#include "fuzz/support/Heard.h"
#include "fuzz/support/Network.h"

#include <algorithm>
#include <type_traits>

#include <boost/json/object.hpp>

namespace kv::fuzz {
namespace {

constexpr char kToken[] = "0123456789abcdef0123456789abcdef";
constexpr char kMe[] = "me", kPeer[] = "bob", kChannel[] = "room", kOtherChannel[] = "hall";
auto const kTooLong = std::make_shared<KvPimMessage>(std::string(40000, 'x'));
constexpr std::chrono::seconds kLongestOperation{20}, kLongestInvitation{61};

/// A completion of any type.
struct Done {
    Application* app;
    Application::Begun* begun;
    template <class... Told>
    void operator()(Told const&... told) const {
        require(++begun->calls <= begun->most, "no completion is called too often");
        Heard::all(told...);
        app->onCallback();
    }
};

/// A member of a delegate, of any type.
struct Listener {
    Application* app;
    template <class Teller, class... Told>
    void operator()(Teller const& teller, Told const&... told) const {
        require(app->kit != nullptr, "no delegate is called once the client is gone");
        if constexpr (std::is_same_v<Teller, KvPimChannel>)
            require(!app->isForgotten || &teller != app->channel.get(), "nor of a channel that was destroyed");
        Heard::all(teller, told...);
        app->onCallback();
    }
};

using App = Application&;
using Text = std::string const&;
using Begun = Application::Begun;

constexpr Begun kOnce{1, 1};
constexpr Begun kOnceUnlessDestroyed{0, 1};  // a client that is destroyed takes these along
constexpr Begun kOnceOrTwice{1, 2};          // a login that timed out is told all the same how its attempt ended

struct Operation {
    char letter;
    bool needsClient;
    Begun ends;
    void (*begin)(App app, Text text, Done done);
};

using Invite = void (KvPimInvitationKit::*)(std::shared_ptr<KvPimInvitation>, KvPimInvitationKit::Completion);
template <Invite Method>
void invite(App app, Text text, Done done) {
    app.invitation = KvPimInvitation::initWithInviter(kMe, kPeer);
    app.invitation->requestInfo = text;
    ((*app.invitations).*Method)(app.invitation, done);
}

template <Invite Method>
void answerInvitation(App app, Text text, Done done) {
    app.invitation = KvPimInvitation::initWithInviter(kPeer, kMe);
    app.invitation->responseInfo = text;
    ((*app.invitations).*Method)(app.invitation, done);
}

std::vector<KvPimAttribute> attributes(Text text) { return {{"key", text}, {text, "value"}}; }

void start(App app, KvTask<> task, Done done) {
    auto pending = spawn(app.queue().shared_from_this(), std::move(task));
    app.tasks.emplace_back(std::move(pending), done.begun);
}

// A task that held the client would keep it.
template <class T>
KvTask<> awaitOne(KvPending<T> begun, Done done) {
    auto const result = co_await begun;
    done(result ? "" : result.error().message());
}

KvTask<> awaitSeveral(std::shared_ptr<KvPimChannel> channel, KvMainQueue& queue, Done done) {
    auto const [joined, sent] = co_await all(channel->join(), channel->sendMessage("text"));
    auto const first = co_await any(channel->getMembers(), sleep(queue, std::chrono::seconds(5)));
    co_await sleep(queue, std::chrono::seconds(9)).within(std::chrono::milliseconds(joined ? 1 : 2));
    done(joined.has_value(), sent.has_value(), first.index());
}

KvTask<> listen(KvStream<KvPimEvent> events, KvStream<event::ChannelMessageReceived> messages, Application* app,
                Done done) {
    while (auto const event = co_await events.next()) {
        if (messages.size() > 0) co_await messages.next();
        app->onCallback();
    }
    done(0);
}

constexpr Operation kOperations[] = {
    {'a', false, kOnce, [](App app, Text, Done done) { app.channel->joinWithCompletion(done); }},
    {'b', false, kOnce, [](App app, Text, Done done) { app.channel->leaveWithCompletion(done); }},
    {'c', false, kOnce, [](App app, Text, Done done) { app.channel->getMembersWithCompletion(done); }},
    {'d', false, kOnce,
     [](App app, Text text, Done done) { app.channel->sendMessage(std::make_shared<KvPimMessage>(text), {}, done); }},
    {'e', true, kOnce,
     [](App app, Text text, Done done) {
         app.kit->sendMessageToPeer(std::make_shared<KvPimRawMessage>(makeData(text)), kPeer, {}, done);
     }},
    {'f', true, kOnce,
     [](App app, Text text, Done done) { app.kit->setChannelAttributes(kChannel, attributes(text), {}, done); }},
    {'g', true, kOnce,
     [](App app, Text text, Done done) {
         app.kit->addOrUpdateChannelAttributes(kChannel, attributes(text), {}, done);
     }},
    {'h', true, kOnce,
     [](App app, Text text, Done done) { app.kit->deleteChannelAttributesByKeys(kChannel, {text}, {}, done); }},
    {'i', true, kOnce, [](App app, Text, Done done) { app.kit->clearChannelAttributes(kChannel, {}, done); }},
    {'j', true, kOnce, [](App app, Text, Done done) { app.kit->getChannelAttributes(kChannel, done); }},
    {'k', true, kOnce,
     [](App app, Text text, Done done) { app.kit->getChannelAttributesByKeys(kChannel, {text}, done); }},
    {'l', true, kOnce,
     [](App app, Text text, Done done) {
         app.kit->getChannelMemberCount({kChannel, text}, done);
     }},
    {'m', true, kOnce, [](App app, Text text, Done done) { app.kit->setLocalUserAttributes(attributes(text), done); }},
    {'n', true, kOnce,
     [](App app, Text text, Done done) { app.kit->addOrUpdateLocalUserAttributes(attributes(text), done); }},
    {'o', true, kOnce, [](App app, Text text, Done done) { app.kit->deleteLocalUserAttributesByKeys({text}, done); }},
    {'p', true, kOnce, [](App app, Text, Done done) { app.kit->clearLocalUserAttributesWithCompletion(done); }},
    {'q', true, kOnce, [](App app, Text, Done done) { app.kit->getUserAttributes(kPeer, done); }},
    {'r', true, kOnce, [](App app, Text text, Done done) { app.kit->getUserAttributesByKeys(kPeer, {text}, done); }},
    {'s', true, kOnce, [](App app, Text, Done done) { app.kit->subscribePeersUserAttribes({kPeer}, done); }},
    {'t', true, kOnce, [](App app, Text, Done done) { app.kit->unsubscribePeersUserAttribes({kPeer}, done); }},
    {'u', true, kOnceUnlessDestroyed, [](App app, Text, Done done) { app.kit->getPeersUserAttributes({kPeer}, done); }},
    {'v', true, kOnceUnlessDestroyed,
     [](App app, Text text, Done done) { app.kit->getPeersUserAttributesByKeys({kPeer}, {text}, done); }},
    {'w', true, kOnce, [](App app, Text, Done done) { app.kit->subscribePeersOnlineStatus({kPeer}, done); }},
    {'x', true, kOnce, [](App app, Text, Done done) { app.kit->unsubscribePeersOnlineStatus({kPeer}, done); }},
    {'y', true, kOnce,
     [](App app, Text text, Done done) {
         app.kit->queryPeersOnlineStatus({kPeer, text}, done);
     }},
    {'z', true, kOnce, [](App app, Text, Done done) { app.kit->queryPeersBySubscriptionOption(1, done); }},
    {'1', false, kOnce, invite<&KvPimInvitationKit::sendInvitation>},
    {'2', false, kOnce, invite<&KvPimInvitationKit::cancelInvitation>},
    {'3', false, kOnce, answerInvitation<&KvPimInvitationKit::acceptInvitation>},
    {'4', false, kOnce, answerInvitation<&KvPimInvitationKit::refuseInvitation>},
    {'5', true, kOnceOrTwice, [](App app, Text, Done done) { app.kit->loginByToken(kToken, 1, kMe, done); }},
    {'6', true, kOnce, [](App app, Text, Done done) { app.kit->logoutWithCompletion(done); }},
    {'7', true, kOnce,
     [](App app, Text text, Done done) { app.kit->renewToken(text.empty() ? kToken : text, 2, done); }},
    {'8', true, kOnce,
     [](App app, Text, Done done) {
         if (app.kit->destroyChannelWithId(kChannel)) app.isForgotten = true;
         done(app.isForgotten);
     }},
    {'9', true, kOnce,
     [](App app, Text, Done done) {
         app.kit.reset();
         done(0);
     }},
    {'0', true, kOnce,
     [](App app, Text, Done done) {
         app.kit->setLogFilters(8);
         done(app.kit->getDebugInfo().size());
     }},
    {'A', true, kOnceOrTwice, [](App app, Text, Done done) { app.kit->sendMessageToPeer(kTooLong, kPeer, {}, done); }},
    {'B', false, kOnceOrTwice, [](App app, Text, Done done) { app.channel->sendMessage(kTooLong, {}, done); }},
    {'C', true, kOnceOrTwice,
     [](App app, Text, Done done) {
         auto const config = app.kit->generateSocketConfig(kToken, kMe, "app", 1);
         auto const info = app.kit->getDebugInfo();
         if (!info.at("brivelSocket").as_object().contains("brivelServer")) return done(0);  // nothing found yet
         app.kit->loginWithConfig(config, done);
     }},
    {'D', true, kOnce,
     [](App app, Text, Done done) {
         auto const listener = app.channel->delegate();
         for (auto const* const id : {kChannel, kOtherChannel}) app.kit->createChannelWithId(id, listener);
         done(0);
     }},
    {'E', false, kOnce,
     [](App app, Text, Done done) {
         app.invitations->setDelegate({});
         done(app.channel->channelId(), app.channel->isInChannel());
     }},
    {'F', true, kOnce,
     [](App app, Text, Done done) {
         app.kit->setLogFile("");
         done(app.kit->setParameters("{}"), KvPimKit::getSDKVersion(), *app.kit, *app.kit->getPimInvitationKit());
     }},
    {'H', true, kOnce,
     [](App app, Text, Done done) { start(app, awaitOne(app.kit->getPeersUserAttributes({kPeer}), done), done); }},
    {'I', true, kOnce,
     [](App app, Text, Done done) { start(app, awaitOne(app.kit->loginByToken(kToken, 1, kMe), done), done); }},
    {'J', true, kOnce,
     [](App app, Text, Done done) { start(app, awaitSeveral(app.channel, app.queue(), done), done); }},
    {'K', true, kOnceUnlessDestroyed,
     [](App app, Text, Done done) {
         start(app, listen(app.kit->events({.limit = 2}), app.channel->messages(), &app, done), done);
     }},
    {'L', false, kOnce,
     [](App app, Text, Done done) {
         for (auto& [task, begun] : app.tasks) {
             task.cancel();
             begun->least = 0;
         }
         done(0);
     }},
    {'G', false, kOnce,
     [](App app, Text, Done done) {  // as a dialogue does that the application shows in a callback
         for (int turn = 0; turn < 5; ++turn) app.queue().poll();
         done(0);
     }},
};

}  // namespace

Application::Application() {
    makeDelegates();
    KvPimOptions options;
    options.envConfig.apiServer = "http://api.kvpim.example";
    options.envConfig.cachesDirectory = "/dev/null/caches";  // where nothing can be made
    options.mainQueue = queue_;
    options.engine = KvPimEngine::mainQueue;
    kit = KvPimKit::initWithAppId("app", delegate_, options);
    kit->setLogFilters(0);
    channel = kit->createChannelWithId(kChannel, channelDelegate_);
    invitations = kit->getPimInvitationKit();
    invitations->setDelegate(invitationDelegate_);
}

void Application::makeDelegates() {
    Listener const listener{this};
    *delegate_ = {listener, listener, listener, listener, listener};
    *channelDelegate_ = {listener, listener, listener, listener, listener, listener};
    *invitationDelegate_ = {listener, listener, listener, listener, listener};
}

void Application::begin(char letter, std::string const& text) {
    auto const* const found = std::ranges::find(kOperations, letter, &Operation::letter);
    if (found == std::end(kOperations) || (found->needsClient && !kit)) return;
    auto& begun = begun_.emplace_back(found->ends);
    found->begin(*this, text, Done{this, &begun});
}

void Application::onCallback() {
    auto const letters = inCallbacks_.substr(0, inCallbacks_.find(','));
    inCallbacks_.erase(0, letters.size() + 1);
    for (char const letter : letters) begin(letter, "from a callback");
}

void Application::finish() {
    inCallbacks_.clear();
    Network::shared().answerRequests({.failure = net::Failure{KvFailureStage::discovery, "the end"}});
    queue_->advance(kLongestOperation);
    Network::shared().readAll();
    for (auto const& begun : begun_) require(begun.calls >= begun.least, "every completion is called");
    kit.reset();
    queue_->advance(kLongestInvitation);
}

}  // namespace kv::fuzz
