#include "SocketIO/transport/Framer.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <string_view>
#include <utility>

namespace kv::sio {
namespace {

constexpr std::size_t kLeastDeflated = 1024;  // deflating less costs both sides more than it saves
constexpr std::size_t kMostKeptIdle = 1024;   // of buffers, by a connection that has nothing to send

constexpr std::size_t kMostAhead = 64u << 10;
constexpr std::string_view kNormalClosure("\x03\xE8", 2);

}  // namespace

void Framer::putAhead(WsOpcode opcode, std::string_view payload) {
    assert(payload.size() <= kMostPayloadAhead && "what goes ahead must fit a send buffer together");
    // Only a server that floods this side with pings and reads nothing gets here; it need not be answered each time.
    if (ahead_.size() > kMostAhead) return;
    appendFrame(ahead_, opcode, payload);
    ++frames_;
}

void Framer::closeWhenEmpty(std::string_view lastText) {
    if (!lastText.empty()) appendFrame(last_, WsOpcode::text, lastText);
    appendFrame(last_, WsOpcode::close, kNormalClosure);
    frames_ += lastText.empty() ? 1 : 2;
}

void Framer::gather(SendBuffer& out, Outbox::Time now) {
    while (out.left() > 0) {
        if (!isInsideFrame() && !startNext(out, now)) return;
        auto const size = std::min(payload_.size() - offset_, out.left());
        copyMasked(out.add(size), payload_.subspan(offset_, size), mask_, offset_);
        offset_ += size;
    }
}

bool Framer::startNext(SendBuffer& out, Outbox::Time now) {
    if (out.left() < ahead_.size() + last_.size() + kMostFrameHeader) return false;  // the next buffer has room for it
    payload_ = {};
    offset_ = 0;
    deflated_ = KvBytes();
    attachment_ = nullptr;
    if (!ahead_.empty()) out.add(std::exchange(ahead_, KvBytes()));
    if (attachmentsLeft_ > 0) {
        --attachmentsLeft_;
        attachment_ = std::move(content_.attachments[nextAttachment_++]);
        startFrame(out, WsOpcode::binary, attachment_ ? std::span(*attachment_) : std::span<std::uint8_t const>());
        return true;
    }
    if (!nextMessage(now)) {
        out.add(std::exchange(last_, KvBytes()));
        return false;
    }
    auto const& message = content_.messages[nextMessage_++];
    auto const* text = reinterpret_cast<std::uint8_t const*>(content_.texts.data()) + nextText_;
    nextText_ += message.textBytes;
    attachmentsLeft_ = message.attachments;
    bytesAtHand_ = message.bytes;
    startFrame(out, WsOpcode::text, {text, message.textBytes});
    return true;
}

// Moves to the next message that is still wanted.
bool Framer::nextMessage(Outbox::Time now) {
    if (bytesAtHand_ > 0) outbox_.release(std::exchange(bytesAtHand_, 0), Outbox::Outcome::sent);
    for (;;) {
        for (; nextMessage_ < content_.messages.size(); ++nextMessage_) {
            auto const& message = content_.messages[nextMessage_];
            if (message.deadline > now) return true;
            nextText_ += message.textBytes;
            nextAttachment_ += message.attachments;
            outbox_.release(message.bytes, Outbox::Outcome::overdue);
        }
        nextMessage_ = nextText_ = nextAttachment_ = 0;
        if (content_.texts.capacity() > kMostKeptIdle) {
            Outbox::Content freed;
            std::swap(content_, freed);  // assigned to, a string would keep what it has
        }
        content_.messages.clear();
        content_.texts.clear();
        content_.attachments.clear();
        if (!outbox_.take(content_)) return false;
    }
}

void Framer::startFrame(SendBuffer& out, WsOpcode opcode, std::span<std::uint8_t const> payload) {
    if (tap_ != nullptr) tap_->sent(opcode, payload);
    bool isCompressed = false;
    if (windowBits_ > 0 && payload.size() >= kLeastDeflated) {
        deflateMessage(payload, windowBits_, deflated_);
        isCompressed = deflated_.size() < payload.size();
        if (isCompressed) payload = deflated_;
    }
    std::array<std::uint8_t, kMostFrameHeader> header;
    mask_ = randomMask();
    auto const size = writeFrameHeader(header, opcode, isCompressed, payload.size(), mask_);
    out.add(std::span(header).first(size));
    payload_ = payload;
    ++frames_;
}

}  // namespace kv::sio
