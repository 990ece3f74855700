// Bytes as JSON texts.
#pragma once

#include "Platform/KvData.h"

#include <optional>
#include <string>
#include <string_view>

namespace kv::binding {

std::string toBase64(KvBytes const& bytes);
/// Null when the text is not base64 with its padding.
std::optional<KvBytes> fromBase64(std::string_view text);

}  // namespace kv::binding
