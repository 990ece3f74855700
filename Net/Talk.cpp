#include "Net/Talk.h"

#include <array>
#include <utility>

namespace kv::net {

using boost::asio::socket_base;

void Talk::start() {
    auto const self = shared_from_this();
    send();
    if (done_ && unsent_.empty()) return await(IoStatus::wantRead);  // nobody answers that fast
    receive();
}

void Talk::turn() {
    send();
    receive();
}

void Talk::send() {
    while (done_ && sendError_.empty()) {
        if (unsent_.empty()) unsent_ = script_.toSend();
        if (script_.isOver()) return finish(script_.error());
        if (unsent_.empty()) return;
        auto result = stream_.write(reinterpret_cast<std::uint8_t const*>(unsent_.data()), unsent_.size());
        switch (result.status) {
            case IoStatus::done:
                unsent_.remove_prefix(result.bytes);
                break;
            case IoStatus::wantRead:
            case IoStatus::wantWrite:
                return await(result.status);
            case IoStatus::closed:
            case IoStatus::failed:
                sendError_ = result.error.empty() ? "the other side has closed the connection" : result.error;
        }
    }
}

void Talk::receive() {
    std::array<std::uint8_t, 16384> piece;
    while (done_) {
        auto result = stream_.read(piece.data(), piece.size());
        switch (result.status) {
            case IoStatus::done:
                script_.onReceived({reinterpret_cast<char const*>(piece.data()), result.bytes});
                if (script_.isOver()) return finish(script_.error());
                send();
                break;
            case IoStatus::wantRead:
            case IoStatus::wantWrite:
                if (!sendError_.empty()) return finish(sendError_);
                return await(result.status);
            case IoStatus::closed:
                script_.onClosed();
                return finish(script_.error());
            case IoStatus::failed:
                return finish(sendError_.empty() ? result.error : sendError_);
        }
    }
}

void Talk::await(IoStatus what) {
    bool const isRead = what == IoStatus::wantRead;
    if (std::exchange(isAwaiting_[isRead], true)) return;
    auto const ready = isRead ? socket_base::wait_read : socket_base::wait_write;
    stream_.socket().async_wait(ready, [self = shared_from_this(), isRead](boost::system::error_code) {
        self->isAwaiting_[isRead] = false;
        if (self->done_) self->turn();
    });
}

void Talk::finish(std::string error) {
    if (auto const done = std::exchange(done_, nullptr)) done(std::move(error));
}

}  // namespace kv::net
