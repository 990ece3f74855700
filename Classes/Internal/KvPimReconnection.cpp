// Disconnection, reconnection, and the restoring of what the login had built up.
#include "Classes/Catagory/KvDate.h"
#include "Classes/Catagory/KvJson.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/KvPimChannel.h"
#include "Classes/Utils/KvInvitationStore.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvConsole.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {
namespace {

constexpr std::array<std::chrono::seconds, 4> kConnectInterval{std::chrono::seconds(1), std::chrono::seconds(2),
                                                               std::chrono::seconds(4), std::chrono::seconds(6)};

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
        reporter.setTsConnectServer(currentTimeStamp() - reporter.tsConnectServer());
        reporter.loginResult(0, loginError);
        auto const done = std::exchange(loginBlcok, nullptr);  // which may begin another login
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
        stateManager->state = KvPimConnectionStateDisconnected;
        debugInfo.logout();
        KvInvitationStore::shared().reset();
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLogout);
        return;
    }
    if (reason == "loginFail: ExpiredToken") tell<&KvPimDelegate::tokenDidExpire>();
    if (stateManager->state != KvPimConnectionStateReconnecting) stateManager->state = KvPimConnectionStateDisconnected;
    reconnect();
}

void KvPimKitImpl::reconnect() {
    queue.add([weak = weak_from_this()] { return reconnectAfterDelay(weak); });
}

KvWork KvPimKitImpl::reconnectAfterDelay(std::weak_ptr<KvPimKitImpl> client) {
    auto self = living(client);
    if (!self || !self->stateManager->login) co_return;
    auto const mainQueue = self->mainQueue;
    auto const delay = kConnectInterval[static_cast<std::size_t>(self->connectIndex)];
    self.reset();  // the application may let go of the client meanwhile
    co_await KvDelay{*mainQueue, delay};

    self = living(client);
    if (!self) co_return;
    if (self->stateManager->state != KvPimConnectionStateReconnecting) {
        self->tell<&KvPimDelegate::connectionStateChanged>(KvPimConnectionStateReconnecting,
                                                           KvPimConnectionChangeReasonInterrupted);
        if (self->kit.expired()) co_return;
    }
    self->rebuildSocketManagerWithConfig(self->stateHelper.loginParams.generateSocketConfig());
    self->socket.lock()->connect();
    self->stateManager->state = KvPimConnectionStateReconnecting;
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
    restoreJoinedChannels(stateHelper.channelManager.channels());
    restoreLocalUserAttributes(stateHelper.localUserAttributes.pimAttributes());
    restoreSubscribedOnlineStatusOfPeers(stateHelper.subscribedOnlineStatusPeerIds());
    restoreSubscribedAttributesOfPeers(stateHelper.subscribedAttributesPeerIds());
}

// A server that refuses at once is asked again as fast as it answers; each turn of the queue in between belongs to
// others. What one login built up is no business of the next one.
template <class Again>
void KvPimKitImpl::retryAtNextTurn(std::uint64_t login, Again again) {
    if (login != loginNumber) return;
    mainQueue->post([weak = weak_from_this(), login, again = std::move(again)] {
        if (auto const self = living(weak); self && self->loginNumber == login) again(*self);
    });
}

void KvPimKitImpl::restoreJoinedChannels(Channels channels) {
    // A channel object that was destroyed got no socket of this connection, and would ask in vain for ever.
    std::erase_if(channels, [](auto const& channel) { return channel->socket_.expired(); });
    if (!stateManager->login || channels.empty()) return;
    struct Group {
        std::size_t open;
        Channels failed;
    };
    auto const group = std::make_shared<Group>(Group{channels.size(), {}});
    for (auto const& channel : channels) {
        channel->joinWithCompletion([weak = weak_from_this(), login = loginNumber, group, channel](std::int64_t code) {
            if (code != 0) group->failed.push_back(channel);
            if (--group->open > 0 || group->failed.empty()) return;
            if (auto const self = living(weak)) {
                self->retryAtNextTurn(login,
                                      [group](KvPimKitImpl& client) { client.restoreJoinedChannels(group->failed); });
            }
        });
    }
}

template <auto Operation, class List>
void KvPimKitImpl::restore(List const& list) {
    auto const client = object.lock();
    if (!stateManager->login || list.empty() || !client) return;
    ((*client).*Operation)(list, [weak = weak_from_this(), login = loginNumber, list](std::int64_t code) {
        auto const self = living(weak);
        if (code == 0 || !self) return;
        self->retryAtNextTurn(login, [list](KvPimKitImpl& again) { again.restore<Operation>(list); });
    });
}

void KvPimKitImpl::restoreLocalUserAttributes(std::vector<KvPimAttribute> const& attributes) {
    restore<&KvPimKit::setLocalUserAttributes>(attributes);
}

void KvPimKitImpl::restoreSubscribedOnlineStatusOfPeers(Strings const& peerIds) {
    restore<&KvPimKit::subscribePeersOnlineStatus>(peerIds);
}

void KvPimKitImpl::restoreSubscribedAttributesOfPeers(Strings const& peerIds) {
    restore<&KvPimKit::subscribePeersUserAttribes>(peerIds);
}

}  // namespace kv
