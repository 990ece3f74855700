#include "Classes/KvPimKit.h"

#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/Network/KvApiManager.h"
#include "Classes/Network/KvServerAddress.h"
#include "Classes/Utils/KvBundle.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvConsole.h"
#include "Platform/KvEngineThread.h"
#include "Platform/KvJsonText.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {

char const KvPimVersionString[] = KVPIM_VERSION;

KvPimKitImpl::KvPimKitImpl(std::string appId, std::weak_ptr<KvPimDelegate> listener, KvPimOptions given,
                           net::NetworkOptions network)
    : mainQueue(given.mainQueue ? given.mainQueue : KvMainQueue::main()),
      engine(given.engine == KvPimEngine::thread ? engineThreadQueue() : mainQueue),
      options{std::move(network), given.maxQueuedBytes, given.checkThreads},
      delegate(std::move(listener)),
      stateManager(std::make_shared<KvPimStateManager>()),
      apiServer(given.envConfig.apiServer.empty() ? KvApiManager::apiServer() : std::move(given.envConfig.apiServer)),
      queue(mainQueue) {
    stateManager->appId = std::move(appId);
}

KvPimKitImpl::~KvPimKitImpl() { abandonLogin(); }

std::shared_ptr<KvPimInvitationKit> KvPimKitImpl::getPimInvitationKit() {
    if (!invitationKit) {
        invitationKit = std::shared_ptr<KvPimInvitationKit>(new KvPimInvitationKit);
        invitationKit->socket_ = socket.lock();
        invitationKit->stateManager_ = stateManager;
        invitationKit->mainQueue_ = mainQueue;
        invitationKit->checksThreads_ = options.checkThreads;
        invitationKit->requestTimeout_ = net::optionsOf(options.network).requestTimeout;
    }
    return invitationKit;
}

boost::json::object KvPimKitImpl::getDebugInfo() const {
    auto model = debugInfo.toJsonModel();
    if (auto const connected = socket.lock()) {
        auto pressure = connected->pressure();
        pressure.addEnded(endedPressure);
        model["pressure"] = pressureModel(pressure);
    }
    return model;
}

std::shared_ptr<KvPimKit> KvPimKit::initWithAppId(std::string appId, std::weak_ptr<KvPimDelegate> delegate,
                                                  KvPimOptions options) {
    auto const problem = problemOf(options.network);
    auto network = problem.empty() ? net::withCaFile(net::shared(options.network), options.envConfig.caFile) : nullptr;
    LoganManager::configure(options.envConfig, network);
    LoganManager::sharedInstance().setAppId(appId);
    if (!problem.empty()) {
        KvLog::shared().error("no client: %@", problem);
        return nullptr;
    }
    auto impl =
        std::make_shared<KvPimKitImpl>(std::move(appId), std::move(delegate), std::move(options), std::move(network));
    if (!impl->mainQueue || !impl->engine || !isValidApiServer(impl->apiServer)) return nullptr;
    impl->debugInfo.getApiServer(impl->apiServer);
    auto const object = std::shared_ptr<KvPimKit>(new KvPimKit(impl));
    // Counted apart from what a callback holds, which must not look like the application's own.
    std::shared_ptr<KvPimKit> kit(object.get(), [held = object](KvPimKit*) mutable { held.reset(); });
    impl->heldByApplication = kit;
    impl->alive = object;
    return kit;
}

KvPimKit::KvPimKit(std::shared_ptr<KvPimKitImpl> impl) : impl_(std::move(impl)) {}

KvPimKit::~KvPimKit() { assertMainThread(*impl_->mainQueue, impl_->options.checkThreads, "~KvPimKit"); }

std::shared_ptr<KvPimKitImpl> const& KvPimKit::impl(char const* call) const {
    assertMainThread(*impl_->mainQueue, impl_->options.checkThreads, call);
    return impl_;
}

// A callback may destroy the client in the middle of a call. So a call that has something left to do after it has
// called back, as the four of the session, keeps the inside; all others touch nothing of it any more by then.

void KvPimKit::loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done) {
    auto const client = impl();
    client->loginByToken(std::move(token), timeStamp, std::move(userId), std::move(done));
}

void KvPimKit::loginWithConfig(boost::json::object const& config, Completion done) {
    auto const client = impl();
    client->loginWithConfig(config, std::move(done));
}

void KvPimKit::logoutWithCompletion(Completion done) {
    auto const client = impl();
    client->logoutWithCompletion(std::move(done));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): delegate and completion may destroy what the caller passed
void KvPimKit::renewToken(std::string token, std::int64_t timeStamp, RenewTokenCompletion done) {
    auto const client = impl();
    client->renewToken(token, timeStamp, done);
}

void KvPimKit::networkChanged() { impl()->networkChanged(); }

std::shared_ptr<KvPimInvitationKit> KvPimKit::getPimInvitationKit() { return impl()->getPimInvitationKit(); }

std::size_t KvPimKit::bytesQueued() const {
    auto const socket = impl()->socket.lock();
    return socket ? socket->bytesQueued() : 0;
}

boost::json::object KvPimKit::getDebugInfo() const { return impl()->getDebugInfo(); }

std::string KvPimKit::getDebugInfoText() const { return jsonText(getDebugInfo()); }

std::string const& KvPimKit::getSDKVersion() { return sdkVersionString(); }

std::int32_t KvPimKit::setParameters(std::string const&) { return 0; }

void KvPimKit::setLogFile(std::string const& path) { KvLog::shared().setLogFilePath(path); }

void KvPimKit::setLogFilters(std::int64_t filters) { KvLog::shared().setLogFilter(filters); }

void KvPimKit::setLogHandler(std::function<void(std::int64_t level, std::string_view line)> handler) {
    KvLog::shared().setHandler(std::move(handler));
}

void KvPimKit::setConsole(std::function<void(KvConsoleStream stream, std::string_view line)> console) {
    kv::setConsole(std::move(console));
}

void KvPimKit::writeToStandardStream(KvConsoleStream stream, std::string_view line) {
    kv::writeToStandardStream(stream, line);
}

KvPimStateManager const& KvPimKit::stateManager() const { return *impl()->stateManager; }

std::shared_ptr<KvPimDelegate> KvPimKit::delegate() const { return impl()->delegate.lock(); }

void KvPimKit::setDelegate(std::weak_ptr<KvPimDelegate> delegate) { impl()->delegate = std::move(delegate); }

std::string const& KvPimKit::apiServer() const { return impl()->apiServer; }

std::string const& KvPimKit::brivelServer() const { return impl()->brivelServer; }

std::int32_t KvPimKit::connectIndex() const { return impl()->connectIndex; }

std::int64_t KvPimKit::disconnectReason() const { return impl()->disconnectReason; }

std::int64_t KvPimKit::loginError() const { return impl()->loginError; }

boost::json::object KvPimKit::generateSocketConfig(std::string const& token, std::string const& userId,
                                                   std::string const& appId, std::int64_t timeStamp) const {
    return socketConfigOf({{"token", token}, {"userId", userId}, {"timestamp", timeStamp}}, appId);
}

}  // namespace kv
