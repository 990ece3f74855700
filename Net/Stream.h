// A connected TCP socket, with or without TLS, read and written without waiting. Belongs to the engine queue.
#pragma once

#include "Net/Tls.h"
#include "Net/Url.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <boost/asio/ip/tcp.hpp>
#include <openssl/ssl.h>

namespace kv::net {

enum class IoStatus { done, wantRead, wantWrite, closed, failed };

struct IoResult {
    IoStatus status = IoStatus::done;
    std::size_t bytes = 0;
    std::string error{};  // of `failed`
};

class Stream {
public:
    explicit Stream(boost::asio::io_context& context) : socket_(context) {}

    boost::asio::ip::tcp::socket& socket() { return socket_; }
    /// Begins a connection. `wantWrite`: it is not made yet; ask `finishConnect` when the socket is writable.
    IoResult connect(boost::asio::ip::tcp::endpoint const& endpoint);
    IoResult finishConnect();
    /// To be called after waiting for writability, which stays among what Asio asks epoll for, and would wake the loop
    /// once for nothing after each read.
    void forgetWritability(boost::asio::ip::tcp protocol);
    /// Puts TLS on the connected socket, or on the TLS that is there already, in the tunnel of a proxy. Returns an
    /// error text, empty for none.
    std::string startTls(TlsContext& context, Url const& server);
    /// One step of the TLS handshake. It fails unless the server's chain ends in a trusted authority, and its
    /// certificate is for its host and as the options want it.
    IoResult handshake();
    IoResult read(std::uint8_t* data, std::size_t size);
    IoResult write(std::uint8_t const* data, std::size_t size);
    /// Tells the other side that nothing follows. Reading goes on.
    void finishSending();
    bool isSecure() const { return ssl_ != nullptr; }
    /// What was agreed, for who wants to tell of it; null in clear.
    SSL const* tls() const { return ssl_.get(); }
    void close();

private:
    struct EndSsl {
        void operator()(SSL* ssl) const { TlsContext::end(ssl); }
    };
    IoResult sslResult(int returned);

    boost::asio::ip::tcp::socket socket_;
    std::unique_ptr<SSL, EndSsl> ssl_;
};

}  // namespace kv::net
