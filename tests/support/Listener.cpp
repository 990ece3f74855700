#include "support/Listener.h"

#include <utility>

#include <boost/asio/write.hpp>
#include <fcntl.h>
#include <sys/socket.h>

namespace kv::test {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

Connection::Connection(tcp::socket socket, asio::ssl::context* tls) : socket_(std::move(socket)) {
    socket_.set_option(tcp::no_delay(true));
    ::fcntl(fd(), F_SETFD, FD_CLOEXEC);  // or a program that a test starts would keep it open
    if (tls) tls_.emplace(socket_, *tls);
}

bool Connection::handshake() {
    error_code error;
    if (tls_) tls_->handshake(asio::ssl::stream_base::server, error);
    return !error;
}

void Connection::send(std::string_view bytes) {
    error_code error;
    tls_ ? asio::write(*tls_, asio::buffer(bytes), error) : asio::write(socket_, asio::buffer(bytes), error);
    if (error) throw ConnectionEnds("the client is gone");
}

std::string Connection::receive() {
    if (!received_.empty()) return std::exchange(received_, {});
    std::string bytes(64 << 10, '\0');
    error_code end;
    bytes.resize(tls_ ? tls_->read_some(asio::buffer(bytes), end) : socket_.read_some(asio::buffer(bytes), end));
    return bytes;
}

void Connection::receiveMore() {
    auto already = std::exchange(received_, {});
    auto const more = receive();
    if (more.empty()) throw ConnectionEnds("the client is gone");
    received_ = std::move(already += more);
}

std::string Connection::take(std::size_t size) {
    while (received_.size() < size) receiveMore();
    auto taken = received_.substr(0, size);
    received_.erase(0, size);
    return taken;
}

std::string Connection::takeUntil(std::string_view end) {
    while (received_.find(end) == std::string::npos) receiveMore();
    return take(received_.find(end) + end.size());
}

void Connection::sleep(std::chrono::milliseconds time) const {
    auto const end = std::chrono::steady_clock::now() + time;
    while (!isInterrupted_ && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void Connection::close() {
    std::lock_guard lock(mutex_);
    error_code ignored;
    socket_.close(ignored);
}

void Connection::reset() {
    error_code ignored;
    socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    close();
}

void Connection::interrupt() {
    isInterrupted_ = true;
    std::lock_guard lock(mutex_);
    error_code ignored;
    socket_.shutdown(tcp::socket::shutdown_both, ignored);
}

Listener::Listener(Serve serve) : Listener(std::move(serve), Options()) {}

Listener::Listener(Serve serve, Options options)
    : serve_(std::move(serve)),
      options_(std::move(options)),
      acceptor_(context_, tcp::endpoint(asio::ip::make_address(options_.address), options_.port)),
      accepting_([this] { acceptAll(); }) {}

Listener::~Listener() {
    ::shutdown(acceptor_.native_handle(), SHUT_RDWR);  // wakes who accepts, as closing it would not
    accepting_.join();
    for (auto& connection : connections_) connection.interrupt();
    for (auto& thread : threads_) thread.join();
}

void Listener::acceptAll() {
    ::fcntl(acceptor_.native_handle(), F_SETFD, FD_CLOEXEC);
    for (error_code error;;) {
        auto socket = acceptor_.accept(error);
        if (error) return;
        auto& connection = connections_.emplace_back(std::move(socket), options_.tls.get());
        threads_.emplace_back([this, &connection] { serve(connection); });
    }
}

void Listener::serve(Connection& connection) {
    try {
        if (connection.handshake()) serve_(connection);
    } catch (ConnectionEnds const&) {  // the test sees the end of the connection
    }
    connection.close();
}

}  // namespace kv::test
