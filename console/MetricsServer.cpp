#include "console/MetricsServer.h"

#include "Classes/Model/KvPimMetrics.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::console {
namespace {

constexpr std::size_t kMostVisitors = 16;
constexpr std::size_t kMostHead = 8192;
constexpr std::chrono::seconds kPatience{5};  // with a visitor, from its coming to its going
constexpr std::chrono::seconds kPause{1};

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// The result of a call that went well.
int checked(int result, char const* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

bool isForLater() { return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR; }

std::string lowered(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

bool acceptsOpenMetrics(std::string const& head) {
    auto const text = lowered(head);
    auto const accept = text.find("\r\naccept:");
    if (accept == std::string::npos) return false;
    auto const line = std::string_view(text).substr(accept + 2);
    return line.substr(0, line.find('\r')).find("application/openmetrics-text") != std::string_view::npos;
}

std::string response(std::string_view status, std::string_view type, std::string const& body) {
    std::string text = "HTTP/1.1 ";
    text.append(status).append("\r\nContent-Type: ").append(type);
    text.append("\r\nContent-Length: ").append(std::to_string(body.size()));
    return text.append("\r\nConnection: close\r\n\r\n").append(body);
}

}  // namespace

MetricsServer::Descriptor::~Descriptor() {
    if (number >= 0) ::close(number);
}

// One connection: a request, its response, and then whatever comes until the other side closes. A socket that is
// closed with something unread would take the response away from it.
struct MetricsServer::Visitor {
    Visitor(int accepted, KvQueueTimer ends) : socket(accepted), patience(std::move(ends)) {}
    Descriptor const socket;
    KvQueueTimer patience;
    std::string head;
    std::string unsent;
    bool isAnswered = false;
    bool isEnded = false;  // the other side sends nothing more
};

MetricsServer::MetricsServer(std::shared_ptr<KvMainQueue> queue, std::uint16_t port, Text text)
    : queue_(std::move(queue)),
      text_(std::move(text)),
      epoll_(checked(::epoll_create1(EPOLL_CLOEXEC), "no epoll for the metrics")),
      listener_(
          checked(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "no socket for the metrics")) {
    auto const what = "cannot serve metrics on 127.0.0.1:" + std::to_string(port);
    auto const address = loopback(port);
    int const reuse = 1;
    ::setsockopt(listener_.number, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    checked(::bind(listener_.number, reinterpret_cast<sockaddr const*>(&address), sizeof address), what.c_str());
    checked(::listen(listener_.number, kMostVisitors), what.c_str());
    watch(EPOLL_CTL_ADD, listener_.number, EPOLLIN, nullptr);
}

MetricsServer::~MetricsServer() = default;

std::string MetricsServer::url() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(listener_.number, reinterpret_cast<sockaddr*>(&address), &size);
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/metrics";
}

void MetricsServer::turn() {
    std::array<epoll_event, 1> ready;  // one at a time: what one leads to may be the end of another
    for (std::size_t i = 0; i <= kMostVisitors; ++i) {
        if (::epoll_wait(epoll_.number, ready.data(), 1, 0) != 1) return;
        auto* const visitor = static_cast<Visitor*>(ready[0].data.ptr);
        if (visitor == nullptr) {
            accept();
        } else {
            serve(*visitor);
        }
    }
}

void MetricsServer::accept() {
    int const accepted = ::accept4(listener_.number, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (accepted < 0) {
        if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return;
        watch(EPOLL_CTL_MOD, listener_.number, 0, nullptr);
        pause_ = queue_->after(kPause, [this] { watch(EPOLL_CTL_MOD, listener_.number, EPOLLIN, nullptr); });
        return;
    }
    if (visitors_.size() == kMostVisitors) visitors_.pop_front();  // who waits for long makes room
    auto& visitor = visitors_.emplace_back(accepted, KvQueueTimer());
    visitor.patience = queue_->after(kPatience, [this, &visitor] { forget(visitor); });
    watch(EPOLL_CTL_ADD, accepted, EPOLLIN, &visitor);
}

void MetricsServer::serve(Visitor& visitor) {
    if (!visitor.isEnded) visitor.isEnded = !read(visitor);
    std::uint32_t const input = visitor.isEnded ? 0u : std::uint32_t{EPOLLIN};
    while (!visitor.unsent.empty()) {
        auto const sent = ::send(visitor.socket.number, visitor.unsent.data(), visitor.unsent.size(), MSG_NOSIGNAL);
        if (sent < 0 && !isForLater()) return forget(visitor);
        if (sent < 0) return watch(EPOLL_CTL_MOD, visitor.socket.number, input | EPOLLOUT, &visitor);
        visitor.unsent.erase(0, static_cast<std::size_t>(sent));
    }
    if (visitor.isEnded) return forget(visitor);
    if (!visitor.isAnswered) return;
    ::shutdown(visitor.socket.number, SHUT_WR);
    watch(EPOLL_CTL_MOD, visitor.socket.number, input, &visitor);
}

// Reads a piece of what there is. False at its end.
bool MetricsServer::read(Visitor& visitor) {
    std::array<char, kMostHead> buffer;
    auto const count = ::recv(visitor.socket.number, buffer.data(), buffer.size(), 0);
    if (count <= 0) return count < 0 && isForLater();
    if (visitor.isAnswered) return true;
    visitor.head.append(buffer.data(), static_cast<std::size_t>(count));
    bool const isWhole = visitor.head.find("\r\n\r\n") != std::string::npos;
    if (!isWhole && visitor.head.size() < kMostHead) return true;
    visitor.isAnswered = true;
    visitor.unsent =
        isWhole ? answerTo(visitor.head) : response("431 Request Header Fields Too Large", "text/plain", "");
    visitor.head = {};
    return true;
}

std::string MetricsServer::answerTo(std::string const& head) const {
    bool const isWanted = head.starts_with("GET /metrics ") || head.starts_with("GET /metrics?");
    if (!isWanted) return response("404 Not Found", "text/plain", "The metrics are at /metrics\n");
    bool const isOpenMetrics = acceptsOpenMetrics(head);
    return response("200 OK", isOpenMetrics ? kOpenMetricsType : kPrometheusType, text_(isOpenMetrics));
}

void MetricsServer::watch(int operation, int fd, std::uint32_t events, Visitor* visitor) const {
    epoll_event event{.events = events, .data = {.ptr = visitor}};
    ::epoll_ctl(epoll_.number, operation, fd, &event);
}

void MetricsServer::forget(Visitor const& visitor) {
    visitors_.remove_if([&](Visitor const& each) { return &each == &visitor; });
}

}  // namespace kv::console
