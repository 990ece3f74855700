#include "Binding/Events.h"

#include "Binding/Arguments.h"
#include "Binding/Records.h"

#include <algorithm>
#include <span>
#include <string_view>

namespace kv::binding {
namespace {

using Fields = boost::json::object;
using Invitation = std::shared_ptr<KvPimInvitation>;

class Events {
public:
    explicit Events(std::shared_ptr<Inbox> inbox, std::shared_ptr<InvitationLabels> labels = nullptr)
        : inbox_(std::move(inbox)), labels_(std::move(labels)) {}

    void write(std::string_view name, Fields&& fields = {}, KvData data = nullptr) const {
        Fields line;
        line.reserve(1 + fields.size());
        line.emplace("event", name);
        append(line, std::move(fields));
        inbox_->put(line, std::move(data));
    }
    void writeOf(KvPimChannel const& channel, std::string_view name, Fields&& fields, KvData data = nullptr) const {
        Fields all;
        all.emplace("channelId", channel.channelId());
        append(all, std::move(fields));
        write(name, std::move(all), std::move(data));
    }
    void writeOf(Invitation const& invitation, std::string_view name, Fields&& fields = {}) const {
        auto const match = labels_->match(invitation);
        Fields all{
            {"invitation", toJson(*invitation)}, {"label", toJson(match.label)}, {"sameObject", match.isSameObject}};
        append(all, std::move(fields));
        write(name, std::move(all));
    }
    boost::json::value json(KvPimMessage const& message) const { return toJson(message, inbox_->attachesData()); }
    KvData dataOf(KvPimMessage const& message) const { return inbox_->attachesData() ? message.data() : nullptr; }
    void label(Invitation const& invitation) const { labels_->set("from:" + invitation->inviter, invitation); }

private:
    std::shared_ptr<Inbox> inbox_;
    std::shared_ptr<InvitationLabels> labels_;
};

template <class Delegate>
struct Callback {
    std::string_view name;
    std::string_view fields;
    void (*implement)(Delegate& delegate, Events const& events);
};

template <class Delegate>
std::shared_ptr<Delegate> make(std::span<Callback<Delegate> const> table, Events const& events,
                               CallbackNames const& names) {
    auto delegate = std::make_shared<Delegate>();
    for (auto const& row : table)
        if (!names || std::ranges::count(*names, row.name) > 0) row.implement(*delegate, events);
    return delegate;
}

constexpr Callback<KvPimDelegate> kClientCallbacks[] = {
    {"connectionStateChanged", "state reason",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.connectionStateChanged = [events](KvPimKit&, std::int64_t state, std::int64_t reason) {
             events.write("connectionStateChanged", {{"state", state}, {"reason", reason}});
         };
     }},
    {"tokenDidExpire", "",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.tokenDidExpire = [events](KvPimKit&) { events.write("tokenDidExpire"); };
     }},
    {"messageReceived", "peerId message",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.messageReceived = [events](KvPimKit&, auto const& message, std::string const& peerId) {
             events.write("messageReceived", {{"peerId", peerId}, {"message", events.json(*message)}},
                          events.dataOf(*message));
         };
     }},
    {"peersOnlineStatusChanged", "statuses",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.peersOnlineStatusChanged = [events](KvPimKit&, auto const& statuses) {
             events.write("peersOnlineStatusChanged", {{"statuses", toJson(statuses)}});
         };
     }},
    {"peersUserAttributesChanged", "users",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.peersUserAttributesChanged = [events](KvPimKit&, auto const& users) {
             events.write("peersUserAttributesChanged", {{"users", toJson(users)}});
         };
     }},
    {"onWritable", "",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.onWritable = [events](KvPimKit&) { events.write("onWritable"); };
     }},
};

constexpr Callback<KvPimChannelDelegate> kChannelCallbacks[] = {
    {"memberJoined", "channelId member",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberJoined = [events](KvPimChannel& channel, KvPimMember const& member) {
             events.writeOf(channel, "channel.memberJoined", {{"member", toJson(member)}});
         };
     }},
    {"memberLeft", "channelId member",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberLeft = [events](KvPimChannel& channel, KvPimMember const& member) {
             events.writeOf(channel, "channel.memberLeft", {{"member", toJson(member)}});
         };
     }},
    {"memberLeftWithReason", "channelId member reason",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberLeftWithReason = [events](KvPimChannel& channel, KvPimMember const& member,
                                                  std::int64_t reason) {
             events.writeOf(channel, "channel.memberLeftWithReason", {{"member", toJson(member)}, {"reason", reason}});
         };
     }},
    {"messageReceived", "channelId message member",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.messageReceived = [events](KvPimChannel& channel, auto const& message, KvPimMember const& member) {
             events.writeOf(channel, "channel.messageReceived",
                            {{"message", events.json(*message)}, {"member", toJson(member)}}, events.dataOf(*message));
         };
     }},
    {"attributeUpdate", "channelId attributes",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.attributeUpdate = [events](KvPimChannel& channel, auto const& attributes) {
             events.writeOf(channel, "channel.attributeUpdate", {{"attributes", toJson(attributes)}});
         };
     }},
    {"memberCount", "channelId count",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberCount = [events](KvPimChannel& channel, std::int32_t count) {
             events.writeOf(channel, "channel.memberCount", {{"count", count}});
         };
     }},
};

constexpr std::string_view kInvitationFailed = "invitationFailed";

constexpr Callback<KvPimInvitationDelegate> kInvitationCallbacks[] = {
    {"invitationArrived", "invitation label sameObject",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationArrived = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.label(invitation);
             events.writeOf(invitation, "invitationArrived");
         };
     }},
    {"invitationCanceled", "invitation label sameObject",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationCanceled = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.writeOf(invitation, "invitationCanceled");
         };
     }},
    {"invitationAccept", "invitation label sameObject",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationAccept = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.writeOf(invitation, "invitationAccept");
         };
     }},
    {"invitationRefused", "invitation label sameObject",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationRefused = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.writeOf(invitation, "invitationRefused");
         };
     }},
    {kInvitationFailed, "invitation label sameObject errorCode",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationFailed = [events](KvPimInvitationKit&, Invitation const& invitation,
                                              std::int64_t errorCode) {
             events.writeOf(invitation, kInvitationFailed, {{"errorCode", errorCode}});
         };
     }},
};

template <class Delegate>
std::vector<EventRow> eventsOf(std::span<Callback<Delegate> const> table, std::string const& prefix) {
    std::vector<EventRow> events;
    for (auto const& row : table) events.push_back({prefix + std::string(row.name), row.name, row.fields});
    return events;
}

}  // namespace

std::vector<EventRow> eventsOf(DelegateKind kind) {
    switch (kind) {
        case DelegateKind::client:
            return eventsOf<KvPimDelegate>(kClientCallbacks, "");
        case DelegateKind::channel:
            return eventsOf<KvPimChannelDelegate>(kChannelCallbacks, "channel.");
        case DelegateKind::invitation:
            return eventsOf<KvPimInvitationDelegate>(kInvitationCallbacks, "");
    }
    return {};
}

void checkCallbacks(DelegateKind kind, CallbackNames const& names) {
    if (!names) return;
    auto const events = eventsOf(kind);
    for (auto const& name : *names)
        if (std::ranges::count(events, name, &EventRow::callback) == 0)
            throw BadRequest("there is no callback \"" + name + "\" here");
}

std::shared_ptr<KvPimDelegate> makeClientDelegate(std::shared_ptr<Inbox> inbox, CallbackNames const& names) {
    return make<KvPimDelegate>(kClientCallbacks, Events(std::move(inbox)), names);
}

std::shared_ptr<KvPimChannelDelegate> makeChannelDelegate(std::shared_ptr<Inbox> inbox, CallbackNames const& names) {
    return make<KvPimChannelDelegate>(kChannelCallbacks, Events(std::move(inbox)), names);
}

std::shared_ptr<KvPimInvitationDelegate> makeInvitationDelegate(std::shared_ptr<Inbox> inbox,
                                                                std::shared_ptr<InvitationLabels> labels,
                                                                CallbackNames const& names) {
    CallbackNames all;
    if (names) {
        all = *names;
        all->emplace_back(kInvitationFailed);
    }
    return make<KvPimInvitationDelegate>(kInvitationCallbacks, Events(std::move(inbox), std::move(labels)), all);
}

}  // namespace kv::binding
