// Where a program of this user keeps its files. No slash at the end of any of these.
#pragma once

#include "Platform/KvExport.h"

#include <string>

namespace kv {

/// What the program can do without: `$XDG_CACHE_HOME` when it is an absolute path, else `.cache` in the home directory.
KV_EXPORT std::string cachesDirectory();
/// What must last: `$XDG_DATA_HOME` when it is an absolute path, else `.local/share` in the home directory.
KV_EXPORT std::string dataDirectory();

}  // namespace kv
