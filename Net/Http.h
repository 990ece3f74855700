// HTTP requests, one at a time on a connection each: the library makes few, and a kept connection may have died without
// a word. Redirects are followed. Any thread.
#pragma once

#include "Net/Failure.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvExport.h"
#include "Platform/KvMainQueue.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kv {

struct KvHttpTask {
    std::string url;
    std::vector<std::string> headers;  // "Name: value" each
    /// POSTs the content of this file, read piece by piece while it is sent; empty for a GET.
    std::string uploadPath{};
    net::NetworkOptions network{};
    /// How long nothing at all may arrive or leave.
    std::chrono::milliseconds requestTimeout{};
    /// How long the whole may take; zero for any time.
    std::chrono::milliseconds resourceTimeout{};
    std::size_t largestBody = 1 << 20;
    /// Whether the answer's headers are wanted.
    bool wantsHeaders = false;
};

struct KvHttpAnswer {
    /// Of the last answer that began to arrive; 0 when there was none.
    unsigned status = 0;
    std::string reason{};  // that stands behind the status
    std::string body{};
    std::vector<std::string> headers{};  // "Name: value" each, where they are wanted
    /// What went wrong, when the exchange did not come to its end. That of the exchange itself has the stage
    /// `discovery`, its one use of which people hear.
    std::optional<net::Failure> failure{};
};

using KvHttpCompletion = std::function<void(KvHttpAnswer answer)>;

/// Carries out a request on `queue`, where `completion` is called exactly once, and must not block. Only when the queue
/// ends first it is not called.
KV_EXPORT void startHttp(std::shared_ptr<KvMainQueue> const& queue, KvHttpTask task, KvHttpCompletion completion);

}  // namespace kv
