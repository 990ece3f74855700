#include "Classes/Utils/Logan/collector/FileManager/WnLoganFileManager.h"

#include "Classes/Utils/Logan/collector/FileManager/HolDataCollectManager.h"
#include "Platform/KvConsole.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

constexpr char kCurrentName[] = "logan";
constexpr char kIgnoredName[] = ".DS_Store";
constexpr char kNameFormat[] = "%Y_%m_%d_%H_%M_%S";
constexpr std::int64_t kFullCount = 100;
constexpr int kOpenFlags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

constexpr std::chrono::milliseconds kBurst{10};  // events come in bursts, which cost little more than one record
constexpr int kMostNames = 1000;                 // of files in the backup directory that would have the same
constexpr int kLockAttempts = 100;
constexpr std::chrono::milliseconds kLockPause{5};

// Other processes lock the file for moments only. One that was stopped in such a moment must not stop this one too.
void lockFile(int fd) {
    for (int attempt = 0; attempt < kLockAttempts && ::flock(fd, LOCK_EX | LOCK_NB) != 0; ++attempt) {
        std::this_thread::sleep_for(kLockPause);
    }
}

std::optional<struct stat> statusOf(std::string const& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

std::optional<struct stat> statusOf(KvFileDescriptor const& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 ? std::optional(status) : std::nullopt;
}

KvFileId idOf(struct stat const& status) { return {status.st_dev, status.st_ino}; }

// Behind the name a number when the name is taken.
std::error_code moveToFreeName(std::string const& from, std::string const& to) {
    auto error = renameWithoutReplacing(from, to);
    for (int i = 2; error == std::errc::file_exists && i < kMostNames; ++i) {
        error = renameWithoutReplacing(from, to + "_" + std::to_string(i));
    }
    return error;
}

bool isEmptyOrUnknown(std::string const& path) {
    auto const status = statusOf(path);
    return !status || status->st_size == 0;
}

// Another process may be about to write its first record to it: hence the lock, and the second look behind it.
std::error_code removeIfEmpty(std::string const& path) {
    if (!isEmptyOrUnknown(path)) return {};
    KvFileDescriptor const file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file) lockFile(file.get());
    std::error_code error;
    if (isEmptyOrUnknown(path)) std::filesystem::remove(path, error);
    return error;
}

}  // namespace

WnLoganFileManager::WnLoganFileManager(std::string loganDirPath, bool backup, std::shared_ptr<KvClock> clock)
    : backup_(backup),
      loganDirPath_(std::move(loganDirPath)),
      loganBackupDirPath_(loganDirPath_ + "_bak"),
      loganFileToWrite_(loganDirPath_ + "/" + kCurrentName),
      clock_(std::move(clock)) {
    queue_.async([this] {
        std::lock_guard lock(filelock_);
        openOnce();
    });
}

WnLoganFileManager::~WnLoganFileManager() {
    drain();
    if (handle_) ::fsync(handle_.get());
}

void WnLoganFileManager::writeLog(std::string record) {
    bool isFirst = false;
    {
        std::lock_guard lock(waitingLock_);
        isFirst = waiting_.empty();
        waiting_.push_back(std::move(record));
    }
    if (isFirst) queue_.async([this] { appendWaiting(); });
}

void WnLoganFileManager::writeSoon(std::function<std::vector<std::string>()> records) {
    queue_.asyncWithin(kBurst, [this, records = std::move(records)] { append(records()); });
}

std::optional<std::string> WnLoganFileManager::getWaitUploadFilePath() {
    std::lock_guard lock(filelock_);
    openOnce();
    release();
    for (auto const& name : allLogPaths()) {
        // The second question is about the bare name, a path below the working directory: kept as it has always been.
        std::error_code ignored;
        if (name == kIgnoredName || std::filesystem::is_directory(name, ignored) || name == kCurrentName) continue;
        auto const path = loganDirPath_ + "/" + name;
        if (wasUploaded(path)) {
            dispose(path);
            continue;
        }
        auto const status = statusOf(path);
        if (!status) printLine(KvConsoleStream::error, "error:" + lastError().message());
        if (!status || status->st_size != 0) {
            if (take(path)) return path;
            continue;
        }
        if (auto const error = removeIfEmpty(path)) printLine(KvConsoleStream::error, error.message());
    }
    if (!lockCurrentFile()) return std::nullopt;
    auto const current = statusOf(handle_);
    bool const isEmpty = !current || current->st_size == 0;
    auto path = isEmpty ? std::nullopt : std::optional(saveCurrentWritingLoganFileToWaitUpload());
    if (handle_) ::flock(handle_.get(), LOCK_UN);
    // A name that is still taken by an uploaded file is not offered, whatever else would stand for.
    return path && (wasUploaded(*path) || !take(*path)) ? std::nullopt : path;
}

void WnLoganFileManager::fileWasUploaded(std::string const& path) {
    std::lock_guard lock(filelock_);
    if (auto const status = statusOf(path)) uploaded_[path] = idOf(*status);
    dispose(path);
    release();
}

void WnLoganFileManager::fileWasNotUploaded() {
    std::lock_guard lock(filelock_);
    release();
}

void WnLoganFileManager::openOnce() {
    if (std::exchange(isOpen_, true)) return;
    createDirectories(loganDirPath_);
    createDirectories(loganBackupDirPath_);
    removeEmptyFiles();
    resetFileHandle();
}

// Records that came while the disk was busy go together.
void WnLoganFileManager::appendWaiting() {
    std::vector<std::string> records;
    {
        std::lock_guard lock(waitingLock_);
        records.swap(waiting_);
    }
    append(records);
}

void WnLoganFileManager::append(std::vector<std::string> const& records) {
    if (records.empty()) return;
    std::lock_guard lock(filelock_);
    openOnce();
    if (!lockCurrentFile()) return;
    std::string lines;
    for (auto const& record : records) {
        if (++writeCount_ >= kFullCount) {
            appendLines(handle_.get(), lines);
            lines.clear();
            saveCurrentWritingLoganFileToWaitUpload();
            writeCount_ = 0;
            if (!lockCurrentFile()) return;
        }
        lines.append(record).push_back('\n');
    }
    appendLines(handle_.get(), lines);
    ::flock(handle_.get(), LOCK_UN);
}

std::string WnLoganFileManager::saveCurrentWritingLoganFileToWaitUpload() {
    auto path = loganDirPath_ + "/" + nextLogName();
    // Fails when a file was closed in this second already: then this one stays and keeps growing.
    renameWithoutReplacing(loganFileToWrite_, path);
    resetFileHandle();
    return path;
}

// Makes the current file, whichever that is by now, the one that the handle stands for, and keeps other processes from
// renaming it until it is unlocked or closed.
bool WnLoganFileManager::lockCurrentFile() {
    constexpr int kAttempts = 4;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (attempt > 0 || !handle_) resetFileHandle();
        if (!handle_) return false;
        lockFile(handle_.get());
        if (holdsCurrentFile()) break;
    }
    // Of a process or a machine that stopped in the middle of a record. The collector would refuse the file for ever.
    cutHalfLine(handle_.get());
    return true;
}

// Keeps other processes from uploading it too, until it is released. False when one of them is about it, or was.
bool WnLoganFileManager::take(std::string const& path) {
    KvFileDescriptor file(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) return errno != ENOENT;
    // Not the lock of the current file: who still holds that one open must not wait for an upload.
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (::fcntl(file.get(), F_OFD_SETLK, &whole) != 0) return errno != EAGAIN && errno != EACCES;
    auto const named = statusOf(path);
    auto const held = statusOf(file);
    if (!named || !held || idOf(*named) != idOf(*held)) return false;
    underWay_ = std::move(file);
    return true;
}

void WnLoganFileManager::release() {
    if (!underWay_) return;
    struct flock whole {};  // a fork of this process has the descriptor, too: closing it is not enough
    whole.l_type = F_UNLCK;
    whole.l_whence = SEEK_SET;
    ::fcntl(underWay_.get(), F_OFD_SETLK, &whole);
    underWay_ = KvFileDescriptor();
}

bool WnLoganFileManager::holdsCurrentFile() const {
    auto const named = statusOf(loganFileToWrite_);
    auto const held = statusOf(handle_);
    return named && held && idOf(*named) == idOf(*held);
}

void WnLoganFileManager::resetFileHandle() {
    if (handle_) ::fsync(handle_.get());
    writeCount_ = 0;
    constexpr int kAttempts = 2;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        handle_ = KvFileDescriptor(::open(loganFileToWrite_.c_str(), kOpenFlags, 0600));
        auto const status = statusOf(handle_);
        if (status && S_ISREG(status->st_mode)) return;
        handle_ = KvFileDescriptor();
        // The directory may have been deleted meanwhile, or something that is no file put in the place of the file.
        createDirectories(loganDirPath_);
        createDirectories(loganBackupDirPath_);
        auto const obstacle = statusOf(loganFileToWrite_);
        if (obstacle && !S_ISREG(obstacle->st_mode)) {
            moveToFreeName(loganFileToWrite_, loganBackupDirPath_ + "/" + nextLogName());
        }
    }
}

std::string WnLoganFileManager::nextLogName() const {
    std::time_t const now = std::chrono::system_clock::to_time_t(clock_->wallTime());
    std::tm local{};
    ::localtime_r(&now, &local);
    std::array<char, 64> name{};
    return {name.data(), std::strftime(name.data(), name.size(), kNameFormat, &local)};
}

// Names, the oldest first; what was made at the same moment goes by name.
std::vector<std::string> WnLoganFileManager::allLogPaths() const {
    std::error_code error;
    std::vector<std::pair<std::optional<KvClock::WallTime>, std::string>> dated;
    for (std::filesystem::directory_iterator entry(loganDirPath_, error), end; !error && entry != end;
         entry.increment(error)) {
        dated.emplace_back(fileCreationDate(entry->path()), entry->path().filename());
    }
    if (error) return {};
    std::ranges::sort(dated);
    std::vector<std::string> names;
    names.reserve(dated.size());
    for (auto& [date, name] : dated) names.push_back(std::move(name));
    return names;
}

void WnLoganFileManager::removeEmptyFiles() {
    for (auto const& name : allLogPaths()) removeIfEmpty(loganDirPath_ + "/" + name);
}

bool WnLoganFileManager::wasUploaded(std::string const& path) {
    auto const uploaded = uploaded_.find(path);
    if (uploaded == uploaded_.end()) return false;
    auto const status = statusOf(path);
    if (status && idOf(*status) == uploaded->second) return true;
    uploaded_.erase(uploaded);  // gone; if there is a file of that name, then it is another one
    return false;
}

void WnLoganFileManager::dispose(std::string const& path) {
    std::error_code error;
    if (backup_) {
        error = moveToBackupWithFilePath(path);
    } else {
        std::filesystem::remove(path, error);
    }
    if (!error) uploaded_.erase(path);
}

std::error_code WnLoganFileManager::moveToBackupWithFilePath(std::string const& path) {
    createDirectories(loganBackupDirPath_);
    auto const error = moveToFreeName(path, loganBackupDirPath_ + path.substr(path.rfind('/')));
    if (error) printLine(KvConsoleStream::error, error.message());
    return error;
}

}  // namespace kv
