#include "Platform/KvSystem.h"
#include "Platform/KvWindowsText.h"

#include <cerrno>
#include <random>

// clang-format off
#include <windows.h>
#include <bcrypt.h>  // takes the former for granted
// clang-format on

extern "C" HRESULT WINAPI SetThreadDescription(HANDLE thread, PCWSTR name);  // mingw-w64 has it, but says so nowhere

namespace kv {
namespace {

// Of a handle all but 32 bits are without meaning, so that it can be passed as a descriptor is.
HANDLE handleOf(int fd) { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(fd)); }
int fdOf(HANDLE handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)); }

}  // namespace

bool KvWakeUp::open() {
    HANDLE const event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) {
        errno = EMFILE;
        return false;
    }
    raisedBy_ = fd_ = fdOf(event);
    return true;
}

KvWakeUp::~KvWakeUp() {
    if (fd_ >= 0) ::CloseHandle(handleOf(fd_));
}

void KvWakeUp::raise() const { ::SetEvent(handleOf(raisedBy_)); }

void KvWakeUp::lower() const { ::ResetEvent(handleOf(fd_)); }

void fillWithRandom(std::span<std::uint8_t> bytes) {
    auto const size = static_cast<ULONG>(bytes.size());
    if (::BCryptGenRandom(nullptr, bytes.data(), size, BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0) return;
    std::random_device device;
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(device());
}

std::string pathOfProgram() {
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))) == path.size())
        path.resize(2 * path.size());  // there was no room for all of it
    path.resize(length);
    return utf8Of(path);
}

int renameUnlessThere(char const* from, char const* to) {
    if (::MoveFileExW(pathOf(from).c_str(), pathOf(to).c_str(), 0)) return 0;
    switch (::GetLastError()) {
        case ERROR_ALREADY_EXISTS:
        case ERROR_FILE_EXISTS:
            return EEXIST;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_DISK_FULL:
            return ENOSPC;
        case ERROR_NOT_SAME_DEVICE:
            return EXDEV;
        default:
            return EACCES;
    }
}

std::optional<timespec> timeOfBirth(char const* path) {
    // In tenths of microseconds, since 1601.
    constexpr std::int64_t kUnitsInSecond = 10'000'000, kStartOfUnixTime = 11'644'473'600;
    WIN32_FILE_ATTRIBUTE_DATA status{};
    if (!::GetFileAttributesExW(pathOf(path).c_str(), GetFileExInfoStandard, &status)) return std::nullopt;
    auto const& birth = status.ftCreationTime;
    auto const time = static_cast<std::int64_t>(birth.dwHighDateTime) << 32 | birth.dwLowDateTime;
    return timespec{.tv_sec = static_cast<time_t>(time / kUnitsInSecond - kStartOfUnixTime),
                    .tv_nsec = static_cast<long>(time % kUnitsInSecond * 100)};
}

void nameThisThread(char const* name) { ::SetThreadDescription(::GetCurrentThread(), pathOf(name).c_str()); }

void returnFreeMemory() {}

int duplicateOf(int fd) {
    HANDLE const process = ::GetCurrentProcess();
    HANDLE duplicate = nullptr;
    if (::DuplicateHandle(process, handleOf(fd), process, &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS))
        return fdOf(duplicate);
    errno = EMFILE;
    return -1;
}

void takeNoSignals() {}  // there are none

void awaitRoom(int) {}  // a write waits

}  // namespace kv
