#include "Classes/Utils/Logan/collector/WnDataCollectManager.h"

#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileManager.h"
#include "Classes/Utils/Logan/collector/Upload/WnLoganUploader.h"

#include <utility>

namespace kv {

std::shared_ptr<WnDataCollectManager> WnDataCollectManager::initWithURL(std::string url, std::string dirPath,
                                                                        bool backup, net::NetworkOptions network,
                                                                        std::shared_ptr<KvClock> const& clock) {
    return std::make_shared<WnDataCollectManager>(
        std::make_shared<WnLoganFileManager>(std::move(dirPath), backup, clock),
        std::make_shared<WnLoganUploader>(std::move(url), std::move(network)), clock);
}

WnDataCollectManager::WnDataCollectManager(std::shared_ptr<WnLoganFileProtocol> loganFileManager,
                                           std::shared_ptr<WnLoganUploadProtocol> loganUploader,
                                           std::shared_ptr<KvClock> clock)
    : loganFileManager_(std::move(loganFileManager)),
      loganUploader_(std::move(loganUploader)),
      queue_("com.kvpaas.logan.timer.queue", std::move(clock)) {}

void WnDataCollectManager::startUploadTimerWithInterval(std::chrono::duration<double> interval) {
    armTimer(std::chrono::duration_cast<std::chrono::nanoseconds>(interval), ++timer_);
}

void WnDataCollectManager::stopUploadTimer() { ++timer_; }

void WnDataCollectManager::armTimer(std::chrono::nanoseconds interval, unsigned timer) {
    queue_.asyncAfter(interval, [weak = weak_from_this(), interval, timer] {
        auto const self = weak.lock();
        if (!self || self->timer_ != timer) return;
        self->armTimer(interval, timer);
        self->upload();
    });
}

void WnDataCollectManager::upload() {
    if (isInFlight_) return;
    auto const path = loganFileManager_->getWaitUploadFilePath();
    if (!path) return;
    isInFlight_ = true;
    loganUploader_->uploadFile(*path, [weak = weak_from_this(), path = *path](bool success) {
        auto const self = weak.lock();
        if (!self) return;
        // Back to the timer's queue: a tick that came in between would offer the same file once more.
        self->queue_.async([weak, path, success] {
            if (auto const alive = weak.lock()) alive->onUploaded(path, success);
        });
    });
}

void WnDataCollectManager::onUploaded(std::string const& path, bool success) {
    isInFlight_ = false;
    if (success) {
        loganFileManager_->fileWasUploaded(path);
    } else {
        loganFileManager_->fileWasNotUploaded();
    }
}

}  // namespace kv
