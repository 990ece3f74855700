// The HTTP requests of the library but for uploads: see KvHttpSession for what carries them.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace kv {

class KvHttpRequest {
public:
    /// `error` says what went wrong; one of the two is there. Any status of an answer is no error.
    using Completion = std::function<void(std::optional<std::string> data, std::optional<std::string> error)>;

    /// GET with 6 seconds for each sign of life and 36 for the whole. `completion` is called exactly once, on the HTTP
    /// thread, and must not block.
    static void getRequestWithUrl(std::string url, std::string caFile, Completion completion);
    /// Has no effect; never calls its completion.
    static void postRequest(boost::json::object const& body, std::string const& url, Completion const& completion);
};

}  // namespace kv
