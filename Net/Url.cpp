#include "Net/Url.h"

#include <algorithm>
#include <charconv>

namespace kv::net {
namespace {

struct Scheme {
    std::string_view name;
    bool isSecure;
    std::uint16_t port;
};
constexpr std::uint16_t kPlainPort = 80, kSecurePort = 443;
constexpr Scheme kSchemes[] = {
    {"http", false, kPlainPort}, {"ws", false, kPlainPort}, {"https", true, kSecurePort}, {"wss", true, kSecurePort}};

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string bracketed(std::string const& host) { return host.find(':') == std::string::npos ? host : '[' + host + ']'; }

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

}  // namespace

std::string percentEncoded(std::string_view text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string encoded;
    for (char const c : text) {
        if (isUnreserved(c)) {
            encoded += c;
            continue;
        }
        auto const byte = static_cast<unsigned char>(c);
        encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return encoded;
}

std::string Url::authority() const { return port == (isSecure ? kSecurePort : kPlainPort) ? bracketed(host) : text(); }

std::string Url::text() const { return bracketed(host) + ':' + std::to_string(port); }

std::optional<Url> Url::parse(std::string_view text) {
    auto const colon = text.find("://");
    if (colon == std::string_view::npos) return std::nullopt;
    std::string name(text.substr(0, colon));
    std::ranges::transform(name, name.begin(), lower);
    auto const* const scheme = std::ranges::find(kSchemes, name, &Scheme::name);
    if (scheme == std::end(kSchemes)) return std::nullopt;
    text.remove_prefix(colon + 3);
    text = text.substr(0, text.find('#'));
    auto const end = std::min(text.find_first_of("/?"), text.size());
    auto url = ofAuthority(text.substr(0, end), scheme->isSecure, scheme->port);
    if (auto const rest = text.substr(end); url && !rest.empty())
        url->target = (rest.front() == '?' ? "/" : "") + std::string(rest);
    return url;
}

std::optional<Url> Url::ofAuthority(std::string_view text, bool isSecure, std::uint16_t defaultPort) {
    Url url{isSecure, {}, defaultPort, "/"};
    std::string_view port;
    if (text.starts_with('[')) {
        auto const end = text.find(']');
        if (end == std::string_view::npos) return std::nullopt;
        url.host = text.substr(1, end - 1);
        port = text.substr(end + 1);
    } else {
        auto const end = std::min(text.find(':'), text.size());
        url.host = text.substr(0, end);
        port = text.substr(end);
    }
    bool const isOdd = std::ranges::any_of(url.host, [](unsigned char c) { return c <= ' ' || c == '@' || c >= 0x7F; });
    if (url.host.empty() || isOdd) return std::nullopt;
    if (port.empty()) return url;
    auto const [end, problem] = std::from_chars(port.data() + 1, port.data() + port.size(), url.port);
    if (port.front() != ':' || problem != std::errc() || end != port.data() + port.size() || url.port == 0)
        return std::nullopt;
    return url;
}

std::optional<Url> Url::redirected(std::string_view location) const {
    std::string const origin = (isSecure ? "https://" : "http://") + text();
    if (location.find("://") < location.find_first_of("/?#")) return parse(location);
    if (location.starts_with("//")) return parse((isSecure ? "https:" : "http:") + std::string(location));
    if (location.starts_with('/')) return parse(origin + std::string(location));
    auto const path = target.substr(0, target.find('?'));
    auto const folder = location.starts_with('?') ? path : path.substr(0, path.rfind('/') + 1);
    return parse(origin + folder + std::string(location));
}

}  // namespace kv::net
