// Disconnection, reconnection, and the restoring of what the login had built up.
#include "Classes/Catagory/KvDate.h"
#include "Classes/Catagory/KvJson.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/KvPimChannel.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvConsole.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {
namespace {

constexpr std::array<std::chrono::seconds, 4> kConnectInterval{std::chrono::seconds(1), std::chrono::seconds(2),
                                                               std::chrono::seconds(4), std::chrono::seconds(6)};

// From the sending of a request of the restoring that was refused to its repetition, at least; by refusals in a row.
constexpr std::array<std::chrono::milliseconds, 6> kRefusalPauses{
    std::chrono::milliseconds(0),  std::chrono::milliseconds(10), std::chrono::milliseconds(20),
    std::chrono::milliseconds(40), std::chrono::milliseconds(80), std::chrono::milliseconds(100)};

struct LoginFailure {
    std::string_view text;
    std::int64_t code;
};
constexpr LoginFailure kLoginFailures[] = {
    {"loginFail: InvalidAppId", KvPimLoginErrorInvalidAppId},
    {"loginFail: InvalidArgument", KvPimLoginErrorInvalidArgument},
    {"loginFail: InvalidToken", KvPimLoginErrorInvalidToken},
    {"loginFail: ExpiredToken", KvPimLoginErrorTokenExpired},
    {"loginFail: AuthFail", KvPimLoginErrorNotAuthorized},
    {"loginFail: AppForbidden", KvPimLoginErrorAppForbidden},
};

std::string reasonOf(SocketData const& data) { return asString(firstOf(data.items())).value_or(""); }

}  // namespace

void KvPimKitImpl::onDisconnectReason(SocketData const& data) {
    KvLog::shared().warn("disconnectReason, params = %@", KvLogPayload{data});
    auto const reason = reasonOf(data);
    if (reason == "KickOff") {
        disconnectReason = KvPimConnectionChangeReasonRemoteLogin;
    } else if (reason == "ExpireSession") {
        disconnectReason = KvPimConnectionChangeReasonExpiredSession;
    } else {
        auto const* const known = std::ranges::find(kLoginFailures, reason, &LoginFailure::text);
        loginError = known != std::end(kLoginFailures) ? known->code : std::int64_t{KvPimLoginErrorUnknown};
    }
}

void KvPimKitImpl::onDisconnect(SocketData const& data) {
    KvLog::shared().info("disconnect, params = %@", KvLogPayload{data});
    auto const reason = reasonOf(data);
    auto& reporter = LoganManager::sharedInstance();
    if (loginBlcok) {
        reporter.setTsConnectServer(currentTimeStamp() - connectStart);
        reporter.loginResult(0, loginError);
        auto const done = std::exchange(loginBlcok, nullptr);  // which may call `loginWithConfig`
        done(loginError);
        stateManager->state = KvPimConnectionStateDisconnected;
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLoginFailure);
        return;
    }
    if (reason == "Got Disconnect" && disconnectReason == KvPimConnectionChangeReasonRemoteLogin) {
        stateManager->state = KvPimConnectionStateDisconnected;
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonRemoteLogin);
        return;
    }
    if (reason == "Namespace leave") {
        endSession();
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLogout);
        return;
    }
    if (reason == "loginFail: ExpiredToken") tell<&KvPimDelegate::tokenDidExpire>();
    if (stateManager->state != KvPimConnectionStateReconnecting) stateManager->state = KvPimConnectionStateDisconnected;
    reconnect();
}

void KvPimKitImpl::reconnect() {
    auto const noDelay = std::make_shared<KvSignal>(mainQueue);
    attemptAtOnce = noDelay;
    queue.add([weak = weak_from_this(), noDelay] { return reconnectAfterDelay(weak, noDelay); });
}

void KvPimKitImpl::makeWaitingAttempt() {
    if (auto const waiting = attemptAtOnce.lock()) waiting->set();
}

void KvPimKitImpl::networkChanged() {
    makeWaitingAttempt();
    if (auto const connected = socket.lock()) connected->networkChanged();
}

KvWork KvPimKitImpl::reconnectAfterDelay(std::weak_ptr<KvPimKitImpl> client, std::shared_ptr<KvSignal> noDelay) {
    auto self = living(client);
    if (!self || !self->stateManager->login) co_return;
    auto const mainQueue = self->mainQueue;
    auto const delay = kConnectInterval[static_cast<std::size_t>(self->connectIndex)];
    self.reset();  // the application may let go of the client meanwhile
    co_await KvDelay{*mainQueue, delay, noDelay};

    self = living(client);
    if (!self) co_return;
    if (std::exchange(self->stateManager->state, KvPimConnectionStateReconnecting) !=
        KvPimConnectionStateReconnecting) {
        self->tellState(KvPimConnectionStateReconnecting, KvPimConnectionChangeReasonInterrupted);
        if (self->heldByApplication.expired()) co_return;
    }
    self->rebuildSocketManagerWithConfig(self->stateHelper.loginParams.generateSocketConfig());
    self->socket.lock()->connect();
    self->stateManager->state = KvPimConnectionStateReconnecting;  // whatever the end of an old connection made of it
    KvLog::shared().info("reconnect");
    ++self->connectIndex;
    printLine(KvConsoleStream::out, "connectIndex:" + std::to_string(self->connectIndex) + " ");
    if (self->connectIndex >= static_cast<std::int32_t>(kConnectInterval.size())) {
        self->connectIndex = static_cast<std::int32_t>(kConnectInterval.size()) - 1;
    }
}

void KvPimKitImpl::rebuildSocketManagerWithConfig(boost::json::object const& config) {
    if (auto const connected = socket.lock()) connected->disconnect();
    makeSocketManager(config);
}

void KvPimKitImpl::restoreStateAfterReconnection() {
    ++restoreNumber;
    restoreJoinedChannels(stateHelper.channelManager.channels(), firstAttempt());
    restoreLocalUserAttributes();
    restoreSubscribedOnlineStatusOfPeers();
    restoreSubscribedAttributesOfPeers();
}

KvPimKitImpl::Attempt KvPimKitImpl::firstAttempt() const { return {restoreNumber, 0, mainQueue->now()}; }

// A server that refuses at once would be asked again as fast as it answers. One that takes its time sets the pace
// itself. What was begun on one connection is no business of the next, where all begins anew.
template <class Again>
void KvPimKitImpl::retry(Attempt const& refused, KvUnansweredChanges KvPimStateHelper::*changes, Again again) {
    if (refused.number != restoreNumber) return;
    auto const pause = kRefusalPauses[std::min(refused.refusals, kRefusalPauses.size() - 1)];
    auto const timer = std::make_shared<KvQueueTimer>();
    *timer = mainQueue->after(refused.began + pause - mainQueue->now(),
                              [weak = weak_from_this(), timer, refused, changes, again = std::move(again)] {
                                  auto const self = living(weak);
                                  if (!self || self->restoreNumber != refused.number) return;
                                  Attempt const next{refused.number, refused.refusals + 1, self->mainQueue->now()};
                                  // What the application is changing at this moment must not be undone by what was
                                  // there before.
                                  if ((self->stateHelper.*changes).any()) return self->retry(next, changes, again);
                                  again(*self, next);
                              });
}

void KvPimKitImpl::restoreJoinedChannels(Channels channels, Attempt const& attempt) {
    // A channel that was destroyed would be asked for in vain: its object has no socket of this connection.
    std::erase_if(channels, [this](auto const& channel) {
        return findChannel(channel->channelId()) != channel || !stateHelper.channelManager.isJoined(channel);
    });
    if (!stateManager->login || channels.empty()) return;
    struct Group {
        std::size_t open;
        Channels failed;
    };
    auto const group = std::make_shared<Group>(Group{channels.size(), {}});
    for (auto const& channel : channels) {
        channel->joinWithCompletion([weak = weak_from_this(), attempt, group, channel](std::int64_t code) {
            if (code != 0) group->failed.push_back(channel);
            if (--group->open > 0 || group->failed.empty()) return;
            auto const self = living(weak);
            if (!self) return;
            self->retry(attempt, &KvPimStateHelper::leaves, [group](KvPimKitImpl& client, Attempt const& next) {
                client.restoreJoinedChannels(group->failed, next);
            });
        });
    }
}

template <auto Operation, class Read>
void KvPimKitImpl::restore(Read read, KvUnansweredChanges KvPimStateHelper::*changes, Attempt const& attempt) {
    auto const client = alive.lock();
    auto const list = read(stateHelper);
    if (!stateManager->login || list.empty() || !client) return;
    ((*client).*Operation)(list, [weak = weak_from_this(), read, changes, attempt](std::int64_t code) {
        auto const self = living(weak);
        if (code == 0 || !self) return;
        self->retry(attempt, changes, [read, changes](KvPimKitImpl& again, Attempt const& next) {
            again.restore<Operation>(read, changes, next);
        });
    });
}

void KvPimKitImpl::restoreLocalUserAttributes() {
    restore<&KvPimKit::setLocalUserAttributes>(
        [](KvPimStateHelper const& state) { return state.localUserAttributes.pimAttributes(); },
        &KvPimStateHelper::attributeWrites, firstAttempt());
}

void KvPimKitImpl::restoreSubscribedOnlineStatusOfPeers() {
    restore<&KvPimKit::subscribePeersOnlineStatus>(
        [](KvPimStateHelper const& state) { return state.subscribedOnlineStatusPeerIds(); },
        &KvPimStateHelper::statusSubscriptions, firstAttempt());
}

void KvPimKitImpl::restoreSubscribedAttributesOfPeers() {
    restore<&KvPimKit::subscribePeersUserAttribes>(
        [](KvPimStateHelper const& state) { return state.subscribedAttributesPeerIds(); },
        &KvPimStateHelper::attributeSubscriptions, firstAttempt());
}

}  // namespace kv
