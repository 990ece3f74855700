// What the commands have in common on the command line.
#pragma once

#include "Classes/Model/KvPimOptions.h"

#include <string>

#include <CLI/CLI.hpp>

namespace kv::console {

struct CommonOptions {
    std::string appId;
    KvPimEnvConfig env;
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
}

}  // namespace kv::console
