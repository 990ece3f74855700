#include "SystemCalls.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <sstream>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace kv::test {
namespace {

std::atomic<std::size_t> mostBytes{SIZE_MAX};
std::atomic<bool> hasDescriptors{true};
std::atomic<std::int64_t> wallClockStep{0};  // seconds
std::atomic<std::int64_t> timeAsleep{0};     // likewise
std::atomic<int> alarmOfClock{-1};           // the timer that is told when the wall clock is set

std::mutex namesMutex;
bool hasNames = false;  // guarded, as the address is
std::string addressOfNames;

}  // namespace

ShortReadsAndWrites::ShortReadsAndWrites(std::size_t most) { mostBytes = most; }
ShortReadsAndWrites::~ShortReadsAndWrites() { mostBytes = SIZE_MAX; }

NoDescriptors::NoDescriptors() {
    hasDescriptors = false;
    ::getrlimit(RLIMIT_NOFILE, &before_);
    int const lowestFree = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(lowestFree);
    rlimit const none{static_cast<rlim_t>(lowestFree), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
}

NoDescriptors::~NoDescriptors() {
    ::setrlimit(RLIMIT_NOFILE, &before_);
    hasDescriptors = true;
}

WallClockStep::WallClockStep(std::chrono::seconds step) { wallClockStep = step.count(); }
WallClockStep::~WallClockStep() { wallClockStep = 0; }

void sleepAndWakeUp(std::chrono::seconds time) {
    timeAsleep += time.count();
    itimerspec now{};
    now.it_value.tv_nsec = 1;
    ::syscall(SYS_timerfd_settime, alarmOfClock.load(), 0, &now, nullptr);
}

Names::Names() {
    std::lock_guard lock(namesMutex);
    hasNames = true;
}

Names::~Names() {
    std::lock_guard lock(namesMutex);
    hasNames = false;
}

void Names::set(std::string const& address) {
    std::lock_guard lock(namesMutex);
    addressOfNames = address;
}

}  // namespace kv::test

#define KV_STANDS_IN extern "C" __attribute__((visibility("default")))

KV_STANDS_IN ssize_t send(int socket, void const* bytes, std::size_t size, int flags) {
    return ::syscall(SYS_sendto, socket, bytes, std::min(size, kv::test::mostBytes.load()), flags, nullptr, 0);
}

KV_STANDS_IN ssize_t recv(int socket, void* bytes, std::size_t size, int flags) {
    return ::syscall(SYS_recvfrom, socket, bytes, std::min(size, kv::test::mostBytes.load()), flags, nullptr, nullptr);
}

KV_STANDS_IN int clock_gettime(clockid_t clock, timespec* time) noexcept {
    auto const result = ::syscall(SYS_clock_gettime, clock, time);
    if (result == 0 && clock == CLOCK_REALTIME) time->tv_sec += kv::test::wallClockStep.load();
    if (result == 0 && clock == CLOCK_BOOTTIME) time->tv_sec += kv::test::timeAsleep.load();
    return static_cast<int>(result);
}

KV_STANDS_IN int timerfd_settime(int fd, int flags, itimerspec const* next, itimerspec* before) noexcept {
    if ((flags & TFD_TIMER_CANCEL_ON_SET) != 0) kv::test::alarmOfClock = fd;
    return static_cast<int>(::syscall(SYS_timerfd_settime, fd, flags, next, before));
}

KV_STANDS_IN int getaddrinfo(char const* node, char const* service, addrinfo const* hints, addrinfo** found) {
    static auto const system = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    if (node == nullptr || !std::string_view(node).ends_with(".test")) return system(node, service, hints, found);
    std::string addresses;
    {
        std::lock_guard lock(kv::test::namesMutex);
        if (kv::test::hasNames) addresses = kv::test::addressOfNames;
    }
    *found = nullptr;
    int problem = EAI_AGAIN;
    std::istringstream list(addresses);
    for (addrinfo** next = found; std::getline(list, addresses, ',');) {
        problem = system(addresses.c_str(), service, hints, next);
        while (*next != nullptr) next = &(*next)->ai_next;
    }
    return problem;
}

// The sanitizer's check of an object's type. It reads memory through a pipe, and takes it for broken when it gets none.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
KV_STANDS_IN void __ubsan_handle_dynamic_type_cache_miss_abort(void* where, void* object, void* hash) {
    static auto const system = reinterpret_cast<decltype(&__ubsan_handle_dynamic_type_cache_miss_abort)>(
        ::dlsym(RTLD_NEXT, "__ubsan_handle_dynamic_type_cache_miss_abort"));
    if (kv::test::hasDescriptors) system(where, object, hash);
}
