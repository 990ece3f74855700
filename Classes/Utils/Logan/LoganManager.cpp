#include "Classes/Utils/Logan/LoganManager.h"

#include "Classes/Catagory/KvDate.h"
#include "Classes/Utils/KvBundle.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/collector/Util/WnKeyChainStore.h"
#include "Classes/Utils/Logan/collector/Util/WnUUIDHelper.h"
#include "Classes/Utils/Logan/collector/WnDataCollectManager.h"
#include "Platform/KvConsole.h"
#include "Platform/KvDirectories.h"
#include "Platform/KvJsonText.h"
#include "Platform/KvKeyStore.h"
#include "Platform/KvUtf8.h"

#include <mutex>
#include <utility>

#include <boost/json/value.hpp>

namespace kv {
namespace json = boost::json;
namespace {

constexpr std::chrono::seconds kUploadInterval{60};

std::string loganDirectoryOf(KvPimEnvConfig const& config) { return LoganManager::directoryOf(config) + "/logan"; }

// What the first client has decided.
struct Surroundings {
    KvPimEnvConfig config;
    net::NetworkOptions network;
};

Surroundings& surroundings() {
    static auto& surroundings = *new Surroundings;
    return surroundings;
}

// Both ends of a duration may come from an application, so it may be any number.
std::int64_t difference(std::int64_t end, std::int64_t start) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(end) - static_cast<std::uint64_t>(start));
}

std::string quoted(std::string_view text) { return jsonText(json::string_view(text.data(), text.size())); }

}  // namespace

std::string LoganManager::directoryOf(KvPimEnvConfig const& config) {
    if (!config.cachesDirectory.empty()) return config.cachesDirectory;
    return cachesDirectoryOf(config.applicationIdentifier.empty() ? executableName() : config.applicationIdentifier);
}

std::string LoganManager::collectServerOf(KvPimEnvConfig const& config) {
    return config.collectServer.empty() ? KVPIM_COLLECT_SERVER : config.collectServer;
}

void LoganManager::configure(KvPimEnvConfig const& config, net::NetworkOptions const& network) {
    static std::once_flag once;
    std::call_once(once, [&] {
        surroundings() = {config, network};
        KvLog::shared().useDirectory(directoryOf(config));
        KvKeyStore::configure(config.keyStoreDirectory);
        WnKeyChainStore::configure(config.applicationIdentifier);
    });
}

LoganManager& LoganManager::sharedInstance() {
    configure({}, {});
    static auto& manager = *new LoganManager(surroundings().config, KvClock::real(), surroundings().network);
    return manager;
}

LoganManager::LoganManager(KvPimEnvConfig const& config, std::shared_ptr<KvClock> const& clock,
                           net::NetworkOptions network)
    : commonParameters_{{"uid", ""},
                        {"appId", ""},
                        {"os", "ios"},
                        {"platform", "native"},
                        {"clientSessionId", ""},
                        {"sdkVer", sdkVersionString()}},
      collectManager_(WnDataCollectManager::initWithURL(collectServerOf(config), loganDirectoryOf(config), true,
                                                        std::move(network), clock)) {
    collectManager_->startUploadTimerWithInterval(config.uploadInterval.count() > 0 ? config.uploadInterval
                                                                                    : kUploadInterval);
    collectManager_->writeSoon([this, directory = loganDirectoryOf(config)] {
        deviceId_ = WnUUIDHelper::uuidForDevice();
        printLine(KvConsoleStream::error, "loganDir:" + directory);
        return std::vector<std::string>();
    });
}

LoganManager::~LoganManager() { drain(); }

void LoganManager::setAppId(std::string_view appId) {
    std::lock_guard lock(mutex_);
    setCommonParameter("appId", appId);
}

void LoganManager::setUId(std::string_view uId) {
    std::lock_guard lock(mutex_);
    setCommonParameter("uid", uId);
}

void LoganManager::setClientSessionId(std::string_view clientSessionId) {
    std::lock_guard lock(mutex_);
    clientSessionId_ = clientSessionId;
    setCommonParameter("clientSessionId", clientSessionId);
}

std::string LoganManager::clientSessionId() const {
    std::lock_guard lock(mutex_);
    return clientSessionId_;
}

void LoganManager::setTsGetServers(std::int64_t milliseconds) {
    std::lock_guard lock(mutex_);
    tsGetServers_ = milliseconds;
}

void LoganManager::setTsConnectServer(std::int64_t milliseconds) {
    std::lock_guard lock(mutex_);
    tsConnectServer_ = milliseconds;
}

void LoganManager::setTsLogout(std::int64_t milliseconds) {
    std::lock_guard lock(mutex_);
    tsLogout_ = milliseconds;
}

void LoganManager::setTsJoinChannel(std::int64_t start) {
    std::lock_guard lock(mutex_);
    tsJoinChannel_ = start;
}

void LoganManager::setTsLeaveChannel(std::int64_t start) {
    std::lock_guard lock(mutex_);
    tsLeaveChannel_ = start;
}

void LoganManager::startLogan(std::string_view token, std::string_view uid, std::int64_t timestamp) {
    std::lock_guard lock(mutex_);
    // The common parameters keep the one that the setter put there; records of a session go together by their user.
    clientSessionId_ = WnUUIDHelper::uuidString();
    report("StartLogin", {{"loginParams", {{"token", token}, {"uid", uid}, {"timestamp", timestamp}}}});
    loginTimeStamp_ = timestamp;
}

void LoganManager::loginResult(std::uint64_t result, std::int64_t errorCode) {
    std::lock_guard lock(mutex_);
    report("LoginResult", {{"result", result},
                           {"errorCode", errorCode},
                           {"totalElapsed", difference(currentTimeStamp(), loginTimeStamp_)},
                           {"elapsedInfo", {{"getServers", tsGetServers_}, {"connectServer", tsConnectServer_}}}});
}

void LoganManager::logout(std::uint64_t result, std::int64_t errorCode) {
    std::lock_guard lock(mutex_);
    report("Logout", {{"result", result}, {"errorCode", errorCode}, {"elapsed", tsLogout_}});
}

void LoganManager::joinChannel(std::uint64_t result, std::string_view channelId, std::int64_t errorCode) {
    std::lock_guard lock(mutex_);
    channelSessionId_ = WnUUIDHelper::uuidString();
    tsJoinChannel_ = difference(currentTimeStamp(), tsJoinChannel_);
    report("JoinChannel", {{"channelId", channelId},
                           {"channelSessionId", channelSessionId_},
                           {"result", result},
                           {"errorCode", errorCode},
                           {"elapsed", tsJoinChannel_}});
}

void LoganManager::leaveChannel(std::uint64_t result, std::string_view channelId, std::int64_t errorCode) {
    std::lock_guard lock(mutex_);
    tsLeaveChannel_ = difference(currentTimeStamp(), tsLeaveChannel_);
    report("LeaveChannel", {{"channelId", channelId},
                            {"channelSessionId", channelSessionId_},
                            {"result", result},
                            {"errorCode", errorCode},
                            {"elapsed", tsLeaveChannel_}});
}

void LoganManager::userAttributes(std::string_view action, std::string_view interface, std::uint64_t result,
                                  std::int64_t errorCode) {
    std::lock_guard lock(mutex_);
    report("UserAttributes",
           {{"result", result}, {"errorCode", errorCode}, {"action", action}, {"interface", interface}});
}

void LoganManager::channelAttributes(std::string_view channelId, std::string_view action, std::string_view interface,
                                     std::uint64_t result, std::int64_t errorCode) {
    std::lock_guard lock(mutex_);
    report("ChannelAttributes", {{"channelId", channelId},
                                 {"action", action},
                                 {"interface", interface},
                                 {"result", result},
                                 {"errorCode", errorCode}});
}

void LoganManager::connectState(std::int64_t state, std::int64_t reason) {
    std::lock_guard lock(mutex_);
    report("ConnectState", {{"state", state}, {"reason", reason}});
}

void LoganManager::drain() { collectManager_->drain(); }

void LoganManager::setCommonParameter(std::string_view key, std::string_view value) {
    commonParameters_[key] = value;
    commonText_.clear();
}

void LoganManager::report(std::string_view type, json::object details) {
    auto const now = currentTimeStamp();
    details["type"] = type;
    details["timestamp"] = now;
    if (commonText_.empty()) commonText_ = jsonText(commonParameters_);
    bool const isFirst = waiting_.empty();
    waiting_.push_back({now, commonText_, jsonText(details)});
    if (isFirst) collectManager_->writeSoon([this] { return takeRecords(); });
}

// Reports come in bursts; waking the background, and asking the key store, once for each would cost more than the
// report.
std::vector<std::string> LoganManager::takeRecords() {
    std::vector<Report> reports;
    {
        std::lock_guard lock(mutex_);
        reports.swap(waiting_);
    }
    auto const deviceId = quoted(WnUUIDHelper::uuidForDevice());
    std::vector<std::string> records;
    records.reserve(reports.size());
    for (auto& [time, common, details] : reports) {
        common.back() = ',';
        details.front() = ',';
        common.append(R"("deviceId":)").append(quoted(deviceId_)).append(details);
        auto line = R"({"logType":1,"deviceId":)" + deviceId + R"(,"os":"ios","timestamp":)" + std::to_string(time) +
                    R"(,"encrypt":false,"content":)" + quoted(common) + '}';
        // No blank survives, not even within a value: that is what makes a record one line for its reader.
        std::erase_if(line, [](char c) { return c == ' ' || c == '\n'; });
        replaceInvalidUtf8(line);
        records.push_back(std::move(line));
    }
    return records;
}

}  // namespace kv
