#include "Net/Stream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/sslerr.h>
#include <poll.h>
#include <sys/socket.h>

namespace kv::net {
namespace {

constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

std::string errnoText() { return std::generic_category().message(errno); }

std::string openSslText() {
    unsigned long const code = ERR_peek_last_error();
    ERR_clear_error();
    if (!ERR_SYSTEM_ERROR(code)) {
        switch (ERR_GET_REASON(code)) {
            case SSL_R_WRONG_VERSION_NUMBER:
                return "TLS: the server does not speak TLS (wrong version number)";
            case SSL_R_TLSV1_ALERT_PROTOCOL_VERSION:
            case SSL_R_UNSUPPORTED_PROTOCOL:
                return "TLS: the server speaks none of the versions of TLS that are wanted";
            case SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED:
                return "TLS: the server wants a certificate of this side";
            case SSL_R_SSLV3_ALERT_BAD_CERTIFICATE:
            case SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE:
            case SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED:
            case SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED:
            case SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN:
            case SSL_R_TLSV1_ALERT_UNKNOWN_CA:
            case SSL_R_TLSV1_ALERT_ACCESS_DENIED:
                return std::string("TLS: the server does not take this side's certificate, or none: ") +
                       ERR_reason_error_string(code);
        }
    }
    if (ERR_SYSTEM_ERROR(code)) return "TLS: " + std::generic_category().message(ERR_GET_REASON(code));
    char const* const reason = ERR_reason_error_string(code);
    return reason == nullptr ? "TLS: protocol failure" : std::string("TLS: ") + reason;
}

int socketOf(BIO* bio) { return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio))); }

// A BIO over the socket that, unlike OpenSSL's own, raises no SIGPIPE in the application.
int bioWrite(BIO* bio, char const* data, int size) {
    BIO_clear_retry_flags(bio);
    auto const sent = ::send(socketOf(bio), data, static_cast<std::size_t>(size), kSendFlags);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

int bioRead(BIO* bio, char* data, int size) {
    BIO_clear_retry_flags(bio);
    auto const received = ::recv(socketOf(bio), data, static_cast<std::size_t>(size), MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_read(bio);
    return static_cast<int>(received);
}

long bioControl(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

BIO* makeBio(int socket) {
    static BIO_METHOD* const method = [] {
        auto* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "kv socket");
        BIO_meth_set_write(made, bioWrite);
        BIO_meth_set_read(made, bioRead);
        BIO_meth_set_ctrl(made, bioControl);
        return made;
    }();
    auto* bio = BIO_new(method);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenSSL keeps a pointer for its user, who wants a number kept
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(socket)));
    BIO_set_init(bio, 1);
    return bio;
}

}  // namespace

IoResult Stream::connect(boost::asio::ip::tcp::endpoint const& endpoint) {
    boost::system::error_code error;
    socket_.open(endpoint.protocol(), error);
    if (!error) socket_.native_non_blocking(true, error);
    if (!error) socket_.set_option(boost::asio::ip::tcp::no_delay(true), error);
    if (error) return {IoStatus::failed, 0, error.message()};
    // Not Asio's connect: it waits even for a server on the same machine, with whom the connection is made at once.
    bool const isBegun =
        ::connect(socket_.native_handle(), endpoint.data(), static_cast<socklen_t>(endpoint.size())) == 0;
    if (!isBegun && errno != EINPROGRESS) return {IoStatus::failed, 0, errnoText()};
    return finishConnect();
}

IoResult Stream::finishConnect() {
    pollfd writable{socket_.native_handle(), POLLOUT, 0};
    if (::poll(&writable, 1, 0) <= 0) return {IoStatus::wantWrite};
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(socket_.native_handle(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) return {IoStatus::failed, 0, std::generic_category().message(error)};
    return {};
}

void Stream::forgetWritability(boost::asio::ip::tcp protocol) {
    boost::system::error_code error;
    socket_.assign(protocol, socket_.release(error), error);
}

std::string Stream::startTls(TlsContext& context, Url const& server) {
    BIO* transport = nullptr;
    if (ssl_) {
        transport = BIO_new(BIO_f_ssl());
        BIO_set_ssl(transport, ssl_.release(), BIO_CLOSE);
    } else {
        transport = makeBio(socket_.native_handle());
    }
    std::string error;
    ssl_.reset(context.begin(server.host, server.text(), transport, error));
    return error;
}

IoResult Stream::handshake() {
    ERR_clear_error();
    errno = 0;
    int const returned = SSL_do_handshake(ssl_.get());
    if (returned != 1) return sslResult(returned);
    auto problem = TlsContext::judge(ssl_.get());
    return problem.empty() ? IoResult{} : IoResult{IoStatus::failed, 0, std::move(problem)};
}

IoResult Stream::sslResult(int returned) {
    switch (SSL_get_error(ssl_.get(), returned)) {
        case SSL_ERROR_WANT_READ:
            return {IoStatus::wantRead};
        case SSL_ERROR_WANT_WRITE:
            return {IoStatus::wantWrite};
        case SSL_ERROR_ZERO_RETURN:
            return {IoStatus::closed};
        case SSL_ERROR_SYSCALL:
            ERR_clear_error();
            if (returned == 0 || errno == 0) return {IoStatus::closed};
            return {IoStatus::failed, 0, errnoText()};
        default:
            break;
    }
    if (auto refusal = TlsContext::refusal(ssl_.get()); !refusal.empty()) {
        ERR_clear_error();
        return {IoStatus::failed, 0, std::move(refusal)};
    }
    return {IoStatus::failed, 0, openSslText()};
}

IoResult Stream::read(std::uint8_t* data, std::size_t size) {
    if (ssl_) {
        ERR_clear_error();
        errno = 0;
        int const returned = SSL_read(ssl_.get(), data, static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
        return returned > 0 ? IoResult{IoStatus::done, static_cast<std::size_t>(returned)} : sslResult(returned);
    }
    auto const received = ::recv(socket_.native_handle(), data, size, MSG_DONTWAIT);
    if (received > 0) return {IoStatus::done, static_cast<std::size_t>(received)};
    if (received == 0) return {IoStatus::closed};
    if (errno == EAGAIN || errno == EINTR) return {IoStatus::wantRead};
    return {IoStatus::failed, 0, errnoText()};
}

IoResult Stream::write(std::uint8_t const* data, std::size_t size) {
    if (ssl_) {
        ERR_clear_error();
        errno = 0;
        int const returned = SSL_write(ssl_.get(), data, static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
        return returned > 0 ? IoResult{IoStatus::done, static_cast<std::size_t>(returned)} : sslResult(returned);
    }
    auto const sent = ::send(socket_.native_handle(), data, size, kSendFlags);
    if (sent >= 0) return {IoStatus::done, static_cast<std::size_t>(sent)};
    if (errno == EAGAIN || errno == EINTR) return {IoStatus::wantWrite};
    return {IoStatus::failed, 0, errnoText()};
}

void Stream::finishSending() {
    if (ssl_) SSL_shutdown(ssl_.get());
    ::shutdown(socket_.native_handle(), SHUT_WR);
}

void Stream::close() {
    boost::system::error_code ignored;
    socket_.close(ignored);
    ssl_.reset();
}

}  // namespace kv::net
