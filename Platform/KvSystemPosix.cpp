#include "Platform/KvSystem.h"

#include <array>
#include <cerrno>
#include <random>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {

bool KvWakeUp::open() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) return false;
    for (int const end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
    }
    fd_ = ends[0];
    raisedBy_ = ends[1];
    return true;
}

KvWakeUp::~KvWakeUp() {
    if (fd_ < 0) return;
    ::close(fd_);
    ::close(raisedBy_);
}

// A pipe that is full is readable as it is.
void KvWakeUp::raise() const { [[maybe_unused]] auto const written = ::write(raisedBy_, "", 1); }

void KvWakeUp::lower() const {
    std::array<char, 256> some;
    while (::read(fd_, some.data(), some.size()) == static_cast<ssize_t>(some.size())) {
    }
}

void fillWithRandom(std::span<std::uint8_t> bytes) {
    std::random_device device;
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(device());
}

std::string pathOfProgram() { return {}; }

int renameUnlessThere(char const*, char const*) { return ENOSYS; }

std::optional<timespec> timeOfBirth(char const* path) {
    struct stat status {};
    if (::lstat(path, &status) != 0) return std::nullopt;
    return status.st_mtim;
}

void nameThisThread(char const*) {}

void returnFreeMemory() {}

}  // namespace kv
