#include "Classes/Internal/KvPimSession.h"

#include "Classes/Catagory/KvDate.h"
#include "Classes/Catagory/KvJson.h"
#include "Classes/Catagory/KvString.h"
#include "Classes/Internal/KvPimRequests.h"
#include "Classes/Network/KvApiHelper.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Recording/KvRecorder.h"
#include "Platform/KvConsole.h"
#include "SocketIO/SocketIOClient.h"
#include "SocketIO/core/ProtocolCore.h"

#include <algorithm>
#include <array>

namespace kv {
namespace json = boost::json;
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

SocketConfig socketConfigFrom(json::object const& config, KvPimShared::Options const& options) {
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

struct Discovered {
    std::string server;  // empty when there is none
    net::Failure why;    // there is none
    std::int64_t elapsed = 0;
};

/// `co_await discovery`: goes on when the API server has named a socket server, or none.
class Discovery final : public KvSignal::Wait {
public:
    Discovery(std::string const& apiServer, KvPimShared const& client)
        : Wait(std::make_shared<KvSignal>(client.mainQueue)) {
        KvApiHelper::apiServer(apiServer, client.stateManager->appId, client.options.network, client.engine,
                               [found = found_, ended = signal, start = currentTimeStamp()](
                                   std::optional<std::string> server, net::Failure const& why) {
                                   *found = {std::move(server).value_or(""), why, currentTimeStamp() - start};
                                   ended->set();
                               });
    }
    Discovered const& await_resume() const { return *found_; }

private:
    std::shared_ptr<Discovered> const found_ = std::make_shared<Discovered>();
};

/// Where a login hears of its failure, inside of everything that may fail it.
void failLogin(std::weak_ptr<KvPimFailures> const& client, char const* method, KvPimKit::Completion const& done,
               std::int64_t code, net::Failure const& known, KvPimFailures::GoesOn goesOn = KvPimFailures::GoesOn::no) {
    if (auto const self = client.lock()) self->counters().onLoginEnd(code);
    auto const knowing = [&] { return known; };
    KvPimFailures::concluding(
        client, method, code, knowing, [&] { complete(done, code); }, goesOn);
}

KvPimConnectionEnd endOf(std::string_view reason) {
    if (reason == sio::kGotDisconnect) return KvPimConnectionEnd::serverLeft;
    return reason == sio::kPingTimeout ? KvPimConnectionEnd::pingTimeout : KvPimConnectionEnd::broken;
}

net::Failure givenUp() {
    return {KvFailureStage::login, "", "The login was given up, for a logout, another login or the client's end"};
}

void reportLogin(std::int64_t connectStart, std::int64_t code) {
    auto& reporter = LoganManager::sharedInstance();
    reporter.setTsConnectServer(currentTimeStamp() - connectStart);
    reporter.loginResult(code == 0 ? 1 : 0, code);
}

}  // namespace

KvPimSession::KvPimSession(KvPimShared& client, KvPimRouter& router, KvPimRestorer& restorer, KvPimFailures& failures,
                           std::string apiServer)
    : KvPimPart(client),
      router_(router),
      restorer_(restorer),
      failures_(failures),
      apiServer_(std::move(apiServer)),
      queue_(client.mainQueue) {
    debugInfo_.getApiServer(apiServer_);
}

KvPimSession::~KvPimSession() { abandonLogin(); }

// ---- Discover

void KvPimSession::loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done) {
    auto& reporter = LoganManager::sharedInstance();
    reporter.setUId(userId);
    reporter.startLogan(token, userId, timeStamp);
    auto& state = *client_.stateManager;
    auto const refuse = [&](std::int64_t code, net::Failure const& known) {
        failLogin(failures_.handle(), "loginByToken", done, code, known);
        reporter.loginResult(0, code);
    };
    if (state.login || state.state == KvPimConnectionStateConnecting)
        return refuse(KvPimLoginErrorAlreadyLogin,
                      {KvFailureStage::login, "", "A user is logged in already, or a login is in progress"});
    if (!isValidId(userId))
        return refuse(KvPimLoginErrorInvalidArgument, {KvFailureStage::request, "", "The user id is not valid"});

    debugInfo_.loginWithToken(token, userId, static_cast<double>(timeStamp));
    auto& parameters = client_.stateHelper.loginParams;
    parameters.loginWithToken(std::move(token), state.appId, userId, timeStamp);
    auto config = parameters.generateSocketConfig();
    client_.counters->onLoginCalled();
    enter(KvPimConnectionStateConnecting);
    state.userId = std::move(userId);
    KvLog::shared().info("socket config: %@", config);
    auto owed = std::make_shared<KvOwedCompletion>(client_.mainQueue, std::move(done), [](Completion const& dropped) {
        failLogin({}, "loginByToken", dropped, KvPimLoginErrorUnknown, givenUp());
    });
    queue_.add([session = weak(), config = std::move(config), owed = std::move(owed)] {
        return login(session, config, owed);
    });
    tellAndReportState(KvPimConnectionStateConnecting, KvPimConnectionChangeReasonLogin);
}

KvWork KvPimSession::login(std::weak_ptr<KvPimSession> session, json::object config,
                           std::shared_ptr<KvOwedCompletion> owed) {
    auto self = living(session);
    if (!self) co_return;
    if (self->client_.recorder) self->client_.recorder->discovering(self->apiServer_);
    Discovery discovery(self->apiServer_, self->client_);
    self.reset();  // the application may let go of the client meanwhile
    auto const& found = co_await discovery;

    self = living(session);
    if (!self) co_return;
    LoganManager::sharedInstance().setTsGetServers(found.elapsed);
    if (self->client_.recorder) self->client_.recorder->discovered(found.server, found.why);
    self->brivelServer_ = found.server;
    if (found.server.empty()) {
        KvLog::shared().error("discovery: %@", found.why.text);
        self->notFound_ = found.why;
    }
    self->debugInfo_.getBrivelServer(found.server);
    self->connect(config, owed->take(), "loginByToken");
}

// ---- Connect, log in

void KvPimSession::loginWithConfig(json::object const& config, Completion done) {
    client_.counters->onLoginCalled();
    connect(config, std::move(done), "loginWithConfig");
}

void KvPimSession::connect(json::object const& config, Completion done, char const* method) {
    if (brivelServer_.empty()) {
        KvLog::shared().error("no brivelServer");
        failLogin(failures_.handle(), method, done, KvPimLoginErrorTimeout, notFound_);
        LoganManager::sharedInstance().loginResult(0, KvPimLoginErrorTimeout);
        enter(KvPimConnectionStateDisconnected);
        return;
    }
    KvLog::shared().info("brivelServer: %@", brivelServer_);
    makeSocket(config);
    abandonLogin();
    loginBlcok_ = done ? done : [](std::int64_t) {};  // a login is in progress even if nobody wants to hear of its end
    loginError_ = KvPimLoginErrorUnknown;
    loginMethod_ = method;
    refusal_.clear();
    connectIndex_ = 0;
    connectStart_ = currentTimeStamp();
    auto const patience = net::optionsOf(client_.options.network).connectTimeout;
    auto const timedOut = [session = weak(), start = connectStart_, method, patience, done = std::move(done)] {
        auto const self = living(session);
        if (!self) return;
        // The attempt goes on: what becomes of it decides the state, and answers the login once more.
        auto const connecting = self->client_.socket.lock();
        net::Failure const late{connecting ? connecting->stage() : KvFailureStage::session, "",
                                "Not connected within " + std::to_string(patience.count()) + " ms"};
        failLogin(self->failures_.handle(), method, done, KvPimLoginErrorTimeout, late, KvPimFailures::GoesOn::yes);
        reportLogin(start, KvPimLoginErrorTimeout);
        self->tellState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLoginTimeout);
    };
    client_.socket.lock()->connectWithTimeoutAfter(patience, timedOut);
}

void KvPimSession::makeSocket(json::object const& config) {
    if (auto const before = client_.socket.lock()) endedPressure_.addEnded(before->pressure());
    manager_.reset();
    auto socketConfig = socketConfigFrom(config, client_.options);
    socketConfig.metrics = client_.counters;
    socketConfig.recorder = client_.recorder;
    socketConfig.networkChanged = [session = weak()] {
        if (auto const self = living(session)) self->makeWaitingAttempt();
    };
    manager_ =
        std::make_unique<SocketManager>(brivelServer_, std::move(socketConfig), client_.mainQueue, client_.engine);
    manager_->setReconnects(false);
    auto const& socket = manager_->defaultSocket();
    client_.socket = socket;
    using Handler = void (KvPimSession::*)(SocketData const&);
    static constexpr std::pair<char const*, Handler> kHandlers[] = {
        {"disconnect", &KvPimSession::onDisconnect},
        {"disconnectReason", &KvPimSession::onDisconnectReason},
        {"loginSuccess", &KvPimSession::onLoginSuccess},
    };
    for (auto const& [event, handler] : kHandlers) {
        socket->on(event, [session = weak(), handler = handler](SocketData const& data) {
            if (auto const self = living(session)) (self.get()->*handler)(data);
        });
    }
    router_.handOutSocket();
}

void KvPimSession::abandonLogin() {
    if (!loginBlcok_) return;
    client_.mainQueue->post([failures = failures_.handle(), method = loginMethod_,
                             done = std::exchange(loginBlcok_, nullptr), code = loginError_,
                             known = failureOfLogin()] { failLogin(failures, method, done, code, known); });
}

net::Failure KvPimSession::failureOfLogin() const {
    if (!refusal_.empty()) return {KvFailureStage::login, "", "The server has refused the login", refusal_};
    auto const connecting = client_.socket.lock();
    if (connecting && !connecting->failure().text.empty()) return connecting->failure();
    return givenUp();
}

// ---- Restore

void KvPimSession::onLoginSuccess(SocketData const& data) {
    KvLog::shared().info("loginSuccess, params = %@", KvLogPayload{data});
    auto& state = *client_.stateManager;
    enter(KvPimConnectionStateConnected);
    if (auto const connected = client_.socket.lock()) debugInfo_.getConnectionId(connected->sid());
    if (state.login) restorer_.begin();
    auto const done = std::exchange(loginBlcok_, nullptr);  // the delegate may begin another login
    if (done) {
        client_.counters->onLoginEnd(KvPimLoginErrorOk);
    } else {
        client_.counters->onReconnected();
    }
    tellAndReportState(KvPimConnectionStateConnected, KvPimConnectionChangeReasonLoginSuccess);
    state.login = true;
    if (std::exchange(endedPressure_.isTight, false)) router_.tell<&KvPimDelegate::onWritable>();
    if (!done) return;
    reportLogin(connectStart_, KvPimLoginErrorOk);
    done(KvPimLoginErrorOk);
}

// ---- Lose

void KvPimSession::onDisconnectReason(SocketData const& data) {
    KvLog::shared().warn("disconnectReason, params = %@", KvLogPayload{data});
    auto const reason = reasonOf(data);
    if (reason == "KickOff") {
        disconnectReason_ = KvPimConnectionChangeReasonRemoteLogin;
    } else if (reason == "ExpireSession") {
        disconnectReason_ = KvPimConnectionChangeReasonExpiredSession;
    } else {
        auto const* const known = std::ranges::find(kLoginFailures, reason, &LoginFailure::text);
        loginError_ = known != std::end(kLoginFailures) ? known->code : std::int64_t{KvPimLoginErrorUnknown};
        refusal_ = reason;
    }
}

void KvPimSession::onDisconnect(SocketData const& data) {
    KvLog::shared().info("disconnect, params = %@", KvLogPayload{data});
    restorer_.onLoss();
    auto const reason = reasonOf(data);
    auto const& state = client_.stateManager->state;
    bool const wasConnected = state == KvPimConnectionStateConnected;
    if (loginBlcok_) {
        reportLogin(connectStart_, loginError_);
        // Which may call `loginWithConfig`.
        failLogin(failures_.handle(), loginMethod_, std::exchange(loginBlcok_, nullptr), loginError_, failureOfLogin());
        enter(KvPimConnectionStateDisconnected);
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLoginFailure);
        return;
    }
    if (reason == "Got Disconnect" && disconnectReason_ == KvPimConnectionChangeReasonRemoteLogin) {
        if (wasConnected) client_.counters->onConnectionEnd(KvPimConnectionEnd::kickedOff);
        enter(KvPimConnectionStateDisconnected);
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonRemoteLogin);
        return;
    }
    if (reason == "Namespace leave") {
        if (wasConnected) client_.counters->onConnectionEnd(KvPimConnectionEnd::left);
        end();
        tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLogout);
        return;
    }
    if (wasConnected) client_.counters->onConnectionEnd(endOf(reason));
    auto const lost = client_.socket.lock();
    if (lost) {
        bool const wasAttempt = state == KvPimConnectionStateReconnecting;
        if (wasAttempt) client_.counters->onFailedReconnection(lost->failure().stage);
        failures_.tell(wasAttempt ? "reconnect" : "connection", lost->failure(), KvPimFailures::GoesOn::yes);
    }
    if (reason == "loginFail: ExpiredToken") router_.tell<&KvPimDelegate::tokenDidExpire>();
    if (state != KvPimConnectionStateReconnecting) enter(KvPimConnectionStateDisconnected);
    queueComeBack();
}

// ---- Wait, connect again

void KvPimSession::queueComeBack() {
    auto const noDelay = std::make_shared<KvSignal>(client_.mainQueue);
    attemptAtOnce_ = noDelay;
    queue_.add([session = weak(), noDelay] { return comeBack(session, noDelay); });
}

KvWork KvPimSession::comeBack(std::weak_ptr<KvPimSession> session, std::shared_ptr<KvSignal> noDelay) {
    auto self = living(session);
    if (!self || !self->client_.stateManager->login) co_return;
    auto const mainQueue = self->client_.mainQueue;
    auto const delay = kConnectInterval[static_cast<std::size_t>(self->connectIndex_)];
    self.reset();  // the application may let go of the client meanwhile
    co_await KvDelay{*mainQueue, delay, noDelay};

    self = living(session);
    if (!self) co_return;
    if (self->enter(KvPimConnectionStateReconnecting) != KvPimConnectionStateReconnecting) {
        self->tellState(KvPimConnectionStateReconnecting, KvPimConnectionChangeReasonInterrupted);
        if (self->client_.heldByApplication.expired()) co_return;
    }
    self->replaceSocket(self->client_.stateHelper.loginParams.generateSocketConfig());
    self->client_.socket.lock()->connect();
    self->enter(KvPimConnectionStateReconnecting);  // whatever the end of an old connection made of it
    KvLog::shared().info("reconnect");
    ++self->connectIndex_;
    printLine(KvConsoleStream::out, "connectIndex:" + std::to_string(self->connectIndex_) + " ");
    self->connectIndex_ = std::min(self->connectIndex_, static_cast<std::int32_t>(kConnectInterval.size()) - 1);
}

void KvPimSession::replaceSocket(json::object const& config) {
    if (auto const connected = client_.socket.lock()) connected->disconnect();
    makeSocket(config);
}

// ---- From outside of the loop

void KvPimSession::makeWaitingAttempt() {
    if (auto const waiting = attemptAtOnce_.lock()) waiting->set();
}

void KvPimSession::networkChanged() {
    makeWaitingAttempt();
    if (auto const connected = client_.socket.lock()) connected->networkChanged();
}

void KvPimSession::renewToken(std::string const& token, std::int64_t timeStamp,
                              KvPimKit::RenewTokenCompletion const& done) {
    auto const& state = *client_.stateManager;
    auto const refuse = [&](std::int64_t code, char const* cause) {
        auto const known = [&] { return net::Failure{KvFailureStage::request, "", cause}; };
        KvPimFailures::concluding(failures_.handle(), "renewToken", code, known, [&] { complete(done, token, code); });
    };
    if (!state.login) return refuse(KvPimErrorNotLogin, "The client is not logged in");
    if (!isValidToken(token))
        return refuse(KvPimRenewTokenErrorInvalidArgument, "The token has not 32 characters without white space");
    auto& parameters = client_.stateHelper.loginParams;
    parameters.loginWithToken(token, state.appId, state.userId, timeStamp);
    auto const config = parameters.generateSocketConfig();
    replaceSocket(config);
    KvLog::shared().info("renewtoken and set socket config: %@", config);
    KvFailureScope const noFailure(nullptr);  // it may be asked for in a completion that has one
    complete(done, token, KvPimRenewTokenErrorOk);
}

json::object KvPimSession::getDebugInfo() const {
    auto model = debugInfo_.toJsonModel();
    if (auto const connected = client_.socket.lock()) {
        auto pressure = connected->pressure();
        pressure.addEnded(endedPressure_);
        model["pressure"] = pressureModel(pressure);
    }
    return model;
}

std::int64_t KvPimSession::enter(std::int64_t state) {
    client_.counters->onState(state);
    return std::exchange(client_.stateManager->state, state);
}

bool KvPimSession::tellState(std::int64_t state, std::int64_t reason) {
    toldState_ = state;
    return router_.tell<&KvPimDelegate::connectionStateChanged>(state, reason);
}

void KvPimSession::tellAndReportState(std::int64_t state, std::int64_t reason) {
    if (tellState(state, reason)) LoganManager::sharedInstance().connectState(state, reason);
}

// ---- Log out

void KvPimSession::logoutWithCompletion(Completion done) {
    if (!client_.stateManager->login) {
        KvPimFailures::concluding(
            failures_.handle(), "logoutWithCompletion", KvPimErrorNotLogin,
            [] { return failureOfRequest(KvPimErrorNotLogin, nullptr, {}); },
            [&] { complete(done, KvPimErrorNotLogin); });
        LoganManager::sharedInstance().logout(0, KvPimErrorNotLogin);
        return;
    }
    KvLog::shared().info("user logout");
    // A client that is destroyed before its turn is as logged out as can be.
    auto owed = std::make_shared<KvOwedCompletion>(client_.mainQueue, std::move(done),
                                                   [](Completion const& dropped) { dropped(0); });
    queue_.add([session = weak(), start = currentTimeStamp(), owed = std::move(owed)] {
        return logout(session, start, owed);
    });
}

KvWork KvPimSession::logout(std::weak_ptr<KvPimSession> session, std::int64_t start,
                            std::shared_ptr<KvOwedCompletion> owed) {
    auto const self = living(session);
    if (!self) co_return;
    if (auto const connected = self->client_.socket.lock()) connected->disconnect();
    self->end();
    // Where the connection was gone before, nothing has been told of an end, or not of this one.
    if (self->toldState_ != KvPimConnectionStateDisconnected) {
        self->tellAndReportState(KvPimConnectionStateDisconnected, KvPimConnectionChangeReasonLogout);
    }
    self->abandonLogin();
    self->client_.socket.reset();
    self->manager_.reset();
    self->endedPressure_ = {};
    self->client_.stateManager->login = false;
    self->restorer_.end();
    self->client_.stateManager->userId.clear();
    self->client_.stateHelper.logout();
    self->router_.forgetChannels();

    complete(owed->take(), 0);
    auto& reporter = LoganManager::sharedInstance();
    reporter.setTsLogout(currentTimeStamp() - start);
    reporter.logout(1, 0);
}

void KvPimSession::end() {
    enter(KvPimConnectionStateDisconnected);
    debugInfo_.logout();
    router_.forgetInvitations();
}

}  // namespace kv
