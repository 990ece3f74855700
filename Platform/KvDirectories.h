// Where a program of this user keeps what it can do without.
#pragma once

#include <string>

#include "Platform/KvExport.h"

namespace kv {

/// `$XDG_CACHE_HOME` when it is an absolute path, else `.cache` in the home directory. No slash at the end.
KV_EXPORT std::string cachesDirectory();

}  // namespace kv
