#include "Platform/KvDirectories.h"

#include <array>
#include <cstdlib>
#include <optional>

#include <pwd.h>
#include <unistd.h>

namespace kv {
namespace {

// The environment may name a relative path, which would mean another place after each change of the working directory.
std::optional<std::string> absolutePathFrom(char const* variable) {
    char const* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe) the library sets none
    if (value == nullptr || value[0] != '/') return std::nullopt;
    std::string path = value;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string homeDirectory() {
    if (auto home = absolutePathFrom("HOME")) return *home;
    std::array<char, 16384> buffer;
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        return found->pw_dir;
    }
    return "";
}

}  // namespace

std::string cachesDirectory() {
    if (auto path = absolutePathFrom("XDG_CACHE_HOME")) return *path;
    return homeDirectory() + "/.cache";
}

std::string dataDirectory() {
    if (auto path = absolutePathFrom("XDG_DATA_HOME")) return *path;
    return homeDirectory() + "/.local/share";
}

}  // namespace kv
