// The protocol of one connection, without I/O and without a clock: messages and the time go in; packets for the
// application, texts to send and the reason to close come out.
#pragma once

#include "Net/Failure.h"
#include "Platform/KvData.h"
#include "SocketIO/core/Packet.h"
#include "SocketIO/core/WebSocketCodec.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::sio {

// Why a connection ended, in the words of this side alone.
inline constexpr std::string_view kGotDisconnect = "Got Disconnect", kNamespaceLeave = "Namespace leave",
                                  kPingTimeout = "Ping timeout";
/// Whether a text is one of them, which no server can say.
bool isOwnReason(std::string_view text);

/// Whoever carries the messages of a ProtocolCore.
class ProtocolHost {
public:
    virtual ~ProtocolHost() = default;
    /// Where the next packet is parsed into.
    virtual std::shared_ptr<PacketMemory> const& packetMemory() = 0;
    /// Whether someone awaits events of this name. The items of others are not parsed.
    virtual bool isAwaited(std::string_view event) = 0;
    virtual void onPacket(ReceivedPacket&& packet) = 0;
    virtual void sendText(std::string_view text) = 0;
    /// A ping of the server came, so long after the one before, or after the session was opened.
    virtual void onPing(std::chrono::nanoseconds) {}
};

class ProtocolCore {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// The attachments of a packet may have `mostBytes` together, and so may what comes too early.
    explicit ProtocolCore(ProtocolHost& host, std::size_t mostBytes = kMostMessageBytes)
        : host_(host), mostBytes_(mostBytes) {}

    // Each returns whether the connection goes on; if not, `failure` says why.
    [[nodiscard]] bool onText(std::string_view text, Time now);
    [[nodiscard]] bool onBinary(KvBytes bytes);
    [[nodiscard]] bool onTime(Time now);
    /// Answers the ping that must have come, while nothing is read. Does nothing before `nextPulse`, and says so.
    bool onUnread(Time now);

    net::Failure const& failure() const { return failure_; }
    /// When the server's next ping is overdue; nothing before the server opened the session.
    std::optional<Time> deadline() const { return deadline_; }
    /// When the server's next ping is to come, if it keeps its word.
    Time nextPulse() const { return heard_ + interval_; }
    /// How often the server said it would ping.
    std::chrono::milliseconds interval() const { return interval_; }
    bool isOpen() const { return state_ != State::awaitingOpen; }
    bool isConnected() const { return state_ == State::connected; }

private:
    enum class State { awaitingOpen, awaitingNamespace, connected };

    bool fail(std::string reason, std::string cause = {}, std::string serverWords = {});
    bool onOpen(std::string_view text, Time now);
    bool onMessage(std::string_view text);
    bool onConnect(PacketHeader const& header);
    bool onConnectError(PacketHeader const& header);
    bool onItems(PacketHeader const& header);
    bool onEarly(std::string_view message, bool isText);

    struct Unfinished {
        ReceivedPacket packet;
        std::size_t missing;
        std::size_t bytes = 0;
    };

    // What came before the namespace was connected, as servers do that emit while they accept.
    struct Early {
        std::string message;
        bool isText;
    };

    ProtocolHost& host_;
    std::size_t const mostBytes_;
    State state_ = State::awaitingOpen;
    std::optional<Time> deadline_;
    std::chrono::milliseconds interval_{0}, patience_{0};
    Time heard_{};   // when the last ping came, or should have
    Time pinged_{};  // when it came
    std::unique_ptr<Unfinished> unfinished_;
    std::vector<Early> early_;
    std::size_t earlyBytes_ = 0;
    net::Failure failure_;
};

}  // namespace kv::sio
