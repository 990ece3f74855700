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

// What a server sends may hold line breaks, which would make lines of their own, and what a terminal takes for
// commands. Control characters are written as JSON writes them, those behind ASCII (U+0080 to U+009F) too; a tab stays.
std::string onOneLine(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string line;
    line.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto byte = static_cast<unsigned char>(text[i]);
        auto const next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        bool const isLateControl = byte == 0xc2 && next >= 0x80 && next < 0xa0;
        if (isLateControl) {
            byte = next;
            ++i;
        }
        if (byte == '\n') {
            line += "\\n";
        } else if (byte == '\r') {
            line += "\\r";
        } else if (isLateControl || (byte < 0x20 && byte != '\t') || byte == 0x7f) {
            line.append("\\u00") += {kDigits[byte >> 4], kDigits[byte & 15]};
        } else {
            line += text[i];
        }
    }
    return line;
}

// What is logged may hold tokens, so the file is for its user alone.
void createFile(std::string const& directory, std::string const& path) {
    createDirectories(directory);
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > kLargestKeptFile)
        ::unlink(path.c_str());
    KvFileDescriptor const created(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
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
    defaultPath_ = path;
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
    std::string const line = onOneLine(message);
    std::unique_lock lock(mutex_);
    auto const handler = handler_;
    lock.unlock();
    if (handler) return (*handler)(level.threshold, line);
    writeLogToFile(onOneLine(trimmed(message)));
    printLine(KvConsoleStream::error, std::string(level.prefix) + line);
}

void KvLog::writeLogToFile(std::string_view line) {
    bool isFirst = false;
    {
        std::lock_guard lock(mutex_);
        if (waitingLines_.size() > kMostWaiting) return;
        isFirst = waitingLines_.empty();
        waitingLines_.append(line).append("\n");
    }
    if (isFirst) queue_.async([this] { appendWaitingLines(); });
}

// Lines that came while the disk was busy go together, so that it is made to settle once for all of them.
void KvLog::appendWaitingLines() {
    std::string lines;
    std::string path;
    int follow = 0;
    {
        std::lock_guard lock(mutex_);
        lines.swap(waitingLines_);
        path = logFilePath_;
        // A link in the place of the library's own file would have somebody else's file written to.
        if (path == defaultPath_) follow = O_NOFOLLOW;
    }
    KvFileDescriptor const handle(::open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC | follow));
    if (handle && appendLines(handle.get(), lines)) ::fsync(handle.get());
}

}  // namespace kv
