// A client whose every callback is watched, and the count of what its completions were called with.
#pragma once

#include "Operations.h"
#include "Person.h"

#include <algorithm>
#include <list>
#include <optional>

namespace kv::test {

/// How often a completion is called.
enum class Calls {
    once,
    unlessDestroyed,  // once, but never after the client's end
    asLogin,          // once, and before that with a 9 if it took long
    asLongMessage,    // once, and before that with the code for a text that is too long
};

/// A client whose every callback is told to `on`, and what was begun with it.
class Scene {
public:
    using Action = std::function<void(Scene&)>;

    Scene(std::string const& url, std::shared_ptr<KvMainQueue> queue, KvPimEngine engine)
        : person_(url, "alice", std::move(queue), engine) {
        auto& client = *person_.delegate;
        client.connectionStateChanged = [this](KvPimKit&, std::int64_t state, std::int64_t reason) {
            on(std::to_string(state) + "," + std::to_string(reason));
        };
        client.tokenDidExpire = [this](auto&) { on("tokenDidExpire"); };
        client.messageReceived = [this](auto&, auto, auto&) { on("messageReceived"); };
        client.peersOnlineStatusChanged = [this](auto&, auto&) { on("peersOnlineStatusChanged"); };
        client.peersUserAttributesChanged = [this](auto&, auto&) { on("peersUserAttributesChanged"); };
        listener_->memberJoined = [this](auto& c, auto&) { on("memberJoined", &c); };
        listener_->memberLeft = [this](auto& c, auto&) { on("memberLeft", &c); };
        listener_->memberLeftWithReason = [this](auto& c, auto&, auto) { on("memberLeftWithReason", &c); };
        listener_->messageReceived = [this](auto& c, auto, auto&) { on("channel messageReceived", &c); };
        listener_->attributeUpdate = [this](auto& c, auto&) { on("attributeUpdate", &c); };
        listener_->memberCount = [this](auto& c, auto) { on("memberCount", &c); };
        invitations_->invitationArrived = [this](auto&, auto) { on("invitationArrived"); };
        invitations_->invitationCanceled = [this](auto&, auto) { on("invitationCanceled"); };
        invitations_->invitationAccept = [this](auto&, auto) { on("invitationAccept"); };
        invitations_->invitationRefused = [this](auto&, auto) { on("invitationRefused"); };
        invitations_->invitationFailed = [this](auto&, auto, auto) { on("invitationFailed"); };
        channel_ = createChannel();
        kit().createChannelWithId("hall", listener_);
        kit().getPimInvitationKit()->setDelegate(invitations_);
    }

    KvMainQueue& queue() { return *person_.queue; }
    KvPimKit& kit() { return *person_.kit; }
    KvPimChannel& channel() { return *channel_; }
    bool isAlive() const { return person_.kit != nullptr; }

    std::shared_ptr<KvPimChannel> createChannel() { return kit().createChannelWithId("room", listener_); }
    void destroyChannel() {
        isForgotten_ = kit().destroyChannelWithId("room");
        kit().destroyChannelWithId("room");
    }

    /// The application lets go of everything; first of the client, while the channel and the invitations still answer.
    void destroy() {
        auto const me = std::make_shared<KvPimInvitation>();
        auto const invitations = kit().getPimInvitationKit();
        person_.kit.reset();
        for (auto& begun : begun_) begun.callsBeforeEnd = begun.codes.size();
        channel_->joinWithCompletion(counted("join after the end"));
        channel_->leaveWithCompletion(counted("leave after the end"));
        channel_->getMembersWithCompletion(codeOnly(counted("members after the end")));
        channel_->sendMessage(std::make_shared<KvPimMessage>("x"), {}, counted("message after the end"));
        invitations->sendInvitation(me, counted("invitation after the end"));
        channel_.reset();
    }

    /// The completion of something that begins now.
    KvPimKit::Completion counted(std::string const& what, Calls calls = Calls::once) {
        auto& begun = begun_.emplace_back(Begun{what, calls, {}, {}});
        return [this, &begun](std::int64_t code) {
            begun.codes.push_back(code);
            on(begun.name, nullptr, true);
        };
    }

    void login() {
        kit().loginByToken(kToken, 1, "alice", [this, done = counted("login", Calls::asLogin)](std::int64_t code) {
            done(code);
            if (code != 0 || !isAlive()) return;
            channel_->joinWithCompletion([this, joined = counted("joined")](std::int64_t joinCode) {
                joined(joinCode);
                if (whenJoined && isAlive()) whenJoined(*this);
            });
        });
    }

    bool isSettled() const { return std::ranges::all_of(begun_, &Begun::isSettled); }
    /// The completions that were called too often or not at all, with their codes.
    std::string unsettled() const {
        std::string text;
        for (auto const& begun : begun_) {
            if (begun.isSettled()) continue;
            text += "\n  " + begun.name + ":";
            for (auto const code : begun.codes) text += ' ' + std::to_string(code);
        }
        return text;
    }

    std::string name;
    std::string awaited;  // the callback in which the action is to be taken; empty afterwards
    Action action, whenJoined;

private:
    struct Begun {
        std::string name;
        Calls calls;
        std::vector<std::int64_t> codes;
        std::optional<std::size_t> callsBeforeEnd;

        bool isSettled() const {
            auto const count = codes.size();
            switch (calls) {
                case Calls::once:
                    return count == 1;
                case Calls::unlessDestroyed:
                    return count == callsBeforeEnd.value_or(1);
                case Calls::asLogin:
                    return count == 1 ? codes[0] != 9 : count == 2 && codes[0] == 9 && codes[1] != 9;
                case Calls::asLongMessage:
                    return count == (count > 0 && (codes[0] == 4 || codes[0] == 7) ? 2 : 1);
            }
            return false;
        }
    };

    void on(std::string const& callback, KvPimChannel const* told = nullptr, bool isCompletion = false) {
        EXPECT_TRUE(isAlive() || isCompletion) << callback << " after the client was destroyed";
        EXPECT_FALSE(isForgotten_ && told == channel_.get() && told != nullptr)
            << callback << " of a destroyed channel";
        if (callback != awaited) return;
        awaited.clear();
        action(*this);
    }

    Person person_;
    std::shared_ptr<KvPimChannelDelegate> listener_ = std::make_shared<KvPimChannelDelegate>();
    std::shared_ptr<KvPimInvitationDelegate> invitations_ = std::make_shared<KvPimInvitationDelegate>();
    std::shared_ptr<KvPimChannel> channel_;
    bool isForgotten_ = false;
    std::list<Begun> begun_;
};

}  // namespace kv::test
