// What a delegate is told of, told to streams too.
#pragma once

#include "Classes/Await/KvStream.h"
#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "Classes/Model/KvPimEvents.h"
#include "Platform/KvMainQueue.h"

#include <memory>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kv {

/// The event that a delegate's member stands for; void where another member tells the same.
template <auto Member>
struct KvEventOf {
    using Type = void;
};
#define KV_EVENT(Delegate, member, Told)  \
    template <>                           \
    struct KvEventOf<&Delegate::member> { \
        using Type = event::Told;         \
    }
KV_EVENT(KvPimDelegate, connectionStateChanged, ConnectionStateChanged);
KV_EVENT(KvPimDelegate, tokenDidExpire, TokenDidExpire);
KV_EVENT(KvPimDelegate, messageReceived, MessageReceived);
KV_EVENT(KvPimDelegate, peersOnlineStatusChanged, PeersOnlineStatusChanged);
KV_EVENT(KvPimDelegate, peersUserAttributesChanged, PeersUserAttributesChanged);
KV_EVENT(KvPimDelegate, onWritable, Writable);
KV_EVENT(KvPimDelegate, failureOccurred, FailureOccurred);
KV_EVENT(KvPimDelegate, connectionRestored, ConnectionRestored);
KV_EVENT(KvPimChannelDelegate, memberJoined, MemberJoined);
KV_EVENT(KvPimChannelDelegate, memberLeftWithReason, MemberLeft);
KV_EVENT(KvPimChannelDelegate, messageReceived, ChannelMessageReceived);
KV_EVENT(KvPimChannelDelegate, attributeUpdate, AttributeUpdate);
KV_EVENT(KvPimChannelDelegate, memberCount, MemberCount);
KV_EVENT(KvPimInvitationDelegate, invitationArrived, InvitationArrived);
KV_EVENT(KvPimInvitationDelegate, invitationCanceled, InvitationCanceled);
KV_EVENT(KvPimInvitationDelegate, invitationAccept, InvitationAccepted);
KV_EVENT(KvPimInvitationDelegate, invitationRefused, InvitationRefused);
KV_EVENT(KvPimInvitationDelegate, invitationFailed, InvitationFailed);
#undef KV_EVENT

/// Calls a member of a delegate, if both are there. Returns whether it did.
template <auto Member, class Delegate, class Teller, class... Arguments>
bool tellDelegate(std::shared_ptr<Delegate> const& delegate, Teller& teller, Arguments const&... arguments) {
    if (!delegate || !((*delegate).*Member)) return false;
    ((*delegate).*Member)(teller, arguments...);
    return true;
}

template <class Event>
class KvEventHub {
public:
    explicit KvEventHub(std::shared_ptr<KvMainQueue> queue) : queue_(std::move(queue)) {}
    KvEventHub(KvEventHub const&) = delete;
    KvEventHub& operator=(KvEventHub const&) = delete;
    ~KvEventHub() { end(); }

    /// A stream of all events, or, where `Item` is one kind of event, of those.
    template <class Item>
    KvStream<Item> open(KvStreamOptions options) {
        std::erase_if(listeners_, [](auto const& listener) { return listener.expired(); });
        auto const state = std::make_shared<Listening<Item>>(options);
        listeners_.push_back(state);
        return KvStream<Item>(state);
    }

    /// Tells the event that `Member` stands for. Returns whether anybody hears it. Who awaits it goes on within the
    /// call, and may end this hub there, but must not destroy it.
    template <auto Member, class... Arguments>
    bool tell(Arguments const&... arguments) {
        using Told = typename KvEventOf<Member>::Type;
        bool isHeard = false;
        if constexpr (!std::is_void_v<Told>) {
            if (listeners_.empty()) return false;
            Event const event(Told{arguments...});
            for (auto const& weak : std::vector(listeners_)) {
                auto const listener = weak.lock();
                if (!listener) continue;
                listener->hear(event);
                isHeard = true;
            }
        }
        return isHeard;
    }

    /// Nothing more will come. At a later turn: what is going now may be on the stack of who listens.
    void end() {
        for (auto const& listener : std::exchange(listeners_, {})) {
            queue_->post([listener] {
                if (auto const heard = listener.lock()) heard->end();
            });
        }
    }

private:
    class Listener {
    public:
        virtual ~Listener() = default;
        virtual void hear(Event const& event) = 0;
        virtual void end() = 0;
    };
    template <class Item>
    class Listening final : public Listener, public detail::KvStreamState<Item> {
    public:
        using detail::KvStreamState<Item>::KvStreamState;
        void hear(Event const& event) override {
            if constexpr (std::is_same_v<Item, Event>) {
                this->push(event);
            } else if (auto const* item = std::get_if<Item>(&event)) {
                this->push(*item);
            }
        }
        void end() override { this->finish(); }
    };

    std::shared_ptr<KvMainQueue> const queue_;
    std::vector<std::weak_ptr<Listener>> listeners_;
};

/// One that nothing will come from.
template <class Item>
KvStream<Item> endedStream() {
    auto const state = std::make_shared<detail::KvStreamState<Item>>(KvStreamOptions{});
    state->finish();
    return KvStream<Item>(state);
}

}  // namespace kv
