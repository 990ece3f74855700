#include "SocketIO/SocketIOClient.h"

#include "Net/NetworkOptions.h"
#include "SocketIO/SocketIOClientImpl.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <utility>

namespace kv {
namespace json = boost::json;
namespace {

// The names that a Socket.IO library gives events of its own, and does not take from the other side.
constexpr std::string_view kReserved[] = {"connect",       "connect_error", "disconnect",
                                          "disconnecting", "newListener",   "removeListener"};
constexpr std::size_t kUsualAttachments = 10;  // what the reference server takes unless it is told otherwise

// For all connections of the socket.
std::shared_ptr<SocketConfig const> shared(SocketConfig config) {
    config.network = net::withCaFile(std::move(config.network), config.caFile);
    if (!config.metrics) config.metrics = std::make_shared<SocketMetrics>();
    return std::make_shared<SocketConfig const>(std::move(config));
}

}  // namespace

// Joins a socket to one connection, until either lets go of it.
class SocketIOClient::Impl::Link final : public sio::ConnectionListener, public std::enable_shared_from_this<Link> {
public:
    explicit Link(Impl& owner) : owner_(&owner) {}

    void onPacket(sio::ReceivedPacket const& packet, KvMainQueue::Clock::time_point when) override {
        auto const keep = owner_->socket->shared_from_this();  // a handler may drop the socket
        switch (packet.kind) {
            case sio::ReceivedPacket::Kind::connected:
                return owner_->onConnected(*this, packet.name);
            case sio::ReceivedPacket::Kind::event:
                return owner_->onEvent(shared_from_this(), packet);
            case sio::ReceivedPacket::Kind::ack:
                return owner_->acks->answer(packet.id, SocketData(packet.items, packet.attachments), when);
        }
    }

    void onWritable() override {
        auto const keep = owner_->socket->shared_from_this();
        // The application may have filled the room meanwhile; then another call is on its way.
        if (connection->hasRoom()) owner_->onWritable();
    }

    void onClosed(net::Failure const& why) override {
        auto& owner = *owner_;
        auto const keep = owner.socket->shared_from_this();
        owner.release();
        owner.failure = why;
        owner.deliverText("disconnect", why.text);
    }

    bool isListening() const override { return owner_ != nullptr; }

    void release() {
        owner_ = nullptr;
        if (connection) sio::Connection::leave(std::exchange(connection, nullptr));
    }

    std::shared_ptr<sio::Connection> connection;

private:
    Impl* owner_;
};

SocketIOClient::Impl::Impl(std::string serverUrl, SocketConfig socketConfig, std::shared_ptr<KvMainQueue> main,
                           std::shared_ptr<KvMainQueue> worker)
    : url(std::move(serverUrl)),
      config(shared(std::move(socketConfig))),
      mainQueue(std::move(main)),
      engine(std::move(worker)),
      acks(std::make_shared<sio::AckTable>(mainQueue, config->metrics)) {}

void SocketIOClient::Impl::watchNetwork() {
    if (!config->network || !config->network->watchesNetwork) return;
    auto const changed = [weak = socket->weak_from_this()] {
        auto const self = weak.lock();
        if (!self || self->impl_->isReleasedForGood) return;
        self->networkChanged();
        if (self->impl_->config->networkChanged) self->impl_->config->networkChanged();
    };
    networkWatch_ = net::watchNetwork(engine, mainQueue, changed, config->log);
}

SocketIOClient::Impl::~Impl() { release(); }

void SocketIOClient::Impl::assertMainThread() const {
    assert(mainQueue->isOwnThread() &&
           "call the socket from the thread that drives its main queue, or post to that queue");
}

void SocketIOClient::Impl::connect() {
    if (status == SocketStatus::connecting || status == SocketStatus::connected || isReleasedForGood) return;
    status = SocketStatus::connecting;
    link_ = std::make_shared<Link>(*this);
    link_->connection = std::make_shared<sio::Connection>(url, config, names, mainQueue, engine);
    link_->connection->start(link_);
}

void SocketIOClient::Impl::release() {
    timeouts_.clear();
    if (status != SocketStatus::notConnected) status = SocketStatus::disconnected;
    sid.clear();
    auto const link = std::exchange(link_, nullptr);
    if (!link) return;
    ended_.addEnded(link->connection->pressure());
    link->release();
}

void SocketIOClient::Impl::disconnect() {
    if (!link_) return;
    release();
    deliverText("disconnect", sio::kNamespaceLeave);
}

void SocketIOClient::Impl::networkChanged() {
    if (link_) link_->connection->networkChanged();
}

void SocketIOClient::Impl::resumeReading() {
    if (config->metrics->isReadingPaused.exchange(false) && link_) link_->connection->resumeReading();
}

void SocketIOClient::Impl::releaseForGood() {
    isReleasedForGood = true;
    networkWatch_.reset();
    release();
}

void SocketIOClient::Impl::callIfStillConnecting(std::chrono::duration<double> timeout, std::function<void()> handler) {
    if (status != SocketStatus::connecting || !handler) return;
    std::erase_if(timeouts_, [](KvQueueTimer const& timer) { return !timer.isActive(); });
    timeouts_.push_back(mainQueue->after(sio::boundedTimeout(timeout), std::move(handler)));
}

void SocketIOClient::Impl::onConnected(Link const& link, std::string_view sessionId) {
    status = SocketStatus::connected;
    sid = sessionId;
    timeouts_.clear();
    deliver(&link, handlers.equal_range("connect"), SocketData({}, {}));
    if (link.isListening() && std::exchange(ended_.isTight, false)) onWritable();
}

void SocketIOClient::Impl::onWritable() {
    if (auto const handler = writable) handler();  // which may set another one
}

std::size_t SocketIOClient::Impl::bytesQueued() const { return link_ ? link_->connection->bytesQueued() : 0; }

SocketPressure SocketIOClient::Impl::pressure() const {
    if (!link_) return ended_;
    auto pressure = link_->connection->pressure();
    pressure.addEnded(ended_);
    return pressure;
}

KvFailureStage SocketIOClient::Impl::stage() const { return link_ ? link_->connection->stage() : failure.stage; }

void SocketIOClient::Impl::onEvent(std::shared_ptr<Link> const& link, sio::ReceivedPacket const& packet) {
    std::string_view const name = packet.name;
    if (name == "connect" || name == "error")
        return config->metrics->unawaited.add();  // which this side alone can tell
    HandlersOfOne const to = handlers.equal_range(name);
    if (to.first == to.second) return config->metrics->unawaited.add();
    json::array late;  // of an event whose handler was not there yet when it came
    if (!packet.unread.empty()) {
        if (auto const problem = sio::readItems(packet.unread, true, late); !problem.empty()) {
            config->metrics->invalid.add();
            return log(problem);
        }
    }
    auto const& items = packet.unread.empty() ? packet.items : late;
    auto const* reason = items.empty() ? nullptr : items.front().if_string();
    if (name == "disconnect" && reason && sio::isOwnReason(*reason)) return;
    deliver(link.get(), to, SocketData(items, packet.attachments, answerTo(link, packet.id)));
}

SocketAnswer SocketIOClient::Impl::answerTo(std::shared_ptr<Link> const& link, std::optional<std::uint64_t> id) {
    if (!id) return {};
    return SocketAnswer([weak = std::weak_ptr(link), id = *id, isSent = std::make_shared<bool>(false),
                         log = config->log](SocketItems const& items) {
        auto const asked = weak.lock();
        if (!asked || !asked->connection || std::exchange(*isSent, true)) return;
        std::string text;
        sio::writeAck(text, items, id);
        auto const never = std::chrono::steady_clock::time_point::max();
        if (!asked->connection->put(text, items.attachments, never) && log)
            log("Too much waits to be sent: dropped an answer to the server");
    });
}

void SocketIOClient::Impl::log(std::string_view line) const {
    if (config->log) config->log(line);
}

void SocketIOClient::Impl::addHandler(std::string event, Handler handler) {
    names->add(event);
    handlers.emplace(std::move(event), std::move(handler));
}

std::optional<SocketNoAck> SocketIOClient::Impl::send(std::string_view event, SocketItems const& items,
                                                      std::optional<std::uint64_t> ackId,
                                                      std::chrono::steady_clock::time_point deadline) {
    if (status != SocketStatus::connected) {
        config->metrics->notConnected.add();
        mainQueue->post([weak = socket->weak_from_this()] {
            if (auto const self = weak.lock()) self->impl_->deliverText("error", "Tried emitting when not connected");
        });
        return SocketNoAck::notConnected;
    }
    if (std::ranges::find(kReserved, event) != std::end(kReserved))
        log("Sent the event " + std::string(event) + ", whose name is reserved: servers refuse it");
    if (items.attachments.size() > kUsualAttachments)
        log("Sent " + std::to_string(items.attachments.size()) +
            " attachments at once: many servers refuse more than 10");
    thread_local std::string text;
    constexpr std::size_t kMostKept = 64u << 10;
    if (text.capacity() > kMostKept) std::string().swap(text);  // assigned to, it would keep what it has
    text.clear();
    sio::writeEvent(text, event, items, ackId);
    if (link_->connection->put(text, items.attachments, deadline)) return {};
    log("Too much waits to be sent: dropped the event " + std::string(event));
    return SocketNoAck::noRoom;
}

void SocketIOClient::Impl::deliver(Link const* link, HandlersOfOne const& to, SocketData const& data) {
    if (to.first == to.second) return;
    auto const last = std::prev(to.second);  // those that are added meanwhile come behind, and hear of the next event
    for (auto next = to.first;; ++next) {
        if (link && !link->isListening()) return;  // a handler before has left
        next->second(data);
        if (next == last) return;
    }
}

void SocketIOClient::Impl::deliverText(std::string_view event, std::string_view text) {
    auto const keep = socket->weak_from_this().lock();
    json::array const items{json::string_view(text.data(), text.size())};
    deliver(nullptr, handlers.equal_range(event), SocketData(items, {}));
}

SocketIOClient::SocketIOClient(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) { impl_->socket = this; }

SocketIOClient::~SocketIOClient() = default;

void SocketIOClient::on(std::string event, Handler handler) {
    impl_->assertMainThread();
    if (!handler) return;
    impl_->addHandler(std::move(event), std::move(handler));
}

void SocketIOClient::connect() {
    impl_->assertMainThread();
    impl_->connect();
}

void SocketIOClient::connectWithTimeoutAfter(std::chrono::duration<double> timeout, std::function<void()> handler) {
    impl_->assertMainThread();
    impl_->connect();
    impl_->callIfStillConnecting(timeout, std::move(handler));
}

void SocketIOClient::networkChanged() {
    impl_->assertMainThread();
    impl_->networkChanged();
}

void SocketIOClient::disconnect() {
    impl_->assertMainThread();
    impl_->disconnect();
}

std::string const& SocketIOClient::sid() const {
    impl_->assertMainThread();
    return impl_->sid;
}

SocketStatus SocketIOClient::status() const {
    impl_->assertMainThread();
    return impl_->status;
}

std::uint64_t SocketIOClient::unaskedAcknowledgements() const {
    impl_->assertMainThread();
    return impl_->acks->unasked();
}

std::size_t SocketIOClient::bytesQueued() const {
    impl_->assertMainThread();
    return impl_->bytesQueued();
}

void SocketIOClient::onWritable(std::function<void()> handler) {
    impl_->assertMainThread();
    impl_->writable = std::move(handler);
}

void SocketIOClient::pauseReading() {
    impl_->assertMainThread();
    impl_->config->metrics->isReadingPaused = true;
}

void SocketIOClient::resumeReading() {
    impl_->assertMainThread();
    impl_->resumeReading();
}

SocketPressure SocketIOClient::pressure() const {
    impl_->assertMainThread();
    return impl_->pressure();
}

KvFailureStage SocketIOClient::stage() const {
    impl_->assertMainThread();
    return impl_->stage();
}

net::Failure const& SocketIOClient::failure() const {
    impl_->assertMainThread();
    return impl_->failure;
}

void SocketIOClient::emit(std::string_view event, SocketItems const& items) {
    impl_->assertMainThread();
    impl_->send(event, items, {}, std::chrono::steady_clock::time_point::max());
}

SocketIOClient::Acknowledgement SocketIOClient::emitWithAck(std::string_view event, SocketItems items) {
    return {shared_from_this(), event, std::move(items)};
}

void SocketIOClient::Acknowledgement::timingOutAfter(std::chrono::duration<double> timeout, Handler done) && {
    auto const socket = std::exchange(socket_, nullptr);
    if (!socket) return;
    auto& impl = *socket->impl_;
    impl.assertMainThread();
    auto const pending = impl.acks->add(timeout, std::move(done));
    if (auto const unsent = impl.send(event_, items_, pending.id, pending.deadline))
        impl.acks->neverAsked(pending.id, *unsent);
}

}  // namespace kv
