#include "fuzz/support/Network.h"

#include "Classes/Utils/KvInvitationStore.h"
#include "Classes/Utils/KvLog.h"
#include "Classes/Utils/Logan/LoganManager.h"
#include "Platform/KvJsonText.h"
#include "Platform/KvKeyStore.h"
#include "Platform/KvQueueContext.h"
#include "SocketIO/core/Packet.h"
#include "SocketIO/transport/Opener.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/ServerFrames.h"

#include <array>
#include <csignal>
#include <map>
#include <mutex>

#include <sys/socket.h>
#include <unistd.h>

namespace kv::fuzz {
namespace {

class KeyStoreInMemory final : public KvKeyStore {
public:
    KvKeyStoreStatus add(KvKeyStoreQuery const& query, std::string_view value) override {
        std::lock_guard lock(mutex_);
        values_[query.account] = value;
        return KvKeyStoreStatus::success;
    }
    KvKeyStoreMatch copyMatching(KvKeyStoreQuery const& query) override {
        std::lock_guard lock(mutex_);
        auto const found = values_.find(query.account);
        if (found == values_.end()) return {KvKeyStoreStatus::itemNotFound};
        return {KvKeyStoreStatus::success, found->second};
    }
    KvKeyStoreStatus remove(KvKeyStoreQuery const& query) override {
        std::lock_guard lock(mutex_);
        return values_.erase(query.account) > 0 ? KvKeyStoreStatus::success : KvKeyStoreStatus::itemNotFound;
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::string> values_;  // guarded by mutex_
};

}  // namespace

ServerEnd::ServerEnd(int fd) : fd_(fd) { reader_.setInflater(sio::Inflater(sio::Inflater::Context::dropped)); }

ServerEnd::~ServerEnd() { hangUp(); }

void ServerEnd::send(std::string_view bytes) {
    if (fd_ >= 0) [[maybe_unused]]
        auto const sent = ::send(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void ServerEnd::hangUp() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

void ServerEnd::read() {
    std::array<char, 65536> piece;
    for (ssize_t size; fd_ >= 0 && (size = ::recv(fd_, piece.data(), piece.size(), MSG_DONTWAIT)) > 0;) {
        masked_.append(piece.data(), static_cast<std::size_t>(size));
    }
    unmask();
    auto const frames = std::exchange(frames_, {});
    std::span<std::uint8_t const> input(reinterpret_cast<std::uint8_t const*>(frames.data()), frames.size());
    for (;;) {
        auto const step = reader_.next(input);
        require(step != sio::FrameReader::Step::failed, "the client's frames are right");
        if (step == sio::FrameReader::Step::needMore) return;
        onMessage();
    }
}

// Moves whole frames from `masked_` to `frames_`, as a server would have sent them.
void ServerEnd::unmask() {
    for (auto const& frame : test::takeClientFrames(masked_)) {
        require(frame.opcode >= 0, "the client masks, and fragments nothing");
        frames_ += serverFrame(test::kFin | (frame.isCompressed ? test::kCompressed : 0) | frame.opcode, frame.payload);
    }
}

void ServerEnd::onMessage() {
    if (reader_.opcode() == sio::WsOpcode::binary) {
        require(attachmentsLeft_-- > 0, "attachments follow a packet that has them");
        return;
    }
    auto const text = reader_.text();
    if (reader_.opcode() != sio::WsOpcode::text || text.starts_with('3')) return;  // a pong may be anywhere
    require(attachmentsLeft_ == 0, "a packet is followed by its attachments");
    if (text == "40" || text == "41") return;
    sio::PacketHeader header;
    require(text.starts_with('4') && sio::readPacketHeader(text.substr(1), header).empty(), "packets have a header");
    boost::json::value items;
    require(readJson(header.json, {}, items).empty() && items.is_array(), "packets have items");
    attachmentsLeft_ = header.attachments;
    lastId_ = header.id.value_or(lastId_);
}

Network& Network::shared() {
    static auto& network = *new Network;
    return network;
}

void Network::reset() {
    servers_.clear();
    requests_.clear();
}

void Network::readAll() {
    for (auto const& server : servers_) server->read();
}

void Network::answerRequests(KvHttpAnswer const& answer) {
    for (auto const& completion : std::exchange(requests_, {})) completion(answer);
}

void endInput() {
    Network::shared().reset();
    KvInvitationStore::shared().reset(nullptr);
    KvLog::shared().drain();
    LoganManager::sharedInstance().drain();
}

}  // namespace kv::fuzz

// Nothing is kept on the disk, nor in the user's key store.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::signal(SIGPIPE, SIG_IGN);
    kv::KvKeyStore::setShared(std::make_shared<kv::fuzz::KeyStoreInMemory>());
    return 0;
}

// ---- In place of SocketIO/transport/Opener.cpp: every server is there at once, and speaks WebSocket.
namespace kv::sio {

class Opener::Handshake {};

Opener::Opener(std::shared_ptr<KvMainQueue> const& queue, Plan plan, std::function<void(Opened)> done)
    : queue_(queue), plan_(std::move(plan)), done_(std::move(done)) {}

Opener::~Opener() = default;

void Opener::start() {
    queue_.lock()->post([weak = weak_from_this()] {
        if (auto const self = weak.lock(); self && self->done_) self->shakeHands(nullptr);
    });
}

void Opener::shakeHands(std::unique_ptr<net::Stream>) {
    int ends[2];
    fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    Opened opened;
    opened.stream = std::make_unique<net::Stream>(contextOf(*queue_.lock()));
    opened.stream->socket().assign(boost::asio::ip::tcp::v4(), ends[0]);
    opened.agreement.isEnabled = plan_.offersDeflate;
    fuzz::Network::shared().addServer(ends[1]);
    std::exchange(done_, nullptr)(std::move(opened));
}

void Opener::cancel() { done_ = nullptr; }

std::string Opener::doing() const { return "Connecting to " + plan_.url.text(); }

}  // namespace kv::sio

// ---- In place of Net/Http.cpp: requests wait for the fuzzer's answer, uploads fail.
namespace kv {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is that of the real one
void startHttp(std::shared_ptr<KvMainQueue> const&, KvHttpTask task, KvHttpCompletion completion) {
    if (task.uploadPath.empty()) return fuzz::Network::shared().addRequest(std::move(completion));
    completion({.failure = net::Failure{KvFailureStage::tcp, "no network"}});  // on a background thread
}

}  // namespace kv
