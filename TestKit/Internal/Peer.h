// One connection, seen from the service: HTTP first, and after an upgrade WebSocket with Engine.IO and Socket.IO on it.
// Reads and writes without waiting, on the service's queue.
#pragma once

#include "Platform/KvMainQueue.h"
#include "TestKit/Internal/Frames.h"
#include "TestKit/Service.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace kv::test {

/// Bytes inside an item of an event, which travel as an attachment: an object of this one key. No client can send it.
inline constexpr std::string_view kBytesKey("\0bytes", 6);
boost::json::value bytesItem(std::string bytes);
/// The bytes of such an item; absent where it is none.
std::optional<std::string_view> bytesOfItem(boost::json::value const& item);
/// Puts bytes where a placeholder stands; false when one stands for nothing.
bool putAttachments(boost::json::value& items, std::vector<std::string> const& attachments);

struct HttpRequest {
    std::string method, path, query, host, body;
};
struct HttpAnswer {
    int status = 200;
    std::string body{};
};

/// The value of a header in the head of a request, or nothing.
std::string_view headerOf(std::string_view head, std::string_view name);
/// What a WebSocket handshake with this key is answered with.
std::string acceptKeyOf(std::string_view key);
/// The parameters of a query, percent-decoded.
std::map<std::string, std::string> parametersOf(std::string_view query);

class Peer;

/// What the service does with its connections.
class PeerHost {
public:
    virtual HttpAnswer onHttp(HttpRequest const& request) = 0;
    /// The client asks to be let into the namespace.
    virtual void onConnect(Peer& peer) = 0;
    /// `items` begin with the event's name. `id`: it wants an answer.
    virtual void onEvent(Peer& peer, boost::json::array items, std::optional<std::uint64_t> id) = 0;
    virtual void onEnd(Peer& peer) = 0;
    /// Whether the connection is to break, or to fall silent, at this moment.
    virtual std::optional<Break> breakAt(Moment moment) = 0;
    virtual Service::Options const& options() const = 0;

protected:
    ~PeerHost() = default;
};

class Peer : public std::enable_shared_from_this<Peer> {
public:
    Peer(std::shared_ptr<KvMainQueue> const& queue, int fd, PeerHost& host);
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;
    ~Peer();

    void start() { awaitReadable(); }
    /// The query of the upgrade.
    std::string const& query() const { return request_.query; }
    std::string const& id() const { return id_; }

    void emit(std::string_view event, boost::json::array items);
    void acknowledge(std::uint64_t id, boost::json::array const& items);
    /// Says that the namespace does not take the client, and why.
    void refuse(std::string_view reason);
    /// Takes the client out of the namespace; the connection ends when he has, or a moment later.
    void disconnect();
    void close(std::uint16_t code, std::string_view reason);
    void send(std::string_view bytes);
    /// Ends it without a word.
    void cut();
    void freeze();
    void thaw();
    /// From now on so many bytes at a time; 0 for all at once.
    void sendInPieces(std::size_t size) { piece_ = size; }

private:
    void awaitReadable();
    void read();
    void consume();
    void onHttpHead(std::string_view head);
    void answerHttp();
    void upgrade(std::string_view head);
    void onFrame(ClientFrame frame);
    void onText(std::string_view text);
    void onPacket(std::string_view packet);
    void sendPacket(std::string_view type, std::optional<std::uint64_t> id, boost::json::array const& items);
    void flush();
    void cutAfter(std::chrono::nanoseconds delay);
    void startPings();
    bool breaks(Moment moment, std::string_view half = {});

    std::weak_ptr<KvMainQueue> const queue_;
    int fd_;
    PeerHost& host_;
    std::string const id_;
    std::string in_, out_;
    HttpRequest request_;
    std::size_t bodyLeft_ = 0;
    bool isWebSocket_ = false;
    bool isFrozen_ = false;
    bool isEnding_ = false;  // behind what is still to be sent
    std::size_t piece_ = 0;
    // A packet whose attachments are still to come.
    boost::json::array items_;
    std::optional<std::uint64_t> packetId_;
    std::size_t attachmentsLeft_ = 0;
    std::vector<std::string> attachments_;
    KvQueueTimer readable_, writable_, ping_, pong_, farewell_;
};

}  // namespace kv::test
