// Text helpers: whole-string patterns, digests.
#pragma once

#include <string>
#include <string_view>

namespace kv {

/// Whether the whole text matches the pattern (RE2 syntax). An invalid pattern matches nothing. Each pattern is
/// compiled once.
bool match(std::string_view text, std::string_view pattern);
/// The MD5 digest of the text's bytes, as 32 lower-case hexadecimal digits. Part of the interface; the library does not
/// call it.
std::string md5Value(std::string_view text);

/// 1 to 64 characters of those that user, peer and channel ids are made of.
bool isValidId(std::string_view id);
/// 32 characters, none of them white space.
bool isValidToken(std::string_view token);

}  // namespace kv
