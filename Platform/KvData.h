// Bytes that never change once made, shared between those who hold them instead of being copied.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace kv {

/// Bytes that may still change.
using KvBytes = std::vector<std::uint8_t>;

/// Immutable bytes; null means that there are none, which is not the same as zero of them.
using KvData = std::shared_ptr<KvBytes const>;

/// Takes the bytes over.
[[nodiscard]] inline KvData makeData(KvBytes bytes) { return std::make_shared<KvBytes const>(std::move(bytes)); }
/// Copies the bytes.
[[nodiscard]] inline KvData makeData(std::string_view bytes) {
    return std::make_shared<KvBytes const>(bytes.begin(), bytes.end());
}

}  // namespace kv
