// The main queue in a loop over epoll, level-triggered: the queue's descriptor stays readable until `poll` has run its
// work.
#include "Greeting.h"

#include <optional>

#include <sys/epoll.h>
#include <unistd.h>

int main(int argc, char** argv) {
    std::optional<int> status;
    Greeting greeting(argc, argv, [&](int result) { status = result; });
    auto const queue = greeting.queue();

    int const loop = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = queue->fd();
    epoll_ctl(loop, EPOLL_CTL_ADD, queue->fd(), &event);
    while (!status) {
        epoll_event ready{};
        if (epoll_wait(loop, &ready, 1, -1) == 1 && ready.data.fd == queue->fd()) queue->poll();
    }
    close(loop);
    return *status;
}
