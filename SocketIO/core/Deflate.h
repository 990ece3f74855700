// The compression of permessage-deflate: one message in, one message out.
#pragma once

#include "Platform/KvData.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kv::sio {

/// Compresses a message on its own (no context is kept between messages), for a window of 2 to the `windowBits` bytes:
/// 9 to 15.
void deflateMessage(std::span<std::uint8_t const> message, int windowBits, KvBytes& out);

/// Inflates the messages of one connection.
class Inflater {
public:
    enum class Context { dropped, kept };
    explicit Inflater(Context context);
    Inflater(Inflater&&) noexcept;
    ~Inflater();

    /// Returns an empty text, or what is wrong with the message. Never makes more than `limit` bytes, nor more than a
    /// few mebibytes out of a few kilobytes.
    std::string inflate(std::span<std::uint8_t const> message, KvBytes& out, std::size_t limit);

private:
    class Stream;
    Context const context_;
    std::unique_ptr<Stream> own_;  // only when the context is kept: it is 40 KiB
};

}  // namespace kv::sio
