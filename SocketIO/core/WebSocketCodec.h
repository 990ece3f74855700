// The frames of RFC 6455 as a client reads and writes them. No I/O, no clock.
#pragma once

#include "Platform/KvData.h"
#include "SocketIO/core/Deflate.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kv::sio {

enum class WsOpcode : std::uint8_t { continuation = 0, text = 1, binary = 2, close = 8, ping = 9, pong = 10 };

/// Close codes that this side sends of itself.
enum class WsCloseCode : std::uint16_t { normal = 1000, protocolError = 1002, badText = 1007, tooBig = 1009 };

constexpr std::size_t kMostMessageBytes = 16u << 20;  // unless a connection is told otherwise
constexpr std::size_t kMostFrameHeader = 14;

using WsMask = std::array<std::uint8_t, 4>;

/// Writes the header of a whole (unfragmented) client frame and returns its size.
std::size_t writeFrameHeader(std::span<std::uint8_t, kMostFrameHeader> out, WsOpcode opcode, bool isCompressed,
                             std::uint64_t payloadSize, WsMask mask);
/// Copies payload bytes that begin at `offset` of their frame, masked.
void copyMasked(std::uint8_t* out, std::span<std::uint8_t const> in, WsMask mask, std::size_t offset);
/// A few bytes (at most 1024) that nobody can foresee.
void randomBytes(std::span<std::uint8_t> out);
/// A mask for one frame: masks must not be foreseeable either.
WsMask randomMask();
/// Appends a whole frame; for control frames and other small ones.
void appendFrame(KvBytes& out, WsOpcode opcode, std::string_view payload);

/// A limit in bytes as texts tell it: "16 MiB", "1000 bytes".
std::string limitText(std::size_t bytes);

/// Reads what a server sends, cut anywhere, into whole messages.
class FrameReader {
public:
    enum class Step { needMore, message, failed };

    /// Messages of more than `mostBytes` are refused, as soon as they are announced.
    explicit FrameReader(std::size_t mostBytes = kMostMessageBytes) : mostBytes_(mostBytes) {}

    /// Without an inflater compressed messages are refused.
    void setInflater(std::optional<Inflater> inflater);

    /// Takes bytes off the front of `input` until a message or control frame is complete. A message is valid until the
    /// next call, and as long as the input that it was found in.
    Step next(std::span<std::uint8_t const>& input);

    WsOpcode opcode() const { return opcode_; }
    std::span<std::uint8_t const> payload() const { return payload_; }
    std::string_view text() const { return {reinterpret_cast<char const*>(payload_.data()), payload_.size()}; }
    /// The payload as bytes of its own, without a copy where they were gathered anyway.
    KvBytes takePayload();
    /// How many frames were begun since it was asked last.
    std::size_t takeFrames() { return std::exchange(frames_, 0); }

    std::string const& error() const { return error_; }
    WsCloseCode closeCode() const { return closeCode_; }

private:
    Step fail(std::string error, WsCloseCode code = WsCloseCode::protocolError);
    std::size_t headerNeeded() const;
    Step readHeader(std::span<std::uint8_t const>& input);
    Step checkFirstBytes();
    Step checkLength();
    Step readControl(std::span<std::uint8_t const>& input);
    Step readData(std::span<std::uint8_t const>& input);
    Step finishMessage(WsOpcode opcode);

    std::size_t const mostBytes_;
    std::optional<Inflater> inflater_;

    // The frame that is being read.
    std::array<std::uint8_t, 10> header_{};
    std::size_t headerSize_ = 0;
    bool hasHeader_ = false;
    std::uint64_t frameLeft_ = 0;
    std::size_t frames_ = 0;

    // The message that its frames add up to.
    std::optional<WsOpcode> messageOpcode_;
    bool isCompressed_ = false;
    KvBytes gathered_;  // empty while messages come whole
    std::array<std::uint8_t, 125> control_{};
    std::size_t controlSize_ = 0;

    // What was found last.
    WsOpcode opcode_ = WsOpcode::text;
    std::span<std::uint8_t const> payload_;
    bool isPayloadGathered_ = false;
    std::string error_;
    WsCloseCode closeCode_ = WsCloseCode::protocolError;
};

/// What a close frame says. The text is for people: code and reason, or what is wrong with the frame.
struct WsClose {
    std::string text;
    WsCloseCode answer = WsCloseCode::normal;  // the code that was received, or what is wrong with the frame
};
WsClose readClose(std::string_view payload);

}  // namespace kv::sio
