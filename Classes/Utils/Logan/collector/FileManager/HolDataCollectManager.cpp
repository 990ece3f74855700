#include "Classes/Utils/Logan/collector/FileManager/HolDataCollectManager.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace kv {

std::optional<std::chrono::system_clock::time_point> fileCreationDate(std::string const& path) {
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &status) != 0) {
        return std::nullopt;
    }
    auto const& date = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
    return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
        std::chrono::seconds(date.tv_sec) + std::chrono::nanoseconds(date.tv_nsec)));
}

}  // namespace kv
