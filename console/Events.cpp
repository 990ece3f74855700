#include "console/Events.h"

#include "console/Arguments.h"
#include "console/Records.h"

#include <algorithm>
#include <span>
#include <string_view>

namespace kv::console {
namespace {

using Fields = boost::json::object;
using Invitation = std::shared_ptr<KvPimInvitation>;

class Events {
public:
    explicit Events(std::shared_ptr<Output> output, std::shared_ptr<InvitationLabels> labels = nullptr)
        : output_(std::move(output)), labels_(std::move(labels)) {}

    void write(std::string_view name, Fields const& fields = {}) const {
        Fields line{{"event", name}};
        for (auto const& [key, value] : fields) line[key] = value;
        output_->line(line);
    }
    void writeOf(KvPimChannel const& channel, std::string_view name, Fields const& fields) const {
        Fields all{{"channelId", channel.channelId()}};
        for (auto const& [key, value] : fields) all[key] = value;
        write(name, all);
    }
    void writeOf(Invitation const& invitation, std::string_view name, Fields const& fields = {}) const {
        auto const match = labels_->match(invitation);
        Fields all{
            {"invitation", toJson(*invitation)}, {"label", toJson(match.label)}, {"sameObject", match.isSameObject}};
        for (auto const& [key, value] : fields) all[key] = value;
        write(name, all);
    }
    void label(Invitation const& invitation) const { labels_->set("from:" + invitation->inviter, invitation); }

private:
    std::shared_ptr<Output> output_;
    std::shared_ptr<InvitationLabels> labels_;
};

template <class Delegate>
struct Callback {
    std::string_view name;
    void (*implement)(Delegate& delegate, Events const& events);
};

template <class Delegate>
std::shared_ptr<Delegate> make(std::span<Callback<Delegate> const> table, Events const& events,
                               CallbackNames const& names) {
    auto delegate = std::make_shared<Delegate>();
    auto const isNamed = [&](auto const& row) { return !names || std::ranges::count(*names, row.name) > 0; };
    for (auto const& row : table) {
        if (isNamed(row)) row.implement(*delegate, events);
    }
    for (auto const& name : names.value_or(std::vector<std::string>{})) {
        if (std::ranges::count(table, name, &Callback<Delegate>::name) == 0) {
            throw BadLine("there is no callback \"" + name + "\" here");
        }
    }
    return delegate;
}

constexpr Callback<KvPimDelegate> kClientCallbacks[] = {
    {"connectionStateChanged",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.connectionStateChanged = [events](KvPimKit&, std::int64_t state, std::int64_t reason) {
             events.write("connectionStateChanged", {{"state", state}, {"reason", reason}});
         };
     }},
    {"tokenDidExpire",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.tokenDidExpire = [events](KvPimKit&) { events.write("tokenDidExpire"); };
     }},
    {"messageReceived",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.messageReceived = [events](KvPimKit&, auto const& message, std::string const& peerId) {
             events.write("messageReceived", {{"peerId", peerId}, {"message", toJson(*message)}});
         };
     }},
    {"peersOnlineStatusChanged",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.peersOnlineStatusChanged = [events](KvPimKit&, auto const& statuses) {
             events.write("peersOnlineStatusChanged", {{"statuses", toJson(statuses)}});
         };
     }},
    {"peersUserAttributesChanged",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.peersUserAttributesChanged = [events](KvPimKit&, auto const& users) {
             events.write("peersUserAttributesChanged", {{"users", toJson(users)}});
         };
     }},
    {"onWritable",
     [](KvPimDelegate& delegate, Events const& events) {
         delegate.onWritable = [events](KvPimKit&) { events.write("onWritable"); };
     }},
};

constexpr Callback<KvPimChannelDelegate> kChannelCallbacks[] = {
    {"memberJoined",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberJoined = [events](KvPimChannel& channel, KvPimMember const& member) {
             events.writeOf(channel, "channel.memberJoined", {{"member", toJson(member)}});
         };
     }},
    {"memberLeft",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberLeft = [events](KvPimChannel& channel, KvPimMember const& member) {
             events.writeOf(channel, "channel.memberLeft", {{"member", toJson(member)}});
         };
     }},
    {"memberLeftWithReason",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberLeftWithReason = [events](KvPimChannel& channel, KvPimMember const& member,
                                                  std::int64_t reason) {
             events.writeOf(channel, "channel.memberLeftWithReason", {{"member", toJson(member)}, {"reason", reason}});
         };
     }},
    {"messageReceived",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.messageReceived = [events](KvPimChannel& channel, auto const& message, KvPimMember const& member) {
             events.writeOf(channel, "channel.messageReceived",
                            {{"message", toJson(*message)}, {"member", toJson(member)}});
         };
     }},
    {"attributeUpdate",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.attributeUpdate = [events](KvPimChannel& channel, auto const& attributes) {
             events.writeOf(channel, "channel.attributeUpdate", {{"attributes", toJson(attributes)}});
         };
     }},
    {"memberCount",
     [](KvPimChannelDelegate& delegate, Events const& events) {
         delegate.memberCount = [events](KvPimChannel& channel, std::int32_t count) {
             events.writeOf(channel, "channel.memberCount", {{"count", count}});
         };
     }},
};

constexpr std::string_view kInvitationFailed = "invitationFailed";

constexpr Callback<KvPimInvitationDelegate> kInvitationCallbacks[] = {
    {"invitationArrived",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationArrived = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.label(invitation);
             events.writeOf(invitation, "invitationArrived");
         };
     }},
    {"invitationCanceled",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationCanceled = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.writeOf(invitation, "invitationCanceled");
         };
     }},
    {"invitationAccept",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationAccept = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.writeOf(invitation, "invitationAccept");
         };
     }},
    {"invitationRefused",
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationRefused = [events](KvPimInvitationKit&, Invitation const& invitation) {
             events.writeOf(invitation, "invitationRefused");
         };
     }},
    {kInvitationFailed,
     [](KvPimInvitationDelegate& delegate, Events const& events) {
         delegate.invitationFailed = [events](KvPimInvitationKit&, Invitation const& invitation,
                                              std::int64_t errorCode) {
             events.writeOf(invitation, kInvitationFailed, {{"errorCode", errorCode}});
         };
     }},
};

}  // namespace

std::shared_ptr<KvPimDelegate> makeClientDelegate(std::shared_ptr<Output> output, CallbackNames const& names) {
    return make<KvPimDelegate>(kClientCallbacks, Events(std::move(output)), names);
}

std::shared_ptr<KvPimChannelDelegate> makeChannelDelegate(std::shared_ptr<Output> output, CallbackNames const& names) {
    return make<KvPimChannelDelegate>(kChannelCallbacks, Events(std::move(output)), names);
}

std::shared_ptr<KvPimInvitationDelegate> makeInvitationDelegate(std::shared_ptr<Output> output,
                                                                std::shared_ptr<InvitationLabels> labels,
                                                                CallbackNames const& names) {
    auto all = names;
    if (all) all->emplace_back(kInvitationFailed);
    return make<KvPimInvitationDelegate>(kInvitationCallbacks, Events(std::move(output), std::move(labels)), all);
}

}  // namespace kv::console
