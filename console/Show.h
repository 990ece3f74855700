// `kvpim show`: a record, for people.
#pragma once

#include <cstdint>
#include <string>

namespace kv::console {

struct ShowOptions {
    std::string file;
    std::string only;              // "requests", "events" or "life"; empty for all
    std::string grep;              // what a line must contain
    std::uint64_t connection = 0;  // 0 for all
    bool isFull = false;           // long lines, too
};

/// Prints the record; returns the exit status: 1 when there is none.
int runShow(ShowOptions const& options);

}  // namespace kv::console
