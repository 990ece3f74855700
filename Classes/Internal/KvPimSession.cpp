// Login, logout and token renewal.
#include "Classes/Catagory/KvDate.h"
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/Network/KvApiHelper.h"
#include "Classes/Utils/KvInvitationStore.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {
namespace json = boost::json;
namespace {

SocketConfig socketConfigFrom(json::object const& config, KvPimKitImpl::Options const& options) {
    SocketConfig socketConfig;
    auto const* compress = valueOf(&config, "compress");
    socketConfig.compress = compress != nullptr && compress->is_bool() && compress->get_bool();
    if (auto const* parameters = objectOf(&config, "connectParams")) {
        for (auto const& [key, value] : *parameters) {
            socketConfig.connectParams.emplace_back(key, asString(&value).value_or(""));
        }
    }
    socketConfig.network = options.network;
    socketConfig.maxQueuedBytes = options.maxQueuedBytes;
    socketConfig.log = [](std::string_view line) { KvLog::shared().error("%@", line); };
    return socketConfig;
}

}  // namespace

void KvPimKitImpl::loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done) {
    auto& reporter = LoganManager::sharedInstance();
    reporter.setUId(userId);
    reporter.startLogan(token, userId, timeStamp);
    auto const refuse = [&](std::int64_t code) {
        complete(done, code);
        reporter.loginResult(0, code);
    };
    if (stateManager->login || stateManager->state == KvPimConnectionStateConnecting) {
        return refuse(KvPimLoginErrorAlreadyLogin);
    }
    if (!isValidId(userId)) return refuse(KvPimLoginErrorInvalidArgument);

    debugInfo.loginWithToken(token, userId, static_cast<double>(timeStamp));
    stateHelper.loginParams.loginWithToken(std::move(token), stateManager->appId, userId, timeStamp);
    auto config = stateHelper.loginParams.generateSocketConfig();
    stateManager->state = KvPimConnectionStateConnecting;
    stateManager->userId = std::move(userId);
    KvLog::shared().info("socket config: %@", config);
    auto owed = std::make_shared<KvOwedCompletion>(mainQueue, std::move(done), KvPimLoginErrorUnknown);
    queue.add([weak = weak_from_this(), config = std::move(config), owed = std::move(owed)] {
        return login(weak, config, owed);
    });
    tellAndReportState(KvPimConnectionStateConnecting, KvPimConnectionChangeReasonLogin);
}

KvWork KvPimKitImpl::login(std::weak_ptr<KvPimKitImpl> client, json::object config,
                           std::shared_ptr<KvOwedCompletion> owed) {
    struct Discovery {
        std::optional<std::string> server;
        std::string error;
        std::int64_t elapsed = 0;
    };
    auto self = living(client);
    if (!self) co_return;
    auto const found = std::make_shared<Discovery>();
    auto const discovered = std::make_shared<KvSignal>(self->mainQueue);
    auto const start = currentTimeStamp();
    KvApiHelper::apiServer(self->apiServer, self->stateManager->appId, self->options.network, self->engine,
                           [found, discovered, start](std::optional<std::string> server, std::string const& error) {
                               found->elapsed = currentTimeStamp() - start;
                               found->server = std::move(server);
                               found->error = error;
                               discovered->set();
                           });
    self.reset();  // the application may let go of the client meanwhile
    co_await KvSignal::Wait{discovered};

    self = living(client);
    if (!self) co_return;
    LoganManager::sharedInstance().setTsGetServers(found->elapsed);
    self->brivelServer = found->server.value_or("");
    if (self->brivelServer.empty()) KvLog::shared().error("discovery: %@", found->error);
    self->debugInfo.getBrivelServer(self->brivelServer);
    self->loginWithConfig(config, owed->take());
}

void KvPimKitImpl::loginWithConfig(json::object const& config, Completion done) {
    auto& reporter = LoganManager::sharedInstance();
    if (brivelServer.empty()) {
        KvLog::shared().error("no brivelServer");
        complete(done, KvPimLoginErrorTimeout);
        reporter.loginResult(0, KvPimLoginErrorTimeout);
        stateManager->state = KvPimConnectionStateDisconnected;
        return;
    }
    KvLog::shared().info("brivelServer: %@", brivelServer);
    makeSocketManager(config);
    abandonLogin();
    loginBlcok = done ? done : [](std::int64_t) {};  // a login is in progress even if nobody wants to hear of its end
    loginError = KvPimLoginErrorUnknown;
    connectIndex = 0;
    connectStart = currentTimeStamp();
    auto const timedOut = [weak = weak_from_this(), start = connectStart, done = std::move(done)] {
        auto const self = living(weak);
        if (!self) return;
        // The attempt goes on: what becomes of it decides the state, and answers the login once more.
        complete(done, KvPimLoginErrorTimeout);
        auto& logan = LoganManager::sharedInstance();
        logan.setTsConnectServer(currentTimeStamp() - start);
        logan.loginResult(0, KvPimLoginErrorTimeout);
        self->tellState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLoginTimeout);
    };
    socket.lock()->connectWithTimeoutAfter(net::optionsOf(options.network).connectTimeout, timedOut);
}

void KvPimKitImpl::abandonLogin() {
    if (loginBlcok) mainQueue->post([done = std::exchange(loginBlcok, nullptr), code = loginError] { done(code); });
}

void KvPimKitImpl::makeSocketManager(json::object const& config) {
    if (auto const before = socket.lock()) endedPressure.addEnded(before->pressure());
    manager.reset();
    auto socketConfig = socketConfigFrom(config, options);
    socketConfig.networkChanged = [weak = weak_from_this()] {
        if (auto const self = living(weak)) self->makeWaitingAttempt();
    };
    manager = std::make_unique<SocketManager>(brivelServer, std::move(socketConfig), mainQueue, engine);
    socket = manager->defaultSocket();
    manager->setReconnects(false);
    registerCallback();
    handOutSocket();
}

void KvPimKitImpl::handOutSocket() {
    for (auto const& [id, channel] : channelDict) {
        channel->socket_ = socket;
        channel->stateManager_ = stateManager;
    }
    if (invitationKit) {
        invitationKit->socket_ = socket.lock();
        invitationKit->stateManager_ = stateManager;
    }
}

void KvPimKitImpl::loginSuccess(SocketData const& data) {
    auto& reporter = LoganManager::sharedInstance();
    KvLog::shared().info("loginSuccess, params = %@", KvLogPayload{data});
    stateManager->state = KvPimConnectionStateConnected;
    if (auto const connected = socket.lock()) debugInfo.getConnectionId(connected->sid());
    if (stateManager->login) restoreStateAfterReconnection();
    auto const done = std::exchange(loginBlcok, nullptr);  // the delegate may begin another login
    tellAndReportState(KvPimConnectionStateConnected, KvPimConnectionChangeReasonLoginSuccess);
    stateManager->login = true;
    if (std::exchange(endedPressure.isTight, false)) tell<&KvPimDelegate::onWritable>();
    if (!done) return;
    reporter.setTsConnectServer(currentTimeStamp() - connectStart);
    reporter.loginResult(1, KvPimLoginErrorOk);
    done(KvPimLoginErrorOk);
}

void KvPimKitImpl::logoutWithCompletion(Completion done) {
    auto& reporter = LoganManager::sharedInstance();
    if (!stateManager->login) {
        complete(done, KvPimErrorNotLogin);
        reporter.logout(0, KvPimErrorNotLogin);
        return;
    }
    auto const start = currentTimeStamp();
    KvLog::shared().info("user logout");
    // A client that is destroyed before its turn is as logged out as can be.
    auto owed = std::make_shared<KvOwedCompletion>(mainQueue, std::move(done), 0);
    queue.add([weak = weak_from_this(), owed = std::move(owed), start]() -> KvWork {
        auto const self = living(weak);
        if (!self) co_return;
        self->cleanResourcesAfterLogout();
        complete(owed->take(), 0);
        auto& logan = LoganManager::sharedInstance();
        logan.setTsLogout(currentTimeStamp() - start);
        logan.logout(1, 0);
    });
}

void KvPimKitImpl::cleanResourcesAfterLogout() {
    if (auto const connected = socket.lock()) connected->disconnect();
    // Where the connection was gone before, nothing has been told of an end, or not of this one.
    endSession();
    if (toldState != KvPimConnectionStateDisconnected) {
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLogout);
    }
    abandonLogin();
    socket.reset();
    manager.reset();
    endedPressure = {};
    stateManager->login = false;
    ++restoreNumber;
    stateManager->userId.clear();
    stateHelper.logout();
    channelDict.clear();
}

void KvPimKitImpl::endSession() {
    stateManager->state = KvPimConnectionStateDisconnected;
    debugInfo.logout();
    KvInvitationStore::shared().reset(invitationKit.get());
}

void KvPimKitImpl::renewToken(std::string const& token, std::int64_t timeStamp,
                              KvPimKit::RenewTokenCompletion const& done) {
    if (!stateManager->login) return complete(done, token, KvPimErrorNotLogin);
    if (!isValidToken(token)) return complete(done, token, KvPimRenewTokenErrorInvalidArgument);
    stateHelper.loginParams.loginWithToken(token, stateManager->appId, stateManager->userId, timeStamp);
    auto const config = stateHelper.loginParams.generateSocketConfig();
    rebuildSocketManagerWithConfig(config);
    KvLog::shared().info("renewtoken and set socket config: %@", config);
    complete(done, token, KvPimRenewTokenErrorOk);
}

}  // namespace kv
