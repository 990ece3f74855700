// Lines from a file descriptor that others wait for: reading never waits for more than what is there.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kv::console {

class InputLines {
public:
    struct Line {
        std::size_t number = 0;  // counted from 1
        std::string text;
        bool isTooLong = false;  // then without its text
    };

    InputLines(int fd, std::size_t longest) : fd_(fd), longest_(longest) {}

    /// Reads what is there. Call it when the descriptor is readable: otherwise it waits.
    void fill();
    /// The next line, if all of it was read.
    std::optional<Line> next();
    /// Whether there is nothing more to read. Lines may still be waiting.
    bool isEnded() const { return ended_; }

private:
    Line take(std::size_t length, std::size_t separator);

    int const fd_;
    std::size_t const longest_;
    std::string buffer_;
    std::size_t begin_ = 0;    // of the line that comes next
    std::size_t scanned_ = 0;  // no line ends before here
    std::size_t number_ = 0;
    bool skipping_ = false;  // the rest of a line that was too long
    bool ended_ = false;
};

}  // namespace kv::console
