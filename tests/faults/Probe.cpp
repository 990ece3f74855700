// A whole client in a process of its own that may have only so many descriptors or threads, until it has them again:
//   faults_probe URL thread|mainQueue DIRECTORY descriptors|threads COUNT
// Ends with 0 when the client, whatever became of it before, is then connected and has an answer to a request.
#include "Classes/KvPimKit.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/resource.h>

// The sanitizer's check of an object's type reads memory through a pipe, and takes it for broken when it gets none.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
extern "C" __attribute__((visibility("default"))) void __ubsan_handle_dynamic_type_cache_miss_abort(void*, void*,
                                                                                                    void*) {}

namespace {

using namespace std::chrono_literals;

std::atomic<int> threadsLeft{1000};
rlimit before{};

void limit(std::string const& what, int count) {
    if (what == "threads") {
        threadsLeft = count;
        return;
    }
    ::getrlimit(RLIMIT_NOFILE, &before);
    rlimit const few{static_cast<rlim_t>(count), before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
}

void lift(std::string const& what) {
    threadsLeft = 1000;
    if (what == "descriptors") ::setrlimit(RLIMIT_NOFILE, &before);
}

struct Client {
    explicit Client(char** arguments) {
        auto& surroundings = options.envConfig;
        surroundings.apiServer = arguments[1];
        surroundings.collectServer = arguments[1] + std::string("/pim/v1/collect-logan");
        surroundings.uploadInterval = 20ms;
        surroundings.cachesDirectory = surroundings.keyStoreDirectory = arguments[3];
        options.network.watchesNetwork = true;
        options.engine = arguments[2] == std::string("thread") ? kv::KvPimEngine::thread : kv::KvPimEngine::mainQueue;
    }

    /// Logs in and asks for something, again and again, until an answer is there or the time is over.
    bool isAnswered(std::chrono::milliseconds time) {
        bool isAnswered = false;
        auto const end = std::chrono::steady_clock::now() + time;
        while (!isAnswered && std::chrono::steady_clock::now() < end) {
            if (!options.mainQueue) options.mainQueue = kv::KvMainQueue::create();
            if (options.mainQueue && !kit) kit = kv::KvPimKit::initWithAppId("app", delegate, options);
            if (!kit) continue;
            kit->loginByToken("0123456789abcdef0123456789abcdef", 1, "alice", {});
            kit->setLocalUserAttributes({{"k", "v"}}, [&](std::int64_t code) { isAnswered |= code == 0; });
            options.mainQueue->runFor(50ms);
        }
        return isAnswered;
    }

    kv::KvPimOptions options;
    std::shared_ptr<kv::KvPimDelegate> const delegate = std::make_shared<kv::KvPimDelegate>();
    std::shared_ptr<kv::KvPimKit> kit;
};

}  // namespace

// Stands in the way of the system's.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     pthread_attr_t const* attributes,
                                                                     void* (*body)(void*), void* argument) {
    static auto const system = reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    return --threadsLeft < 0 ? EAGAIN : system(thread, attributes, body, argument);
}

int main(int count, char** arguments) {
    if (count != 6) return 2;
    Client client(arguments);
    limit(arguments[4], std::atoi(arguments[5]));
    client.isAnswered(300ms);
    lift(arguments[4]);
    return client.isAnswered(30s) ? 0 : 1;
}
