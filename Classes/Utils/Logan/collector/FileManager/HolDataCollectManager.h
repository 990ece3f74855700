#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace kv {

/// When the file was made; where the file system does not keep that, when it was last changed. Nothing for no file.
std::optional<std::chrono::system_clock::time_point> fileCreationDate(std::string const& path);

}  // namespace kv
