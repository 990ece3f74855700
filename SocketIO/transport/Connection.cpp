#include "SocketIO/transport/Connection.h"

#include "Net/NetworkOptions.h"
#include "SocketIO/core/ByteStore.h"
#include "SocketIO/transport/HeapTrim.h"

#include <algorithm>
#include <utility>

#include <boost/asio/ip/udp.hpp>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::sio {
namespace asio = boost::asio;
using asio::socket_base;
using std::chrono::seconds;
namespace {

constexpr seconds kHandshakeTime{30};
constexpr seconds kFarewellTime{3};
constexpr seconds kClosingTime{1};
constexpr seconds kBehindTime{1};
constexpr seconds kLeastAttempt{1};  // however often the network changes
constexpr seconds kMostSilence{5};   // after a change of it
constexpr auto kNever = KvMainQueue::Clock::time_point::max();
constexpr std::size_t kMostReadInOneTurn = 512u << 10;  // then timers and other connections get their turn
constexpr char const* kClosedByServer = "The server closed the connection";
constexpr char const* kSilent = "The server is silent since the network changed";

// What ends a session that was open, or about to be.
net::Failure lost(std::string text, std::string cause = {}) {
    auto failure = net::Failure::at(KvFailureStage::session, std::move(text));
    failure.cause = std::move(cause);
    return failure;
}

// Whether the system knows a way to the other side, from the address that this side has there.
bool hasWay(asio::ip::tcp::socket const& socket) {
    boost::system::error_code error;
    auto const here = socket.local_endpoint(error);
    auto const there = error ? here : socket.remote_endpoint(error);
    if (error) return false;
    asio::ip::udp::endpoint const from(here.address(), 0), to(there.address(), there.port());
    int const trial = ::socket(from.protocol().family(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (trial < 0) return true;  // the system has no descriptor left, which says nothing of the network
    bool const leads = ::bind(trial, from.data(), static_cast<socklen_t>(from.size())) == 0 &&
                       ::connect(trial, to.data(), static_cast<socklen_t>(to.size())) == 0;
    ::close(trial);
    return leads;
}

}  // namespace

Connection::Connection(std::string url, std::shared_ptr<SocketConfig const> config,
                       std::shared_ptr<EventNames const> names, std::shared_ptr<KvMainQueue> const& mainQueue,
                       std::shared_ptr<KvMainQueue> const& engine)
    : url_(std::move(url)),
      config_(std::move(config)),
      names_(std::move(names)),
      mainQueue_(mainQueue),
      engine_(engine),
      metrics_(*config_->metrics),
      outbox_(
          config_->maxQueuedBytes, [this] { delivery_->tellWritable(); }, config_->metrics),
      reader_(net::optionsOf(config_->network).maxMessageBytes),
      core_(*this, net::optionsOf(config_->network).maxMessageBytes) {}

void Connection::start(std::weak_ptr<ConnectionListener> listener) {
    auto const engine = engine_.lock();
    auto const resume = [weak = weak_from_this()] {
        if (auto const self = weak.lock()) self->readTurn();
    };
    delivery_ =
        std::make_shared<Delivery>(mainQueue_.lock(), engine, std::move(listener),
                                   net::optionsOf(config_->network).maxUnhandledBytes, resume, config_->metrics);
    engine->post([self = shared_from_this()] { self->dial(); });
}

bool Connection::put(std::string_view text, std::vector<KvData> const& attachments, Outbox::Time deadline) {
    auto const put = outbox_.put(text, attachments, deadline);
    bool const isInTurn = delivery_->isDirect() && isReading_;  // which ends with a flush
    if (put == Outbox::Put::queuedFirst && !isInTurn)
        engine_.lock()->post([self = shared_from_this()] { self->flush(); });
    return put != Outbox::Put::full;
}

SocketPressure Connection::pressure() const {
    SocketPressure pressure;
    outbox_.tell(pressure);
    delivery_->tell(pressure);
    return pressure;
}

void Connection::leave(std::shared_ptr<Connection> connection) {
    auto const engine = connection->engine_.lock();
    engine->post([self = std::move(connection)] { self->leaveOnEngine(); });
}

void Connection::networkChanged() {
    engine_.lock()->post([self = shared_from_this()] { self->onNetworkChange(); });
}

void Connection::resumeReading() {
    engine_.lock()->post([self = shared_from_this()] { self->readTurn(); });
}

void Connection::dial() {
    if (phase_ != Phase::dialing) return;
    auto const engine = engine_.lock();
    auto url = net::Url::parse(url_);
    if (!url) return end({KvFailureStage::address, "Not an address of a server: " + url_});
    auto const& network = net::optionsOf(config_->network);
    if (auto const problem = problemOf(network); !problem.empty())
        return end({KvFailureStage::address, "Unusable network options: " + problem});
    deadline_ = engine->now() + std::max<KvMainQueue::Clock::duration>(kHandshakeTime, network.connectTimeout);
    Opener::Plan plan{*std::move(url), requestTarget(network.socketPath, config_->connectParams), config_->network,
                      config_->compress, progress_};
    tap_.dialing(url_, plan.target);
    opener_ = std::make_shared<Opener>(engine, std::move(plan), [weak = weak_from_this()](Opener::Opened opened) {
        if (auto const self = weak.lock()) self->onOpened(std::move(opened));
    });
    watch();
    auto const opener = opener_;  // it may end within the call, and take leave of this connection
    opener->start();
}

void Connection::onOpened(Opener::Opened opened) {
    opener_.reset();
    if (!opened.stream) return end(std::move(opened.failure));
    stream_ = std::move(opened.stream);
    phase_ = Phase::open;
    tap_.opened();
    *progress_ = KvFailureStage::session;
    changeDue_ = kNever;
    if (opened.agreement.isEnabled) {
        auto const keeps = opened.agreement.serverKeepsContext ? Inflater::Context::kept : Inflater::Context::dropped;
        reader_.setInflater(Inflater(keeps));
        sender_.framer().setDeflates(opened.agreement.clientWindowBits);
    }
    unread_ = std::move(opened.early);
    metrics_.received.bytes.add(unread_.size());
    if (unread_.empty() && !stream_->isSecure()) return awaitReadable(socket_base::wait_read);
    readTurn();
}

void Connection::redial() {
    changeDue_ = kNever;
    std::exchange(opener_, nullptr)->cancel();
    dial();
}

// What was on its way when the network changed may still arrive, so each change gives it time anew. A ping that finds
// no way would wait for ever longer until it is sent again, and hold up what follows: it is sent once there is one.
void Connection::onNetworkChange() {
    if (phase_ == Phase::dialing) {
        changeDue_ = deadline_ - kHandshakeTime + kLeastAttempt;
    } else if (phase_ == Phase::open) {
        changeDue_ = engine_.lock()->now() + kMostSilence;
        if (!isProbed_ && hasWay(stream_->socket())) {
            isProbed_ = true;
            sender_.framer().putAhead(WsOpcode::ping, {});
            flush();
        }
    }
    if (phase_ == Phase::dialing || phase_ == Phase::open) watch();
}

KvMainQueue::Clock::time_point Connection::due() const {
    bool const isKnown = phase_ == Phase::open && core_.isOpen();
    auto const usual = !isKnown ? deadline_ : delivery_->isBehind() ? core_.nextPulse() : *core_.deadline();
    return std::min(changeDue_, usual);
}

// One timer for whatever comes first: the end of the handshakes, an overdue ping or one that waits unread, what a
// change of the network leads to, the end of the farewell.
void Connection::watch() { wakeAfter(due() - engine_.lock()->now()); }

void Connection::wakeAfter(KvMainQueue::Clock::duration delay) {
    timer_ = engine_.lock()->after(delay, [weak = weak_from_this()] {
        if (auto const self = weak.lock()) self->onTime();
    });
}

void Connection::onTime() {
    if (phase_ == Phase::closed) return;
    trimBytes();
    if (phase_ == Phase::leaving || phase_ == Phase::closing) return shutDown();
    auto const now = engine_.lock()->now();
    if (phase_ == Phase::dialing && now >= changeDue_) return redial();
    // A thread that was busy for long finds the time over and the server's pings unread.
    if (phase_ == Phase::open && now >= due()) readTurn();
    if (phase_ != Phase::open && phase_ != Phase::dialing) return;
    if (isReading_) return wakeAfter(kBehindTime);
    if (phase_ == Phase::open && core_.isOpen() && delivery_->isBehind()) {
        // The server's pings wait behind what waits for the main queue, and it would take its client for dead.
        if (core_.onUnread(now)) metrics_.answeredUnread.add();
        if (now >= changeDue_) changeDue_ = now + kMostSilence;  // signs of life are unread, too
        flush();
        return watch();
    }
    if (now < due()) return watch();
    if (now >= changeDue_) return fail(lost(kSilent));
    if (!core_.isOpen())
        return fail({stage(), (opener_ ? opener_->doing() : "Opening the session at " + url_) + ": timed out"});
    if (!core_.onTime(now)) return fail(core_.failure());
    watch();
}

void Connection::awaitReadable(socket_base::wait_type ready) {
    if (std::exchange(isAwaitingRead_, true)) return;
    stream_->socket().async_wait(ready, [self = shared_from_this()](boost::system::error_code error) {
        self->isAwaitingRead_ = false;
        if (error != asio::error::operation_aborted) self->readTurn();
    });
}

void Connection::awaitWritable() {
    isAwaitingWrite_ = true;
    stream_->socket().async_wait(socket_base::wait_write, [self = shared_from_this()](boost::system::error_code error) {
        self->isAwaitingWrite_ = false;
        if (error != asio::error::operation_aborted) self->flush();
    });
}

void Connection::readTurn() {
    if (phase_ == Phase::closing) return discard();
    if (phase_ == Phase::dialing || phase_ == Phase::closed || std::exchange(isReading_, true)) return;
    auto const self = shared_from_this();
    turnTime_ = engine_.lock()->now();
    {
        TurnMemory memory;
        turn_ = &memory;
        bool const isDrained = readAll(memory.readBuffer());
        metrics_.received.frames.add(reader_.takeFrames());
        turn_ = nullptr;
        isReading_ = false;
        if (phase_ == Phase::closed || phase_ == Phase::closing) return;
        if (!isDrained) engine_.lock()->post([self] { self->readTurn(); });
    }
    delivery_->flush();
    if (phase_ == Phase::open && delivery_->isBehind()) watch();
    flush();
}

// Reads what there is. False when there is more, but others shall have their turn first.
bool Connection::readAll(std::span<std::uint8_t> buffer) {
    if (!unread_.empty()) {
        auto const before = std::exchange(unread_, KvBytes());
        consume(before);
    }
    for (std::size_t total = 0; total < kMostReadInOneTurn;) {
        if (!mayRead()) return true;
        // What was left over comes first, also when the main queue has caught up meanwhile.
        if (!unread_.empty()) return false;
        auto result = stream_->read(buffer.data(), buffer.size());
        switch (result.status) {
            case net::IoStatus::wantRead:
                awaitReadable(socket_base::wait_read);
                return true;
            case net::IoStatus::wantWrite:
                awaitReadable(socket_base::wait_write);
                return true;
            case net::IoStatus::closed:
                end(lost(kClosedByServer));
                return true;
            case net::IoStatus::failed:
                end(lost(result.error, "The connection has broken: " + result.error));
                return true;
            case net::IoStatus::done:
                break;
        }
        changeDue_ = kNever;
        isProbed_ = false;
        metrics_.received.bytes.add(result.bytes);
        consume(buffer.first(result.bytes));
        total += result.bytes;
        // A read that left room has taken all there was; TLS may still hold bytes back.
        if (mayRead() && unread_.empty() && !stream_->isSecure() && result.bytes < buffer.size()) {
            awaitReadable(socket_base::wait_read);
            return true;
        }
    }
    return false;
}

bool Connection::mayRead() const {
    return phase_ == Phase::leaving || (phase_ == Phase::open && !(core_.isOpen() && delivery_->isBehind()));
}

void Connection::consume(std::span<std::uint8_t const> bytes) {
    while (mayRead()) {
        switch (reader_.next(bytes)) {
            case FrameReader::Step::needMore:
                return;
            case FrameReader::Step::failed:
                return fail(lost(reader_.error()), reader_.closeCode());
            case FrameReader::Step::message:
                onMessage();
        }
    }
    if (phase_ == Phase::open) unread_.assign(bytes.begin(), bytes.end());
}

void Connection::onMessage() {
    switch (reader_.opcode()) {
        case WsOpcode::ping:
            return sender_.framer().putAhead(WsOpcode::pong, reader_.text());
        case WsOpcode::pong:
            return;
        case WsOpcode::close:
            return onCloseFrame();
        default:
            if (phase_ == Phase::open) onData();
    }
}

void Connection::onData() {
    bool const wasOpen = core_.isOpen();
    bool const isText = reader_.opcode() == WsOpcode::text;
    if (tap_) isText ? tap_.received(reader_.text()) : tap_.receivedBinary(reader_.text());
    bool const goesOn = isText ? core_.onText(reader_.text(), turnTime_) : core_.onBinary(reader_.takePayload());
    if (phase_ != Phase::open) return;
    if (!goesOn) return fail(core_.failure(), WsCloseCode::normal);
    if (!wasOpen && core_.isOpen()) {
        metrics_.pingAnnounced.set(core_.interval());
        watch();
    }
    delivery_->flushMuch();
}

void Connection::onCloseFrame() {
    auto close = readClose(reader_.text());
    if (phase_ == Phase::leaving) return shutDown();
    this->close(lost(std::move(close.text)), close.answer);
}

void Connection::leaveOnEngine() {
    if (phase_ != Phase::open && phase_ != Phase::dialing) return;
    tap_.left();
    if (phase_ == Phase::dialing) return shutDown();
    phase_ = Phase::leaving;
    changeDue_ = kNever;
    // Behind what was sent before, but not held back by the bound on what waits.
    sender_.framer().closeWhenEmpty(core_.isOpen() ? "41" : "");
    if (core_.isOpen()) tap_.sent("41");
    deadline_ = engine_.lock()->now() + kFarewellTime;
    watch();
    if (!isAwaitingRead_) readTurn();  // it stopped because the main queue was behind
    flush();
}

void Connection::fail(net::Failure failure, WsCloseCode code) {
    if (phase_ == Phase::open) return close(std::move(failure), code);
    end(std::move(failure));
}

// The socket stays for a moment: closed with bytes unread, it would take the close frame away from the server.
void Connection::close(net::Failure failure, WsCloseCode code) {
    auto const self = shared_from_this();
    bool const isSaid = sender_.sendClose(*stream_, code);
    if (!isSaid) return end(std::move(failure));
    phase_ = Phase::closing;
    sender_.clear();
    stream_->finishSending();
    wakeAfter(kClosingTime);
    tap_.lost(failure);
    delivery_->close(std::move(failure));
    discard();
}

void Connection::discard() {
    if (phase_ != Phase::closing) return;
    TurnMemory memory;
    auto const buffer = memory.readBuffer();
    for (std::size_t total = 0; total < kMostReadInOneTurn;) {
        auto const result = stream_->read(buffer.data(), buffer.size());
        if (result.status == net::IoStatus::wantRead || result.status == net::IoStatus::wantWrite)
            return awaitReadable(socket_base::wait_read);
        if (result.status != net::IoStatus::done) return shutDown();
        total += result.bytes;
    }
    engine_.lock()->post([self = shared_from_this()] { self->discard(); });
}

// Ends the connection and tells of it behind everything that came before.
void Connection::end(net::Failure failure) {
    bool const isTold = phase_ == Phase::dialing || phase_ == Phase::open;
    auto const self = shared_from_this();
    shutDown();
    if (isTold) tap_.lost(failure);
    if (isTold) delivery_->close(std::move(failure));
}

void Connection::shutDown() {
    phase_ = Phase::closed;
    timer_.cancel();
    if (auto const opener = std::exchange(opener_, nullptr)) opener->cancel();
    if (stream_) stream_->close();
    sender_.clear();
    trimBytes();
    afterBurst();
}

void Connection::flush() {
    if ((phase_ != Phase::open && phase_ != Phase::leaving) || isAwaitingWrite_) return;
    auto const mainQueue = mainQueue_.lock();
    if (!mainQueue) return;
    switch (sender_.send(*stream_, mainQueue->now())) {
        case Sender::Step::idle:
            if (auto const read = std::exchange(unanswered_, std::nullopt))
                metrics_.pingAnswerTime.set(engine_.lock()->now() - *read);
            return afterBurst();
        case Sender::Step::wantRead:  // the next turn of reading sends again
        case Sender::Step::broken:    // what the server said before it went is read first, and reading finds the end
            return;
        case Sender::Step::more:
            return engine_.lock()->post([self = shared_from_this()] { self->flush(); });
        case Sender::Step::wantWrite:
            return awaitWritable();
    }
}

void Connection::afterBurst() {
    if (outbox_.takeBurst()) trimHeapSoon(engine_.lock());
}

std::shared_ptr<PacketMemory> const& Connection::packetMemory() {
    return delivery_->isDirect() ? turn_->packetMemory() : delivery_->packetMemory();
}

bool Connection::isAwaited(std::string_view event) {
    if (event == awaited_) return true;
    if (!names_->mayContain(event)) return false;
    awaited_ = event;
    return true;
}

void Connection::onPacket(ReceivedPacket&& packet) {
    if (packet.kind != ReceivedPacket::Kind::connected) metrics_.messagesReceived.add();
    delivery_->add(std::move(packet), turnTime_);
}

void Connection::sendText(std::string_view text) {
    tap_.sent(text);
    sender_.framer().putAhead(WsOpcode::text, text);
}

void Connection::onPing(std::chrono::nanoseconds sinceLast) {
    unanswered_ = turnTime_;
    metrics_.pings.add();
    metrics_.pingInterval.set(sinceLast);
    metrics_.longestPingInterval.set(std::max(sinceLast, metrics_.longestPingInterval.value()));
}

}  // namespace kv::sio
