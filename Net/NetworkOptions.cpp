#include "Net/NetworkOptions.h"

#include "Net/Proxy.h"
#include "Net/Tls.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace kv {
namespace {

using std::chrono::milliseconds;

// What is longer overflows no clock, but is a mistake: of the unit, mostly.
constexpr milliseconds kLongest = std::chrono::hours(24);
constexpr std::size_t kLeastMessage = 1u << 10, kMostMessage = 1u << 30;
constexpr std::size_t kLeastUnhandled = 64u << 10;
constexpr std::size_t kMostPathBytes = 2048;
constexpr std::size_t kMostHeaderBytes = 8192;  // what servers take at least

// What the requests themselves say, or what is for the next hop only.
constexpr std::string_view kOwnHeaders[] = {"host",         "connection",        "upgrade",         "content-length",
                                            "content-type", "transfer-encoding", "accept-encoding", "expect",
                                            "te",           "trailer",           "keep-alive",      "user-agent"};
constexpr std::string_view kOwnPrefixes[] = {"sec-websocket-", "proxy-"};

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
}

bool isTokenChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }
bool isFieldChar(char c) { return c == '\t' || !isControl(c); }
bool isPathChar(char c) { return c > ' ' && c < 0x7F && c != '?' && c != '#'; }

// Nothing that an application wrote is repeated before it was seen to be harmless.
std::string problemOfHeader(std::string const& name, std::string const& value) {
    if (name.empty() || !std::ranges::all_of(name, isTokenChar))
        return "the name of a header in `headers` is empty, or holds a character that names of headers do not have";
    auto const small = lower(name);
    bool const isOwn =
        std::ranges::find(kOwnHeaders, small) != std::end(kOwnHeaders) ||
        std::ranges::any_of(kOwnPrefixes, [&](std::string_view prefix) { return small.starts_with(prefix); });
    if (isOwn) return "`headers` has the header " + name + ", which the requests have of themselves";
    if (!std::ranges::all_of(value, isFieldChar))
        return "the value of the header " + name + " holds a line break or another control character";
    return {};
}

std::string problemOfTime(char const* name, milliseconds time, bool mayBeZero) {
    if (time.count() < 0 || (time.count() == 0 && !mayBeZero) || time > kLongest)
        return std::string("`") + name + "` is " + std::to_string(time.count()) + " ms, and must be between " +
               (mayBeZero ? "0" : "1") + " ms and a day";
    return {};
}

}  // namespace

std::string problemOf(KvPimNetworkOptions const& options) {
    if (auto problem = net::problemOfProxy(options.proxy); !problem.empty()) return problem;
    if (auto problem = net::problemOfTls(options.tls); !problem.empty()) return problem;
    if (!std::ranges::all_of(options.userAgent, isFieldChar))
        return "`userAgent` holds a line break or another control character";
    for (auto const& [name, value] : options.headers)
        if (auto problem = problemOfHeader(name, value); !problem.empty()) return problem;
    if (net::headerLines(options).size() > kMostHeaderBytes)
        return "`userAgent` and `headers` make more than 8192 bytes together";
    if (!options.socketPath.starts_with('/') || options.socketPath.size() > kMostPathBytes ||
        !std::ranges::all_of(options.socketPath, isPathChar)) {
        return "`socketPath` must begin with a slash and hold up to 2048 printable ASCII characters without space, "
               "question mark and number sign";
    }
    for (auto const& [name, time, mayBeZero] : {std::tuple("discoveryTimeout", options.discoveryTimeout, false),
                                                std::tuple("connectTimeout", options.connectTimeout, false),
                                                std::tuple("requestTimeout", options.requestTimeout, true)}) {
        if (auto problem = problemOfTime(name, time, mayBeZero); !problem.empty()) return problem;
    }
    if (options.maxMessageBytes < kLeastMessage || options.maxMessageBytes > kMostMessage)
        return "`maxMessageBytes` must be between 1 KiB and 1 GiB";
    if (options.maxUnhandledBytes < kLeastUnhandled) return "`maxUnhandledBytes` must be at least 64 KiB";
    return {};
}

namespace net {
namespace {

// The bindings name every field: who adds one is told to add it here.
bool isDefault(KvProxy const& proxy) {
    auto const& [forHttp, forHttps, noProxy] = proxy;
    return forHttp.empty() && forHttps.empty() && noProxy.empty();
}

bool isDefault(KvTlsOptions const& tls) {
    static auto const& usual = *new KvTlsOptions;
    auto const& [trustsSystem, caFile, caDirectory, caPem, certificateFile, certificatePem, keyFile, keyPem,
                 keyPassword, pins, minimumVersion, serverName, accepts] = tls;
    return trustsSystem && caFile.empty() && caDirectory.empty() && caPem.empty() && certificateFile.empty() &&
           certificatePem.empty() && keyFile.empty() && keyPem.empty() && !keyPassword && pins.empty() &&
           minimumVersion == usual.minimumVersion && serverName.empty() && !accepts;
}

bool isDefault(KvPimNetworkOptions const& options) {
    auto const& usual = optionsOf(nullptr);
    auto const& [proxy, tls, connector, userAgent, headers, socketPath, discoveryTimeout, connectTimeout,
                 requestTimeout, maxMessageBytes, maxUnhandledBytes, watchesNetwork] = options;
    return isDefault(proxy) && isDefault(tls) && !connector && userAgent.empty() && headers.empty() &&
           socketPath == usual.socketPath && discoveryTimeout == usual.discoveryTimeout &&
           connectTimeout == usual.connectTimeout && requestTimeout == usual.requestTimeout &&
           maxMessageBytes == usual.maxMessageBytes && maxUnhandledBytes == usual.maxUnhandledBytes &&
           watchesNetwork == usual.watchesNetwork;
}

}  // namespace

NetworkOptions shared(KvPimNetworkOptions options) {
    return isDefault(options) ? nullptr : std::make_shared<KvPimNetworkOptions const>(std::move(options));
}

KvPimNetworkOptions const& optionsOf(NetworkOptions const& options) {
    static auto const& usual = *new KvPimNetworkOptions;  // the engine may be at work when the process ends
    return options ? *options : usual;
}

NetworkOptions withCaFile(NetworkOptions options, std::string const& caFile) {
    if (caFile.empty() || !optionsOf(options).tls.caFile.empty()) return options;
    auto changed = optionsOf(options);
    changed.tls.caFile = caFile;
    return std::make_shared<KvPimNetworkOptions const>(std::move(changed));
}

std::vector<std::string> secretsOf(KvPimNetworkOptions const& options) {
    std::vector<std::string> secrets;
    for (auto const& [name, value] : options.headers) secrets.push_back(value);
    for (auto const* address : {&options.proxy.forHttp, &options.proxy.forHttps}) {
        auto const proxy = address->empty() ? std::nullopt : Proxy::parse(*address);
        if (!proxy || !proxy->hasUser()) continue;
        secrets.push_back(proxy->password);
        secrets.push_back(proxy->login());
    }
    return secrets;
}

std::string headerLines(KvPimNetworkOptions const& options) {
    std::string lines;
    if (!options.userAgent.empty()) lines += "User-Agent: " + options.userAgent + "\r\n";
    for (auto const& [name, value] : options.headers) lines += name + ": " + value + "\r\n";
    return lines;
}

}  // namespace net
}  // namespace kv
