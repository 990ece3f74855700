#include "console/chat/ChatSession.h"

#include "Classes/Await/KvResult.h"
#include "Classes/Model/KvFailure.h"
#include "console/QueueLoop.h"

#include <chrono>

namespace kv::console {
namespace {

using namespace std::chrono_literals;

constexpr auto kLongestLogout = 2s;
constexpr std::string_view kPlainPrompt = "> ";

}  // namespace

ChatSession::ChatSession(ChatOptions const& options, std::shared_ptr<KvMainQueue> queue, Terminal& terminal)
    : options_(options), queue_(std::move(queue)), terminal_(terminal) {
    implementDelegate();
    implementRoomDelegate();
    implementInvitationDelegate();
}

bool ChatSession::create() {
    auto const client = KvPimKit::create(options_.common.appId, clientOptions(options_.common, queue_), delegate_);
    if (!client) {
        warn(client.error().failure()->cause);
        return false;
    }
    client_ = *client;
    client_->getPimInvitationKit()->setDelegate(invitationDelegate_);
    return true;
}

bool ChatSession::login() {
    auto const outcome = std::make_shared<std::optional<std::int64_t>>();
    client_->loginByToken(options_.token, std::chrono::system_clock::now(), options_.userId,
                          [outcome](std::int64_t code) { *outcome = code; });
    terminal_.waitUntil([&] { return outcome->has_value(); });
    if (!outcome->has_value()) return false;
    if (**outcome != 0) {
        warn("login at " + options_.common.env.apiServer, KvPimLoginErrorCode(**outcome));
        return false;
    }
    notice("Hello, " + options_.userId + ". /help shows what you can type.");
    terminal_.setPrompt(kPlainPrompt);
    terminal_.setCompletions([this](std::string_view before) { return completions(before); });
    return true;
}

// The failure of the completion at work, or else the latest. What was merely asked for in vain is told by its code.
void ChatSession::warnOfFailure(std::string text) {
    auto const current = currentFailure();
    auto const failure = current ? current : client_->lastFailure();
    if (failure && (failure->stage != KvFailureStage::request || !failure->serverWords.empty())) {
        text.append(" [").append(toString(failure->stage)).append("] ").append(failure->cause);
        if (!failure->serverWords.empty()) text.append(", and the server says: ").append(failure->serverWords);
        text.append(". ").append(failure->advice);
    }
    warn(text);
}

void ChatSession::logout() {
    auto const isDone = std::make_shared<bool>(false);
    client_->logoutWithCompletion([isDone](std::int64_t) { *isDone = true; });
    auto const limit = queue_->after(kLongestLogout, [] {});
    while (!*isDone && limit.isActive()) turn(*queue_, {});
}

// ---- What comes in

void ChatSession::implementDelegate() {
    delegate_->connectionStateChanged = [this](KvPimKit&, std::int64_t state, std::int64_t reason) {
        showState(state, reason);
    };
    delegate_->tokenDidExpire = [this](KvPimKit&) { warn("your token has expired"); };
    delegate_->messageReceived = [this](KvPimKit&, std::shared_ptr<KvPimMessage> const& message,
                                        std::string const& peer) {
        if (lastPeer_.empty()) lastPeer_ = peer;
        users_.insert(peer);
        showMessage(peer, "to you", *message);
    };
    delegate_->peersOnlineStatusChanged = [this](KvPimKit&, std::vector<KvPimPeerOnlineStatus> const& statuses) {
        for (auto const& status : statuses) notice(status.peerId + (status.isOnline ? " is online" : " is offline"));
    };
}

void ChatSession::implementRoomDelegate() {
    roomDelegate_->memberJoined = [this](KvPimChannel& room, KvPimMember const& member) {
        users_.insert(member.userId);
        notice(member.userId + " enters " + room.channelId());
    };
    roomDelegate_->memberLeftWithReason = [this](KvPimChannel& room, KvPimMember const& member, std::int64_t reason) {
        bool const isCut = reason == KvPimMemberLeftReasonDisconnect;
        notice(member.userId + (isCut ? " was disconnected from " : " leaves ") + room.channelId());
    };
    roomDelegate_->messageReceived = [this](KvPimChannel& room, std::shared_ptr<KvPimMessage> const& message,
                                            KvPimMember const& member) {
        users_.insert(member.userId);
        showMessage(member.userId, room.channelId(), *message);
    };
    roomDelegate_->attributeUpdate = [this](KvPimChannel& room, std::vector<KvPimAttribute> const& attributes) {
        showAttributes(room.channelId(), attributes);
    };
}

void ChatSession::implementInvitationDelegate() {
    invitationDelegate_->invitationArrived = [this](KvPimInvitationKit&, Invitation const& invitation) {
        incoming_ = invitation;
        users_.insert(invitation->inviter);
        auto const info = invitation->requestInfo.value_or("");
        auto const text = info.empty() ? "" : ": " + info;
        notice(invitation->inviter + " invites you" + text + " (/accept or /refuse)");
    };
    invitationDelegate_->invitationCanceled = [this](KvPimInvitationKit&, Invitation const& invitation) {
        notice(invitation->inviter + " cancels the invitation");
    };
    invitationDelegate_->invitationAccept = [this](KvPimInvitationKit&, Invitation const& invitation) {
        notice(invitation->invitee + " accepts your invitation");
    };
    invitationDelegate_->invitationRefused = [this](KvPimInvitationKit&, Invitation const& invitation) {
        notice(invitation->invitee + " refuses your invitation");
    };
    invitationDelegate_->invitationFailed = [this](KvPimInvitationKit&, Invitation const& invitation, std::int64_t) {
        notice("the invitation of " + invitation->invitee + " by " + invitation->inviter + " was not answered");
    };
}

void ChatSession::showState(std::int64_t state, std::int64_t reason) {
    switch (state) {
        case KvPimConnectionStateConnecting:
            return notice("connecting ...");
        case KvPimConnectionStateConnected:
            return notice("connected");
        case KvPimConnectionStateReconnecting:
            return warn("the connection is lost; connecting again ...");
        default:
            break;
    }
    if (reason == KvPimConnectionChangeReasonLogout) return notice("disconnected");
    if (reason != KvPimConnectionChangeReasonRemoteLogin) return;  // the login itself says why it failed
    warn("you have logged in somewhere else: this session is over");
    isLost_ = true;
    terminal_.stop();
}

void ChatSession::showMessage(std::string const& from, std::string const& where, KvPimMessage const& message) {
    std::string text = message.text.value_or("");
    if (auto const data = message.data()) {
        text = "[" + std::to_string(data->size()) + " bytes" + (text.empty() ? "" : ": " + text) + "]";
    }
    terminal_.print({{Style::name, from}, {Style::notice, " (" + where + ") "}, {Style::plain, text}});
}

void ChatSession::showAttributes(std::string const& of, std::vector<KvPimAttribute> const& attributes) {
    if (attributes.empty()) return notice(of + " has no attributes");
    for (auto const& attribute : attributes) notice(of + ": " + attribute.key + " = " + attribute.value.value_or(""));
}

void ChatSession::notice(std::string_view text) { terminal_.print({{Style::notice, "* "}, {Style::notice, text}}); }

void ChatSession::warn(std::string_view text) { terminal_.print({{Style::warning, "! "}, {Style::warning, text}}); }

}  // namespace kv::console
