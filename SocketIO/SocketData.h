// What travels in a Socket.IO packet: JSON values and the binary attachments that placeholders in them stand for.
#pragma once

#include "Platform/KvData.h"
#include "Platform/KvExport.h"

#include <functional>
#include <utility>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>

namespace kv {

/// The single item of an acknowledgement that did not come in time.
inline constexpr char kNoAck[] = "NO ACK";
/// Why there is none: it was asked for in vain, or never, because there was no connection, or no room for what was to
/// be sent.
enum class SocketNoAck { unanswered, notConnected, noRoom };

/// The items of a packet to send. A binary value is put in with `binary`:
///     SocketItems items;
///     items.values = {"photo", {{"bytes", items.binary(data)}}};
/// The values are text when the call that sends them returns, so they may live in memory of the caller's:
///     boost::json::monotonic_resource memory(buffer, sizeof buffer);
///     SocketItems items{boost::json::array(&memory), {}};
struct KV_EXPORT SocketItems {
    boost::json::array values;
    std::vector<KvData> attachments;

    /// The value that stands for `data` in `values`; null when there is no data.
    [[nodiscard]] boost::json::value binary(KvData data);
};

/// Answers one event of the server that asks for an answer (there, `socket.emit(name, ..., callback)`). May be kept and
/// copied; belongs to the main queue. The first call answers, further ones do nothing, as does one after the connection
/// that the question came over has ended.
class KV_EXPORT SocketAnswer {
public:
    SocketAnswer() = default;
    /// For the socket: `send` sends the one answer.
    explicit SocketAnswer(std::function<void(SocketItems const&)> send) : send_(std::move(send)) {}
    /// Whether the server asked.
    explicit operator bool() const { return send_ != nullptr; }
    /// Sends the answer. Does nothing when nobody asked.
    void operator()(SocketItems const& items) const {
        if (send_) send_(items);
    }

private:
    std::function<void(SocketItems const&)> send_;
};

/// The items of a received packet (without the event's name). Lives for the time of the call that it is handed to:
/// whoever needs a value longer copies it. Attachments are shared, so keeping one costs nothing.
class KV_EXPORT SocketData {
public:
    /// Refers to both; copies nothing.
    SocketData(boost::json::array const& items, std::vector<KvData> const& attachments, SocketAnswer answer = {})
        : items_(items), attachments_(attachments), answer_(std::move(answer)) {}

    /// For the socket: "NO ACK", and why.
    SocketData(boost::json::array const& items, SocketNoAck noAck);

    /// The values, with placeholders where binary data were.
    boost::json::array const& items() const { return items_; }
    /// The bytes that `value` stands for, or null when it is not binary data. An object that only looks like a
    /// placeholder, without an attachment of its number, is not binary data.
    KvData binary(boost::json::value const& value) const;
    /// Answers an event, now or later; empty when the server asked for no answer.
    SocketAnswer const& answer() const { return answer_; }
    /// Of "NO ACK" alone.
    SocketNoAck noAck() const { return noAck_; }

private:
    boost::json::array const& items_;
    std::vector<KvData> const& attachments_;
    SocketAnswer answer_;
    SocketNoAck noAck_ = SocketNoAck::unanswered;
};

}  // namespace kv
