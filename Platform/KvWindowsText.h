// Windows' own texts and paths are of 16-bit characters; the library's are UTF-8, with slashes.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kv {

inline std::filesystem::path pathOf(std::string_view utf8) { return std::u8string(utf8.begin(), utf8.end()); }

inline std::string utf8Of(std::filesystem::path const& path) {
    auto const text = path.generic_u8string();
    return {text.begin(), text.end()};
}

}  // namespace kv
