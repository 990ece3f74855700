#include "Platform/KvFiles.h"

#include "Platform/KvConsole.h"

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

KvFileDescriptor::~KvFileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t const written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool createDirectories(std::string const& path) {
    if (path.empty()) return false;
    if (isDirectory(path)) return true;
    auto const parentEnd = path.find_last_of('/', path.find_last_not_of('/'));
    if (parentEnd != std::string::npos && parentEnd > 0 && !createDirectories(path.substr(0, parentEnd))) return false;
    return ::mkdir(path.c_str(), 0700) == 0 || isDirectory(path);  // another process may have been faster
}

std::error_code renameWithoutReplacing(std::string const& from, std::string const& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
    if (errno != EINVAL && errno != ENOSYS) return lastError();
    // A file system that cannot do it in one step: for a moment the file has both names.
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

std::error_code lastError() { return {errno, std::generic_category()}; }

}  // namespace kv
