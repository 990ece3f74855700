// Well-formed UTF-8, as WebSocket text messages must be.
#pragma once

#include <string>
#include <string_view>

namespace kv {

bool isValidUtf8(std::string_view text);
/// Replaces every byte that is not part of well-formed UTF-8 with U+FFFD.
void replaceInvalidUtf8(std::string& text);

}  // namespace kv
