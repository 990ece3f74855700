// All HTTP of the process, on one thread. Redirects are followed, servers' certificates verified; each request has a
// connection of its own. Callable from any thread.
#pragma once

#include "Platform/KvExport.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kv {

struct KvHttpTask {
    std::string url;
    std::vector<std::string> headers;  // "Name: value" each
    /// POSTs the content of this file, read piece by piece while it is sent; empty for a GET.
    std::string uploadPath{};
    /// PEM file of authorities to trust in addition to the system's; empty for none.
    std::string caFile{};
    /// How long nothing at all may arrive or leave.
    std::chrono::milliseconds requestTimeout{};
    /// How long the whole may take; zero for any time.
    std::chrono::milliseconds resourceTimeout{};
    std::size_t largestBody = 1 << 20;
};

struct KvHttpAnswer {
    /// Of the last answer that began to arrive; 0 when there was none.
    long status = 0;
    std::string body{};
    /// What went wrong, when the exchange did not come to its end.
    std::optional<std::string> error{};
};

class KV_EXPORT KvHttpSession final {
public:
    using Completion = std::function<void(KvHttpAnswer answer)>;

    /// Made on first use; lives as long as the process, as its thread does from the first request.
    static KvHttpSession& shared();
    KvHttpSession(KvHttpSession const&) = delete;
    KvHttpSession& operator=(KvHttpSession const&) = delete;

    /// `completion` is called exactly once, on the session's thread, and must not block; inside this call when the
    /// system has no thread for the session. Only when the process ends first it is not called.
    void start(KvHttpTask task, Completion completion);

private:
    class Transfer;
    class Loop;

    KvHttpSession();
    void remake();
    void stopAtExit();

    std::mutex mutex_;
    // Guarded by mutex_.
    bool hasThread_ = false;
    std::vector<std::unique_ptr<Transfer>> started_;  // waits for the thread to take it

    void* multi_;   // curl's; the thread's, but for waking it up under mutex_
    bool canWake_;  // the thread's
    std::atomic<bool> stopping_{false};
    std::atomic<bool> stopped_{false};
};

}  // namespace kv
