// What the fuzzers have in common: reading the bytes that they are given, and saying that something must hold.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <unistd.h>

namespace kv::fuzz {

/// Where to say something, also when the library's own prints are turned off.
inline int const kStandardError = ::dup(STDERR_FILENO);

/// Ends the process when something does not hold, as a sanitizer would: whoever runs the fuzzer keeps the input.
inline void require(bool holds, char const* what) {
    if (holds) return;
    auto const text = "does not hold: " + std::string(what) + "\n";
    [[maybe_unused]] auto const written = ::write(kStandardError, text.data(), text.size());
    std::abort();
}

/// The bytes of one input, from front to back. What is asked for behind the end is zero or empty.
class Input {
public:
    Input(std::uint8_t const* data, std::size_t size) : rest_(reinterpret_cast<char const*>(data), size) {}

    bool isEmpty() const { return rest_.empty(); }
    char takeByte() {
        if (rest_.empty()) return 0;
        char const byte = rest_.front();
        rest_.remove_prefix(1);
        return byte;
    }
    /// Up to the next line break, which is taken too.
    std::string_view takeLine() {
        auto const line = rest_.substr(0, rest_.find('\n'));
        rest_.remove_prefix(line.size() < rest_.size() ? line.size() + 1 : line.size());
        return line;
    }
    std::string_view takeRest() {
        auto const all = rest_;
        rest_ = {};
        return all;
    }

private:
    std::string_view rest_;
};

/// A fuzzer: what it does with one input.
void run(Input input);

}  // namespace kv::fuzz
