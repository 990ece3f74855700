#include "Relay.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {
namespace {

constexpr int kTurnMs = 2;  // how soon a connection takes notice of what is asked of it

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool isReadable(int socket) {
    pollfd waiting{socket, POLLIN, 0};
    return ::poll(&waiting, 1, 0) > 0;
}

// False at the end of the connection.
bool pass(int from, int to) {
    char bytes[65536];
    auto const size = ::recv(from, bytes, sizeof bytes, 0);
    return size > 0 && ::send(to, bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL) == size;
}

void reset(int socket) {
    linger const noGoodbye{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &noGoodbye, sizeof noGoodbye);
}

}  // namespace

// One connection of a client, and the one that is made for it. Its thread owns the sockets.
struct Relay::Link {
    explicit Link(int accepted) : client(accepted) {}

    int const client;
    std::atomic<bool> isSilent{false};
    std::atomic<bool> breaks{false};
    std::string lastBytes{};  // written before `breaks` is set
    std::thread thread{};
};

Relay::Relay(int target) : target_(target) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto address = loopback(0);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, any, size) != 0 || ::listen(listener_, 64) != 0 || ::getsockname(listener_, any, &size) != 0)
        throw std::system_error(errno, std::generic_category(), "relay");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptAll(); });
}

Relay::~Relay() {
    isEnding_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (auto& link : links_) link.thread.join();
    ::close(listener_);
}

std::string Relay::url() const { return "http://127.0.0.1:" + std::to_string(port_); }

void Relay::goSilent() {
    std::lock_guard lock(mutex_);
    for (auto& link : links_) link.isSilent = true;
}

void Relay::breakOff(std::string_view lastBytes) {
    std::lock_guard lock(mutex_);
    for (auto& link : links_) {
        if (link.breaks) continue;
        link.lastBytes = lastBytes;
        link.breaks = true;
    }
}

void Relay::acceptAll() {
    for (;;) {
        int const client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        int const yes = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        std::lock_guard lock(mutex_);
        auto& link = links_.emplace_back(client);
        link.thread = std::thread([this, &link] { serve(link); });
    }
}

void Relay::serve(Link& link) {
    int const server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto const address = loopback(target_);
    bool isOpen = ::connect(server, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    while (isOpen && !isEnding_ && !link.breaks) {
        pollfd waiting[] = {{link.client, POLLIN, 0}, {server, POLLIN, 0}};
        ::poll(waiting, link.isSilent ? 0 : 2, kTurnMs);
        if (link.isSilent || link.breaks) continue;
        if (isReadable(link.client)) isOpen = pass(link.client, server);
        if (isOpen && isReadable(server)) isOpen = pass(server, link.client);
    }
    if (link.breaks) {
        ::send(link.client, link.lastBytes.data(), link.lastBytes.size(), MSG_NOSIGNAL);
        ++broken_;
        reset(link.client);
    }
    ::close(link.client);
    ::close(server);
}

}  // namespace kv::test
