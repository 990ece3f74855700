#include "Relay.h"

#include <poll.h>
#include <sys/socket.h>

namespace kv::test {
namespace {

constexpr int kTurnMs = 2;  // how soon a connection takes notice of what is asked of it

// False at the end of the connection.
bool passSome(int from, int to) {
    char bytes[65536];
    auto const size = ::recv(from, bytes, sizeof bytes, 0);
    return size > 0 && ::send(to, bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL) == size;
}

}  // namespace

void Relay::pass(Connection& client) {
    using boost::asio::ip::tcp;
    int const number = connections_++;
    boost::asio::io_context context;
    tcp::socket server(context);
    boost::system::error_code refused;
    server.connect(tcp::endpoint(boost::asio::ip::address_v4::loopback(), target_), refused);
    bool isOpen = !refused;
    while (isOpen && !client.isInterrupted()) {
        pollfd ends[] = {{client.fd(), POLLIN, 0}, {server.native_handle(), POLLIN, 0}};
        bool const isSilent = number < silent_;
        ::poll(ends, isSilent ? 0 : 2, kTurnMs);
        if (isSilent) continue;
        if (ends[0].revents != 0) isOpen = passSome(ends[0].fd, ends[1].fd);
        if (isOpen && ends[1].revents != 0) isOpen = passSome(ends[1].fd, ends[0].fd);
    }
}

}  // namespace kv::test
