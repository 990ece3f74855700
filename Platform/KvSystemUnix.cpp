#include "Platform/KvSystem.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>

namespace kv {

int duplicateOf(int fd) { return ::fcntl(fd, F_DUPFD_CLOEXEC, 0); }

void takeNoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

void awaitRoom(int fd) {
    pollfd waiting{.fd = fd, .events = POLLOUT, .revents = 0};
    ::poll(&waiting, 1, -1);
}

}  // namespace kv
