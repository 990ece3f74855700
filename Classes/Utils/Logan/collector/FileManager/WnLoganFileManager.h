// Records in files, one line each: the current file is "logan", which becomes a waiting file, named by the time, when
// it is full. Uploaded files are kept in a sibling directory, or deleted. Several processes may share the directory.
#pragma once

#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileProtocol.h"
#include "Platform/KvClock.h"
#include "Platform/KvExport.h"
#include "Platform/KvFiles.h"
#include "Platform/KvSerialQueue.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace kv {

class KV_EXPORT WnLoganFileManager final : public WnLoganFileProtocol {
public:
    /// Makes the directories and the current file soon, in the background.
    /// @param backup  whether uploaded files are kept.
    WnLoganFileManager(std::string loganDirPath, bool backup, std::shared_ptr<KvClock> clock = KvClock::real());
    ~WnLoganFileManager() override;
    WnLoganFileManager(WnLoganFileManager const&) = delete;
    WnLoganFileManager& operator=(WnLoganFileManager const&) = delete;

    void writeLog(std::string record) override;
    void writeSoon(std::function<std::vector<std::string>()> records) override;
    std::optional<std::string> getWaitUploadFilePath() override;
    void fileWasUploaded(std::string const& path) override;
    void fileWasNotUploaded() override;
    void drain() override { queue_.drain(); }

private:
    void appendWaiting();
    void append(std::vector<std::string> const& records);
    // All of these with filelock_ held.
    void openOnce();
    std::string saveCurrentWritingLoganFileToWaitUpload();
    bool lockCurrentFile();
    bool holdsCurrentFile() const;
    void resetFileHandle();
    std::string nextLogName() const;
    std::vector<std::string> allLogPaths() const;
    void removeEmptyFiles();
    bool take(std::string const& path);
    void release();
    bool wasUploaded(std::string const& path);
    void dispose(std::string const& path);
    std::error_code moveToBackupWithFilePath(std::string const& path);

    bool const backup_;
    std::string const loganDirPath_;
    std::string const loganBackupDirPath_;
    std::string const loganFileToWrite_;
    std::shared_ptr<KvClock> const clock_;

    std::mutex waitingLock_;
    std::vector<std::string> waiting_;  // records; guarded by waitingLock_

    std::mutex filelock_;
    // Guarded by filelock_.
    bool isOpen_ = false;
    KvFileDescriptor handle_;
    std::int64_t writeCount_ = 0;
    KvFileDescriptor underWay_;                 // what this process uploads, locked
    std::map<std::string, KvFileId> uploaded_;  // those that could be neither moved nor deleted

    KvSerialQueue queue_{"com.kv.paas.sdk.data.collect.queue"};
};

}  // namespace kv
