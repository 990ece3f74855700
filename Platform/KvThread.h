// The library's own threads.
#pragma once

#include "Platform/KvExport.h"

#include <functional>

namespace kv {

/// Starts a thread that nobody waits for. It takes no signals. `name`: at most 15 characters, for debuggers. Throws
/// std::system_error when there can be no more threads.
KV_EXPORT void startThread(char const* name, std::function<void()> body);

}  // namespace kv
