// The library's own threads.
#pragma once

#include <functional>
#include <thread>

namespace kv {

/// Makes a thread that takes no signals. `name`: at most 15 characters, for debuggers. Not joinable when there can be
/// no more threads.
[[nodiscard]] std::thread makeThread(char const* name, std::function<void()> body);

/// The same for a thread that nobody waits for. False when there can be no more threads.
[[nodiscard]] bool startThread(char const* name, std::function<void()> body);

}  // namespace kv
