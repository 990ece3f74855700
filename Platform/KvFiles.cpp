#include "Platform/KvFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

// How much of it there is room for. What does not fit leaves its reason in errno.
std::size_t writtenOf(int fd, std::string_view bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
    }
    return done;
}

// Zero of what is no file.
off_t sizeOf(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

}  // namespace

bool writeAll(int fd, std::string_view bytes) { return writtenOf(fd, bytes) == bytes.size(); }

bool appendLines(int fd, std::string_view lines) {
    auto const written = writtenOf(fd, lines);
    if (written == lines.size()) return true;
    auto const half = static_cast<off_t>(written - (lines.substr(0, written).rfind('\n') + 1));
    auto const size = sizeOf(fd);
    if (half > 0 && size >= half) [[maybe_unused]]
        auto const cut = ::ftruncate(fd, size - half);
    return false;
}

void cutHalfLine(int fd) {
    auto const size = sizeOf(fd);
    std::array<char, 4096> piece;
    for (off_t end = size; end > 0;) {
        auto const start = std::max<off_t>(end - static_cast<off_t>(end == size ? 1 : piece.size()), 0);
        auto const count = static_cast<std::size_t>(end - start);
        if (!readAt(fd, start, {piece.data(), count})) return;
        auto const lineEnd = std::string_view(piece.data(), count).rfind('\n');
        end = start;
        if (lineEnd == std::string_view::npos && start > 0) continue;
        auto const kept = start + static_cast<off_t>(lineEnd + 1);  // none is the one before zero
        if (kept < size) [[maybe_unused]]
            auto const cut = ::ftruncate(fd, kept);
        return;
    }
}

std::string asFileName(std::string_view text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string name;
    for (char const c : text) {
        bool const isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                             c == '_' || (c == '.' && !name.empty());
        if (isPlain) {
            name += c;
        } else {
            auto const byte = static_cast<unsigned char>(c);
            name += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return name;
}

std::error_code lastError() { return {errno, std::generic_category()}; }

}  // namespace kv
