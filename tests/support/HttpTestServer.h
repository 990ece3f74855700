// An HTTP server of the test's own process, on a free port of 127.0.0.1, that answers as a script says and remembers
// what it was asked. One request for each connection.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kv {

struct HttpTestRequest {
    std::string method;
    std::string target;
    std::vector<std::string> headers;  // "Name: value", as sent
    std::string body;
};

struct HttpTestAnswer {
    enum class Ending {
        whole,
        closesMidway,  // announces the whole body, sends half of it
        silence,       // nothing, and the connection stays open
        closesAtOnce,  // nothing
    };
    int status = 200;
    std::vector<std::string> headers{};
    std::string body{};
    Ending ending = Ending::whole;
};

class HttpTestServer {
public:
    /// Called by several threads at once if there are several connections.
    using Script = std::function<HttpTestAnswer(HttpTestRequest const& request)>;

    explicit HttpTestServer(Script script);
    ~HttpTestServer();

    /// "http://127.0.0.1:PORT".
    std::string url() const;
    std::vector<HttpTestRequest> requests() const;
    /// Whether so many requests have come within the time.
    bool waitForRequests(std::size_t count, std::chrono::seconds limit = std::chrono::seconds(5)) const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kv
