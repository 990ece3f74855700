#include "Binding/ClientOptions.h"

#include "Binding/Arguments.h"
#include "Binding/Neighbours.h"

#include <algorithm>
#include <span>
#include <utility>

namespace kv::binding {

template <>
struct ArgumentType<std::chrono::milliseconds> {
    static constexpr std::string_view description = ArgumentType<Seconds>::description;
    static std::optional<std::chrono::milliseconds> from(boost::json::value const& value) {
        auto const seconds = ArgumentType<Seconds>::from(value);
        if (!seconds) return std::nullopt;
        return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(seconds->count));
    }
};

template <>
struct ArgumentType<KvPimEngine> {
    static constexpr std::string_view description = "\"thread\" or \"mainQueue\"";
    static std::optional<KvPimEngine> from(boost::json::value const& value) {
        if (value == "thread") return KvPimEngine::thread;
        if (value == "mainQueue") return KvPimEngine::mainQueue;
        return std::nullopt;
    }
};

template <>
struct ArgumentType<KvTlsVersion> {
    static constexpr std::string_view description = "\"1.2\" or \"1.3\"";
    static std::optional<KvTlsVersion> from(boost::json::value const& value) {
        if (value == "1.2") return KvTlsVersion::tls12;
        if (value == "1.3") return KvTlsVersion::tls13;
        return std::nullopt;
    }
};

template <>
struct ArgumentType<std::vector<std::pair<std::string, std::string>>> {
    static constexpr std::string_view description = "an object of texts";
    static std::optional<std::vector<std::pair<std::string, std::string>>> from(boost::json::value const& value) {
        auto const* const object = value.if_object();
        if (object == nullptr) return std::nullopt;
        std::vector<std::pair<std::string, std::string>> pairs;
        for (auto const& [name, text] : *object) {
            if (!text.is_string()) return std::nullopt;
            pairs.emplace_back(name, text.get_string());
        }
        return pairs;
    }
};

template <>
struct ArgumentType<boost::json::object> {
    static constexpr std::string_view description = "an object";
    static std::optional<boost::json::object> from(boost::json::value const& value) {
        auto const* const object = value.if_object();
        return object ? std::optional(*object) : std::nullopt;
    }
};

namespace {

template <class Target>
struct Row {
    std::string_view name, type;
    void (*read)(Target& target, Arguments const& arguments, std::string_view name);
};

template <class Target>
void readInto(Target& target, boost::json::object const& fields, std::span<Row<Target> const> rows) {
    for (auto const& field : fields) {
        std::string_view const name = field.key();
        if (std::ranges::count(rows, name, &Row<Target>::name) > 0) continue;
        std::vector<std::string_view> names;
        for (auto const& row : rows) names.push_back(row.name);
        throw BadRequest('"' + std::string(name) + "\" is no option" + didYouMean(name, names));
    }
    Arguments const arguments(fields);
    for (auto const& row : rows) row.read(target, arguments, row.name);
}

/// The object of this name, into what it describes.
template <class Target>
void readObject(Target& target, Arguments const& arguments, std::string_view name, std::span<Row<Target> const> rows) {
    if (auto const fields = arguments.find<boost::json::object>(name)) readInto(target, *fields, rows);
}

constexpr Row<KvProxy> kProxy[] = {
    {"forHttp", "text", [](KvProxy& o, Arguments const& a, auto n) { a.into(o.forHttp, n); }},
    {"forHttps", "text", [](KvProxy& o, Arguments const& a, auto n) { a.into(o.forHttps, n); }},
    {"noProxy", "text", [](KvProxy& o, Arguments const& a, auto n) { a.into(o.noProxy, n); }},
};

constexpr Row<KvTlsOptions> kTls[] = {
    {"trustsSystem", "flag", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.trustsSystem, n); }},
    {"caFile", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.caFile, n); }},
    {"caDirectory", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.caDirectory, n); }},
    {"caPem", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.caPem, n); }},
    {"certificateFile", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.certificateFile, n); }},
    {"certificatePem", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.certificatePem, n); }},
    {"keyFile", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.keyFile, n); }},
    {"keyPem", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.keyPem, n); }},
    {"keyPassword", "text",
     [](KvTlsOptions& o, Arguments const& a, auto n) {
         if (auto const password = a.find<std::string>(n)) o.keyPassword = [text = *password] { return text; };
     }},
    {"pins", "texts", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.pins, n); }},
    {"minimumVersion", "tlsVersion", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.minimumVersion, n); }},
    {"serverName", "text", [](KvTlsOptions& o, Arguments const& a, auto n) { a.into(o.serverName, n); }},
};

// A text is the proxy for all servers, or "environment".
void readProxy(KvPimNetworkOptions& network, Arguments const& arguments, std::string_view name) {
    auto const* const value = arguments.fields().if_contains(name);
    auto const* const text = value ? value->if_string() : nullptr;
    if (text == nullptr) return readObject<KvProxy>(network.proxy, arguments, name, kProxy);
    network.proxy = *text == "environment" ? KvProxy::fromEnvironment() : KvProxy(std::string(*text));
}

using Network = KvPimNetworkOptions;
constexpr Row<Network> kNetwork[] = {
    {"proxy", "proxy", readProxy},
    {"tls", "object", [](Network& o, Arguments const& a, auto n) { readObject<KvTlsOptions>(o.tls, a, n, kTls); }},
    {"userAgent", "text", [](Network& o, Arguments const& a, auto n) { a.into(o.userAgent, n); }},
    {"headers", "headers", [](Network& o, Arguments const& a, auto n) { a.into(o.headers, n); }},
    {"socketPath", "text", [](Network& o, Arguments const& a, auto n) { a.into(o.socketPath, n); }},
    {"discoveryTimeout", "seconds", [](Network& o, Arguments const& a, auto n) { a.into(o.discoveryTimeout, n); }},
    {"connectTimeout", "seconds", [](Network& o, Arguments const& a, auto n) { a.into(o.connectTimeout, n); }},
    {"requestTimeout", "seconds", [](Network& o, Arguments const& a, auto n) { a.into(o.requestTimeout, n); }},
    {"maxMessageBytes", "size", [](Network& o, Arguments const& a, auto n) { a.into(o.maxMessageBytes, n); }},
    {"maxUnhandledBytes", "size", [](Network& o, Arguments const& a, auto n) { a.into(o.maxUnhandledBytes, n); }},
    {"watchesNetwork", "flag", [](Network& o, Arguments const& a, auto n) { a.into(o.watchesNetwork, n); }},
};

constexpr Row<KvPimRecording> kRecording[] = {
    {"file", "text", [](KvPimRecording& o, Arguments const& a, auto n) { a.into(o.file, n); }},
    {"withContents", "flag", [](KvPimRecording& o, Arguments const& a, auto n) { a.into(o.withContents, n); }},
    {"maxBytes", "size", [](KvPimRecording& o, Arguments const& a, auto n) { a.into(o.maxBytes, n); }},
};

using Env = KvPimEnvConfig;
template <std::string Env::*member>
void readEnv(ClientOptions& o, Arguments const& a, std::string_view name) {
    a.into(o.client.envConfig.*member, name);
}

using Options = ClientOptions;
constexpr Row<Options> kOptions[] = {
    {"appId", "text", [](Options& o, Arguments const& a, auto n) { o.appId = a.text(n); }},
    {"apiServer", "text", readEnv<&Env::apiServer>},
    {"collectServer", "text", readEnv<&Env::collectServer>},
    {"uploadInterval", "seconds",
     [](Options& o, Arguments const& a, auto n) { a.into(o.client.envConfig.uploadInterval, n); }},
    {"applicationIdentifier", "text", readEnv<&Env::applicationIdentifier>},
    {"cachesDirectory", "text", readEnv<&Env::cachesDirectory>},
    {"keyStoreDirectory", "text", readEnv<&Env::keyStoreDirectory>},
    {"caFile", "text", readEnv<&Env::caFile>},
    {"engine", "engine", [](Options& o, Arguments const& a, auto n) { a.into(o.client.engine, n); }},
    {"maxQueuedBytes", "size", [](Options& o, Arguments const& a, auto n) { a.into(o.client.maxQueuedBytes, n); }},
    {"network", "object",
     [](Options& o, Arguments const& a, auto n) { readObject<Network>(o.client.network, a, n, kNetwork); }},
    {"checkThreads", "flag", [](Options& o, Arguments const& a, auto n) { a.into(o.client.checkThreads, n); }},
    {"recordTo", "object",
     [](Options& o, Arguments const& a, auto n) { readObject<KvPimRecording>(o.client.recordTo, a, n, kRecording); }},
    {"delegate", "clientCallbacks",
     [](Options& o, Arguments const& a, auto n) {
         o.delegate = a.find<std::vector<std::string>>(n);
         checkCallbacks(DelegateKind::client, o.delegate);
     }},
    {"polled", "flag", [](Options& o, Arguments const& a, auto n) { a.into(o.isPolled, n); }},
    {"attachData", "flag", [](Options& o, Arguments const& a, auto n) { a.into(o.attachesData, n); }},
};

template <class Target>
void addRows(std::vector<OptionRow>& all, std::string const& prefix, std::span<Row<Target> const> rows) {
    for (auto const& row : rows) all.push_back({prefix + std::string(row.name), row.type});
}

}  // namespace

ClientOptions readClientOptions(boost::json::object const& fields) {
    ClientOptions options;
    // Nobody but callbacks of this interface can hold up the thread that serves its clients, so it serves their
    // connections too: without a hand-over between two threads.
    auto const* const polled = fields.if_contains("polled");
    if (polled == nullptr || *polled != true) options.client.engine = KvPimEngine::mainQueue;
    readInto<Options>(options, fields, kOptions);
    return options;
}

std::vector<OptionRow> optionRows() {
    std::vector<OptionRow> all;
    addRows<Options>(all, "", kOptions);
    addRows<Network>(all, "network.", kNetwork);
    addRows<KvProxy>(all, "network.proxy.", kProxy);
    addRows<KvTlsOptions>(all, "network.tls.", kTls);
    addRows<KvPimRecording>(all, "recordTo.", kRecording);
    return all;
}

}  // namespace kv::binding
