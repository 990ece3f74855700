#include "Classes/Utils/Logan/collector/FileManager/HolDataCollectManager.h"

#include "Platform/KvSystem.h"

namespace kv {

std::optional<std::chrono::system_clock::time_point> fileCreationDate(std::string const& path) {
    auto const date = timeOfBirth(path.c_str());
    if (!date) return std::nullopt;
    return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
        std::chrono::seconds(date->tv_sec) + std::chrono::nanoseconds(date->tv_nsec)));
}

}  // namespace kv
