#include "SocketIO/transport/Sender.h"

#include <utility>

namespace kv::sio {
namespace {

constexpr std::size_t kMostInOneTurn = 1u << 20;  // then timers and other connections get their turn

SendBuffer& sendBuffer() {
    thread_local SendBuffer buffer;
    return buffer;
}

}  // namespace

Sender::Step Sender::send(net::Stream& stream, Outbox::Time now) {
    if (isBroken_) return Step::broken;
    if (!unsent_.empty()) {
        auto const rest = std::exchange(unsent_, KvBytes());
        if (auto const step = write(stream, rest); step != Step::idle) return step;
    }
    auto& buffer = sendBuffer();
    for (std::size_t total = 0; total < kMostInOneTurn; total += buffer.bytes().size()) {
        buffer.clear();
        framer_.gather(buffer, now);
        if (buffer.bytes().empty()) return Step::idle;
        if (auto const step = write(stream, buffer.bytes()); step != Step::idle) return step;
    }
    return Step::more;
}

bool Sender::sendClose(net::Stream& stream, WsCloseCode code) {
    if (isBroken_ || framer_.isInsideFrame() || !unsent_.empty()) return false;
    auto const number = static_cast<std::uint16_t>(code);
    char const payload[] = {static_cast<char>(number >> 8), static_cast<char>(number & 0xFF)};
    KvBytes frame;
    appendFrame(frame, WsOpcode::close, {payload, sizeof payload});
    sent_.frames.add();
    return write(stream, frame) == Step::idle;
}

// `idle` when all of it went out.
Sender::Step Sender::write(net::Stream& stream, std::span<std::uint8_t const> bytes) {
    sent_.frames.add(framer_.takeFrames());
    while (!bytes.empty()) {
        auto const result = stream.write(bytes.data(), bytes.size());
        sent_.bytes.add(result.bytes);
        bytes = bytes.subspan(result.bytes);
        if (result.status == net::IoStatus::done) continue;
        if (result.status != net::IoStatus::wantWrite && result.status != net::IoStatus::wantRead) {
            isBroken_ = true;
            return Step::broken;
        }
        unsent_.assign(bytes.begin(), bytes.end());
        return result.status == net::IoStatus::wantRead ? Step::wantRead : Step::wantWrite;
    }
    return Step::idle;
}

}  // namespace kv::sio
