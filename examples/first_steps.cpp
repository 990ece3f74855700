// Logs in, sends a message to oneself and shows it when it arrives.
#include <chrono>
#include <cstdio>
#include <ctime>

#include <KvPim/KvPimKit.h>

int main(int argc, char** argv) {
    auto const queue = kv::KvMainQueue::main();

    auto const delegate = std::make_shared<kv::KvPimDelegate>();
    delegate->messageReceived = [&](kv::KvPimKit&, auto message, auto const& peerId) {
        std::printf("%s says: %s\n", peerId.c_str(), message->text.value_or("(bytes)").c_str());
        queue->stop();
    };

    kv::KvPimOptions options;
    options.envConfig.apiServer = argc > 1 ? argv[1] : "http://127.0.0.1:8600";
    auto const client = kv::KvPimKit::initWithAppId("demo", delegate, options);
    if (!client) return 1;

    std::string const token = "0123456789abcdef0123456789abcdef";
    client->loginByToken(token, std::time(nullptr) * 1000, "alice", [&](std::int64_t errorCode) {
        std::printf("login: %d\n", static_cast<int>(errorCode));
        if (errorCode != 0) return queue->stop();
        auto const message = std::make_shared<kv::KvPimMessage>("Hello, world");
        client->sendMessageToPeer(message, "alice", std::nullopt, [](std::int64_t sendError) {
            std::printf("sent: %d\n", static_cast<int>(sendError));
        });
    });

    queue->runFor(std::chrono::seconds(10));  // all callbacks run in here
}
