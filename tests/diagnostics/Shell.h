// A shell command, run to its end.
#pragma once

#include "support/ChildProcess.h"

#include <chrono>
#include <string>

namespace kv {

struct ShellResult {
    std::string output;  // standard output
    int exitCode = -1;   // -1 when it did not end
    std::chrono::milliseconds elapsed{};
};

inline ShellResult runShell(std::string const& command) {
    using Clock = std::chrono::steady_clock;
    ShellResult result;
    auto const start = Clock::now();
    auto const deadline = start + std::chrono::seconds(100);
    test::ChildProcess child({"sh", "-c", command});
    child.closeInput();
    while (auto const line = child.readLine(deadline)) result.output += *line + "\n";
    result.exitCode = child.wait(deadline).value_or(-1);
    result.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    return result;
}

}  // namespace kv
