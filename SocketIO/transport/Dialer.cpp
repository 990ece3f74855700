#include "SocketIO/transport/Dialer.h"

#include "Platform/KvQueueContext.h"

#include <array>
#include <string_view>
#include <utility>

namespace kv::sio {
namespace asio = boost::asio;
using asio::socket_base;
namespace {

// How long an address is alone before the next one is tried beside it, as RFC 8305 has it: one that swallows everything
// holds up nobody.
constexpr std::chrono::milliseconds kHeadStart{250};

}  // namespace

Dialer::Dialer(std::shared_ptr<KvMainQueue> const& queue, Plan plan, std::function<void(Dialed)> done)
    : queue_(queue), plan_(std::move(plan)), done_(std::move(done)) {}

void Dialer::start() {
    stage_ = "Looking up " + plan_.url.host;
    net::lookUp(plan_.url.host, plan_.url.port, queue_.lock(),
                [weak = weak_from_this()](net::Endpoints endpoints, std::string error) {
                    auto const self = weak.lock();
                    if (!self || !self->done_) return;
                    if (endpoints.empty()) return self->fail(std::move(error));
                    self->endpoints_ = std::move(endpoints);
                    self->stage_ = "Connecting to " + self->plan_.url.text();
                    self->connectNext();
                });
}

void Dialer::cancel() {
    done_ = nullptr;
    stopConnecting();
    if (stream_) stream_->close();
}

void Dialer::connectNext() {
    auto const queue = queue_.lock();
    auto const& endpoint = endpoints_[nextEndpoint_++];
    auto& stream = *attempts_.emplace(nextEndpoint_, std::make_unique<net::Stream>(contextOf(*queue))).first->second;
    if (nextEndpoint_ < endpoints_.size()) {
        nextAttempt_ = queue->after(kHeadStart, [weak = weak_from_this()] {
            if (auto const self = weak.lock(); self && self->done_) self->connectNext();
        });
    }
    onConnecting(nextEndpoint_, stream.connect(endpoint));
}

void Dialer::onConnecting(std::size_t attempt, net::IoResult const& result) {
    if (result.status == net::IoStatus::wantWrite) {
        auto const onWritable = [self = shared_from_this(), attempt](boost::system::error_code) {
            auto const found = self->attempts_.find(attempt);
            if (found == self->attempts_.end()) return;
            found->second->forgetWritability(self->endpoints_[attempt - 1].protocol());
            self->onConnecting(attempt, found->second->finishConnect());
        };
        return attempts_.at(attempt)->socket().async_wait(socket_base::wait_write, onWritable);
    }
    auto stream = std::move(attempts_.extract(attempt).mapped());
    if (result.status == net::IoStatus::done) {
        stream_ = std::move(stream);
        stopConnecting();
        return onConnected();
    }
    if (nextEndpoint_ < endpoints_.size()) return connectNext();
    if (attempts_.empty()) fail("Cannot connect to " + plan_.url.text() + ": " + result.error);
}

void Dialer::stopConnecting() {
    nextAttempt_.cancel();
    attempts_.clear();
}

void Dialer::onConnected() {
    if (!plan_.url.isSecure) return sendRequest();
    stage_ = "TLS handshake with " + plan_.url.text();
    if (auto error = stream_->startTls(plan_.url.host, plan_.caFile); !error.empty()) return fail(std::move(error));
    shakeHands();
}

void Dialer::shakeHands() {
    auto const result = stream_->handshake();
    if (result.status == net::IoStatus::done) return sendRequest();
    whenReady(result, &Dialer::shakeHands);
}

void Dialer::sendRequest() {
    stage_ = "WebSocket handshake with " + plan_.url.text();
    upgrade_ = std::make_unique<Upgrade>(plan_.url.authority(), plan_.target, plan_.offersDeflate, plan_.headerLines);
    write();
}

void Dialer::write() {
    auto const& request = upgrade_->request();
    while (written_ < request.size()) {
        auto const* next = reinterpret_cast<std::uint8_t const*>(request.data()) + written_;
        auto const result = stream_->write(next, request.size() - written_);
        if (result.status != net::IoStatus::done) return whenReady(result, &Dialer::write);
        written_ += result.bytes;
    }
    whenReady({net::IoStatus::wantRead}, &Dialer::readAnswer);
}

void Dialer::readAnswer() {
    std::array<std::uint8_t, 4096> piece;
    for (;;) {
        auto const result = stream_->read(piece.data(), piece.size());
        if (result.status != net::IoStatus::done) return whenReady(result, &Dialer::readAnswer);
        answer_.insert(answer_.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(result.bytes));
        std::string_view text(reinterpret_cast<char const*>(answer_.data()), answer_.size());
        auto end = text.find("\r\n\r\n");
        while (end != std::string_view::npos && Upgrade::isInterim(text.substr(0, end + 2))) {
            text.remove_prefix(end + 4);
            end = text.find("\r\n\r\n");
        }
        if (!Upgrade::mayBeHttp(text)) return fail("The server does not speak HTTP");
        if (end == std::string_view::npos) {
            if (answer_.size() > kMostResponseBytes)
                return fail("The server's answer to the WebSocket handshake is too long");
            continue;
        }
        Dialed dialed;
        dialed.error = upgrade_->check(text.substr(0, end + 2), dialed.agreement);
        if (!dialed.error.empty()) return fail(std::move(dialed.error));
        dialed.early.assign(text.begin() + static_cast<std::ptrdiff_t>(end + 4), text.end());
        dialed.stream = std::move(stream_);
        return finish(std::move(dialed));
    }
}

void Dialer::finish(Dialed dialed) {
    auto const done = std::exchange(done_, nullptr);
    stopConnecting();
    if (stream_) stream_->close();
    done(std::move(dialed));
}

void Dialer::fail(std::string error) {
    Dialed dialed;
    dialed.error = std::move(error);
    finish(std::move(dialed));
}

// Takes the step again when the socket is ready for it, or gives up.
void Dialer::whenReady(net::IoResult const& result, void (Dialer::*step)()) {
    if (result.status == net::IoStatus::closed) return fail("The server closed the connection: " + stage_);
    if (result.status == net::IoStatus::failed) return fail(result.error);
    auto const ready = result.status == net::IoStatus::wantRead ? socket_base::wait_read : socket_base::wait_write;
    stream_->socket().async_wait(ready, [self = shared_from_this(), step](boost::system::error_code) {
        if (self->done_) (self.get()->*step)();
    });
}

}  // namespace kv::sio
