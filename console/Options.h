// What the commands have in common on the command line.
#pragma once

#include "Classes/Model/KvPimOptions.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>

namespace kv::console {

struct CommonOptions {
    std::string appId;
    KvPimEnvConfig env;
    KvProxy proxy;
    KvPimRecording record;
};

inline void addCommonOptions(CLI::App& command, CommonOptions& options) {
    command.add_option("--app-id", options.appId, "The application id")->type_name("ID");
    command.add_option("--api-server", options.env.apiServer, "The API server")->type_name("URL");
    command.add_option("--collect-url", options.env.collectServer, "Where event reports are uploaded to")
        ->type_name("URL");
    command.add_option("--caches-dir", options.env.cachesDirectory, "Directory of the log and of the event reports")
        ->type_name("DIR");
    command
        .add_option("--key-store-dir", options.env.keyStoreDirectory,
                    "Keep the device id as a file in this directory, not in the secret service")
        ->type_name("DIR");
    command.add_option("--ca-file", options.env.caFile, "PEM file of authorities to trust in addition to the system's")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    auto* const proxy = command.add_option_function<std::string>(
        "--proxy", [&](std::string const& url) { options.proxy = url; },
        "The proxy that leads to all servers: http://HOST:PORT, https:// or socks5://");
    proxy->type_name("URL");
    command
        .add_flag_callback(
            "--proxy-from-environment", [&] { options.proxy = KvProxy::fromEnvironment(); },
            "Go through the proxies that http_proxy, https_proxy, all_proxy and no_proxy name")
        ->excludes(proxy);
    auto* const record = command.add_option("--record", options.record.file,
                                            "Write what goes over the wire to this file: see kvpim show --help");
    record->type_name("FILE");
    command
        .add_flag("--record-contents", options.record.withContents,
                  "Keep in it what people say, which is masked otherwise; tokens never are in it")
        ->needs(record);
}

/// A command line that means nothing.
struct BadUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What the packaged program takes from its surroundings; the library itself takes nothing.
inline bool checksThreads() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
    char const* const checks = std::getenv("KVPIM_CHECK_THREADS");
    return checks != nullptr && std::string_view(checks) == "1";
}

inline KvPimOptions clientOptions(CommonOptions const& options, std::shared_ptr<KvMainQueue> queue) {
    KvPimOptions made{.envConfig = options.env, .mainQueue = std::move(queue), .checkThreads = checksThreads()};
    made.network.proxy = options.proxy;
    made.recordTo = options.record;
    return made;
}

}  // namespace kv::console
