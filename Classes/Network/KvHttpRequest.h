// The HTTP requests of the library but for uploads: see Net/Http.h for what carries them.
#pragma once

#include "Net/Http.h"
#include "Net/NetworkOptions.h"
#include "Platform/KvMainQueue.h"

#include <memory>
#include <string>

#include <boost/json/fwd.hpp>

namespace kv {

class KvHttpRequest {
public:
    /// Any status of an answer is no failure.
    using Completion = KvHttpCompletion;

    /// GET with the options' time for each sign of life, 6 seconds, and six times that for the whole. `completion` is
    /// called exactly once, on `queue`, and must not block.
    static void getRequestWithUrl(std::string url, net::NetworkOptions network,
                                  std::shared_ptr<KvMainQueue> const& queue, Completion completion);
    /// That request, for who wants more of it.
    static KvHttpTask taskOf(std::string url, net::NetworkOptions network);
    /// Has no effect; never calls its completion.
    static void postRequest(boost::json::object const& body, std::string const& url, Completion const& completion);
};

}  // namespace kv
