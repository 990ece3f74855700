// Collects records in files and uploads the files, the oldest first, one at each tick of a timer.
#pragma once

#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileProtocol.h"
#include "Classes/Utils/Logan/collector/Upload/WnLoganUploadProtocol.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvClock.h"
#include "Platform/KvExport.h"
#include "Platform/KvSerialQueue.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kv {

/// Callable from any thread.
class KV_EXPORT WnDataCollectManager final : public std::enable_shared_from_this<WnDataCollectManager> {
public:
    /// Files in `dirPath`, sent to `url`.
    /// @param backup  whether uploaded files are kept.
    static std::shared_ptr<WnDataCollectManager> initWithURL(std::string url, std::string dirPath, bool backup,
                                                             net::NetworkOptions network = {},
                                                             std::shared_ptr<KvClock> const& clock = KvClock::real());
    WnDataCollectManager(std::shared_ptr<WnLoganFileProtocol> loganFileManager,
                         std::shared_ptr<WnLoganUploadProtocol> loganUploader,
                         std::shared_ptr<KvClock> clock = KvClock::real());

    void writeLog(std::string record) { loganFileManager_->writeLog(std::move(record)); }
    /// Asks for records soon, on a background queue, and writes them.
    void writeSoon(std::function<std::vector<std::string>()> records) {
        loganFileManager_->writeSoon(std::move(records));
    }
    /// One upload every `interval`, the first one interval from now; instead of a timer that runs already.
    void startUploadTimerWithInterval(std::chrono::duration<double> interval);
    /// Part of the interface; the library does not call it.
    void stopUploadTimer();
    /// Waits until the records given before are in a file, or are given up.
    void drain() { loganFileManager_->drain(); }

private:
    void armTimer(std::chrono::nanoseconds interval, unsigned timer);
    void upload();
    void onUploaded(std::string const& path, bool success);

    std::shared_ptr<WnLoganFileProtocol> const loganFileManager_;
    std::shared_ptr<WnLoganUploadProtocol> const loganUploader_;
    std::atomic<unsigned> timer_{0};  // the number of the running one; those before it have stopped
    // Touched only on queue_. Longer than the uploader's own `isUploading`: until the uploaded file is disposed of.
    bool isInFlight_ = false;
    KvSerialQueue queue_;
};

}  // namespace kv
