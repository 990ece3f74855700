#include "Net/Dialer.h"

#include "Platform/KvQueueContext.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace kv::net {
namespace asio = boost::asio;
using asio::socket_base;
namespace {

// How long an address is alone before the next one is tried beside it, as RFC 8305 has it: one that swallows everything
// holds up nobody.
constexpr std::chrono::milliseconds kHeadStart{250};

// Whom a proxy is trusted by. Who this side is, and which server it wants, is none of the proxy's business.
std::shared_ptr<KvTlsOptions const> trustOf(KvTlsOptions const& options) {
    KvTlsOptions trust;
    trust.trustsSystem = options.trustsSystem;
    trust.caFile = options.caFile;
    trust.caDirectory = options.caDirectory;
    trust.caPem = options.caPem;
    trust.minimumVersion = options.minimumVersion;
    return std::make_shared<KvTlsOptions const>(std::move(trust));
}

}  // namespace

Dialer::Dialer(std::shared_ptr<KvMainQueue> const& queue, Url url, NetworkOptions options, Done done, Progress progress)
    : queue_(queue),
      url_(std::move(url)),
      options_(std::move(options)),
      done_(std::move(done)),
      progress_(std::move(progress)) {}

// All of the way to a proxy is the proxy's stage.
void Dialer::enter(KvFailureStage stage, std::string doing) {
    *progress_ = stage;
    doing_ = std::move(doing);
}

void Dialer::start() {
    if (optionsOf(options_).connector) return connectByApplication();
    if (auto const& address = Proxy::to(url_, optionsOf(options_).proxy); !address.empty()) {
        enter(KvFailureStage::proxy, {});
        proxy_ = Proxy::parse(address);
        if (!proxy_) return fail("What is to be the proxy has no address of one");
    }
    enter(proxy_ ? KvFailureStage::proxy : KvFailureStage::name, "Looking up " + hop().host);
    lookUp(hop().host, hop().port, queue_.lock(), [weak = weak_from_this()](Endpoints endpoints, std::string error) {
        auto const self = weak.lock();
        if (!self || !self->done_) return;
        if (endpoints.empty()) return self->fail(self->proxy_ ? "No way to " + self->hopText() + ": " + error : error);
        self->endpoints_ = std::move(endpoints);
        self->enter(self->proxy_ ? KvFailureStage::proxy : KvFailureStage::tcp, "Connecting to " + self->hopText());
        self->connectNext();
    });
}

void Dialer::connectByApplication() {
    enter(KvFailureStage::tcp, "Connecting to " + url_.text());
    int const fd = optionsOf(options_).connector(url_.host, url_.port);
    if (fd < 0) return fail("Cannot connect to " + url_.text() + ": " + std::generic_category().message(errno));
    stream_ = std::make_unique<Stream>(contextOf(*queue_.lock()));
    boost::system::error_code error;
    // Asio asks for the family of what it takes only where it opens a socket itself.
    stream_->socket().assign(asio::ip::tcp::v4(), fd, error);
    if (!error) return secure();
    ::close(fd);
    fail("Cannot connect to " + url_.text() + ": " + error.message());
}

void Dialer::cancel() {
    done_ = nullptr;
    stopConnecting();
    if (talk_) talk_->cancel();
    if (stream_) stream_->close();
}

void Dialer::connectNext() {
    auto const queue = queue_.lock();
    auto const& endpoint = endpoints_[nextEndpoint_++];
    auto& stream = *attempts_.emplace(nextEndpoint_, std::make_unique<Stream>(contextOf(*queue))).first->second;
    if (nextEndpoint_ < endpoints_.size()) {
        nextAttempt_ = queue->after(kHeadStart, [weak = weak_from_this()] {
            if (auto const self = weak.lock(); self && self->done_) self->connectNext();
        });
    }
    onConnecting(nextEndpoint_, stream.connect(endpoint));
}

void Dialer::onConnecting(std::size_t attempt, IoResult const& result) {
    if (result.status == IoStatus::wantWrite) {
        auto const onWritable = [self = shared_from_this(), attempt](boost::system::error_code) {
            auto const found = self->attempts_.find(attempt);
            if (found == self->attempts_.end()) return;
            found->second->forgetWritability(self->endpoints_[attempt - 1].protocol());
            self->onConnecting(attempt, found->second->finishConnect());
        };
        return attempts_.at(attempt)->socket().async_wait(socket_base::wait_write, onWritable);
    }
    auto stream = std::move(attempts_.extract(attempt).mapped());
    if (result.status == IoStatus::done) {
        stream_ = std::move(stream);
        stopConnecting();
        if (!proxy_ || !proxy_->url.isSecure) return openTunnel();
        return startTls(trustOf(optionsOf(options_).tls), proxy_->url, &Dialer::openTunnel);
    }
    if (nextEndpoint_ < endpoints_.size()) return connectNext();
    if (attempts_.empty()) fail("Cannot connect to " + hopText() + ": " + result.error);
}

void Dialer::stopConnecting() {
    nextAttempt_.cancel();
    attempts_.clear();
}

void Dialer::openTunnel() {
    if (!proxy_) return secure();
    enter(KvFailureStage::proxy, "Asking " + proxy_->text() + " for " + url_.text());
    tunnel_ = proxy_->tunnel(url_);
    talk_ = std::make_shared<Talk>(*stream_, *tunnel_, [this](std::string error) {
        if (!error.empty()) return fail(tunnel_->isOver() ? error : doing_ + ": " + error);
        secure();
    });
    talk_->start();
}

void Dialer::secure() {
    if (!url_.isSecure) return succeed();
    startTls({options_, &optionsOf(options_).tls}, url_, &Dialer::succeed);
}

void Dialer::startTls(std::shared_ptr<KvTlsOptions const> const& options, Url const& server, void (Dialer::*next)()) {
    bool const isProxys = next == &Dialer::openTunnel;
    enter(isProxys ? KvFailureStage::proxy : KvFailureStage::tls,
          "TLS handshake with " + (isProxys ? hopText() : server.text()));
    afterTls_ = next;
    std::string error;
    auto const context = TlsContext::of(options, error);
    if (context) error = stream_->startTls(*context, server);
    if (!error.empty()) return fail(std::move(error));
    shakeHands();
}

void Dialer::shakeHands() {
    auto const result = stream_->handshake();
    switch (result.status) {
        case IoStatus::done:
            return (this->*afterTls_)();
        case IoStatus::closed:
            return fail("The server closed the connection: " + doing_);
        case IoStatus::failed:
            return fail(afterTls_ == &Dialer::openTunnel ? doing_ + ": " + result.error : result.error);
        default:
            break;
    }
    auto const ready = result.status == IoStatus::wantRead ? socket_base::wait_read : socket_base::wait_write;
    stream_->socket().async_wait(ready, [self = shared_from_this()](boost::system::error_code) {
        if (self->done_) self->shakeHands();
    });
}

void Dialer::succeed() { finish(std::move(stream_), {}); }

void Dialer::fail(std::string error) { finish(nullptr, {stage(), std::move(error)}); }

void Dialer::finish(std::unique_ptr<Stream> stream, Failure failure) {
    auto const keep = shared_from_this();
    auto const done = std::exchange(done_, nullptr);
    cancel();
    done(std::move(stream), std::move(failure));
}

}  // namespace kv::net
