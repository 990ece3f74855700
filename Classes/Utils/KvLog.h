// The library's own log: what the application's filter lets through goes to standard error and, as one line, to a file;
// or to a handler of the application.
//
// Callable from any thread. A message is formatted on the caller's thread, and only if it is let through; the file is
// written in the background, and on storage as soon as the disk allows. Whatever goes wrong there is silent.
#pragma once

#include "Classes/Utils/KvLogText.h"
#include "Platform/KvExport.h"
#include "Platform/KvSerialQueue.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace kv {

class KV_EXPORT KvLog final {
public:
    /// The log of the process, made on first use.
    static KvLog& shared();

    /// Apart from tests only `shared` makes one.
    KvLog() = default;
    ~KvLog();
    KvLog(KvLog const&) = delete;
    KvLog& operator=(KvLog const&) = delete;

    /// A threshold, not a mask: above 0 lets information through, from 2 warnings too, from 4 errors too, from 8 all.
    void setLogFilter(std::int64_t filter) { logFilter_.store(filter, std::memory_order_relaxed); }
    /// Makes the default file, "kv_pim.log" in this directory. Lines go there unless another one was chosen.
    void useDirectory(std::string const& cachesDirectory);
    /// Lines written from now on go to this file, if it exists.
    void setLogFilePath(std::string path);
    /// Who gets the lines from now on instead of standard error and the file; empty for these two again.
    using Handler = std::function<void(std::int64_t level, std::string_view message)>;
    void setHandler(Handler handler);

    // Each "%@" in `format` becomes the next argument's text; what is left without an argument stays as it is. Line
    // breaks and other control characters are written as "\n" or "\u001b".
    template <class... Arguments>
    void info(std::string_view format, Arguments const&... arguments) {
        log(kInfo, format, arguments...);
    }
    template <class... Arguments>
    void warn(std::string_view format, Arguments const&... arguments) {
        log(kWarn, format, arguments...);
    }
    template <class... Arguments>
    void error(std::string_view format, Arguments const&... arguments) {
        log(kError, format, arguments...);
    }
    template <class... Arguments>
    void critical(std::string_view format, Arguments const&... arguments) {
        log(kCritical, format, arguments...);
    }

    /// Waits until what was logged before is written, or is given up.
    void drain();

private:
    struct Level {
        std::int64_t threshold;
        std::string_view prefix;
    };
    static constexpr Level kInfo{1, "kv_pim_info_log:"};
    static constexpr Level kWarn{2, "kv_pim_warn_log:"};
    static constexpr Level kError{4, "kv_pim_error_log:"};
    static constexpr Level kCritical{8, "kv_pim_critical_log:"};

    template <class... Arguments>
    void log(Level const& level, std::string_view format, Arguments const&... arguments) {
        if (logFilter_.load(std::memory_order_relaxed) < level.threshold) return;
        std::array<std::string, sizeof...(Arguments)> const texts{logText(arguments)...};
        write(level, format, texts.data(), texts.size());
    }
    void write(Level const& level, std::string_view format, std::string const* texts, std::size_t count);
    void writeLogToFile(std::string_view line);
    void appendWaitingLines();

    std::atomic<std::int64_t> logFilter_{0};
    std::mutex mutex_;
    // Guarded by mutex_.
    std::string defaultPath_, logFilePath_;
    std::string waitingLines_;
    std::shared_ptr<Handler const> handler_;  // null for none

    KvSerialQueue queue_{"com.kv.pim"};
};

}  // namespace kv
