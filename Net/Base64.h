#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include <openssl/evp.h>

namespace kv::net {

inline std::string base64(std::span<std::uint8_t const> bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3), '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
    return text;
}

}  // namespace kv::net
