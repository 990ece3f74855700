#include "Net/Proxy.h"

#include "Net/Base64.h"
#include "Net/NoProxy.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <deque>

#include <boost/asio/ip/address.hpp>

namespace kv {

KvProxy::KvProxy(std::string url) : forHttp(url), forHttps(std::move(url)) {}

KvProxy KvProxy::fromEnvironment() {
    auto const read = [](std::initializer_list<char const*> names) -> std::string {
        for (auto const* name : names) {
            char const* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets them
            if (value != nullptr && *value != '\0') return value;
        }
        return {};
    };
    KvProxy proxy;
    proxy.forHttp = read({"http_proxy", "all_proxy", "ALL_PROXY"});
    proxy.forHttps = read({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    auto const directly = read({"no_proxy", "NO_PROXY"});
    std::string_view rest = directly;
    for (auto entry = net::takeEntry(rest); !entry.empty(); entry = net::takeEntry(rest)) {
        if (net::namesSomebody(entry)) proxy.noProxy.append(proxy.noProxy.empty() ? "" : ",").append(entry);
    }
    return proxy;
}

}  // namespace kv

namespace kv::net {
namespace {

namespace ip = boost::asio::ip;

constexpr std::uint16_t kHttpPort = 80, kHttpsPort = 443, kSocksPort = 1080;
constexpr char kWantsUser[] = "wants a user and a password";
constexpr char kRefusesUser[] = "does not take this user and password";

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lowered(std::string_view text) {
    std::string made(text);
    std::ranges::transform(made, made.begin(), lower);
    return made;
}

std::string decoded(std::string_view text) {
    std::string made;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned byte = 0;
        auto const* const digits = text.data() + i + 1;
        bool const isEscape =
            text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
        made += isEscape ? static_cast<char>(byte) : text[i];
        if (isEscape) i += 2;
    }
    return made;
}

// What both kinds share: their text, and what they say when it goes wrong.
class Tunnel : public Script {
public:
    explicit Tunnel(Proxy const& proxy) : proxy_(proxy) {}
    std::string_view toSend() override { return sent_ < said_.size() ? said_[sent_++] : std::string_view(); }
    void onClosed() override { fail("has closed the connection"); }
    bool isOver() const override { return isOver_; }
    std::string const& error() const override { return error_; }

protected:
    void say(std::string text) { said_.push_back(std::move(text)); }
    bool hasUnsaid() const { return sent_ < said_.size(); }
    void succeed() { isOver_ = true; }
    void fail(std::string const& what) {
        isOver_ = true;
        error_ = proxy_.text() + ' ' + what;
        error_.front() = 'T';
    }

    Proxy const proxy_;
    std::string received_;

private:
    std::deque<std::string> said_;  // all of it stays: some may still be on its way
    std::size_t sent_ = 0;
    bool isOver_ = false;
    std::string error_;
};

class HttpTunnel final : public Tunnel {
public:
    HttpTunnel(Proxy const& proxy, Url const& server) : Tunnel(proxy) {
        auto request = "CONNECT " + server.text() + " HTTP/1.1\r\nHost: " + server.text() + "\r\n";
        if (proxy.hasUser()) request += "Proxy-Authorization: Basic " + proxy.login() + "\r\n";
        say(request + "\r\n");
    }

    void onReceived(std::string_view bytes) override {
        constexpr std::string_view kStart = "HTTP/1.";
        received_ += bytes;
        if (!kStart.starts_with(std::string_view(received_).substr(0, kStart.size())))
            return fail("does not speak HTTP");
        auto const end = received_.find("\r\n\r\n");
        if (end == std::string::npos) {
            if (received_.size() > kMostHead) fail("gives too long an answer");
            return;
        }
        auto const line = received_.substr(0, std::min(received_.find("\r\n"), kMostLine));
        auto const status = line.size() > 9 ? line.substr(9) : std::string();
        if (status.starts_with("407"))
            return fail(refusal(received_.substr(0, end + 2)) + " (HTTP status " + status + ')');
        if (!status.starts_with('2')) return fail("does not lead there: HTTP status " + status);
        if (received_.size() > end + 4) return fail("speaks before it is asked");
        succeed();
    }

private:
    // What a 407 means: the head names the kinds of login that the proxy knows.
    std::string refusal(std::string const& head) const {
        constexpr std::string_view kField = "\r\nproxy-authenticate:";
        std::string const ofUser = proxy_.hasUser() ? kRefusesUser : kWantsUser;
        auto const text = lowered(head);
        std::string kinds;
        for (auto at = text.find(kField); at != std::string::npos; at = text.find(kField, at + 1)) {
            auto const begin = std::min(text.find_first_not_of(' ', at + kField.size()), text.size());
            auto const kind = head.substr(begin, text.find_first_of(" ,\r", begin) - begin);
            if (lowered(kind) == "basic") return ofUser;
            kinds += (kinds.empty() ? "" : ", ") + kind;
        }
        return kinds.empty() ? ofUser : "wants a kind of login that is not supported: " + kinds;
    }

    static constexpr std::size_t kMostHead = 16384, kMostLine = 200;
};

class SocksTunnel final : public Tunnel {
public:
    SocksTunnel(Proxy const& proxy, Url const& server) : Tunnel(proxy), server_(server) {
        say(proxy_.hasUser() ? std::string("\5\2\0\2", 4) : std::string("\5\1\0", 3));
    }

    void onReceived(std::string_view bytes) override {
        received_ += bytes;
        while (!isOver() && received_.size() >= needed()) {
            if (hasUnsaid()) return fail("speaks before it is asked");
            auto const answer = received_.substr(0, needed());
            received_.erase(0, answer.size());
            (this->*step_)(answer);
        }
    }

private:
    static constexpr std::size_t kMostText = 255;

    // The answer to CONNECT is as long as the address in it. A refusal may end before that.
    std::size_t needed() const {
        bool const isRefusal = received_.size() >= 2 && (received_[0] != 5 || received_[1] != 0);
        if (step_ != &SocksTunnel::onConnected || isRefusal) return 2;
        if (received_.size() < 5) return 5;
        switch (received_[3]) {
            case 1:
                return 10;
            case 3:
                return 7 + static_cast<unsigned char>(received_[4]);
            default:
                return 22;
        }
    }

    void onMethod(std::string const& answer) {
        if (answer[0] != 5) return fail("does not speak SOCKS 5");
        if (answer[1] == 0) return connect();
        if (answer[1] != 2) return fail(proxy_.hasUser() ? "does not take a user and a password" : kWantsUser);
        if (proxy_.user.size() > kMostText || proxy_.password.size() > kMostText)
            return fail("takes no user or password of more than 255 bytes");
        step_ = &SocksTunnel::onLoggedIn;
        say(std::string("\1") + counted(proxy_.user) + counted(proxy_.password));
    }

    void onLoggedIn(std::string const& answer) {
        if (answer[1] != 0) return fail(kRefusesUser);
        connect();
    }

    void connect() {
        step_ = &SocksTunnel::onConnected;
        boost::system::error_code noAddress;
        auto const address = ip::make_address(server_.host, noAddress);
        std::string request("\5\1\0", 3);
        auto const add = [&](char type, auto const& bytes) {
            request.append(1, type).append(bytes.begin(), bytes.end());
        };
        if (noAddress) {
            if (server_.host.size() > kMostText) return fail("takes no name of more than 255 bytes");
            add(3, counted(server_.host));
        } else if (address.is_v4()) {
            add(1, address.to_v4().to_bytes());
        } else {
            add(4, address.to_v6().to_bytes());
        }
        request += {static_cast<char>(server_.port >> 8), static_cast<char>(server_.port & 0xFF)};
        say(std::move(request));
    }

    void onConnected(std::string const& answer) {
        static constexpr char const* kRefusals[] = {"",
                                                    "general failure",
                                                    "its rules forbid it",
                                                    "network unreachable",
                                                    "host unreachable",
                                                    "connection refused",
                                                    "time-out",
                                                    "it knows no such command",
                                                    "it knows no such kind of address"};
        auto const code = static_cast<unsigned char>(answer[1]);
        if (answer[0] != 5) return fail("does not speak SOCKS 5");
        if (code != 0)
            return fail(std::string("does not lead there: ") +
                        (code < std::size(kRefusals) ? kRefusals[code] : "unknown failure"));
        if (!received_.empty()) return fail("speaks before it is asked");
        succeed();
    }

    static std::string counted(std::string const& text) { return static_cast<char>(text.size()) + text; }

    Url const server_;
    void (SocksTunnel::*step_)(std::string const&) = &SocksTunnel::onMethod;
};

}  // namespace

std::optional<Proxy> Proxy::parse(std::string_view text) {
    struct Scheme {
        std::string_view name;
        Kind kind;
        bool isSecure;
        std::uint16_t port;
    };
    static constexpr std::array kSchemes{
        Scheme{"http", Kind::http, false, kHttpPort}, Scheme{"https", Kind::http, true, kHttpsPort},
        Scheme{"socks5", Kind::socks5, false, kSocksPort}, Scheme{"socks5h", Kind::socks5, false, kSocksPort}};
    auto const colon = text.find("://");
    auto const name = colon == std::string_view::npos ? "http" : lowered(text.substr(0, colon));
    auto const* const scheme = std::ranges::find(kSchemes, name, &Scheme::name);
    if (scheme == kSchemes.end()) return std::nullopt;
    if (colon != std::string_view::npos) text.remove_prefix(colon + 3);
    if (text.ends_with('/')) text.remove_suffix(1);
    Proxy proxy{scheme->kind, {}};
    if (auto const at = text.rfind('@'); at != std::string_view::npos) {
        auto const pair = text.substr(0, at);
        auto const separator = std::min(pair.find(':'), pair.size());
        proxy.user = decoded(pair.substr(0, separator));
        proxy.password = decoded(pair.substr(std::min(separator + 1, pair.size())));
        text.remove_prefix(at + 1);
    }
    auto url = Url::ofAuthority(text, scheme->isSecure, scheme->port);
    bool const isOdd = url && url->host.find_first_of("/?#") != std::string::npos;
    if (!url || isOdd) return std::nullopt;
    proxy.url = *std::move(url);
    return proxy;
}

std::string const& Proxy::to(Url const& server, KvProxy const& options) {
    static auto const& none = *new std::string;  // the engine may be at work when the process ends
    auto const& proxy = server.isSecure ? options.forHttps : options.forHttp;
    return proxy.empty() || isDirect(server, options.noProxy) ? none : proxy;
}

std::string Proxy::login() const {
    auto const pair = user + ':' + password;
    return base64({reinterpret_cast<std::uint8_t const*>(pair.data()), pair.size()});
}

std::unique_ptr<Script> Proxy::tunnel(Url const& server) const {
    if (kind == Kind::http) return std::make_unique<HttpTunnel>(*this, server);
    return std::make_unique<SocksTunnel>(*this, server);
}

std::string problemOfProxy(KvProxy const& proxy) {
    // Neither says what stands there: it may be a password.
    for (auto const& [name, address] : {std::pair("forHttp", &proxy.forHttp), {"forHttps", &proxy.forHttps}}) {
        if (!address->empty() && !Proxy::parse(*address))
            return std::string("proxy.") + name + " is no address of a proxy: http, https or socks5, a host, a port";
    }
    int number = 1;
    std::string_view rest = proxy.noProxy;
    for (auto entry = takeEntry(rest); !entry.empty(); entry = takeEntry(rest), ++number) {
        if (!namesSomebody(entry)) return "proxy.noProxy: entry " + std::to_string(number) + " can name nobody";
    }
    return {};
}

}  // namespace kv::net
