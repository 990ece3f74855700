#pragma once

namespace kv {

/// Where a line that the library prints belongs.
enum class KvConsoleStream {
    out,    // standard output
    error,  // standard error
};

}  // namespace kv
