#include "Platform/KvConsole.h"

#include "Platform/KvSystem.h"
#include "Platform/KvThread.h"

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <unistd.h>

namespace kv {
namespace {

constexpr std::size_t kMostWaiting = 1u << 20;
constexpr std::chrono::seconds kLongestExit{1};

class Writer {
public:
    explicit Writer(int fd) : fd_(fd) {}

    void add(std::string_view line) {
        std::lock_guard lock(mutex_);
        if (!hasThread() || lost_ > 0 || waiting_.size() + line.size() >= kMostWaiting) {
            ++lost_;
        } else {
            waiting_.append(line).push_back('\n');
        }
        changed_.notify_all();
    }

    bool drain(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        return changed_.wait_until(lock, deadline, [this] { return isIdle_ && waiting_.empty(); });
    }

private:
    // A thread of the library takes no signals: a pipe that nobody reads from any more is an error to it like others.
    bool hasThread() {
        // Where there can be no thread now, the next line tries again.
        if (!hasThread_) hasThread_ = startThread("kv.console", [this] { run(); });
        return hasThread_;
    }

    void run() {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return !waiting_.empty() || lost_ > 0; });
            auto lines = std::exchange(waiting_, {});
            // Those that were lost stood behind all that waited.
            if (auto const lost = std::exchange(lost_, 0); lost > 0) {
                lines.append("kvpim: lines lost here, since nobody read them: " + std::to_string(lost) + "\n");
            }
            isIdle_ = false;
            lock.unlock();
            write(lines);
            lock.lock();
            isIdle_ = true;
            changed_.notify_all();
        }
    }

    void write(std::string_view lines) const {
        while (!lines.empty()) {
            auto const count = ::write(fd_, lines.data(), lines.size());
            if (count >= 0) {
                lines.remove_prefix(static_cast<std::size_t>(count));
            } else if (errno == EAGAIN) {  // somebody shares the stream, and does not want to wait for it
                awaitRoom(fd_);
            } else if (errno != EINTR) {
                return;  // nobody will ever read it
            }
        }
    }

    int const fd_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool hasThread_ = false;
    bool isIdle_ = true;
    std::string waiting_;
    std::size_t lost_ = 0;
};

struct Console;
Console& shared();

struct Console {
    Writer out{STDOUT_FILENO};
    Writer error{STDERR_FILENO};
    std::mutex mutex;
    // Guarded by mutex.
    std::shared_ptr<KvConsole const> chosen = std::make_shared<KvConsole>(writeToStandardStream);
    pid_t const process = ::getpid();

    Console() {
        std::atexit([] {
            // A fork has what waits, but no thread that writes it: that is left to its parent.
            if (::getpid() == shared().process) drainConsole(kLongestExit);
        });
    }
};

Console& shared() {
    static auto& console = *new Console;  // its threads may be at work until the very end
    return console;
}

}  // namespace

void printLine(KvConsoleStream stream, std::string_view line) {
    std::unique_lock lock(shared().mutex);
    auto const chosen = shared().chosen;
    lock.unlock();
    if (*chosen) (*chosen)(stream, line);
}

void setConsole(KvConsole console) {
    auto chosen = std::make_shared<KvConsole const>(std::move(console));
    std::lock_guard lock(shared().mutex);
    shared().chosen.swap(chosen);
}

void writeToStandardStream(KvConsoleStream stream, std::string_view line) {
    (stream == KvConsoleStream::out ? shared().out : shared().error).add(line);
}

bool drainConsole(std::chrono::milliseconds limit) {
    auto const deadline = std::chrono::steady_clock::now() + limit;
    return shared().out.drain(deadline) && shared().error.drain(deadline);
}

void writeConsoleAtExit() { shared(); }

}  // namespace kv
