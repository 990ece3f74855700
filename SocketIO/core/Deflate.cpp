#include "SocketIO/core/Deflate.h"

#include <algorithm>
#include <array>
#include <new>

#include <zlib.h>

namespace kv::sio {
namespace {

constexpr int kRawDeflate = -1;  // times the bits of the window: no zlib header
constexpr int kLargestWindow = 15;
constexpr std::size_t kFirstOutput = 4096;
// A few kilobytes can be made to inflate to a thousand times as much; what people write inflates to tens.
constexpr std::size_t kMostRatio = 100;
constexpr std::size_t kFreeOfRatio = 4u << 20;
constexpr std::array<std::uint8_t, 4> kTail = {0x00, 0x00, 0xFF, 0xFF};  // what the sender cuts off each message

// Contexts are not kept from message to message, so all connections of a thread share one.
class Deflater {
public:
    explicit Deflater(int windowBits) {
        if (deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kRawDeflate * windowBits, 8,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Deflater() { deflateEnd(&stream_); }

    void run(std::span<std::uint8_t const> message, KvBytes& out) {
        deflateReset(&stream_);
        out.resize(deflateBound(&stream_, message.size()) + 16);
        stream_.next_in = const_cast<Bytef*>(message.data());
        stream_.avail_in = static_cast<uInt>(message.size());
        stream_.next_out = out.data();
        stream_.avail_out = static_cast<uInt>(out.size());
        deflate(&stream_, Z_SYNC_FLUSH);
        out.resize(out.size() - stream_.avail_out - kTail.size());
    }

private:
    z_stream stream_{};
};

}  // namespace

void deflateMessage(std::span<std::uint8_t const> message, int windowBits, KvBytes& out) {
    thread_local std::array<std::unique_ptr<Deflater>, kLargestWindow + 1> deflaters;
    auto& deflater = deflaters.at(static_cast<std::size_t>(windowBits));
    if (!deflater) deflater = std::make_unique<Deflater>(windowBits);
    deflater->run(message, out);
}

class Inflater::Stream {
public:
    Stream() {
        if (inflateInit2(&stream_, kRawDeflate * kLargestWindow) != Z_OK) throw std::bad_alloc();
    }
    ~Stream() { inflateEnd(&stream_); }

    void reset() { inflateReset(&stream_); }

    std::string run(std::span<std::uint8_t const> message, KvBytes& out, std::size_t limit) {
        out.clear();
        if (auto problem = feed(message, out, limit); !problem.empty()) return problem;
        return ended_ ? std::string() : feed(kTail, out, limit);
    }

private:
    std::string feed(std::span<std::uint8_t const> in, KvBytes& out, std::size_t limit) {
        ended_ = false;
        stream_.next_in = const_cast<Bytef*>(in.data());
        stream_.avail_in = static_cast<uInt>(in.size());
        for (;;) {
            auto const before = out.size();
            // One byte beyond the limit shows that a message breaks it.
            auto const room = std::min(std::max(kFirstOutput, before), limit + 1 - before);
            out.resize(before + room);
            stream_.next_out = out.data() + before;
            stream_.avail_out = static_cast<uInt>(room);
            int const result = ::inflate(&stream_, Z_SYNC_FLUSH);
            out.resize(before + room - stream_.avail_out);
            if (out.size() > limit) return "WebSocket: message over the limit after inflating";
            if (result == Z_STREAM_END) {
                if (stream_.avail_in > 0) return "WebSocket: data behind the end of a compressed message";
                ended_ = true;
                inflateReset(&stream_);
                return {};
            }
            if (result != Z_OK && result != Z_BUF_ERROR) return "WebSocket: bad compressed data";
            if (stream_.avail_out > 0) {
                return stream_.avail_in == 0 ? std::string() : std::string("WebSocket: bad compressed data");
            }
        }
    }

    z_stream stream_{};
    bool ended_ = false;
};

Inflater::Inflater(Context context) : context_(context) {}
Inflater::Inflater(Inflater&&) noexcept = default;
Inflater::~Inflater() = default;

std::string Inflater::inflate(std::span<std::uint8_t const> message, KvBytes& out, std::size_t limit) {
    limit = std::min(limit, std::max(kFreeOfRatio, message.size() * kMostRatio));
    if (context_ == Context::kept) {
        if (!own_) own_ = std::make_unique<Stream>();
        return own_->run(message, out, limit);
    }
    thread_local Stream shared;
    shared.reset();
    return shared.run(message, out, limit);
}

}  // namespace kv::sio
