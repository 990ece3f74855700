#include "SocketIO/core/WebSocketCodec.h"

#include "Platform/KvSystem.h"
#include "Platform/KvUtf8.h"
#include "SocketIO/core/ByteStore.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace kv::sio {
namespace {

constexpr std::uint8_t kFin = 0x80, kCompressed = 0x40, kReserved = 0x30, kOpcodeBits = 0x0F;
constexpr std::uint8_t kMasked = 0x80, kLengthBits = 0x7F, kLength16 = 126, kLength64 = 127;
constexpr std::size_t kMostControlBytes = 125;
// What a length that is only announced may reserve; more has to arrive first.
constexpr std::size_t kMostReserved = 1u << 20;

bool isControl(std::uint8_t opcode) { return (opcode & 0x08) != 0; }

bool isKnown(std::uint8_t opcode) { return opcode <= 2 || (opcode >= 8 && opcode <= 10); }

std::uint64_t bigEndian(std::span<std::uint8_t const> bytes) {
    std::uint64_t value = 0;
    for (auto const byte : bytes) value = value << 8 | byte;
    return value;
}

bool isCloseCode(unsigned code) {
    if (code >= 3000) return code < 5000;
    return code >= 1000 && code <= 1014 && code != 1004 && code != 1005 && code != 1006;
}

}  // namespace

std::size_t writeFrameHeader(std::span<std::uint8_t, kMostFrameHeader> out, WsOpcode opcode, bool isCompressed,
                             std::uint64_t payloadSize, WsMask mask) {
    std::size_t at = 0;
    out[at++] = static_cast<std::uint8_t>(kFin | (isCompressed ? kCompressed : 0) | static_cast<std::uint8_t>(opcode));
    std::size_t const lengthBytes = payloadSize < kLength16 ? 0 : payloadSize <= 0xFFFF ? 2 : 8;
    auto const length7 = lengthBytes == 0   ? static_cast<std::uint8_t>(payloadSize)
                         : lengthBytes == 2 ? kLength16
                                            : kLength64;
    out[at++] = kMasked | length7;
    for (std::size_t i = lengthBytes; i-- > 0;) out[at++] = static_cast<std::uint8_t>(payloadSize >> (8 * i));
    for (auto const byte : mask) out[at++] = byte;
    return at;
}

void copyMasked(std::uint8_t* out, std::span<std::uint8_t const> in, WsMask mask, std::size_t offset) {
    std::rotate(mask.begin(), mask.begin() + static_cast<std::ptrdiff_t>(offset % mask.size()), mask.end());
    constexpr std::size_t kWords = 4;
    std::array<WsMask, 2> const twice{mask, mask};
    auto const key = std::bit_cast<std::uint64_t>(twice);
    std::size_t at = 0;
    for (; at + sizeof(std::uint64_t) * kWords <= in.size(); at += sizeof(std::uint64_t) * kWords) {
        std::array<std::uint64_t, kWords> block;
        std::memcpy(block.data(), in.data() + at, sizeof block);
        for (auto& word : block) word ^= key;
        std::memcpy(out + at, block.data(), sizeof block);
    }
    for (; at < in.size(); ++at) out[at] = in[at] ^ mask[at % mask.size()];
}

void randomBytes(std::span<std::uint8_t> out) {
    constexpr std::size_t kPool = 1024;  // one system call for many frames
    thread_local std::array<std::uint8_t, kPool> pool;
    thread_local std::size_t used = kPool;
    if (kPool - used < out.size()) {
        fillWithRandom(pool);
        used = 0;
    }
    std::copy_n(pool.data() + used, out.size(), out.data());
    used += out.size();
}

WsMask randomMask() {
    WsMask mask;
    randomBytes(mask);
    return mask;
}

void appendFrame(KvBytes& out, WsOpcode opcode, std::string_view payload) {
    std::array<std::uint8_t, kMostFrameHeader> header;
    auto const mask = randomMask();
    auto const headerSize = writeFrameHeader(header, opcode, false, payload.size(), mask);
    auto const at = out.size();
    out.resize(at + headerSize + payload.size());
    std::copy_n(header.begin(), headerSize, out.begin() + static_cast<std::ptrdiff_t>(at));
    copyMasked(out.data() + at + headerSize, {reinterpret_cast<std::uint8_t const*>(payload.data()), payload.size()},
               mask, 0);
}

std::string limitText(std::size_t bytes) {
    constexpr std::size_t kMebibyte = 1u << 20;
    return bytes % kMebibyte == 0 ? std::to_string(bytes / kMebibyte) + " MiB" : std::to_string(bytes) + " bytes";
}

void FrameReader::setInflater(std::optional<Inflater> inflater) {
    inflater_.reset();
    if (inflater) inflater_.emplace(std::move(*inflater));
}

FrameReader::Step FrameReader::next(std::span<std::uint8_t const>& input) {
    if (!error_.empty()) return Step::failed;
    if (std::exchange(isPayloadGathered_, false)) gathered_ = KvBytes();
    payload_ = {};
    for (;;) {
        if (!hasHeader_) {
            if (auto const step = readHeader(input); step != Step::message) return step;
        }
        bool const control = isControl(header_[0] & kOpcodeBits);
        auto const step = control ? readControl(input) : readData(input);
        if (step == Step::failed || frameLeft_ > 0) return step;
        hasHeader_ = false;
        headerSize_ = 0;
        // The end of a fragment that is not the last one is followed by the next frame.
        if (step == Step::message) return step;
    }
}

KvBytes FrameReader::takePayload() {
    if (isPayloadGathered_) return std::exchange(gathered_, KvBytes());
    auto bytes = takeBytes(payload_.size());
    bytes.assign(payload_.begin(), payload_.end());
    return bytes;
}

FrameReader::Step FrameReader::fail(std::string error, WsCloseCode code) {
    error_ = std::move(error);
    closeCode_ = code;
    return Step::failed;
}

std::size_t FrameReader::headerNeeded() const {
    if (headerSize_ < 2) return 2;
    auto const length7 = header_[1] & kLengthBits;
    return length7 == kLength16 ? 4 : length7 == kLength64 ? 10 : 2;
}

// `message` stands for a complete header here.
FrameReader::Step FrameReader::readHeader(std::span<std::uint8_t const>& input) {
    while (headerSize_ < headerNeeded()) {
        if (input.empty()) return Step::needMore;
        header_[headerSize_++] = input.front();
        input = input.subspan(1);
        if (headerSize_ == 2 && checkFirstBytes() == Step::failed) return Step::failed;
    }
    return checkLength();
}

FrameReader::Step FrameReader::checkFirstBytes() {
    auto const opcode = static_cast<std::uint8_t>(header_[0] & kOpcodeBits);
    if (header_[1] & kMasked) return fail("WebSocket: masked frame from the server");
    if (header_[0] & kReserved) return fail("WebSocket: reserved bits are set");
    if (!isKnown(opcode)) return fail("WebSocket: unknown opcode " + std::to_string(opcode));
    bool const compressed = (header_[0] & kCompressed) != 0;
    if (compressed && (!inflater_ || isControl(opcode) || opcode == 0)) return fail("WebSocket: reserved bits are set");
    if (isControl(opcode)) {
        if (!(header_[0] & kFin)) return fail("WebSocket: fragmented control frame");
        if ((header_[1] & kLengthBits) > kMostControlBytes) return fail("WebSocket: control frame too long");
        controlSize_ = 0;
        return Step::message;
    }
    if (opcode == 0) return messageOpcode_ ? Step::message : fail("WebSocket: continuation of no message");
    if (messageOpcode_) return fail("WebSocket: new message inside a fragmented one");
    messageOpcode_ = static_cast<WsOpcode>(opcode);
    isCompressed_ = compressed;
    return Step::message;
}

FrameReader::Step FrameReader::checkLength() {
    auto const extended = std::span(header_).first(headerSize_).subspan(2);
    auto const length = extended.empty() ? header_[1] & kLengthBits : bigEndian(extended);
    if (extended.size() == 2 && length < kLength16) return fail("WebSocket: frame length not in its shortest form");
    if (extended.size() == 8 && length <= 0xFFFF) return fail("WebSocket: frame length not in its shortest form");
    if (length > mostBytes_ || gathered_.size() + length > mostBytes_)
        return fail("WebSocket: message over the limit of " + limitText(mostBytes_), WsCloseCode::tooBig);
    frameLeft_ = length;
    hasHeader_ = true;
    ++frames_;
    return Step::message;
}

FrameReader::Step FrameReader::readControl(std::span<std::uint8_t const>& input) {
    auto const size = std::min<std::size_t>(frameLeft_, input.size());
    std::copy_n(input.begin(), size, control_.begin() + static_cast<std::ptrdiff_t>(controlSize_));
    input = input.subspan(size);
    controlSize_ += size;
    frameLeft_ -= size;
    if (frameLeft_ > 0) return Step::needMore;
    opcode_ = static_cast<WsOpcode>(header_[0] & kOpcodeBits);
    payload_ = std::span(control_).first(controlSize_);
    return Step::message;
}

FrameReader::Step FrameReader::readData(std::span<std::uint8_t const>& input) {
    bool const isLast = (header_[0] & kFin) != 0;
    if (isLast && gathered_.empty() && input.size() >= frameLeft_) {  // whole: no copy
        payload_ = input.first(frameLeft_);
        input = input.subspan(frameLeft_);
        frameLeft_ = 0;
        return finishMessage(*std::exchange(messageOpcode_, std::nullopt));
    }
    auto const size = std::min<std::size_t>(frameLeft_, input.size());
    if (gathered_.capacity() == 0) {
        auto const reserved = std::min<std::size_t>(frameLeft_, kMostReserved);
        if (messageOpcode_ == WsOpcode::binary) gathered_ = takeBytes(reserved);
        gathered_.reserve(reserved);
    }
    gathered_.insert(gathered_.end(), input.begin(), input.begin() + static_cast<std::ptrdiff_t>(size));
    input = input.subspan(size);
    frameLeft_ -= size;
    if (frameLeft_ > 0 || !isLast) return Step::needMore;
    payload_ = gathered_;
    isPayloadGathered_ = true;
    return finishMessage(*std::exchange(messageOpcode_, std::nullopt));
}

FrameReader::Step FrameReader::finishMessage(WsOpcode opcode) {
    opcode_ = opcode;
    if (isCompressed_) {
        KvBytes inflated;
        auto problem = inflater_->inflate(payload_, inflated, mostBytes_);
        if (!problem.empty()) return fail(std::move(problem));
        gathered_ = std::move(inflated);
        payload_ = gathered_;
        isPayloadGathered_ = true;
    }
    if (opcode == WsOpcode::text && !isValidUtf8(text())) {
        return fail("WebSocket: text is not UTF-8", WsCloseCode::badText);
    }
    return Step::message;
}

WsClose readClose(std::string_view payload) {
    if (payload.empty()) return {"The server closed the connection"};
    if (payload.size() < 2) return {"WebSocket: close frame of one byte", WsCloseCode::protocolError};
    auto const code =
        static_cast<unsigned>(static_cast<std::uint8_t>(payload[0]) << 8 | static_cast<std::uint8_t>(payload[1]));
    auto const reason = payload.substr(2);
    if (!isCloseCode(code)) return {"WebSocket: close code " + std::to_string(code), WsCloseCode::protocolError};
    if (!isValidUtf8(reason)) return {"WebSocket: close reason is not UTF-8", WsCloseCode::badText};
    auto text = "The server closed the connection: " + std::to_string(code);
    if (!reason.empty()) text.append(" ").append(reason);
    return {std::move(text), static_cast<WsCloseCode>(code)};
}

}  // namespace kv::sio
