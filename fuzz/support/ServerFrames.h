// Frames as a server sends them, made from the lines of an input. A line is one message, and its first character says
// of which kind:
//
//     =BYTES   binary          ~TEXT   text, compressed           /TEXT   text in three fragments with a ping inside
//     ?BYTES   ping            !BYTES  close                      else    text, the whole line
#pragma once

#include "SocketIO/core/Deflate.h"
#include "SocketIO/core/WebSocketCodec.h"
#include "TestKit/Internal/Frames.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace kv::fuzz {

using test::serverFrame;

inline std::string framesOfLine(std::string_view line) {
    constexpr std::uint8_t kFin = 0x80, kCompressed = 0x40;
    auto const opcode = [](sio::WsOpcode code) { return static_cast<std::uint8_t>(code); };
    auto const text = opcode(sio::WsOpcode::text);
    constexpr std::size_t kMostControlBytes = 125;
    auto const rest = line.substr(std::min<std::size_t>(1, line.size()));
    switch (line.empty() ? '\0' : line.front()) {
        case '=':
            return serverFrame(kFin | opcode(sio::WsOpcode::binary), rest);
        case '?':
            return serverFrame(kFin | opcode(sio::WsOpcode::ping), rest.substr(0, kMostControlBytes));
        case '!':
            return serverFrame(kFin | opcode(sio::WsOpcode::close), rest.substr(0, kMostControlBytes));
        case '~': {
            KvBytes compressed;
            sio::deflateMessage({reinterpret_cast<std::uint8_t const*>(rest.data()), rest.size()}, 15, compressed);
            return serverFrame(kFin | kCompressed | text,
                               {reinterpret_cast<char const*>(compressed.data()), compressed.size()});
        }
        case '/': {
            auto const third = rest.size() / 3;
            return serverFrame(text, rest.substr(0, third)) + serverFrame(0, rest.substr(third, third)) +
                   serverFrame(kFin | opcode(sio::WsOpcode::ping), "inside") +
                   serverFrame(kFin, rest.substr(2 * third));
        }
        default:
            return serverFrame(kFin | text, line);
    }
}

}  // namespace kv::fuzz
