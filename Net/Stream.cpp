#include "Net/Stream.h"

#include "Net/Trust.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <map>
#include <mutex>
#include <system_error>

#include <boost/asio/ip/address.hpp>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/sslerr.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

namespace kv::net {
namespace {

constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
// A common name is a name for people: authorities do not check it as they do alternative names.
constexpr unsigned kHostFlags = X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;

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
                return "TLS: the server speaks no TLS 1.2 or later";
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

// One context serves all connections that trust the same authorities.
std::shared_ptr<SSL_CTX> contextFor(std::string const& caFile, std::string& error) {
    struct Known {
        std::shared_ptr<X509_STORE> trusted;
        std::shared_ptr<SSL_CTX> context;
    };
    static std::mutex mutex;
    static auto& contexts = *new std::map<std::string, Known>;
    auto trusted = trustedAuthorities(caFile, error);
    if (!trusted) return nullptr;
    std::lock_guard lock(mutex);
    auto& known = contexts[caFile];
    if (known.trusted == trusted) return known.context;
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    // Not every server says goodbye in TLS. What was cut short shows in the frames.
    SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_mode(context.get(),
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set1_cert_store(context.get(), trusted.get());
    known = {std::move(trusted), context};
    return context;
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

std::string Stream::startTls(std::string const& host, std::string const& caFile) {
    std::string error;
    auto const context = contextFor(caFile, error);
    if (!context) return error;
    ssl_.reset(SSL_new(context.get()));
    if (!ssl_) return openSslText();
    SSL_set_hostflags(ssl_.get(), kHostFlags);
    boost::system::error_code noAddress;
    boost::asio::ip::make_address(host, noAddress);
    bool const isName = static_cast<bool>(noAddress);
    bool const isSet =
        isName ? SSL_set1_host(ssl_.get(), host.c_str()) == 1 && SSL_set_tlsext_host_name(ssl_.get(), host.c_str()) == 1
               : X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_.get()), host.c_str()) == 1;
    if (!isSet) return openSslText();
    auto* const bio = makeBio(socket_.native_handle());
    SSL_set_bio(ssl_.get(), bio, bio);
    SSL_set_connect_state(ssl_.get());
    return {};
}

IoResult Stream::handshake() {
    ERR_clear_error();
    int const returned = SSL_do_handshake(ssl_.get());
    return returned == 1 ? IoResult{} : sslResult(returned);
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
    long const verdict = SSL_get_verify_result(ssl_.get());
    if (verdict != X509_V_OK) {
        ERR_clear_error();
        return {IoStatus::failed, 0, std::string("TLS: ") + X509_verify_cert_error_string(verdict)};
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
