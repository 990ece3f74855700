// What the standard library's files lack: descriptors, private directories, a rename that replaces nothing.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/types.h>
#include <unistd.h>

namespace kv {

/// Owns an open descriptor, or none.
class KvFileDescriptor {
public:
    KvFileDescriptor() = default;
    explicit KvFileDescriptor(int fd) : fd_(fd) {}
    KvFileDescriptor(KvFileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    KvFileDescriptor& operator=(KvFileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~KvFileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

/// Which file this is, whatever its name.
struct KvFileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(KvFileId const&) const = default;
};

/// Writes all of it, or returns false, with errno set.
bool writeAll(int fd, std::string_view bytes);
/// Writes all of it at the end of a file, or returns false; a line for which there was no room is not left there in
/// part.
bool appendLines(int fd, std::string_view lines);
/// Fills `bytes` from that place of a file on; false when there are not so many. Where the descriptor stands does not
/// matter, and on Windows changes.
bool readAt(int fd, off_t place, std::span<char> bytes);
/// Takes away what is behind the last line break of a file. The descriptor must be open for reading, too.
void cutHalfLine(int fd);
/// Makes a directory and whatever is missing above it, for this user alone. True when it is there afterwards.
bool createDirectories(std::string const& path);
/// A name that stands for any text, and for no other, and leaves no directory: letters, digits, "-", "_" and, but at
/// the start, "." stand for themselves.
std::string asFileName(std::string_view text);
/// Like rename, but fails when `to` exists.
std::error_code renameWithoutReplacing(std::string const& from, std::string const& to);
/// Says on standard error, once in the life of the process, that there are too few descriptors, if that is so.
void tellOfTooFewDescriptors();
/// The error that errno stands for.
std::error_code lastError();

}  // namespace kv
