#include "Platform/KvSystem.h"

#include <cerrno>
#include <filesystem>
#include <random>

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {

bool KvWakeUp::open() {
    raisedBy_ = fd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return fd_ >= 0;
}

KvWakeUp::~KvWakeUp() {
    if (fd_ >= 0) ::close(fd_);
}

void KvWakeUp::raise() const {
    std::uint64_t const one = 1;
    [[maybe_unused]] auto const written = ::write(raisedBy_, &one, sizeof one);
}

void KvWakeUp::lower() const {
    std::uint64_t count = 0;
    [[maybe_unused]] auto const read = ::read(fd_, &count, sizeof count);
}

void fillWithRandom(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        auto const count = ::getrandom(bytes.data(), bytes.size(), 0);
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            std::random_device device;
            for (auto& byte : bytes) byte = static_cast<std::uint8_t>(device());
            return;
        }
    }
}

std::string pathOfProgram() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error);
}

int renameUnlessThere(char const* from, char const* to) {
    return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
}

std::optional<timespec> timeOfBirth(char const* path) {
    struct statx status {};
    if (::statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &status) != 0) return std::nullopt;
    auto const& time = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_mtime;
    return timespec{.tv_sec = static_cast<time_t>(time.tv_sec), .tv_nsec = static_cast<long>(time.tv_nsec)};
}

void nameThisThread(char const* name) { pthread_setname_np(pthread_self(), name); }

void returnFreeMemory() {
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
}

}  // namespace kv
