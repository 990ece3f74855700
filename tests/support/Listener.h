// A listener in the test process, each of whose connections is served on a thread of its own.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>

namespace kv::test {

/// Ends what serves a connection, for a reason that is the test's to judge.
struct ConnectionEnds : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One connection, seen from the server. Whatever waits comes to its end with the listener.
class Connection {
public:
    Connection(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* tls);

    bool handshake();
    bool isResumed() { return tls_ && SSL_session_reused(tls_->native_handle()) == 1; }
    /// Throws when the client is gone.
    void send(std::string_view bytes);
    /// Some bytes; empty at the end of the connection.
    std::string receive();
    /// So many bytes, or all up to the end of this text. Throws when the connection ends before.
    std::string take(std::size_t size);
    std::string takeUntil(std::string_view end);
    void sleep(std::chrono::milliseconds time) const;
    void close();
    void reset();
    int fd() { return socket_.native_handle(); }

    // From any thread.
    void interrupt();
    bool isInterrupted() const { return isInterrupted_; }

private:
    void receiveMore();

    boost::asio::ip::tcp::socket socket_;
    std::optional<boost::asio::ssl::stream<boost::asio::ip::tcp::socket&>> tls_;
    std::string received_;
    std::atomic<bool> isInterrupted_{false};
    std::mutex mutex_;  // of the end of the socket
};

class Listener {
public:
    using Serve = std::function<void(Connection& connection)>;
    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0;                            // 0 for a free one
        std::shared_ptr<boost::asio::ssl::context> tls{};  // null for none
    };

    /// Throws boost::system::system_error when the address cannot be had.
    explicit Listener(Serve serve);
    Listener(Serve serve, Options options);
    ~Listener();

    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

private:
    void acceptAll();
    void serve(Connection& connection);

    Serve const serve_;
    Options const options_;
    boost::asio::io_context context_;
    boost::asio::ip::tcp::acceptor acceptor_;
    // Of the accepting thread, then of the destructor.
    std::list<Connection> connections_;
    std::list<std::thread> threads_;
    std::thread accepting_;
};

}  // namespace kv::test
