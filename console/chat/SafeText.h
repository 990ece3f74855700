// Text from other people for a terminal: nothing in it can move the cursor, change a setting or hide what it is.
#pragma once

#include <string>
#include <string_view>

namespace kv::console {

/// The text with every control character spelled out ("^[", "<U+202E>") and every invalid byte replaced.
std::string harmless(std::string_view text);

}  // namespace kv::console
