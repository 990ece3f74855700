#include "Platform/KvQueueDescriptor.h"

namespace kv {
namespace asio = boost::asio;
namespace {

// Asio keeps its epoll descriptor to itself, but an application's own loop must wait on it. An explicit instantiation
// may name a private member, which is the one way to it that the language allows.
#ifndef BOOST_ASIO_HAS_EPOLL
#error "The main queue needs an Asio that waits with epoll (no io_uring), or KVPIM_PORTABLE"
#endif
int epollFdOf(asio::detail::epoll_reactor& reactor);
template <auto Member>
struct EpollFd {
    friend int epollFdOf(asio::detail::epoll_reactor& reactor) { return reactor.*Member; }
};
template struct EpollFd<&asio::detail::epoll_reactor::epoll_fd_>;

}  // namespace

int KvQueueDescriptor::get() { return epollFdOf(asio::use_service<asio::detail::epoll_reactor>(context_)); }

}  // namespace kv
