#include "console/chat/SafeText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace kv::console {
namespace {

struct Range {
    char32_t first, last;
};

constexpr std::string_view kReplacement = "\uFFFD";

// Characters without a shape of their own that terminals act on: controls, line separators, writing direction.
constexpr Range kActive[] = {{0x80, 0x9F},     {0x061C, 0x061C}, {0x200B, 0x200B}, {0x200E, 0x200F},
                             {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}};

struct Character {
    char32_t code = 0;
    std::size_t length = 0;  // in bytes; 0 when it is not valid UTF-8
};

Character firstOf(std::string_view text) {
    auto const lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) return {lead, 1};
    std::size_t const length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
    char32_t code = lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        auto const next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) return {};
        code = code << 6 | (next & 0x3F);
    }
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    bool const isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < kLeast[length] || code > 0x10FFFF || isSurrogate ? Character{} : Character{code, length};
}

bool isActive(char32_t code) {
    return std::ranges::any_of(kActive, [&](Range const& range) { return code >= range.first && code <= range.last; });
}

std::string spelledOut(char32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "<U+%04X>", static_cast<unsigned>(code));
    return text;
}

}  // namespace

std::string harmless(std::string_view text) {
    std::string safe;
    safe.reserve(text.size());
    while (!text.empty()) {
        auto const [code, length] = firstOf(text);
        if (length == 0) {
            safe += kReplacement;
        } else if (code < 0x20 || code == 0x7F) {
            safe += '^';
            safe += static_cast<char>(code ^ 0x40);
        } else if (isActive(code)) {
            safe += spelledOut(code);
        } else {
            safe += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return safe;
}

}  // namespace kv::console
