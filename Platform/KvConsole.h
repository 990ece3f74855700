// The system console of this library: standard error.
#pragma once

#include "Platform/KvExport.h"

#include <string_view>

namespace kv {

/// Prints one line, whole: lines of other threads come before or after it. Any thread.
KV_EXPORT void printConsole(std::string_view line);

}  // namespace kv
