// What each system has in a way of its own. Everything else of the library is C++, POSIX and Asio. There are three
// forms: KvSystemLinux.cpp, KvSystemWindows.cpp, and KvSystemPosix.cpp for other systems and for a build with
// KVPIM_PORTABLE.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <time.h>

namespace kv {

/// A descriptor that is readable from `raise` to `lower`; on Windows the handle of an event, set as long. Any thread,
/// once it is open.
class KvWakeUp final {
public:
    KvWakeUp() = default;
    ~KvWakeUp();
    KvWakeUp(KvWakeUp const&) = delete;
    KvWakeUp& operator=(KvWakeUp const&) = delete;

    /// False, with errno, when the system has no descriptor left.
    bool open();
    /// -1 until it is open.
    int fd() const { return fd_; }
    /// Nothing happens to one that is not open, here as in `lower`.
    void raise() const;
    void lower() const;

private:
    int fd_ = -1;
    int raisedBy_ = -1;  // the same, or the other end
};

/// Bytes that nobody can guess.
void fillWithRandom(std::span<std::uint8_t> bytes);
/// The file of this program, with " (deleted)" behind it if it was; empty where nothing tells.
std::string pathOfProgram();
/// 0, or an error of errno: ENOSYS or EINVAL where it cannot be done in one step.
int renameUnlessThere(char const* from, char const* to);
/// When a file came to be, as far as it was kept, or else when it was changed last; a link is not followed. Absent
/// when there is none.
std::optional<timespec> timeOfBirth(char const* path);
/// Names the calling thread for debuggers: at most 15 characters.
void nameThisThread(char const* name);
/// Gives memory back to the system that the process does not use any more.
void returnFreeMemory();

// The others are the same on all systems but Windows: KvSystemUnix.cpp.

/// Another descriptor for the same, which no other program inherits; -1, with errno, where there is none left.
int duplicateOf(int fd);
/// Has the calling thread take no signals.
void takeNoSignals();
/// Waits until a stream that somebody else does not want to wait for takes more.
void awaitRoom(int fd);

}  // namespace kv
