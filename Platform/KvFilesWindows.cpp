#include "Platform/KvFiles.h"
#include "Platform/KvSystem.h"
#include "Platform/KvWindowsText.h"

#include <io.h>
#include <stdio.h>

namespace kv {

bool readAt(int fd, off_t place, std::span<char> bytes) {
    return ::_lseeki64(fd, place, SEEK_SET) == place &&
           ::_read(fd, bytes.data(), static_cast<unsigned>(bytes.size())) == static_cast<int>(bytes.size());
}

// What is below a user's own directory is for this user alone.
bool createDirectories(std::string const& path) {
    if (path.empty()) return false;
    std::error_code error;
    std::filesystem::create_directories(pathOf(path), error);
    return std::filesystem::is_directory(pathOf(path), error);
}

std::error_code renameWithoutReplacing(std::string const& from, std::string const& to) {
    return {renameUnlessThere(from.c_str(), to.c_str()), std::generic_category()};
}

void tellOfTooFewDescriptors() {}  // a process may have as many as there is memory for

}  // namespace kv
