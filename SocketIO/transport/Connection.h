// One connection, from the look-up of its host to its end. Works on the engine queue; `start`, `put` and `leave` come
// from the main queue, and what happens is told there.
//
// How it ends, and who hears of it:
//   leave     this side goes: a goodbye behind all that it sent, in the background. The listener hears nothing more.
//   fail      something is wrong: the server is told why if it can be (`close`), and the listener hears the reason.
//   end       the connection is gone: the listener hears the reason.
//   shutDown  the last step of each of them: socket and timer go, nobody is told.
#pragma once

#include "Net/Failure.h"
#include "Net/Stream.h"
#include "Platform/KvMainQueue.h"
#include "SocketIO/SocketConfig.h"
#include "SocketIO/core/EventNames.h"
#include "SocketIO/core/ProtocolCore.h"
#include "SocketIO/core/WebSocketCodec.h"
#include "SocketIO/transport/Delivery.h"
#include "SocketIO/transport/Opener.h"
#include "SocketIO/transport/Outbox.h"
#include "SocketIO/transport/Sender.h"
#include "SocketIO/transport/Tap.h"
#include "SocketIO/transport/TurnMemory.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kv::sio {

class Connection final : public std::enable_shared_from_this<Connection>, ProtocolHost {
public:
    Connection(std::string url, std::shared_ptr<SocketConfig const> config,
               std::shared_ptr<sio::EventNames const> names, std::shared_ptr<KvMainQueue> const& mainQueue,
               std::shared_ptr<KvMainQueue> const& engine);

    // Main queue.
    void start(std::weak_ptr<ConnectionListener> listener);
    /// False when too much waits already.
    [[nodiscard]] bool put(std::string_view text, std::vector<KvData> const& attachments, Outbox::Time deadline);
    /// The system's network has changed: an attempt begins anew, an open connection must show that it still carries.
    void networkChanged();
    /// Reading may go on: `SocketMetrics::isReadingPaused` has changed.
    void resumeReading();
    /// Bytes that wait to be sent.
    std::size_t bytesQueued() const { return outbox_.bytes(); }
    bool hasRoom() const { return outbox_.hasRoom(); }
    SocketPressure pressure() const;
    /// How far the attempt to connect is.
    KvFailureStage stage() const { return *progress_; }
    /// Says goodbye in the background, which keeps the connection until it is done.
    static void leave(std::shared_ptr<Connection> connection);

private:
    // `leaving`: this side says goodbye behind all that it sent. `closing`: it sent a close frame, and the server has a
    // moment to read it.
    enum class Phase { dialing, open, leaving, closing, closed };

    // Engine queue, in the order of a connection's life.
    void dial();
    void onOpened(Opener::Opened opened);
    void redial();
    void onNetworkChange();
    KvMainQueue::Clock::time_point due() const;
    void watch();
    void wakeAfter(KvMainQueue::Clock::duration delay);
    void onTime();
    void awaitReadable(boost::asio::socket_base::wait_type ready);
    void awaitWritable();
    void readTurn();
    bool readAll(std::span<std::uint8_t> buffer);
    bool mayRead() const;
    void consume(std::span<std::uint8_t const> bytes);
    void onMessage();
    void onData();
    void onCloseFrame();
    void leaveOnEngine();
    void fail(net::Failure failure, WsCloseCode code = WsCloseCode::protocolError);
    void close(net::Failure failure, WsCloseCode code);
    void end(net::Failure failure);
    void discard();
    void shutDown();
    void flush();
    void afterBurst();

    // ProtocolHost
    std::shared_ptr<PacketMemory> const& packetMemory() override;
    bool isAwaited(std::string_view event) override;
    void onPacket(ReceivedPacket&& packet) override;
    void sendText(std::string_view text) override;
    void onPing(std::chrono::nanoseconds sinceLast) override;

    std::string const url_;
    std::shared_ptr<SocketConfig const> const config_;
    std::shared_ptr<EventNames const> const names_;
    // Weak: work that waits on a queue holds the connection.
    std::weak_ptr<KvMainQueue> const mainQueue_;
    std::weak_ptr<KvMainQueue> const engine_;
    SocketMetrics& metrics_;  // the configuration's
    Outbox outbox_;
    std::shared_ptr<Delivery> delivery_;  // made by `start`
    net::Progress const progress_ = net::makeProgress();

    // Touched on the engine queue only.
    Phase phase_ = Phase::dialing;
    std::shared_ptr<Opener> opener_;
    std::unique_ptr<net::Stream> stream_;
    FrameReader reader_;
    ProtocolCore core_;
    Tap tap_{config_->recorder.get()};
    Sender sender_{outbox_, metrics_.sent, tap_ ? &tap_ : nullptr};
    std::string awaited_;  // the event that was awaited last: most are like the one before
    KvBytes unread_;       // was read, but the main queue was too far behind to take it
    bool isReading_ = false;
    bool isAwaitingRead_ = false;
    bool isAwaitingWrite_ = false;
    KvMainQueue::Clock::time_point turnTime_;  // when the turn of reading began
    KvMainQueue::Clock::time_point deadline_;  // of the handshakes, then of the farewell
    // When the ping was read whose answer is on its way.
    std::optional<KvMainQueue::Clock::time_point> unanswered_;
    // After a change of the network: when an attempt begins anew, or an open connection has been silent for too long.
    KvMainQueue::Clock::time_point changeDue_ = KvMainQueue::Clock::time_point::max();
    bool isProbed_ = false;  // a ping asks for a sign of life
    KvQueueTimer timer_;
    TurnMemory* turn_ = nullptr;
};

}  // namespace kv::sio
