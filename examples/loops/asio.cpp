// The main queue in an application's own Asio context. The library has an Asio of its own inside, of which the
// application sees nothing; the two meet at the descriptor only.
#include "Greeting.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <unistd.h>

namespace asio = boost::asio;

namespace {

void drive(kv::KvMainQueue& queue, asio::posix::stream_descriptor& readable) {
    readable.async_wait(asio::posix::stream_descriptor::wait_read, [&](boost::system::error_code error) {
        if (error) return;
        queue.poll();
        drive(queue, readable);
    });
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): it ends the program, as it should
int main(int argc, char** argv) {
    asio::io_context context;
    int status = 1;
    Greeting greeting(argc, argv, [&](int result) {
        status = result;
        context.stop();
    });
    auto const queue = greeting.queue();

    // The queue's own descriptor is not Asio's to close.
    asio::posix::stream_descriptor readable(context, dup(queue->fd()));
    drive(*queue, readable);
    context.run();
    return status;
}
