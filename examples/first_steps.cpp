// Logs in, sends a message to oneself and shows it when it arrives.
#include <chrono>
#include <cstdio>

#include <KvPim/KvPimAwait.h>

kv::KvTask<> talk(std::shared_ptr<kv::KvPimKit> client) {
    auto messages = client->messages();
    std::string const token = "0123456789abcdef0123456789abcdef";
    if (auto const login = co_await client->loginByToken(token, std::chrono::system_clock::now(), "alice"); !login) {
        std::printf("login: %s\n", login.error().message().c_str());
        co_return;
    }
    auto const sent = co_await client->sendMessageToPeer("Hello, world", "alice");
    if (!sent) std::printf("sent: %s\n", sent.error().message().c_str());

    if (auto const received = co_await messages.next()) {
        std::printf("%s says: %s\n", received->peerId.c_str(), received->message->text.value_or("(bytes)").c_str());
    }
}

int main(int argc, char** argv) {
    kv::KvPimOptions options;
    options.envConfig.apiServer = argc > 1 ? argv[1] : "http://127.0.0.1:8600";
    auto const client = kv::KvPimKit::create("demo", options);
    if (!client) {
        std::printf("no client: %s\n", client.error().message().c_str());
        return 1;
    }
    kv::run(kv::KvMainQueue::main(), talk(*client));  // everything runs in here
}
