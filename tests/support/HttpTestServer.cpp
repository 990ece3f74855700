#include "support/HttpTestServer.h"

#include "support/Listener.h"

#include <charconv>
#include <condition_variable>
#include <sstream>

namespace kv {
namespace {

using Ending = HttpTestAnswer::Ending;
constexpr std::string_view kLengthHeader = "Content-Length: ";

HttpTestRequest parsed(std::string const& head) {
    HttpTestRequest request;
    std::istringstream lines(head);
    lines >> request.method >> request.target;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line != "\r") request.headers.push_back(line.substr(0, line.size() - 1));
    return request;
}

std::size_t bodySizeOf(HttpTestRequest const& request) {
    std::size_t size = 0;
    for (auto const& header : request.headers) {
        if (!header.starts_with(kLengthHeader)) continue;
        std::from_chars(header.data() + kLengthHeader.size(), header.data() + header.size(), size);
    }
    return size;
}

std::string textOf(HttpTestAnswer const& answer) {
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " Scripted\r\nConnection: close\r\n";
    if (answer.status != 204) text.append(kLengthHeader).append(std::to_string(answer.body.size())).append("\r\n");
    for (auto const& header : answer.headers) text.append(header).append("\r\n");
    auto const bodySize = answer.ending == Ending::closesMidway ? answer.body.size() / 2 : answer.body.size();
    return text.append("\r\n").append(answer.body, 0, bodySize);
}

}  // namespace

class HttpTestServer::Impl {
public:
    explicit Impl(Script answering) : script(std::move(answering)) {}

    void converse(test::Connection& connection) {
        auto request = parsed(connection.takeUntil("\r\n\r\n"));
        request.body = connection.take(bodySizeOf(request));
        auto const answer = script(request);
        {
            std::lock_guard lock(mutex);
            requests.push_back(std::move(request));
            changed.notify_all();
        }
        if (answer.ending == Ending::silence) connection.receive();
        if (answer.ending == Ending::silence || answer.ending == Ending::closesAtOnce) return;
        connection.send(textOf(answer));
    }

    Script const script;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<HttpTestRequest> requests;  // guarded by mutex
    test::Listener const listener{[this](test::Connection& connection) { converse(connection); }};
};

HttpTestServer::HttpTestServer(Script script) : impl_(std::make_unique<Impl>(std::move(script))) {}
HttpTestServer::~HttpTestServer() = default;

std::string HttpTestServer::url() const { return "http://127.0.0.1:" + std::to_string(impl_->listener.port()); }

std::vector<HttpTestRequest> HttpTestServer::requests() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->requests;
}

bool HttpTestServer::waitForRequests(std::size_t count, std::chrono::seconds limit) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->changed.wait_for(lock, limit, [&] { return impl_->requests.size() >= count; });
}

}  // namespace kv
