// Event reports: what happened in the library, as one line of JSON each, collected in files and uploaded.
//
// Callable from any thread. A report costs its caller the copying of its values; everything else, files and the device
// id included, is done in the background, in the order of the calls.
#pragma once

#include "Classes/Model/KvPimCodes.h"
#include "Classes/Model/KvPimOptions.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvClock.h"
#include "Platform/KvExport.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>

namespace kv {

class WnDataCollectManager;

class KV_EXPORT LoganManager final {
public:
    /// Decides where the diagnostics of the process keep and send things: reports, log file, device id. The first call
    /// counts, and only before the first use.
    static void configure(KvPimEnvConfig const& config, net::NetworkOptions const& network);
    /// Where what is configured like this keeps log and reports, and where it sends them.
    static std::string directoryOf(KvPimEnvConfig const& config);
    static std::string collectServerOf(KvPimEnvConfig const& config);
    /// The reporter of the process, made on first use, with its upload timer running.
    static LoganManager& sharedInstance();

    /// Apart from tests only `sharedInstance` makes one.
    LoganManager(KvPimEnvConfig const& config, std::shared_ptr<KvClock> const& clock, net::NetworkOptions network = {});
    ~LoganManager();
    LoganManager(LoganManager const&) = delete;
    LoganManager& operator=(LoganManager const&) = delete;

    // ---- What the reports to come carry
    void setAppId(std::string_view appId);
    void setUId(std::string_view uId);
    /// Part of the interface; the library does not call it.
    void setClientSessionId(std::string_view clientSessionId);
    std::string clientSessionId() const;

    // ---- What the next report says of the time: milliseconds, except for a channel's join and leave, whose start is
    // given as a time stamp, and whose report makes it a duration
    void setTsGetServers(std::int64_t milliseconds);
    void setTsConnectServer(std::int64_t milliseconds);
    void setTsLogout(std::int64_t milliseconds);
    void setTsJoinChannel(std::int64_t start);
    void setTsLeaveChannel(std::int64_t start);

    // ---- Events. `result` is 1 for success and 0 for failure
    void startLogan(std::string_view token, std::string_view uid, std::int64_t timestamp);
    void loginResult(std::uint64_t result, std::int64_t errorCode);
    void logout(std::uint64_t result, std::int64_t errorCode);
    void joinChannel(std::uint64_t result, std::string_view channelId, std::int64_t errorCode);
    void leaveChannel(std::uint64_t result, std::string_view channelId, std::int64_t errorCode);
    /// `interface`: the method that did the work, in the form "-[KvPimKit setLocalUserAttributes:completion:]".
    void userAttributes(std::string_view action, std::string_view interface, std::uint64_t result,
                        std::int64_t errorCode);
    void channelAttributes(std::string_view channelId, std::string_view action, std::string_view interface,
                           std::uint64_t result, std::int64_t errorCode);
    void connectState(std::int64_t state, std::int64_t reason);

    /// Waits until every report made before this call is in a file, or is given up.
    void drain();

private:
    struct Report {
        std::int64_t time;
        std::string common, details;  // the text of an object each
    };

    // With mutex_ held, so that reports keep the order of the calls.
    void setCommonParameter(std::string_view key, std::string_view value);
    void report(std::string_view type, boost::json::object details);
    std::vector<std::string> takeRecords();  // on the background queue of the records

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    boost::json::object commonParameters_;
    std::string commonText_;  // of these; empty when it is to be made again
    std::string clientSessionId_;
    std::string channelSessionId_;
    std::int64_t tsGetServers_ = 0;
    std::int64_t tsConnectServer_ = 0;
    std::int64_t tsLogout_ = 0;
    std::int64_t tsJoinChannel_ = 0;   // its start, and a duration once it is reported
    std::int64_t tsLeaveChannel_ = 0;  // likewise
    std::int64_t loginTimeStamp_ = 0;
    std::vector<Report> waiting_;

    std::shared_ptr<WnDataCollectManager> const collectManager_;
    std::string deviceId_;  // as the process found it at its start; touched only where records are taken
};

}  // namespace kv
