// Sends a file to the collection endpoint.
#pragma once

#include "Classes/Utils/Logan/collector/Upload/WnLoganUploadProtocol.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvExport.h"
#include "Platform/KvSerialQueue.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace kv {

/// Callable from any thread. What is in flight when it is destroyed has no result any more.
class KV_EXPORT WnLoganUploader final : public WnLoganUploadProtocol,
                                        public std::enable_shared_from_this<WnLoganUploader> {
public:
    WnLoganUploader(std::string urlString, net::NetworkOptions network);

    /// POSTs the file's bytes as they are. The one status that is success is 204.
    void uploadFile(std::string path, std::function<void(bool success)> result) override;
    bool isUploading() const override { return isUploading_; }

private:
    void start(std::string path, std::function<void(bool success)> result);
    void onAnswer(unsigned status, std::function<void(bool success)> const& result);

    std::string const urlString_;
    net::NetworkOptions const network_;
    std::atomic<bool> isUploading_{false};  // set and cleared on queue_ only
    KvSerialQueue queue_{"com.kvpaas.logan.uploader"};
};

}  // namespace kv
