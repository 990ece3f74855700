#include "SocketIO/transport/SessionProbe.h"

#include "Net/Talk.h"
#include "SocketIO/core/ProtocolCore.h"
#include "SocketIO/core/WebSocketCodec.h"
#include "SocketIO/transport/Opener.h"

#include <span>
#include <utility>

namespace kv::sio {
namespace {

class SessionProbe final : public std::enable_shared_from_this<SessionProbe>, net::Script, ProtocolHost {
public:
    SessionProbe(std::shared_ptr<KvMainQueue> const& queue, net::ProbeLimit limit,
                 std::function<void(Upgraded)> upgraded, std::function<void(net::Failure)> connected)
        : queue_(queue), limit_(limit), upgraded_(std::move(upgraded)), connected_(std::move(connected)) {}
    SessionProbe(SessionProbe const&) = delete;
    SessionProbe& operator=(SessionProbe const&) = delete;
    ~SessionProbe() override { stop(); }

    void start(net::Way const& way, SocketConfig const& config) {
        watch();
        opener_ = std::make_shared<Opener>(
            queue_.lock(),
            Opener::Plan{way.server, requestTarget(net::optionsOf(config.network).socketPath, config.connectParams),
                         config.network, config.compress, progress_},
            [this](Opener::Opened opened) { onUpgraded(std::move(opened)); });
        auto const opener = opener_;  // it may end within the call
        opener->start();
    }

private:
    void watch() {
        timer_ = queue_.lock()->after(limit_, [this] {
            auto doing = opener_ ? opener_->doing() : "Waiting for the server to open the session";
            fail({*progress_, doing + net::noAnswer(limit_)});
        });
    }

    void stop() {
        timer_.cancel();
        if (opener_) opener_->cancel();
        if (talk_) talk_->cancel();
        if (stream_) stream_->close();
    }

    void fail(net::Failure failure) {
        stop();
        isOver_ = true;
        if (upgraded_) {
            found_.failure = std::move(failure);
            return tell(std::exchange(upgraded_, nullptr), found_);
        }
        if (connected_) tell(std::exchange(connected_, nullptr), std::move(failure));
    }

    // At a turn of its own: whoever hears of it may drop this probe.
    template <class Told>
    void tell(std::function<void(Told)> teller, Told told) {
        queue_.lock()->post(
            [weak = std::weak_ptr<void>(shared_from_this()), teller = std::move(teller), told = std::move(told)] {
                if (!weak.expired()) teller(told);
            });
    }

    void onUpgraded(Opener::Opened opened) {
        auto const keep = std::exchange(opener_, nullptr);
        found_.head = std::move(opened.head);
        if (!opened.stream) return fail(std::move(opened.failure));
        *progress_ = KvFailureStage::session;
        found_.isDeflated = opened.agreement.isEnabled;
        if (opened.agreement.isEnabled) {
            auto const keeps =
                opened.agreement.serverKeepsContext ? Inflater::Context::kept : Inflater::Context::dropped;
            reader_.setInflater(Inflater(keeps));
        }
        stream_ = std::move(opened.stream);
        talk_ = std::make_shared<net::Talk>(*stream_, static_cast<net::Script&>(*this), [this](std::string error) {
            if (isOver_) return;
            auto failure = net::Failure::at(KvFailureStage::session, std::move(error));
            fail(core_.failure().text.empty() ? std::move(failure) : core_.failure());
        });
        onReceived({reinterpret_cast<char const*>(opened.early.data()), opened.early.size()});
        if (!isOver_) talk_->start();
    }

    // net::Script
    std::string_view toSend() override {
        sending_ = std::exchange(unsent_, KvBytes());
        return {reinterpret_cast<char const*>(sending_.data()), sending_.size()};
    }

    void onReceived(std::string_view bytes) override {
        std::span<std::uint8_t const> input(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
        while (!isOver_) {
            auto const step = reader_.next(input);
            if (step == FrameReader::Step::needMore) return;
            if (step == FrameReader::Step::failed) return refuse(reader_.error());
            if (reader_.opcode() == WsOpcode::close)
                return refuse("The server closed the WebSocket: " + readClose(reader_.text()).text);
            if (reader_.opcode() == WsOpcode::text) onText(reader_.text());
        }
    }

    void onClosed() override { refuse("The server closed the connection"); }
    bool isOver() const override { return isOver_ || !error_.empty(); }
    std::string const& error() const override { return error_; }

    void refuse(std::string what) {
        error_ = what;
        fail(net::Failure::at(KvFailureStage::session, std::move(what)));
    }

    void onText(std::string_view text) {
        bool const wasOpen = core_.isOpen();
        if (!core_.onText(text, KvMainQueue::Clock::now())) return fail(core_.failure());
        if (wasOpen || !core_.isOpen()) return;
        found_.openPacket = text.substr(1);
        watch();
        tell(std::exchange(upgraded_, nullptr), found_);
    }

    // ProtocolHost
    std::shared_ptr<PacketMemory> const& packetMemory() override { return memory_; }
    bool isAwaited(std::string_view) override { return false; }
    void onPacket(ReceivedPacket&& packet) override {
        if (packet.kind == ReceivedPacket::Kind::connected) fail({});  // that is, it is over
    }
    void sendText(std::string_view text) override { appendFrame(unsent_, WsOpcode::text, text); }

    std::weak_ptr<KvMainQueue> const queue_;
    net::ProbeLimit const limit_;
    std::function<void(Upgraded)> upgraded_;
    std::function<void(net::Failure)> connected_;
    net::Progress const progress_ = net::makeProgress();
    Upgraded found_;
    std::shared_ptr<Opener> opener_;
    std::unique_ptr<net::Stream> stream_;
    std::shared_ptr<net::Talk> talk_;
    FrameReader reader_;
    ProtocolCore core_{*this};
    std::shared_ptr<PacketMemory> const memory_ = std::make_shared<PacketMemory>();
    KvBytes unsent_, sending_;
    bool isOver_ = false;
    std::string error_;
    KvQueueTimer timer_;
};

}  // namespace

net::Probe probeSession(std::shared_ptr<KvMainQueue> const& queue, net::Way const& way, SocketConfig const& config,
                        net::ProbeLimit limit, std::function<void(Upgraded)> upgraded,
                        std::function<void(net::Failure)> connected) {
    auto probe = std::make_shared<SessionProbe>(queue, limit, std::move(upgraded), std::move(connected));
    probe->start(way, config);
    return probe;
}

}  // namespace kv::sio
