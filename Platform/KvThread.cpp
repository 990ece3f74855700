#include "Platform/KvThread.h"

#include <system_error>
#include <thread>
#include <utility>

#include <pthread.h>
#include <signal.h>

namespace kv {

bool startThread(char const* name, std::function<void()> body) try {
    std::thread([name, body = std::move(body)] {
        // Signals are the application's: its own threads take them. That includes the one that a file over the size
        // limit raises in its writer, which would end the process.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        pthread_setname_np(pthread_self(), name);
        body();
    }).detach();
    return true;
} catch (std::system_error const&) {
    return false;
}

}  // namespace kv
