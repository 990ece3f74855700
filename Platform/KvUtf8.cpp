#include "Platform/KvUtf8.h"

#include <cstdint>
#include <cstring>

namespace kv {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// The size of the well-formed sequence that `text` begins with, or 0.
std::size_t sequenceSize(std::string_view text) {
    auto const byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    auto const continues = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
    auto const lead = byte(0);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || !continues(1)) return 0;
    if (lead < 0xE0) return 2;
    // Overlong forms, surrogates and what lies beyond U+10FFFF show in the second byte.
    if (lead == 0xE0 && byte(1) < 0xA0) return 0;
    if (lead == 0xED && byte(1) > 0x9F) return 0;
    if (lead == 0xF0 && byte(1) < 0x90) return 0;
    if (lead == 0xF4 && byte(1) > 0x8F) return 0;
    if (lead > 0xF4 || !continues(2)) return 0;
    if (lead < 0xF0) return 3;
    return continues(3) ? 4 : 0;
}

std::size_t validPrefix(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        std::uint64_t eight = 0;
        while (at + sizeof eight <= text.size()) {
            std::memcpy(&eight, text.data() + at, sizeof eight);
            if (eight & 0x8080808080808080u) break;
            at += sizeof eight;
        }
        if (at == text.size()) break;
        auto const size = sequenceSize(text.substr(at));
        if (size == 0) break;
        at += size;
    }
    return at;
}

}  // namespace

bool isValidUtf8(std::string_view text) { return validPrefix(text) == text.size(); }

void replaceInvalidUtf8(std::string& text) {
    auto valid = validPrefix(text);
    if (valid == text.size()) return;
    std::string repaired;
    repaired.reserve(text.size() + 16);
    std::string_view rest = text;
    for (;;) {
        repaired.append(rest.substr(0, valid));
        rest.remove_prefix(valid);
        if (rest.empty()) break;
        repaired.append(kReplacement);
        rest.remove_prefix(1);
        valid = validPrefix(rest);
    }
    text = std::move(repaired);
}

}  // namespace kv
