// A part of a program that is loaded and closed while the program runs: logs in to the service.
#include <chrono>
#include <cstdio>

#include <KvPim/KvPimKit.h>

extern "C" bool logIn(char const* service) {
    auto const queue = kv::KvMainQueue::main();
    kv::KvPimOptions options;
    options.envConfig.apiServer = service;
    auto const client = kv::KvPimKit::initWithAppId("demo", {}, options);
    if (!client) return false;
    client->loginByToken("0123456789abcdef0123456789abcdef", 1, "alice", [&](std::int64_t errorCode) {
        if (errorCode == 0) std::puts("connect");
        queue->stop();
    });
    queue->runFor(std::chrono::seconds(10));
    return true;
}
