#include "Platform/KvEngineThread.h"

#include <thread>

#include <pthread.h>
#include <signal.h>

namespace kv {

std::shared_ptr<KvMainQueue> engineThreadQueue() {
    // Neither the queue nor its thread ends before the process: connections of static clients may outlive any order of
    // destruction.
    static auto& queue = *new std::shared_ptr<KvMainQueue>([] {
        auto made = KvMainQueue::create();
        std::thread([made] {
            sigset_t all;  // signals are the application's: its own threads take them
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, nullptr);
            pthread_setname_np(pthread_self(), "kv.engine");
            made->run();
        }).detach();
        return made;
    }());
    return queue;
}

}  // namespace kv
