// What the library finds outside when it runs in a fuzzer: no network, but the fuzzer itself.
//
// Network.cpp defines what Opener.cpp and Http.cpp define, so the linker leaves those two out of the program.
// Everything above them is the real thing: the bytes that a server is to send go through a real connection.
#pragma once

#include "Net/Http.h"
#include "SocketIO/core/WebSocketCodec.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv::fuzz {

/// The far end of one connection. Everything that the client sends must be well formed.
class ServerEnd {
public:
    explicit ServerEnd(int fd);
    ~ServerEnd();
    ServerEnd(ServerEnd const&) = delete;
    ServerEnd& operator=(ServerEnd const&) = delete;

    void send(std::string_view bytes);
    void hangUp();
    /// Takes what the client has sent.
    void read();
    /// The id of the client's last command that asked for an acknowledgement.
    std::uint64_t lastId() const { return lastId_; }

private:
    void unmask();
    void onMessage();

    int fd_;
    std::string masked_;
    std::string frames_;
    sio::FrameReader reader_;
    std::size_t attachmentsLeft_ = 0;
    std::uint64_t lastId_ = 0;
};

/// Belongs to the thread that runs the fuzzer.
class Network {
public:
    static Network& shared();
    /// Forgets all connections and requests.
    void reset();

    /// The present connection: the last that the client made; null before the first.
    ServerEnd* server() { return servers_.empty() ? nullptr : servers_.back().get(); }
    /// Reads what was sent on all connections.
    void readAll();
    /// Answers the requests that wait.
    void answerRequests(KvHttpAnswer const& answer);

    // For those who stand in.
    void addServer(int fd) { servers_.push_back(std::make_unique<ServerEnd>(fd)); }
    void addRequest(KvHttpCompletion completion) { requests_.push_back(std::move(completion)); }

private:
    std::vector<std::unique_ptr<ServerEnd>> servers_;
    std::vector<KvHttpCompletion> requests_;
};

/// Ends what an input began outside of its client, so that nothing of it reaches the next one.
void endInput();

}  // namespace kv::fuzz
