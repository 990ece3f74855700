// A client under measurement: the whole library, or the Socket.IO client alone, behind one face. All calls and
// callbacks are those of the main queue.
#pragma once

#include "Platform/KvMainQueue.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace bench {

enum class Content { text, binary };
inline constexpr long kAddresses = 8;
inline constexpr std::size_t kTextBytes = 64, kBinaryBytes = 32768;

inline constexpr std::size_t bytesOf(Content content) { return content == Content::text ? kTextBytes : kBinaryBytes; }

class Client {
public:
    using Done = std::function<void()>;
    using Answered = std::function<void(std::int64_t code)>;

    virtual ~Client() = default;
    /// Anything but a success ends the process.
    virtual void login(Done done) = 0;
    virtual void logout(Done done) = 0;
    /// Has the server drop the connection; `done` comes when the client is logged in again.
    virtual void loseConnection(Done done) = 0;
    /// Sends a message to a peer.
    virtual void send(Content content, Answered answered) = 0;
    /// Has the server send so many messages; `done` comes behind the last of them.
    virtual void askForMessages(long count, Content content, Done done) = 0;

    std::function<void(std::size_t bytes)> onMessage;
};

/// What to measure, and where its server is.
struct Subject {
    std::string host = "127.0.0.1";
    std::string port;
    std::string caFile;  // of a server that speaks TLS; empty for one that does not
    bool isSocketOnly = false;
    bool isOnThread = false;

    std::string name() const {
        return std::string(isSocketOnly ? "socketio" : "kit") + (isOnThread ? "-thread" : "-main");
    }
    /// What a workload is called when this is what it measures.
    std::string titled(std::string const& workload) const { return (caFile.empty() ? "" : "tls_") + workload; }
    std::string url() const { return (caFile.empty() ? "http" : "https") + ("://" + host + ':' + port); }
    /// The servers listen on some addresses, since one has too few ports for fifty thousand connections.
    Subject atAddress(long number) const {
        auto other = *this;
        other.host = "127.0.0." + std::to_string(1 + number % kAddresses);
        return other;
    }
    std::unique_ptr<Client> makeClient() const;
};

std::unique_ptr<Client> makeKitClient(Subject const& subject);
std::unique_ptr<Client> makeSocketClient(Subject const& subject);

inline std::unique_ptr<Client> Subject::makeClient() const {
    return isSocketOnly ? makeSocketClient(*this) : makeKitClient(*this);
}

/// Runs the main queue until `start`'s argument is called.
inline void runUntilDone(std::function<void(Client::Done)> const& start) {
    auto const queue = kv::KvMainQueue::main();
    bool isDone = false;
    // Behind what is queued already, as in an application: inside a callback of the queue.
    queue->post([&] {
        start([&] {
            isDone = true;
            queue->stop();
        });
    });
    while (!isDone) queue->run();
}

[[noreturn]] void fail(char const* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace bench
