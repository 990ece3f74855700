// Alice, with something of everything that a login builds up, and the question to the service whether it has that.
#pragma once

#include "classes/Person.h"
#include "support/Printed.h"

namespace kv::test {

class Session {
public:
    using Time = KvMainQueue::Time;

    Session(std::string const& url, Engine engine, Time time = Time::real,
            std::function<void(KvPimOptions&)> const& adjust = {})
        : alice(url, "alice", KvMainQueue::create(time), engine, adjust), url_(url), time_(time) {}
    Session(Service const& service, Engine engine, std::function<void(KvPimOptions&)> const& adjust = {})
        : alice(service, "alice", engine, adjust), service_(&service), time_(Time::manual) {}

    /// Logs in and builds it up.
    [[nodiscard]] bool begin() {
        if (!alice.login()) return false;
        auto& kit = *alice.kit;
        listener_->messageReceived = [this](KvPimChannel&, auto const&, KvPimMember const&) { ++channelMessages_; };
        alice.join("garden", listener_);
        alice.join("lobby", listener_);
        auto const left = alice.join("left");
        succeeds([&](auto done) { left->leaveWithCompletion(done); });
        succeeds([&](auto done) { kit.setChannelAttributes("garden", {{"topic", "roses"}}, {}, done); });
        succeeds([&](auto done) { kit.setLocalUserAttributes({{"a", "1"}, {"b", "2"}, {"b", "3"}}, done); });
        succeeds([&](auto done) { kit.deleteLocalUserAttributesByKeys({"a"}, done); });
        succeeds([&](auto done) { kit.subscribePeersOnlineStatus({"bob", "carol"}, done); });
        succeeds([&](auto done) { kit.unsubscribePeersOnlineStatus({"carol"}, done); });
        succeeds([&](auto done) { kit.subscribePeersUserAttribes({"bob", "dora"}, done); });
        alice.states.clear();
        return true;
    }

    /// What the service lacks or has too much; empty when it holds exactly this session.
    template <class AnyService>
    std::string difference(AnyService const& service, bool hasForgotten = false) const {
        return difference(stateOf(service), hasForgotten);
    }
    std::string difference(json::value const& state, bool hasForgotten) const {
        auto const* app = state.at("apps").as_object().if_contains("app");
        auto const* user = app != nullptr ? app->at("users").as_object().if_contains("alice") : nullptr;
        if (user == nullptr) return "alice is unknown";
        if (!user->at("connected").as_bool()) return "alice is not connected";
        json::object held;
        for (char const* list : {"channels", "statusSubscriptions", "attributeSubscriptions"}) {
            auto entries = user->at(list).as_array();
            std::sort(entries.begin(), entries.end(),
                      [](auto const& a, auto const& b) { return a.as_string() < b.as_string(); });
            held[list] = entries;
        }
        held["attributes"] = user->at("attributes");
        auto const* garden = app->at("channels").as_object().if_contains("garden");
        held["garden"] = garden != nullptr ? garden->at("attributes") : json::object();
        json::object const wanted{
            {"channels", {"garden", "lobby"}},
            {"statusSubscriptions", {"bob"}},
            {"attributeSubscriptions", {"bob", "dora"}},
            {"attributes", {{"b", "3"}}},
            // A channel's attributes are the service's own: no member writes them again.
            {"garden", hasForgotten ? json::object() : json::object{{"topic", "roses"}}},
        };
        return held == wanted ? std::string() : json::serialize(held);
    }

    /// Waits until the client is connected and the service holds the session; and then for a push of each kind, which
    /// a second client causes.
    template <class AnyService>
    void expectRestored(AnyService const& service, bool hasForgotten = false) {
        std::string different;
        EXPECT_TRUE(waitFor([&] {
            if (!isConnected()) return false;
            different = difference(service, hasForgotten);
            return different.empty();
        })) << "state "
            << alice.kit->stateManager().state << ", " << different;
        expectPushes();
    }

    bool isConnected() const { return alice.kit->stateManager().state == KvPimConnectionStateConnected; }
    /// Waits until the client has told that its connection is lost; it may be back by then.
    bool waitForLoss() {
        return waitFor([&] {
            return std::ranges::any_of(alice.states,
                                       [](auto const& told) { return told.first == KvPimConnectionStateReconnecting; });
        });
    }
    /// A manual clock is moved meanwhile: delays go by faster than they would.
    bool waitFor(std::function<bool()> const& holds) {
        return runUntil(*alice.queue, holds, time_ == Time::manual ? 50ms : 0ms);
    }

    Person alice;

private:
    template <class Start>
    void succeeds(Start const& start) {
        EXPECT_EQ(alice.codeOf(start), 0);
    }

    static json::value stateOf(LocalService const& service) { return service.state(); }
    static json::value stateOf(Service const& service) { return json::parse(service.state()); }

    void expectPushes() {
        alice.statuses.clear();
        alice.attributes.clear();
        alice.messages.clear();
        channelMessages_ = 0;
        auto bob = service_ != nullptr ? Person(*service_, "bob", Engine::mainQueue) : Person(url_, "bob", alice.queue);
        if (!bob.login()) ADD_FAILURE() << "bob cannot log in";
        auto const lobby = bob.join("lobby");
        auto const message = std::make_shared<KvPimMessage>("hello");
        EXPECT_EQ(bob.codeOf([&](auto done) { lobby->sendMessage(message, {}, done); }), 0);
        EXPECT_EQ(bob.codeOf([&](auto done) { bob.kit->setLocalUserAttributes({{"k", "v"}}, done); }), 0);
        EXPECT_EQ(bob.codeOf([&](auto done) { bob.kit->sendMessageToPeer(message, "alice", {}, done); }), 0);
        EXPECT_TRUE(runUntil(*alice.queue,
                             [&] {
                                 return channelMessages_ == 1 && alice.messages.size() == 1 &&
                                        !alice.statuses.empty() && !alice.attributes.empty();
                             }))
            << channelMessages_ << ' ' << alice.messages.size() << ' ' << alice.statuses.size() << ' '
            << alice.attributes.size();
    }

    std::string const url_{};
    Service const* const service_ = nullptr;  // of the test kit
    Time const time_;
    std::shared_ptr<KvPimChannelDelegate> listener_ = std::make_shared<KvPimChannelDelegate>();
    int channelMessages_ = 0;
};

}  // namespace kv::test
