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

}  // namespace

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
    text = text.substr(0, text.find_first_of("/?#"));

    Url url{scheme->isSecure, {}, scheme->port};
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

}  // namespace kv::net
