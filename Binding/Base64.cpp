#include "Binding/Base64.h"

#include <limits>

#include <openssl/evp.h>

namespace kv::binding {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

unsigned char const* bytesOf(char const* text) { return reinterpret_cast<unsigned char const*>(text); }

}  // namespace

std::string toBase64(KvBytes const& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // with the zero that OpenSSL puts behind
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()))));
    return text;
}

std::optional<KvBytes> fromBase64(std::string_view text) {
    // OpenSSL is lenient about blanks and counts the padding as bytes.
    auto const digits = text.substr(0, text.find_last_not_of('=') + 1);
    std::size_t const padding = text.size() - digits.size();
    bool const isWellFormed = text.size() % 4 == 0 && padding <= 2 && text.size() <= std::numeric_limits<int>::max() &&
                              digits.find_first_not_of(kAlphabet) == std::string_view::npos;
    if (!isWellFormed) return std::nullopt;
    KvBytes bytes(text.size() / 4 * 3);
    if (EVP_DecodeBlock(bytes.data(), bytesOf(text.data()), static_cast<int>(text.size())) < 0) return std::nullopt;
    bytes.resize(bytes.size() - padding);
    return bytes;
}

}  // namespace kv::binding
