// What of an application's, or of a KvWakeUp's, a queue can wait for: a descriptor, and on Windows the handle of an
// event.
#pragma once

#include "Platform/KvSystem.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <boost/asio/detail/config.hpp>
#include <boost/asio/io_context.hpp>
#ifdef BOOST_ASIO_WINDOWS
#include <boost/asio/windows/object_handle.hpp>
#else
#include <boost/asio/posix/stream_descriptor.hpp>
#include <unistd.h>
#endif

namespace kv {

#ifdef BOOST_ASIO_WINDOWS

/// An event is set, or it is not: that is neither reading nor writing.
class KvDescriptor final : public boost::asio::windows::object_handle {
public:
    /// Whether a poll finds what was raised before it. Of an event a thread of Asio's tells, a little later.
    static constexpr bool kIsSeenAtOnce = false;
    enum wait_type { wait_read, wait_write };

    using basic_object_handle::basic_object_handle;
    /// Owns it from now on, or closes it and returns false.
    bool take(int fd) {
        auto const handle = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(fd));
        boost::system::error_code error;
        if (assign(handle, error); error) ::CloseHandle(handle);
        return !error;
    }
    /// Waits for what stays its owner's, who has it back before he closes it. Throws std::runtime_error.
    void borrow(int fd) {
        int const own = duplicateOf(fd);
        if (own < 0 || !take(own)) throw std::system_error(errno, std::generic_category(), "no handle for a queue");
    }
    void giveBack() {}

    template <class Handler>
    void async_wait(wait_type, Handler&& handler) {
        basic_object_handle::async_wait(std::forward<Handler>(handler));
    }
};

#else

class KvDescriptor final : public boost::asio::posix::stream_descriptor {
public:
    static constexpr bool kIsSeenAtOnce = true;
    using basic_stream_descriptor::basic_stream_descriptor;
    bool take(int fd) {
        boost::system::error_code error;
        if (assign(fd, error); error) ::close(fd);
        return !error;
    }
    void borrow(int fd) { assign(fd); }
    void giveBack() {
        if (is_open()) release();
    }
};

#endif

}  // namespace kv
