// WebSocket frames as the other side of a client writes and reads them.
#pragma once

#include "Platform/KvData.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kv::test {

constexpr int kFin = 0x80, kCompressed = 0x40, kContinuation = 0, kText = 1, kBinary = 2, kClose = 8, kPing = 9,
              kPong = 10;

/// A frame of a server: not masked. `first` is the whole first byte.
inline std::string serverFrame(int first, std::string_view payload) {
    std::string frame(1, static_cast<char>(first));
    std::size_t const lengthBytes = payload.size() < 126 ? 0 : payload.size() <= 0xFFFF ? 2 : 8;
    frame += static_cast<char>(lengthBytes == 0 ? payload.size() : lengthBytes == 2 ? 126 : 127);
    for (std::size_t i = lengthBytes; i-- > 0;) frame += static_cast<char>(std::uint64_t{payload.size()} >> (8 * i));
    return frame.append(payload);
}
inline std::string textFrame(std::string_view text) { return serverFrame(kFin | kText, text); }
inline std::string binaryFrame(std::string_view bytes) { return serverFrame(kFin | kBinary, bytes); }

/// A frame of a client, unmasked again.
struct ClientFrame {
    int opcode = 0;
    bool isCompressed = false;
    std::string payload;
    std::array<std::uint8_t, 4> mask{};
    bool operator==(ClientFrame const& other) const {
        return opcode == other.opcode && isCompressed == other.isCompressed && payload == other.payload;
    }
};

/// Takes the whole frames off the front of `bytes`. A frame that is not masked or not final, or has
/// reserved bits, shows as one of opcode -1.
inline std::vector<ClientFrame> takeClientFrames(std::string& bytes) {
    std::vector<ClientFrame> frames;
    std::size_t at = 0;
    auto const byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[at + i]); };
    while (bytes.size() - at >= 2) {
        std::uint64_t size = byte(1) & 0x7F;
        std::size_t const lengthBytes = size == 127 ? 8 : size == 126 ? 2 : 0;
        std::size_t const header = 2 + lengthBytes + 4;
        if (bytes.size() - at < header) break;
        if (lengthBytes > 0) size = 0;
        for (std::size_t i = 0; i < lengthBytes; ++i) size = size << 8 | byte(2 + i);
        if (bytes.size() - at - header < size) break;
        ClientFrame frame;
        bool const isWhole = (byte(0) & (kFin | 0x30)) == kFin && (byte(1) & 0x80) != 0;
        frame.opcode = isWhole ? byte(0) & 0x0F : -1;
        frame.isCompressed = (byte(0) & kCompressed) != 0;
        for (std::size_t i = 0; i < 4; ++i) frame.mask[i] = byte(header - 4 + i);
        frame.payload = bytes.substr(at + header, size);
        for (std::size_t i = 0; i < size; ++i)
            frame.payload[i] = static_cast<char>(frame.payload[i] ^ frame.mask[i % 4]);
        frames.push_back(std::move(frame));
        at += header + size;
    }
    bytes.erase(0, at);
    return frames;
}

inline std::span<std::uint8_t const> bytesOf(std::string_view text) {
    return {reinterpret_cast<std::uint8_t const*>(text.data()), text.size()};
}
inline std::string textOf(std::span<std::uint8_t const> bytes) { return {bytes.begin(), bytes.end()}; }

}  // namespace kv::test
