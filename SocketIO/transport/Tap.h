// Where one connection tells the recorder what goes over it; without a recorder, nothing. Lives on the engine queue.
#pragma once

#include "Net/Failure.h"
#include "SocketIO/SocketRecorder.h"
#include "SocketIO/core/WebSocketCodec.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace kv::sio {

class Tap {
public:
    /// The recorder is there for as long as the tap, or null.
    explicit Tap(SocketRecorder* recorder) : recorder_(recorder) {}
    explicit operator bool() const { return recorder_ != nullptr; }

    void dialing(std::string_view url, std::string_view target) {
        if (recorder_ == nullptr) return;
        if (connection_ == 0) connection_ = recorder_->nextConnection();
        recorder_->onDialing(connection_, url, target);
    }
    void opened() const {
        if (recorder_ != nullptr) recorder_->onOpen(connection_);
    }
    void lost(net::Failure const& failure) const {
        if (recorder_ != nullptr && connection_ != 0)
            recorder_->onLost(connection_, failure.stage, failure.text, failure.cause);
    }
    void left() const {
        if (recorder_ != nullptr && connection_ != 0) recorder_->onLeft(connection_);
    }
    void received(std::string_view text) const {
        if (recorder_ != nullptr) recorder_->onTextReceived(connection_, text);
    }
    void receivedBinary(std::string_view bytes) const {
        if (recorder_ != nullptr) recorder_->onBinaryReceived(connection_, asBytes(bytes));
    }
    void sent(std::string_view text) const {
        if (recorder_ != nullptr) recorder_->onTextSent(connection_, text);
    }
    void sent(WsOpcode opcode, std::span<std::uint8_t const> payload) const {
        if (recorder_ == nullptr) return;
        if (opcode == WsOpcode::binary) return recorder_->onBinarySent(connection_, payload);
        recorder_->onTextSent(connection_, {reinterpret_cast<char const*>(payload.data()), payload.size()});
    }

private:
    static std::span<std::uint8_t const> asBytes(std::string_view text) {
        return {reinterpret_cast<std::uint8_t const*>(text.data()), text.size()};
    }

    SocketRecorder* const recorder_;
    std::uint64_t connection_ = 0;
};

}  // namespace kv::sio
