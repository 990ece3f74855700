// `kvpim console`: one client object driven by lines of JSON, for bots, scripts and tests.
#pragma once

#include "console/InputLines.h"
#include "console/Options.h"
#include "console/Output.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kv::console {

struct ConsoleOptions {
    CommonOptions common;
    std::string logFile;
    std::optional<std::int64_t> logFilters;
    std::optional<std::vector<std::string>> delegate;  // the callbacks that are implemented; none: all of them
    std::chrono::duration<double> linger{0};
    std::optional<std::uint16_t> metricsPort;  // none: metrics are not served
};

/// Reads standard input to its end; returns the exit status. Throws BadUsage when `delegate` names no callback.
int runConsole(ConsoleOptions const& options);

}  // namespace kv::console
