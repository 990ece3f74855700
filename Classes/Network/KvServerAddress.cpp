#include "Classes/Network/KvServerAddress.h"

#include "Classes/Catagory/KvString.h"

#include <algorithm>

#include <re2/re2.h>

namespace kv {
namespace {

constexpr std::size_t kMostShown = 200;

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

// An address in its parts, whatever they are.
struct Parts {
    std::string_view scheme, user, host, port, rest;

    explicit Parts(std::string_view address) {
        if (auto const slashes = address.find("//"); slashes != std::string_view::npos)
            scheme = address.substr(0, slashes + 2);
        address.remove_prefix(scheme.size());
        auto const end = std::min(address.find_first_of("/?#"), address.size());
        rest = address.substr(end);
        host = address.substr(0, end);
        if (auto const sign = host.rfind('@'); sign != std::string_view::npos) {
            user = host.substr(0, sign + 1);
            host.remove_prefix(sign + 1);
        }
        if (auto const colon = host.rfind(':'); colon != std::string_view::npos && !host.ends_with(']')) {
            port = host.substr(colon);
            host.remove_suffix(port.size());
        }
    }
};

char const* brokenRule(Parts const& parts) {
    auto const isDigit = [](unsigned char c) { return c >= '0' && c <= '9'; };
    auto const isLetter = [](unsigned char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
    auto const lastLabel = parts.host.substr(parts.host.rfind('.') + 1);
    if (!match(parts.scheme, "(?i)https?://")) return "it begins with neither http:// nor https://";
    if (!parts.user.empty()) return "it has a user in it";
    if (parts.host.find(':') != std::string_view::npos) return "its host is an IPv6 address";
    if (parts.rest == "/") return "it has a slash at its end";
    if (!parts.rest.empty()) return "it has something behind host and port";
    if (!parts.port.empty() && (parts.port == ":" || !std::ranges::all_of(parts.port.substr(1), isDigit)))
        return "its port is no number";
    if (parts.host.find('.') == std::string_view::npos) return "its host has no dot in it";
    if (std::ranges::all_of(parts.host, [&](char c) { return isDigit(c) || c == '.'; }))
        return "its host is not an IPv4 address, which is four numbers up to 255";
    if (lastLabel.empty() || !std::ranges::all_of(lastLabel, isLetter))
        return "what follows the last dot of its host is not of letters alone";
    return "its host is no name that a server can have";
}

// The address as it was meant, perhaps.
std::string repaired(Parts const& parts) {
    bool const isThisMachine = parts.host == "localhost" || parts.host == "[::1]";
    bool const hasScheme = match(parts.scheme, "(?i)https?://");
    return (hasScheme ? std::string(parts.scheme) : "http://") +
           (isThisMachine ? "127.0.0.1" : std::string(parts.host)) + (parts.port == ":" ? "" : std::string(parts.port));
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

std::string problemOfApiServer(std::string_view address) {
    if (isValidApiServer(address)) return {};
    Parts const parts(address);
    auto problem = std::string("The address of the API server ");
    if (parts.user.empty()) problem.append("\"").append(address.substr(0, kMostShown)).append("\" ");
    problem.append("cannot be used: ").append(brokenRule(parts));
    auto const better = repaired(parts);
    if (isValidApiServer(better)) return problem + ". \"" + better + "\" would pass";
    return problem +
           ". http:// or https://, a host name with a dot in it or an IPv4 address, and a port or none would pass";
}

bool isValidApiServer(std::string_view address) { return isValidServerDomain(address) || isValidServerIP(address); }

}  // namespace kv
