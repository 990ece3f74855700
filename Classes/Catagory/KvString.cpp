#include "Classes/Catagory/KvString.h"

#include <iterator>
#include <map>
#include <memory>
#include <mutex>

#include <boost/algorithm/hex.hpp>
#include <openssl/evp.h>
#include <re2/re2.h>

namespace kv {
namespace {

RE2 const& compiled(std::string_view pattern) {
    static std::mutex mutex;
    static auto& patterns = *new std::map<std::string, std::unique_ptr<RE2>, std::less<>>;
    std::lock_guard lock(mutex);
    auto it = patterns.find(pattern);
    if (it == patterns.end()) {
        RE2::Options options;
        options.set_log_errors(false);
        auto expression = std::make_unique<RE2>(re2::StringPiece(pattern.data(), pattern.size()), options);
        it = patterns.emplace(std::string(pattern), std::move(expression)).first;
    }
    return *it->second;
}

}  // namespace

bool match(std::string_view text, std::string_view pattern) {
    RE2 const& expression = compiled(pattern);
    return expression.ok() && RE2::FullMatch(re2::StringPiece(text.data(), text.size()), expression);
}

std::string md5Value(std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_md5(), nullptr);
    std::string hex;
    boost::algorithm::hex_lower(digest, digest + size, std::back_inserter(hex));
    return hex;
}

bool isValidId(std::string_view id) {
    // ASCII letters, digits, white space and the listed punctuation; the brackets and the backslash belong to the set.
    return match(id, R"([a-zA-Z0-9!#$%&()+\-:;<=.>?@\[\\\]^_{}|~,\s\x0b]{1,64})");
}

bool isValidToken(std::string_view token) { return match(token, R"([^\s\x0b]{32})"); }

}  // namespace kv
