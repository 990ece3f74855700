// Where a program of this user keeps its files. No slash at the end of any of these.
#pragma once

#include <string>
#include <string_view>

namespace kv {

/// What the program can do without: `$XDG_CACHE_HOME` when it is an absolute path, else `.cache` in the home directory;
/// on Windows `%LOCALAPPDATA%/cache`.
std::string cachesDirectory();
/// Below it, the directory of one of the user's programs.
std::string cachesDirectoryOf(std::string_view program);
/// What must last: `$XDG_DATA_HOME` when it is an absolute path, else `.local/share` in the home directory; on Windows
/// `%LOCALAPPDATA%`.
std::string dataDirectory();
/// The name of this program's executable, which an update leaves as it is; empty when the system does not tell it.
std::string executableName();

}  // namespace kv
