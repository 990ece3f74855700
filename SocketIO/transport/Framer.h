// Turns what waits to be sent into frames, in pieces that fit a send buffer. Lives on the engine queue.
#pragma once

#include "SocketIO/core/WebSocketCodec.h"
#include "SocketIO/transport/Outbox.h"
#include "SocketIO/transport/Tap.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

namespace kv::sio {

/// Bytes that go out in one call. At least as large as anything that `Framer` adds in one piece.
class SendBuffer {
public:
    SendBuffer() : bytes_(std::make_unique_for_overwrite<std::uint8_t[]>(kSize)) {}
    void clear() { used_ = 0; }
    std::size_t left() const { return kSize - used_; }
    std::span<std::uint8_t const> bytes() const { return {bytes_.get(), used_}; }
    std::uint8_t* add(std::size_t size) { return bytes_.get() + std::exchange(used_, used_ + size); }
    void add(std::span<std::uint8_t const> bytes) { std::copy(bytes.begin(), bytes.end(), add(bytes.size())); }

private:
    static constexpr std::size_t kSize = 256u << 10;
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t used_ = 0;
};

class Framer {
public:
    static constexpr std::size_t kMostPayloadAhead = 256;

    /// `tap`: told of each message when it goes; null for nobody.
    explicit Framer(Outbox& outbox, Tap const* tap = nullptr) : outbox_(outbox), tap_(tap) {}

    /// Deflates messages with a window of so many bits, 8 to 15; 0 for not at all.
    void setDeflates(int windowBits) { windowBits_ = windowBits; }
    /// A small frame, of `kMostPayloadAhead` bytes at most, that goes ahead of the messages that wait.
    void putAhead(WsOpcode opcode, std::string_view payload);
    /// Sends a last text, if it is not empty, and closes, both behind all that waits.
    void closeWhenEmpty(std::string_view lastText);
    /// Fills an empty buffer; it stays empty when there is nothing to send. `now` is the main queue's.
    void gather(SendBuffer& out, Outbox::Time now);
    /// Whether the last piece ended inside a frame: nothing else may be sent before its rest.
    bool isInsideFrame() const { return offset_ < payload_.size(); }
    /// How many frames were begun, or put ahead, since it was asked last.
    std::size_t takeFrames() { return std::exchange(frames_, 0); }

private:
    bool startNext(SendBuffer& out, Outbox::Time now);
    bool nextMessage(Outbox::Time now);
    void startFrame(SendBuffer& out, WsOpcode opcode, std::span<std::uint8_t const> payload);

    Outbox& outbox_;
    std::size_t frames_ = 0;
    Tap const* const tap_;
    int windowBits_ = 0;
    KvBytes ahead_;
    KvBytes last_;

    Outbox::Content content_;
    std::size_t nextMessage_ = 0, nextText_ = 0, nextAttachment_ = 0;
    std::size_t attachmentsLeft_ = 0;  // of the message at hand
    std::size_t bytesAtHand_ = 0;      // its own, which still wait

    // The frame at hand.
    KvData attachment_;
    std::span<std::uint8_t const> payload_;
    std::size_t offset_ = 0;
    WsMask mask_{};
    KvBytes deflated_;
};

}  // namespace kv::sio
