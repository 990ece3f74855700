// `kvpim replay`: the server's side of a record, played to a fresh client.
#pragma once

#include <cstdint>
#include <string>

namespace kv::console {

struct ReplayOptions {
    std::string file;
    std::uint64_t client = 1;
    bool isQuiet = false;  // the differences alone
};

/// Prints what the client did, and each difference; returns the exit status: 1 when there is one.
int runReplay(ReplayOptions const& options);

}  // namespace kv::console
