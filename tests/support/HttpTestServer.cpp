#include "support/HttpTestServer.h"

#include <charconv>
#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

namespace kv {
namespace asio = boost::asio;
namespace {

using asio::ip::tcp;
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

std::optional<HttpTestRequest> readRequest(tcp::socket& stream) {
    boost::system::error_code error;
    std::string received;
    auto const headSize = asio::read_until(stream, asio::dynamic_buffer(received), "\r\n\r\n", error);
    if (error) return std::nullopt;
    auto request = parsed(received.substr(0, headSize));
    request.body = received.substr(headSize);
    auto const already = request.body.size();
    request.body.resize(std::max(already, bodySizeOf(request)));
    asio::read(stream, asio::buffer(request.body.data() + already, request.body.size() - already), error);
    return error ? std::nullopt : std::optional(std::move(request));
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
    explicit Impl(Script answering) : script(std::move(answering)) {
        accepting = std::thread([this] { accept(); });
    }

    ~Impl() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
            changed.notify_all();
            for (auto& socket : sockets) ::shutdown(socket.native_handle(), SHUT_RDWR);
        }
        ::shutdown(acceptor.native_handle(), SHUT_RDWR);
        accepting.join();
        for (auto& serving : servings) serving.join();
    }

    void accept() {
        boost::system::error_code error;
        for (;;) {
            tcp::socket socket(context);
            acceptor.accept(socket, error);
            if (error) return;
            std::lock_guard lock(mutex);
            if (stopping) return;
            auto& kept = sockets.emplace_back(std::move(socket));
            servings.emplace_back([this, &kept] { serve(kept); });
        }
    }

    void serve(tcp::socket& socket) {
        boost::system::error_code error;
        converse(socket);
        std::lock_guard lock(mutex);
        socket.shutdown(tcp::socket::shutdown_both, error);
    }

    void converse(tcp::socket& stream) {
        auto const request = readRequest(stream);
        if (!request) return;
        auto const answer = script(*request);
        {
            std::unique_lock lock(mutex);
            requests.push_back(*request);
            changed.notify_all();
            if (answer.ending == Ending::silence) changed.wait(lock, [this] { return stopping; });
        }
        if (answer.ending == Ending::silence || answer.ending == Ending::closesAtOnce) return;
        boost::system::error_code error;
        asio::write(stream, asio::buffer(textOf(answer)), error);
    }

    Script const script;
    asio::io_context context;
    tcp::acceptor acceptor{context, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
    std::thread accepting;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    // Guarded by mutex.
    bool stopping = false;
    std::list<tcp::socket> sockets;
    std::list<std::thread> servings;
    std::vector<HttpTestRequest> requests;
};

HttpTestServer::HttpTestServer(Script script) : impl_(std::make_unique<Impl>(std::move(script))) {}

HttpTestServer::~HttpTestServer() = default;

std::string HttpTestServer::url() const {
    return "http://127.0.0.1:" + std::to_string(impl_->acceptor.local_endpoint().port());
}

std::vector<HttpTestRequest> HttpTestServer::requests() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->requests;
}

bool HttpTestServer::waitForRequests(std::size_t count, std::chrono::seconds limit) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->changed.wait_for(lock, limit, [&] { return impl_->requests.size() >= count; });
}

}  // namespace kv
