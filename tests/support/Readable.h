// What a queue's descriptor says: that there is something to do.
#pragma once

#include <chrono>

#ifdef _WIN32
#include <windows.h>
#else
#include <poll.h>
#endif

namespace kv::test {

inline bool isReadable(int fd, std::chrono::milliseconds wait = std::chrono::milliseconds(0)) {
#ifdef _WIN32
    auto const event = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(fd));
    return ::WaitForSingleObject(event, static_cast<DWORD>(wait.count())) == WAIT_OBJECT_0;
#else
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(wait.count())) == 1;
#endif
}

}  // namespace kv::test
