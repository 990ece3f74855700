#include "Classes/Network/KvServerAddress.h"

#include <string>

#include <re2/re2.h>

namespace kv {
namespace {

// (?i): letter case does not matter; (?m): "^" and "$" match at the ends of every line.
constexpr char kServerIP[] = R"((?im)^https?://(\d{1,2}|1\d\d|2[0-4]\d|25[0-5])\.(\d{1,2}|1\d\d|2[0-4]\d|25[0-5])\.)"
                             R"((\d{1,2}|1\d\d|2[0-4]\d|25[0-5])\.(\d{1,2}|1\d\d|2[0-4]\d|25[0-5])(:\d+)?$)";
constexpr char kServerDomain[] = R"((?im)^https?://(([a-z0-9]+|[a-z0-9]+[a-z0-9\-_]*[a-z0-9]+)\.)+([a-z]+)(:\d+)?$)";

// The expressions know one line break only.
std::string withPlainLineBreaks(std::string_view text) {
    static auto const& breaks = *new RE2(R"(\r|\x{85}|\x{2028}|\x{2029})");
    std::string plain(text);
    RE2::GlobalReplace(&plain, breaks, "\n");
    return plain;
}

}  // namespace

bool isValidServerIP(std::string_view address) {
    static auto const& pattern = *new RE2(kServerIP);
    return RE2::PartialMatch(withPlainLineBreaks(address), pattern);
}

bool isValidServerDomain(std::string_view address) {
    static auto const& pattern = *new RE2(kServerDomain);
    return RE2::PartialMatch(withPlainLineBreaks(address), pattern);
}

bool isValidApiServer(std::string_view address) { return isValidServerDomain(address) || isValidServerIP(address); }

}  // namespace kv
