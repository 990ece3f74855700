#include "support/ScriptedServer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {
namespace json = boost::json;
namespace {

constexpr int kPatienceMs = 10000;

// The end of a script, for a reason that is the test's to judge.
struct ScriptEnds : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string base64(unsigned char const* data, std::size_t size) {
    std::string text(4 * ((size + 2) / 3), '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data, static_cast<int>(size));
    return text;
}

std::string headerOf(std::string const& head, std::string const& name) {
    auto const at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    auto const start = at + name.size() + 4;
    return head.substr(start, head.find("\r\n", start) - start);
}

// Writes to a connection that is gone must not end the process, nor hide that the client's own do not.
void blockBrokenPipes() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

class ScriptedPeer::Channel {
public:
    Channel(int socket, SSL* ssl) : socket_(socket), ssl_(ssl) {}
    ~Channel() { close(); }

    // From any thread: everything that waits comes to an end.
    void interrupt() {
        isInterrupted_ = true;
        std::lock_guard lock(mutex_);
        if (socket_ >= 0) ::shutdown(socket_, SHUT_RDWR);
    }
    bool isInterrupted() const { return isInterrupted_; }

    bool accept() { return !ssl_ || SSL_accept(ssl_) == 1; }

    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            auto const sent = ssl_ ? SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size()))
                                   : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) throw ScriptEnds("the client is gone");
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    std::string receive() {
        if (socket_ < 0) throw ScriptEnds("hung up");
        std::string bytes(64 << 10, '\0');
        if (!ssl_ || SSL_pending(ssl_) == 0) {
            pollfd ready{socket_, POLLIN, 0};
            if (::poll(&ready, 1, kPatienceMs) <= 0) throw ScriptEnds("the client says nothing");
        }
        auto const size = ssl_ ? SSL_read(ssl_, bytes.data(), static_cast<int>(bytes.size()))
                               : ::recv(socket_, bytes.data(), bytes.size(), 0);
        bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return bytes;
    }

    void close(bool resets = false) {
        std::lock_guard lock(mutex_);
        if (socket_ < 0) return;
        linger const noGoodbye{1, 0};
        if (resets) ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &noGoodbye, sizeof noGoodbye);
        if (ssl_) SSL_free(std::exchange(ssl_, nullptr));
        ::close(std::exchange(socket_, -1));
    }

private:
    std::mutex mutex_;
    int socket_;
    SSL* ssl_;
    std::atomic<bool> isInterrupted_{false};
};

void ScriptedPeer::send(std::string_view bytes) { channel_->send(bytes); }

void ScriptedPeer::sendInPieces(std::string_view bytes, std::size_t size) {
    for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) {
        send(bytes.substr(0, size));
        sleep(std::chrono::milliseconds(1));  // or the kernel would join the pieces again
    }
}

std::string ScriptedPeer::receive() {
    if (!received_.empty()) return std::exchange(received_, {});
    return channel_->receive();
}

std::string ScriptedPeer::take(std::size_t size) {
    while (received_.size() < size) {
        auto const more = channel_->receive();
        if (more.empty()) throw ScriptEnds("the client is gone");
        received_ += more;
    }
    auto taken = received_.substr(0, size);
    received_.erase(0, size);
    return taken;
}

void ScriptedPeer::readRequest() {
    while (received_.find("\r\n\r\n") == std::string::npos) {
        auto const more = channel_->receive();
        if (more.empty()) throw ScriptEnds("no request");
        received_ += more;
    }
    request_ = take(received_.find("\r\n\r\n") + 4);
}

std::string ScriptedPeer::upgradeAnswer(std::string const& moreHeaders) const {
    auto const text = headerOf(request_, "Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha1(), nullptr);
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
           base64(digest, size) + "\r\n" + moreHeaders + "\r\n";
}

void ScriptedPeer::acceptWebSocket(std::string const& moreHeaders) { send(upgradeAnswer(moreHeaders)); }

std::string ScriptedPeer::frame(std::uint8_t firstByte, std::string_view payload) {
    std::string bytes(1, static_cast<char>(firstByte));
    auto const size = payload.size();
    int const lengthBytes = size < 126 ? 0 : size <= 0xFFFF ? 2 : 8;
    bytes += static_cast<char>(lengthBytes == 0 ? size : lengthBytes == 2 ? 126 : 127);
    for (int i = lengthBytes - 1; i >= 0; --i) bytes += static_cast<char>(size >> (8 * i));
    return bytes.append(payload);
}

ScriptedPeer::Message ScriptedPeer::readMessage() {
    Message message;
    auto const head = take(2);
    message.opcode = static_cast<std::uint8_t>(head[0]) & 0x0F;
    message.isCompressed = (static_cast<std::uint8_t>(head[0]) & 0x40) != 0;
    if (!(static_cast<std::uint8_t>(head[1]) & 0x80)) throw ScriptEnds("an unmasked frame");
    std::uint64_t size = static_cast<std::uint8_t>(head[1]) & 0x7F;
    if (size >= 126) {
        auto const length = take(size == 126 ? 2 : 8);
        size = 0;
        for (char const byte : length) size = size << 8 | static_cast<std::uint8_t>(byte);
    }
    auto const mask = take(4);
    message.payload = take(size);
    for (std::size_t i = 0; auto& byte : message.payload) byte = static_cast<char>(byte ^ mask[i++ % 4]);
    return message;
}

std::string ScriptedPeer::readText() {
    for (;;) {
        auto message = readMessage();
        if (message.opcode == 1) return std::move(message.payload);
    }
}

std::string ScriptedPeer::openPacket(Pings pings) {
    std::string packet = "0";
    packet += json::serialize(json::value{{"sid", "engine"},
                                          {"upgrades", json::array()},
                                          {"pingInterval", pings.interval.count()},
                                          {"pingTimeout", pings.timeout.count()},
                                          {"maxPayload", 1000000}});
    return packet;
}

void ScriptedPeer::connect() { connect(Pings{}); }

void ScriptedPeer::connect(Pings pings, std::string const& moreHeaders) {
    acceptWebSocket(moreHeaders);
    sendText(openPacket(pings));
    if (readText() != "40") throw ScriptEnds("no connect packet");
    sendText("40{\"sid\":\"session" + std::to_string(number_) + "\"}");
}

void ScriptedPeer::login() {
    connect();
    emit("loginSuccess", {json::object()});
}

json::value ScriptedPeer::placeholder(std::size_t number) { return {{"_placeholder", true}, {"num", number}}; }

void ScriptedPeer::sendPacket(std::string_view type, std::optional<std::uint64_t> id, json::array const& items,
                              std::vector<std::string> const& attachments) {
    std::string text(type);
    if (!attachments.empty()) text += std::to_string(attachments.size()) + '-';
    if (id) text += std::to_string(*id);
    std::string bytes = textFrame(text + json::serialize(items));
    for (auto const& attachment : attachments) bytes += binaryFrame(attachment);
    send(bytes);
}

void ScriptedPeer::emit(std::string_view event, json::array items, std::vector<std::string> const& attachments) {
    items.insert(items.begin(), json::value(json::string_view(event.data(), event.size())));
    sendPacket(attachments.empty() ? "42" : "45", {}, items, attachments);
}

ScriptedPeer::Event ScriptedPeer::readEvent() {
    auto text = readText();
    while (text[0] == '3') text = readText();
    Event event;
    if (text.size() < 2 || text[0] != '4' || (text[1] != '2' && text[1] != '5')) throw ScriptEnds("no event: " + text);
    std::size_t at = 2, attachments = 0;
    if (text[1] == '5') {
        attachments = std::stoul(text.substr(at));
        at = text.find('-') + 1;
    }
    auto const start = text.find('[', at);
    if (start > at) event.id = std::stoull(text.substr(at, start - at));
    event.items = json::parse(text.substr(start)).as_array();
    while (event.attachments.size() < attachments) {
        auto message = readMessage();
        if (message.opcode == 2) event.attachments.push_back(std::move(message.payload));
    }
    return event;
}

void ScriptedPeer::acknowledge(Event const& event, json::array const& items,
                               std::vector<std::string> const& attachments) {
    sendPacket(attachments.empty() ? "43" : "46", event.id, items, attachments);
}

void ScriptedPeer::close(std::uint16_t code, std::string_view reason) {
    std::string payload = {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    send(frame(0x88, payload.append(reason)));
}

void ScriptedPeer::hangUp() { channel_->close(); }

void ScriptedPeer::reset() { channel_->close(true); }

std::vector<ScriptedPeer::Message> ScriptedPeer::readToEnd() {
    std::vector<Message> messages;
    try {
        for (;;) messages.push_back(readMessage());
    } catch (ScriptEnds const&) {
    }
    return messages;
}

void ScriptedPeer::sleep(std::chrono::milliseconds time) {
    auto const end = std::chrono::steady_clock::now() + time;
    while (!channel_->isInterrupted() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

ScriptedServer::ScriptedServer(Script script) : ScriptedServer(std::move(script), Options()) {}

ScriptedServer::ScriptedServer(Script script, Options options)
    : script_(std::move(script)), options_(std::move(options)) {
    if (!options_.certificateFile.empty()) {
        SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
        tls_ = std::shared_ptr<void>(context, [](void* held) { SSL_CTX_free(static_cast<SSL_CTX*>(held)); });
        if (options_.isOldTls) {
            SSL_CTX_set_min_proto_version(context, TLS1_1_VERSION);
            SSL_CTX_set_max_proto_version(context, TLS1_1_VERSION);
            SSL_CTX_set_cipher_list(context, "DEFAULT:@SECLEVEL=0");
        }
        SSL_CTX_use_certificate_chain_file(context, options_.certificateFile.c_str());
        SSL_CTX_use_PrivateKey_file(context, options_.keyFile.c_str(), SSL_FILETYPE_PEM);
    }
    bool const isIpv6 = options_.address.find(':') != std::string::npos;
    sockaddr_in6 address6{};
    sockaddr_in address4{};
    auto* address = isIpv6 ? reinterpret_cast<sockaddr*>(&address6) : reinterpret_cast<sockaddr*>(&address4);
    socklen_t size = isIpv6 ? sizeof address6 : sizeof address4;
    address->sa_family = isIpv6 ? AF_INET6 : AF_INET;
    ::inet_pton(address->sa_family, options_.address.c_str(),
                isIpv6 ? static_cast<void*>(&address6.sin6_addr) : static_cast<void*>(&address4.sin_addr));
    listener_ = ::socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0 || ::bind(listener_, address, size) != 0 || ::listen(listener_, SOMAXCONN) != 0 ||
        ::getsockname(listener_, address, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "scripted server");
    }
    port_ = ntohs(isIpv6 ? address6.sin6_port : address4.sin_port);
    acceptor_ = std::thread([this] { acceptAll(); });
}

ScriptedServer::~ScriptedServer() {
    isEnding_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    {
        std::lock_guard lock(mutex_);
        for (auto const& weak : channels_) {
            if (auto const channel = weak.lock()) channel->interrupt();
        }
    }
    for (auto& thread : threads_) thread.join();
    ::close(listener_);
}

std::string ScriptedServer::url(std::string const& host) const {
    return (tls_ ? "https://" : "http://") + host + ':' + std::to_string(port_);
}

void ScriptedServer::acceptAll() {
    blockBrokenPipes();
    while (!isEnding_) {
        int const socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) return;
        int const yes = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        SSL* ssl = nullptr;
        if (tls_) {
            ssl = SSL_new(static_cast<SSL_CTX*>(tls_.get()));
            SSL_set_fd(ssl, socket);
        }
        auto channel = std::make_shared<ScriptedPeer::Channel>(socket, ssl);
        {
            std::lock_guard lock(mutex_);
            channels_.push_back(channel);
        }
        threads_.emplace_back([this, channel] { serve(channel); });
    }
}

void ScriptedServer::serve(std::shared_ptr<ScriptedPeer::Channel> channel) {
    if (!channel->accept()) return;
    ScriptedPeer peer;
    peer.channel_ = std::move(channel);
    try {
        peer.send(options_.greeting);
        peer.readRequest();
        if (peer.request_.starts_with("GET /config/")) {
            auto const body = json::serialize(
                json::value{{"code", 200}, {"data", {{"brivelServers", json::array{url(options_.address)}}}}});
            peer.send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                      std::to_string(body.size()) + "\r\n\r\n" + body);
            return;
        }
        peer.number_ = connections_++;
        script_(peer);
    } catch (ScriptEnds const&) {  // the test sees the end of the connection
    }
}

}  // namespace kv::test
