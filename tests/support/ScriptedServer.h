// A server in the test process that plays a script: any bytes at any time, and Socket.IO where the script wants it.
//
//     ScriptedServer server([](ScriptedPeer& peer) {
//         peer.login();                                   // handshakes, then the event "loginSuccess"
//         auto const command = peer.readEvent();          // ["command", "joinChannel", {...}], with its id
//         peer.acknowledge(command, {{{"result", 0}}});   // one item
//         peer.emit("MessageToPeerReceived", {{{"bytes", ScriptedPeer::placeholder(0)}}}, {"attachment"});
//         peer.close(1001, "going away");
//     });
//     kit.login(server.url()) ...
//
// The script runs once for each connection, on a thread of its own, and ends with its connection. Whatever
// meets the end of the connection, or of the server, ends the script. A GET of the discovery address is answered
// without the script, with this very server, so that a whole client can run against it.
#pragma once

#include "TestKit/Internal/Frames.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>

namespace kv::test {

class Connection;
class Listener;

/// One connection, seen from the server. Any call may throw, which ends the script.
class ScriptedPeer {
public:
    /// An event of the client; `id` when it wants an acknowledgement. The items begin with the name.
    struct Event {
        std::optional<std::uint64_t> id;
        boost::json::array items;
        std::vector<std::string> attachments;
    };
    struct Pings {
        std::chrono::milliseconds interval{25000}, timeout{20000};
    };

    /// Head of the HTTP request, as sent.
    std::string const& request() const { return request_; }
    /// Which connection this is, from 0 (those of the discovery do not count).
    int number() const { return number_; }

    // Raw bytes.
    void send(std::string_view bytes);
    /// Sends every `size` bytes on their own.
    void sendInPieces(std::string_view bytes, std::size_t size);

    // WebSocket.
    void acceptWebSocket(std::string const& moreHeaders = {});
    /// The answer that `acceptWebSocket` sends.
    std::string upgradeAnswer(std::string const& moreHeaders = {}) const;
    void sendText(std::string_view text) { send(textFrame(text)); }
    ClientFrame readMessage();
    /// The next text message.
    std::string readText();

    // Socket.IO.
    /// WebSocket, session and namespace.
    void connect();
    void connect(Pings pings, std::string const& moreHeaders = {});
    /// The same, and the event "loginSuccess".
    void login();
    static std::string openPacket(Pings pings);
    static boost::json::value placeholder(std::size_t number);
    void emit(std::string_view event, boost::json::array items = {}, std::vector<std::string> const& attachments = {});
    /// The next event of the client, pings answered.
    Event readEvent();
    void acknowledge(Event const& event, boost::json::array const& items,
                     std::vector<std::string> const& attachments = {});

    // Ends.
    void close(std::uint16_t code, std::string_view reason = {});
    void hangUp();  // without a word
    void reset();
    /// Waits for the client to end the connection; what it still sends is returned.
    std::vector<ClientFrame> readToEnd();
    void sleep(std::chrono::milliseconds time);  // shorter when the server is being destroyed

private:
    friend class ScriptedServer;
    explicit ScriptedPeer(Connection& connection) : connection_(connection) {}

    void sendPacket(std::string_view type, std::optional<std::uint64_t> id, boost::json::array const& items,
                    std::vector<std::string> const& attachments);

    Connection& connection_;
    std::string request_;
    std::string unread_;  // the beginning of a frame
    std::deque<ClientFrame> messages_;
    int number_ = 0;
};

class ScriptedServer {
public:
    using Script = std::function<void(ScriptedPeer& peer)>;
    struct Options {
        std::string address = "127.0.0.1";
        /// PEM files; with them the server speaks TLS.
        std::string certificateFile, keyFile;
        int onlyTls = 0;  // TLS1_1_VERSION and the like, and no other; 0 for what is usual
        /// PEM file; clients must show a certificate of these authorities.
        std::string clientAuthorities{};
        /// Sent before anything is read.
        std::string greeting{};
    };

    explicit ScriptedServer(Script script);
    ScriptedServer(Script script, Options options);
    ~ScriptedServer();

    std::uint16_t port() const;
    /// http or https, by address.
    std::string url() const { return url("127.0.0.1"); }
    std::string url(std::string const& host) const;
    /// How many connections came so far.
    int connections() const { return connections_; }
    /// How many connections took up an earlier TLS session, discovery's included.
    int resumptions() const { return resumptions_; }

private:
    void serve(Connection& connection);

    Script const script_;
    Options const options_;
    std::atomic<int> connections_{0}, resumptions_{0};
    std::unique_ptr<Listener> const listener_;  // the last: what it serves uses the others
};

}  // namespace kv::test
