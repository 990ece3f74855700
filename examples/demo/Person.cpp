#include "Person.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace demo {
namespace {

// A service that is started without a configuration accepts any token of this length.
constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

std::string stateInWords(std::int64_t state, std::int64_t reason) {
    switch (state) {
        case kv::KvPimConnectionStateConnecting:
            return "connecting";
        case kv::KvPimConnectionStateConnected:
            return "connected";
        case kv::KvPimConnectionStateReconnecting:
            return "connection lost, connecting again";
        default:
            break;
    }
    return reason == kv::KvPimConnectionChangeReasonLogout ? "logged out" : "disconnected";
}

std::string leavingInWords(std::int64_t reason) {
    return reason == kv::KvPimMemberLeftReasonDisconnect ? " was disconnected from " : " leaves ";
}

}  // namespace

Person::Person(Stage const& stage, std::string name, std::string const& appId, kv::KvPimOptions const& options)
    : stage_(stage), name_(std::move(name)), client_(kv::KvPimKit::initWithAppId(appId, delegate_, options)) {
    if (!client_) throw Failure("not a valid API server: " + options.envConfig.apiServer);
    implementDelegates();
    invitations().setDelegate(invitationDelegate_);
}

void Person::logIn() {
    does("logs in",
         [this](Done const& done) { client_->loginByToken(kToken, std::chrono::system_clock::now(), name_, done); });
    hears("connected");
}

void Person::enter(std::string const& channelId) {
    channel_ = client_->createChannelWithId(channelId, channelDelegate_);
    if (!channel_) throw Failure("not a valid channel id: " + channelId);
    does("joins \"" + channelId + "\"", [this](Done const& done) { channel_->joinWithCompletion(done); });
}

void Person::does(std::string const& what, std::function<void(Done const&)> const& start) {
    stage_.action(name_, what);
    auto const answer = std::make_shared<std::optional<std::int64_t>>();
    start([answer](std::int64_t errorCode) { *answer = errorCode; });
    stage_.waitUntil(name_, "the answer to \"" + what + "\"", [&] { return answer->has_value(); });
    if (**answer != 0) throw Failure(name_ + " " + what + ": error " + std::to_string(**answer));
}

void Person::hears(std::string const& what) {
    auto const isThere = [&] { return std::ranges::find(heard_, what) != heard_.end(); };
    stage_.waitUntil(name_, what, isThere);
    heard_.erase(std::ranges::find(heard_, what));
}

void Person::onEvent(std::string const& what) {
    stage_.event(name_, what);
    heard_.push_back(what);
}

void Person::implementDelegates() {
    delegate_->connectionStateChanged = [this](kv::KvPimKit&, std::int64_t state, std::int64_t reason) {
        onEvent(stateInWords(state, reason));
    };
    delegate_->messageReceived = [this](kv::KvPimKit&, auto const& message, std::string const& from) {
        onEvent(from + ": " + describe(*message));
    };
    delegate_->peersOnlineStatusChanged = [this](kv::KvPimKit&, auto const& statuses) {
        for (auto const& status : statuses) onEvent(status.peerId + (status.isOnline ? " is online" : " is offline"));
    };
    channelDelegate_->memberJoined = [this](kv::KvPimChannel& channel, kv::KvPimMember const& member) {
        onEvent(member.userId + " joins " + channel.channelId());
    };
    channelDelegate_->memberLeftWithReason = [this](kv::KvPimChannel& channel, auto const& member,
                                                    std::int64_t reason) {
        onEvent(member.userId + leavingInWords(reason) + channel.channelId());
    };
    channelDelegate_->messageReceived = [this](kv::KvPimChannel& channel, auto const& message, auto const& member) {
        onEvent(member.userId + " in " + channel.channelId() + ": " + describe(*message));
    };
    channelDelegate_->attributeUpdate = [this](kv::KvPimChannel& channel, auto const& attributes) {
        std::string list;
        for (auto const& attribute : attributes) list += " " + attribute.key + " = " + attribute.value.value_or("");
        onEvent("attributes of " + channel.channelId() + ":" + list);
    };
    invitationDelegate_->invitationArrived = [this](kv::KvPimInvitationKit&, auto const& invitation) {
        invitation_ = invitation;
        onEvent(invitation->inviter + " invites: " + invitation->requestInfo.value_or(""));
    };
    invitationDelegate_->invitationAccept = [this](kv::KvPimInvitationKit&, auto const& invitation) {
        onEvent(invitation->invitee + " accepts: " + invitation->responseInfo.value_or(""));
    };
    invitationDelegate_->invitationRefused = [this](kv::KvPimInvitationKit&, auto const& invitation) {
        onEvent(invitation->invitee + " refuses the invitation");
    };
    invitationDelegate_->invitationFailed = [this](kv::KvPimInvitationKit&, auto const& invitation, std::int64_t) {
        onEvent("the invitation of " + invitation->invitee + " failed");
    };
}

std::string describe(kv::KvPimMessage const& message) {
    auto const data = message.data();
    if (!data) return message.text.value_or("");
    std::uint32_t checksum = 2166136261u;  // FNV-1a
    for (auto const byte : *data) checksum = (checksum ^ byte) * 16777619u;
    char text[64];
    std::snprintf(text, sizeof text, "%zu bytes, checksum %08x", data->size(), checksum);
    return text;
}

}  // namespace demo
