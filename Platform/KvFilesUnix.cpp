#include "Platform/KvConsole.h"
#include "Platform/KvFiles.h"
#include "Platform/KvSystem.h"

#include <atomic>
#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

bool isDirectory(std::string const& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool readAt(int fd, off_t place, std::span<char> bytes) {
    return ::pread(fd, bytes.data(), bytes.size(), place) == static_cast<ssize_t>(bytes.size());
}

bool createDirectories(std::string const& path) {
    if (path.empty()) return false;
    if (isDirectory(path)) return true;
    auto const parentEnd = path.find_last_of('/', path.find_last_not_of('/'));
    if (parentEnd != std::string::npos && parentEnd > 0 && !createDirectories(path.substr(0, parentEnd))) return false;
    return ::mkdir(path.c_str(), 0700) == 0 || isDirectory(path);  // another process may have been faster
}

std::error_code renameWithoutReplacing(std::string const& from, std::string const& to) {
    int const error = renameUnlessThere(from.c_str(), to.c_str());
    if (error != EINVAL && error != ENOSYS) return {error, std::generic_category()};
    // What cannot be done in one step: for a moment the file has both names.
    if (::link(from.c_str(), to.c_str()) != 0 || ::unlink(from.c_str()) != 0) return lastError();
    return {};
}

void tellOfTooFewDescriptors() {
    static std::atomic<bool> isTold{false};
    if (KvFileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)) || errno != EMFILE || isTold.exchange(true)) return;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    printLine(KvConsoleStream::error,
              "kvpim: this process may open no more than " + std::to_string(limit.rlim_cur) +
                  " descriptors (ulimit -n), and has; connections and files fail for want of more");
}

}  // namespace kv
