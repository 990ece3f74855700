// Uses the Socket.IO client without the rest of the library: says hello to the service, which wants a login, and
// leaves.
#include <chrono>
#include <cstdio>

#include <KvPim/Platform/KvEngineThread.h>
#include <KvPim/SocketIO/SocketIOClient.h>
#include <KvPim/SocketIO/SocketManager.h>

int main(int, char** argv) {
    auto const queue = kv::KvMainQueue::main();
    kv::SocketManager manager(argv[1], {}, queue, kv::engineThreadQueue());
    auto const socket = manager.defaultSocket();
    bool answered = false;
    for (auto const event : {"connect", "disconnect"}) {
        socket->on(event, [&, event](kv::SocketData const&) {
            std::printf("%s\n", event);
            answered = true;
            queue->stop();
        });
    }
    socket->connect();
    queue->runFor(std::chrono::seconds(20));
    return answered ? 0 : 1;
}
