#include "console/InputLines.h"

#include <cerrno>

#include <unistd.h>

namespace kv::console {
namespace {

constexpr std::size_t kChunk = 64 << 10;

}  // namespace

void InputLines::fill() {
    buffer_.erase(0, begin_);
    scanned_ -= begin_;
    begin_ = 0;
    std::size_t const filled = buffer_.size();
    buffer_.resize(filled + kChunk);
    auto const count = ::read(fd_, buffer_.data() + filled, kChunk);
    ended_ = count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN);
    buffer_.resize(filled + (count > 0 ? static_cast<std::size_t>(count) : 0));
}

std::optional<InputLines::Line> InputLines::next() {
    while (true) {
        auto const end = buffer_.find('\n', scanned_);
        bool const found = end != std::string::npos;
        scanned_ = found ? end : buffer_.size();
        std::size_t const length = scanned_ - begin_;
        if (skipping_) {
            skipping_ = !found;
            begin_ = scanned_ = scanned_ + (found ? 1 : 0);
            if (!found) return std::nullopt;
        } else if (length > longest_) {
            skipping_ = true;
            return Line{.number = ++number_, .text = {}, .isTooLong = true};
        } else if (found) {
            return take(length, 1);
        } else if (ended_ && length > 0) {
            return take(length, 0);
        } else {
            return std::nullopt;
        }
    }
}

InputLines::Line InputLines::take(std::size_t length, std::size_t separator) {
    Line line{.number = ++number_, .text = buffer_.substr(begin_, length)};
    begin_ = scanned_ = begin_ + length + separator;
    return line;
}

}  // namespace kv::console
