#include "Classes/KvPimKit.h"

#include "Classes/Await/KvResult.h"
#include "Classes/Internal/KvDelegateCheck.h"
#include "Classes/Internal/KvFailureRecord.h"
#include "Classes/Internal/KvPimKitImpl.h"
#include "Classes/Internal/KvThreadCheck.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/Network/KvApiManager.h"
#include "Classes/Network/KvServerAddress.h"
#include "Classes/Utils/KvBundle.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Classes/Utils/Recording/KvRecorder.h"
#include "Platform/KvConsole.h"
#include "Platform/KvJsonText.h"
#include "SocketIO/SocketIOClient.h"

namespace kv {
namespace {

#define KV_TEXT(...) #__VA_ARGS__
#define KV_VERSION(major, minor, patch) KV_TEXT(major) "." KV_TEXT(minor) "." KV_TEXT(patch)
static_assert(std::string_view(KVPIM_VERSION) ==
                  KV_VERSION(KVPIM_VERSION_MAJOR, KVPIM_VERSION_MINOR, KVPIM_VERSION_PATCH),
              "Classes/KvPimVersion.h and CMakeLists.txt name one version");

std::int64_t millisecondsSince1970(std::chrono::system_clock::time_point time) {
    return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

}  // namespace

char const KvPimVersionString[] = KVPIM_VERSION;

std::shared_ptr<KvPimKit> KvPimKit::initWithAppId(std::string appId, std::weak_ptr<KvPimDelegate> delegate,
                                                  KvPimOptions options) {
    KvFailure why;
    return make(std::move(appId), std::move(delegate), std::move(options), why);
}

KvResult<std::shared_ptr<KvPimKit>> KvPimKit::create(std::string appId, KvPimOptions options,
                                                     std::weak_ptr<KvPimDelegate> delegate) {
    KvFailure why;
    if (auto kit = make(std::move(appId), std::move(delegate), std::move(options), why)) return kit;
    return KvError(std::make_error_code(std::errc::invalid_argument),
                   std::make_shared<KvFailure const>(std::move(why)));
}

std::shared_ptr<KvPimKit> KvPimKit::make(std::string appId, std::weak_ptr<KvPimDelegate> delegate, KvPimOptions options,
                                         KvFailure& why) {
    auto const refuse = [&](std::string const& problem) {
        why = failureOf("create", 0, {KvFailureStage::address, problem}, net::secretsOf(options.network));
        return nullptr;
    };
    auto const problem = problemOf(options.network);
    auto network = problem.empty() ? net::withCaFile(net::shared(options.network), options.envConfig.caFile) : nullptr;
    LoganManager::configure(options.envConfig, network);
    LoganManager::sharedInstance().setAppId(appId);
    warnIfGone(delegate);
    if (!problem.empty()) {
        KvLog::shared().error("no client: %@", problem);
        return refuse(problem);
    }
    auto environment = options.envConfig;
    auto apiServer =
        options.envConfig.apiServer.empty() ? KvApiManager::apiServer() : std::move(options.envConfig.apiServer);
    if (auto const unfit = problemOfApiServer(apiServer); !unfit.empty()) return refuse(unfit);
    auto const impl = std::make_shared<KvPimKitImpl>(std::move(appId), std::move(delegate), options, std::move(network),
                                                     std::move(apiServer));
    if (!impl->mainQueue || !impl->engine)
        return refuse("the system has no thread or descriptor left for the queues of a client");
    if (!options.recordTo.file.empty()) {
        std::string unwritable;
        auto file = KvRecordFile::open(options.recordTo, impl->stateManager->appId, unwritable);
        if (!file) {
            KvLog::shared().error("no client: %@", unwritable);
            return refuse(unwritable);
        }
        boost::json::object const made{{"appId", impl->stateManager->appId},
                                       {"connectTimeout", options.network.connectTimeout.count()},
                                       {"requestTimeout", options.network.requestTimeout.count()}};
        impl->recorder =
            std::make_shared<KvRecorder>(std::move(file), impl->mainQueue, made, net::secretsOf(options.network));
    }
    auto const object = std::shared_ptr<KvPimKit>(new KvPimKit(impl));
    object->envConfig_ = std::move(environment);
    object->envConfig_.apiServer = impl->session.apiServer();
    // Counted apart from what a callback holds, which must not look like the application's own.
    std::shared_ptr<KvPimKit> kit(object.get(), [held = object](KvPimKit*) mutable { held.reset(); });
    impl->heldByApplication = kit;
    impl->alive = object;
    return kit;
}

KvPimKit::KvPimKit(std::shared_ptr<KvPimKitImpl> impl) : impl_(std::move(impl)) {}

KvPimKit::~KvPimKit() {
    assertMainThread(*impl_->mainQueue, impl_->options.checkThreads, "~KvPimKit");
    impl_->router.endEvents();
    if (impl_->recorder) impl_->recorder->gone();
}

std::shared_ptr<KvPimKitImpl> const& KvPimKit::impl(char const* call) const {
    assertMainThread(*impl_->mainQueue, impl_->options.checkThreads, call);
    return impl_;
}

// A callback may destroy the client in the middle of a call. So a call that has something left to do after it has
// called back, as the four of the session, keeps the inside; all others touch nothing of it any more by then.

void KvPimKit::loginByToken(std::string token, std::int64_t timeStamp, std::string userId, Completion done) {
    auto const client = impl();
    if (auto const& recorder = client->recorder)
        done = recorder->called("loginByToken", {{"token", token}, {"timeStamp", timeStamp}, {"userId", userId}},
                                std::move(done));
    client->session.loginByToken(std::move(token), timeStamp, std::move(userId), std::move(done));
}

void KvPimKit::loginByToken(std::string token, std::chrono::system_clock::time_point timeStamp, std::string userId,
                            Completion done) {
    loginByToken(std::move(token), millisecondsSince1970(timeStamp), std::move(userId), std::move(done));
}

void KvPimKit::loginWithConfig(boost::json::object const& config, Completion done) {
    auto const client = impl();
    client->session.loginWithConfig(config, std::move(done));
}

void KvPimKit::logoutWithCompletion(Completion done) {
    auto const client = impl();
    if (auto const& recorder = client->recorder) done = recorder->called("logoutWithCompletion", {}, std::move(done));
    client->session.logoutWithCompletion(std::move(done));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): delegate and completion may destroy what the caller passed
void KvPimKit::renewToken(std::string token, std::int64_t timeStamp, RenewTokenCompletion done) {
    auto const client = impl();
    if (auto const& recorder = client->recorder)
        done = recorder->called("renewToken", {{"token", token}, {"timeStamp", timeStamp}}, std::move(done));
    client->session.renewToken(token, timeStamp, done);
}

void KvPimKit::renewToken(std::string token, std::chrono::system_clock::time_point timeStamp,
                          RenewTokenCompletion done) {
    renewToken(std::move(token), millisecondsSince1970(timeStamp), std::move(done));
}

void KvPimKit::networkChanged() {
    auto const client = impl();
    if (auto const& recorder = client->recorder) recorder->called("networkChanged", {});
    client->session.networkChanged();
}

std::shared_ptr<KvPimInvitationKit> KvPimKit::getPimInvitationKit() {
    auto const& inside = impl();
    if (auto const& recorder = inside->recorder) recorder->called("getPimInvitationKit", {});
    return inside->router.getPimInvitationKit(inside->failures.handle());
}

void KvPimKit::pauseReading() { impl()->counters->isReadingPaused = true; }

void KvPimKit::resumeReading() {
    auto const& inside = impl();
    if (auto const socket = inside->socket.lock()) return socket->resumeReading();
    inside->counters->isReadingPaused = false;
}

std::size_t KvPimKit::bytesQueued() const {
    auto const socket = impl()->socket.lock();
    return socket ? socket->bytesQueued() : 0;
}

KvPimMetrics KvPimKit::metrics() const {
    auto const& inside = *impl();
    auto const now = inside.mainQueue->now();
    auto metrics = inside.counters->read(now);
    metrics.appId = inside.stateManager->appId;
    metrics.userId = inside.stateManager->userId;
    metrics.oldestRequest = inside.counters->oldestRequest(now);
    return metrics;
}

boost::json::object KvPimKit::getDebugInfo() const { return impl()->session.getDebugInfo(); }

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

KvPimStateManager const& KvPimKit::stateManager() const noexcept { return *impl()->stateManager; }

bool KvPimKit::isLoggedIn() const noexcept { return impl()->stateManager->login; }

KvPimConnectionState KvPimKit::connectionState() const noexcept {
    auto const state = impl()->stateManager->state;
    return state == 0 ? KvPimConnectionStateDisconnected : KvPimConnectionState(state);
}

KvPimOptions KvPimKit::options() const {
    auto const& inside = *impl();
    return {.envConfig = envConfig_,
            .mainQueue = inside.mainQueue,
            .engine = inside.engine == inside.mainQueue ? KvPimEngine::mainQueue : KvPimEngine::thread,
            .maxQueuedBytes = inside.options.maxQueuedBytes,
            .network = net::optionsOf(inside.options.network),
            .checkThreads = inside.options.checkThreads,
            .recordTo = inside.recorder ? inside.recorder->recording() : KvPimRecording()};
}

std::shared_ptr<KvPimDelegate> KvPimKit::delegate() const noexcept { return impl()->delegate.lock(); }

void KvPimKit::setDelegate(std::weak_ptr<KvPimDelegate> delegate) {
    warnIfGone(delegate);
    impl()->delegate = std::move(delegate);
}

KvStream<KvPimEvent> KvPimKit::events(KvStreamOptions options) { return impl()->events.open<KvPimEvent>(options); }
KvStream<KvPimEvent> KvPimKit::events() { return events({}); }
KvStream<event::MessageReceived> KvPimKit::messages(KvStreamOptions options) {
    return impl()->events.open<event::MessageReceived>(options);
}
KvStream<event::MessageReceived> KvPimKit::messages() { return messages({}); }

std::shared_ptr<KvFailure const> KvPimKit::lastFailure() const { return impl()->failures.last(); }

std::shared_ptr<KvMainQueue> const& KvPimKit::mainQueue() const { return impl()->mainQueue; }

std::string const& KvPimKit::apiServer() const noexcept { return impl()->session.apiServer(); }

std::string const& KvPimKit::brivelServer() const noexcept { return impl()->session.brivelServer(); }

std::int32_t KvPimKit::connectIndex() const noexcept { return impl()->session.connectIndex(); }

std::int64_t KvPimKit::disconnectReason() const noexcept { return impl()->session.disconnectReason(); }

std::int64_t KvPimKit::loginError() const noexcept { return impl()->session.loginError(); }

boost::json::object KvPimKit::generateSocketConfig(std::string const& token, std::string const& userId,
                                                   std::string const& appId, std::int64_t timeStamp) const {
    return socketConfigOf({{"token", token}, {"userId", userId}, {"timestamp", timeStamp}}, appId);
}

}  // namespace kv
