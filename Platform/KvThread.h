// The library's own threads.
#pragma once

#include "Platform/KvExport.h"

#include <functional>

namespace kv {

/// Starts a thread that nobody waits for. It takes no signals. `name`: at most 15 characters, for debuggers. False when
/// there can be no more threads.
[[nodiscard]] KV_EXPORT bool startThread(char const* name, std::function<void()> body);

}  // namespace kv
