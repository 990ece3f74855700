#include "Classes/Utils/KvLog.h"

#include "Platform/KvConsole.h"
#include "Platform/KvFiles.h"

#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

constexpr char kFileName[] = "kv_pim.log";
constexpr off_t kLargestKeptFile = 10'485'760;
// A disk that stands still must not fill the memory instead: what comes on top of this is lost.
constexpr std::size_t kMostWaiting = 16u << 20;
constexpr std::chrono::seconds kLongestDrain{10};
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

std::string formatted(std::string_view format, std::string const* texts, std::size_t count) {
    std::string message;
    for (std::size_t used = 0; used < count; ++used) {
        auto const placeholder = format.find("%@");
        if (placeholder == std::string_view::npos) break;
        message.append(format.substr(0, placeholder)).append(texts[used]);
        format.remove_prefix(placeholder + 2);
    }
    return message.append(format);
}

std::string_view trimmed(std::string_view text) {
    auto const first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
}

// What is logged may hold tokens, so the file is for its user alone.
void createFile(std::string const& directory, std::string const& path) {
    createDirectories(directory);
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && status.st_size > kLargestKeptFile) ::unlink(path.c_str());
    KvFileDescriptor const created(::open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0600));
}

}  // namespace

KvLog& KvLog::shared() {
    static auto& log = *new KvLog;
    return log;
}

KvLog::~KvLog() { queue_.drain(); }

void KvLog::drain() {
    queue_.drain();
    drainConsole(kLongestDrain);
}

void KvLog::useDirectory(std::string const& cachesDirectory) {
    auto const path = cachesDirectory + "/" + kFileName;
    queue_.async([cachesDirectory, path] { createFile(cachesDirectory, path); });
    std::lock_guard lock(mutex_);
    if (logFilePath_.empty()) logFilePath_ = path;
}

void KvLog::setHandler(Handler handler) {
    auto chosen = handler ? std::make_shared<Handler const>(std::move(handler)) : nullptr;
    std::lock_guard lock(mutex_);
    handler_.swap(chosen);
}

void KvLog::setLogFilePath(std::string path) {
    std::lock_guard lock(mutex_);
    logFilePath_ = std::move(path);
}

void KvLog::write(Level const& level, std::string_view format, std::string const* texts, std::size_t count) {
    std::string const message = formatted(format, texts, count);
    std::unique_lock lock(mutex_);
    auto const handler = handler_;
    lock.unlock();
    if (handler) return (*handler)(level.threshold, message);
    writeLogToFile(message);
    printLine(KvConsoleStream::error, std::string(level.prefix) + message);
}

void KvLog::writeLogToFile(std::string_view message) {
    bool isFirst = false;
    {
        std::lock_guard lock(mutex_);
        if (waitingLines_.size() > kMostWaiting) return;
        isFirst = waitingLines_.empty();
        waitingLines_.append(trimmed(message)).append("\n");
    }
    if (isFirst) queue_.async([this] { appendWaitingLines(); });
}

// Lines that came while the disk was busy go together, so that it is made to settle once for all of them.
void KvLog::appendWaitingLines() {
    std::string lines;
    std::string path;
    {
        std::lock_guard lock(mutex_);
        lines.swap(waitingLines_);
        path = logFilePath_;
    }
    KvFileDescriptor const handle(::open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC));
    if (handle && writeAll(handle.get(), lines)) ::fsync(handle.get());
}

}  // namespace kv
