#include "Classes/Utils/Logan/collector/Upload/WnLoganUploader.h"

#include "Net/Http.h"
#include "Platform/KvConsole.h"
#include "Platform/KvEngineThread.h"

#include <utility>

namespace kv {
namespace {

constexpr std::chrono::seconds kTimeout{30};
constexpr unsigned kUploaded = 204;

}  // namespace

WnLoganUploader::WnLoganUploader(std::string urlString, net::NetworkOptions network)
    : urlString_(std::move(urlString)), network_(std::move(network)) {}

void WnLoganUploader::uploadFile(std::string path, std::function<void(bool)> result) {
    if (isUploading_) return;
    queue_.async([weak = weak_from_this(), path = std::move(path), result = std::move(result)]() mutable {
        auto const self = weak.lock();
        if (self && !self->isUploading_) self->start(std::move(path), std::move(result));
    });
}

void WnLoganUploader::start(std::string path, std::function<void(bool)> result) {
    isUploading_ = true;
    KvHttpTask task;
    task.url = urlString_;
    task.headers = {"Content-type: application/octet-stream"};
    task.uploadPath = std::move(path);
    task.network = network_;
    task.requestTimeout = kTimeout;
    auto answered = [weak = weak_from_this(), result = std::move(result)](KvHttpAnswer const& answer) {
        auto const self = weak.lock();
        if (!self) return;
        self->queue_.async([weak, status = answer.status, result] {
            if (auto const alive = weak.lock()) alive->onAnswer(status, result);
        });
    };
    auto const engine = engineThreadQueue();
    if (!engine) return answered({.failure = net::Failure{{}, "no thread is left for it"}});
    startHttp(engine, std::move(task), std::move(answered));
}

void WnLoganUploader::onAnswer(unsigned status, std::function<void(bool)> const& result) {
    isUploading_ = false;
    result(status == kUploaded);
    if (status != kUploaded) printLine(KvConsoleStream::error, "上传失败" + std::to_string(status));
}

}  // namespace kv
