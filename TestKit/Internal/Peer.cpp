#include "TestKit/Internal/Peer.h"

#include "Net/Base64.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <utility>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {

namespace json = boost::json;
namespace {

constexpr std::size_t kMostHeadBytes = 64u << 10, kMostBodyBytes = 64u << 20, kMostMessageBytes = 16u << 20;
// A client closes its connection when it is told that it was disconnected; one that does not is cut off then.
constexpr std::chrono::seconds kFarewell{5};
constexpr std::uint16_t kProtocolError = 1002, kTooBig = 1009;

}  // namespace

std::string acceptKeyOf(std::string_view key) {
    auto const text = std::string(key) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha1(), nullptr);
    return net::base64({digest, size});
}

std::string_view headerOf(std::string_view head, std::string_view name) {
    auto const isSame = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    while (!head.empty()) {
        auto const end = std::min(head.find("\r\n"), head.size());
        auto const line = head.substr(0, end);
        head.remove_prefix(std::min(end + 2, head.size()));
        if (line.size() <= name.size() || line[name.size()] != ':') continue;
        if (!std::ranges::equal(line.substr(0, name.size()), name, isSame)) continue;
        auto const value = line.substr(name.size() + 1);
        return value.substr(std::min(value.find_first_not_of(' '), value.size()));
    }
    return {};
}

namespace {

std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        int code = 0;
        auto const digits = text.substr(std::min(i + 1, text.size()), 2);
        auto const read = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
        bool const isEscape = text[i] == '%' && digits.size() == 2 && read.ptr == digits.data() + 2;
        result += isEscape ? static_cast<char>(code) : text[i] == '+' ? ' ' : text[i];
        if (isEscape) i += 2;
    }
    return result;
}

// Calls it for the value and each one inside, until one is false.
template <class Visit>
bool visitAll(json::value& value, Visit const& visit) {
    if (!visit(value)) return false;
    if (auto* const array = value.if_array())
        return std::ranges::all_of(*array, [&](json::value& item) { return visitAll(item, visit); });
    auto* const object = value.if_object();
    return object == nullptr ||
           std::ranges::all_of(*object, [&](auto&& item) { return visitAll(item.value(), visit); });
}

}  // namespace

json::value bytesItem(std::string bytes) { return json::object{{kBytesKey, std::move(bytes)}}; }

std::optional<std::string_view> bytesOfItem(json::value const& item) {
    auto const* const object = item.if_object();
    auto const* const bytes = object != nullptr ? object->if_contains(kBytesKey) : nullptr;
    if (bytes == nullptr) return std::nullopt;
    return bytes->as_string();
}

bool putAttachments(json::value& items, std::vector<std::string> const& attachments) {
    return visitAll(items, [&](json::value& item) {
        auto const* const object = item.if_object();
        if (object == nullptr || !object->contains("_placeholder")) return true;
        auto const* const number = object->if_contains("num");
        boost::system::error_code error;
        auto const index = number != nullptr ? number->to_number<std::size_t>(error) : attachments.size();
        if (error || index >= attachments.size()) return false;
        item = bytesItem(attachments[index]);
        return true;
    });
}

std::map<std::string, std::string> parametersOf(std::string_view query) {
    std::map<std::string, std::string> parameters;
    while (!query.empty()) {
        auto const part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(part.size() + 1, query.size()));
        auto const name = part.substr(0, part.find('='));
        parameters[unescaped(name)] = unescaped(part.substr(std::min(name.size() + 1, part.size())));
    }
    return parameters;
}

Peer::Peer(std::shared_ptr<KvMainQueue> const& queue, int fd, PeerHost& host)
    : queue_(queue), fd_(fd), host_(host), id_([] {
          static std::atomic<int> made{0};
          return "peer-" + std::to_string(++made);
      }()) {}

Peer::~Peer() {
    if (fd_ >= 0) ::close(fd_);
}

// ---- Reading

void Peer::awaitReadable() {
    auto const queue = queue_.lock();
    if (!queue || fd_ < 0 || isFrozen_) return;
    readable_ = queue->whenReadable(fd_, [this, keep = weak_from_this()] {
        if (auto const self = keep.lock()) read();
    });
}

void Peer::read() {
    std::vector<char> piece(64u << 10);
    auto const size = ::recv(fd_, piece.data(), piece.size(), MSG_DONTWAIT);
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) return cut();
    if (size > 0) in_.append(piece.data(), static_cast<std::size_t>(size));
    consume();
    awaitReadable();
}

void Peer::consume() {
    if (!isWebSocket_ && request_.method.empty()) {
        auto const end = in_.find("\r\n\r\n");
        if (end == std::string::npos) return in_.size() > kMostHeadBytes ? cut() : void();
        auto const head = in_.substr(0, end + 2);
        in_.erase(0, end + 4);
        onHttpHead(head);
    }
    if (!isWebSocket_ && fd_ >= 0 && !isEnding_) {
        if (in_.size() < bodyLeft_) return;
        request_.body = in_.substr(0, bodyLeft_);
        return answerHttp();
    }
    if (in_.size() > kMostMessageBytes + kMostHeadBytes) return close(kTooBig, "too big");
    for (auto& frame : takeClientFrames(in_)) {
        if (fd_ < 0 || isEnding_) return;
        onFrame(std::move(frame));
    }
}

void Peer::onHttpHead(std::string_view head) {
    auto const line = head.substr(0, head.find("\r\n"));
    auto const target = line.substr(std::min(line.find(' ') + 1, line.size()));
    auto const url = target.substr(0, target.find(' '));
    auto const path = url.substr(0, url.find('?'));
    request_.method = line.substr(0, line.find(' '));
    request_.path = path;
    request_.query = url.substr(std::min(path.size() + 1, url.size()));
    request_.host = headerOf(head, "Host");
    if (!headerOf(head, "Sec-WebSocket-Key").empty()) return upgrade(head);
    auto const length = headerOf(head, "Content-Length");
    std::from_chars(length.data(), length.data() + length.size(), bodyLeft_);
    if (bodyLeft_ > kMostBodyBytes) cut();
}

void Peer::answerHttp() {
    if (breaks(Moment::discovery)) return;
    auto const answer = host_.onHttp(request_);
    isEnding_ = true;
    send("HTTP/1.1 " + std::to_string(answer.status) +
         " Here\r\nContent-Type: application/json\r\nConnection: close\r\n" +
         "Content-Length: " + std::to_string(answer.body.size()) + "\r\n\r\n" + answer.body);
}

void Peer::upgrade(std::string_view head) {
    auto const answer =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
        acceptKeyOf(headerOf(head, "Sec-WebSocket-Key")) + "\r\n\r\n";
    isWebSocket_ = true;
    if (breaks(Moment::upgrade, answer)) return;
    send(answer);
    if (breaks(Moment::opening)) return;
    auto const& options = host_.options();
    json::value const open{{"sid", id_},
                           {"upgrades", json::array()},
                           {"pingInterval", options.pingInterval.count()},
                           {"pingTimeout", options.pingTimeout.count()},
                           {"maxPayload", kMostMessageBytes}};
    send(textFrame('0' + json::serialize(open)));
    startPings();
}

void Peer::onFrame(ClientFrame frame) {
    switch (frame.opcode) {
        case kText:
            return onText(frame.payload);
        case kBinary:
            if (attachmentsLeft_ == 0) return close(kProtocolError, "no packet awaits data");
            attachments_.push_back(std::move(frame.payload));
            if (--attachmentsLeft_ > 0) return;
            break;
        case kPing:
            return send(serverFrame(kFin | kPong, frame.payload));
        case kPong:
            return;
        case kClose:
            isEnding_ = true;
            return send(serverFrame(kFin | kClose, frame.payload));
        default:
            return close(kProtocolError, "no frame of a client");
    }
    json::value items = std::move(items_);
    if (!putAttachments(items, std::exchange(attachments_, {}))) return close(kProtocolError, "no such attachment");
    host_.onEvent(*this, std::move(items.as_array()), packetId_);
}

void Peer::onText(std::string_view text) {
    if (text == "3") {
        pong_.cancel();
        return startPings();
    }
    if (text == "1") return cut();
    if (text == "2") return send(textFrame("3"));
    if (!text.starts_with('4') || text.size() < 2) return close(kProtocolError, "no packet");
    onPacket(text.substr(1));
}

void Peer::onPacket(std::string_view packet) {
    auto const type = packet.front();
    packet.remove_prefix(1);
    auto const number = [&]() -> std::optional<std::uint64_t> {
        std::uint64_t value = 0;
        auto const read = std::from_chars(packet.data(), packet.data() + packet.size(), value);
        if (read.ptr == packet.data()) return std::nullopt;
        packet.remove_prefix(static_cast<std::size_t>(read.ptr - packet.data()));
        return value;
    };
    if (type == '0') {
        send(textFrame("40" + json::serialize(json::value{{"sid", id_}})));
        if (!breaks(Moment::login)) host_.onConnect(*this);
        return;
    }
    if (type == '1') return cut();
    attachmentsLeft_ = 0;
    if (type == '5') {
        attachmentsLeft_ = static_cast<std::size_t>(number().value_or(0));
        if (packet.starts_with('-')) packet.remove_prefix(1);
    }
    packetId_ = number();
    boost::system::error_code error;
    auto items = json::parse(packet, error);
    bool const isEvent = (type == '2' || type == '5') && !error && items.is_array() && !items.as_array().empty();
    if (!isEvent) return close(kProtocolError, "no event");
    if (attachmentsLeft_ == 0) return host_.onEvent(*this, std::move(items.as_array()), packetId_);
    items_ = std::move(items.as_array());
}

// ---- Writing

void Peer::emit(std::string_view event, json::array items) {
    items.insert(items.begin(), json::value(event));
    sendPacket("2", std::nullopt, items);
}

void Peer::acknowledge(std::uint64_t id, json::array const& items) { sendPacket("3", id, items); }

void Peer::sendPacket(std::string_view type, std::optional<std::uint64_t> id, json::array const& given) {
    json::value items = given;
    std::vector<std::string> attachments;
    visitAll(items, [&](json::value& item) {
        auto const bytes = bytesOfItem(item);
        if (!bytes) return true;
        attachments.emplace_back(*bytes);
        item = json::value{{"_placeholder", true}, {"num", attachments.size() - 1}};
        return true;
    });
    std::string text = "4";
    text += attachments.empty() ? type : type == "2" ? "5" : "6";
    if (!attachments.empty()) text += std::to_string(attachments.size()) + '-';
    if (id) text += std::to_string(*id);
    text += json::serialize(items);
    auto const frame = textFrame(text);
    if (breaks(type == "2" ? Moment::event : Moment::answer, frame)) return;
    send(frame);
    if (!attachments.empty() && breaks(Moment::attachment)) return;
    for (auto const& attachment : attachments) send(binaryFrame(attachment));
}

void Peer::refuse(std::string_view reason) {
    send(textFrame("44" + json::serialize(json::value{{"message", reason}})));
    cutAfter(kFarewell);
}

void Peer::disconnect() {
    send(textFrame("41"));
    cutAfter(kFarewell);
}

void Peer::close(std::uint16_t code, std::string_view reason) {
    isEnding_ = true;
    std::string payload{static_cast<char>(code >> 8), static_cast<char>(code)};
    send(serverFrame(kFin | kClose, payload.append(reason)));
    cutAfter(kFarewell);
}

void Peer::send(std::string_view bytes) {
    out_ += bytes;
    flush();
}

void Peer::flush() {
    auto const queue = queue_.lock();
    if (!queue || fd_ < 0 || isFrozen_ || writable_.isActive()) return;
    while (!out_.empty()) {
        auto const size = piece_ > 0 ? std::min(piece_, out_.size()) : out_.size();
        auto const sent = ::send(fd_, out_.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN && errno != EINTR) return cutAfter({});
        if (sent > 0) out_.erase(0, static_cast<std::size_t>(sent));
        if (out_.empty()) break;
        if (sent > 0 && piece_ == 0) continue;
        writable_ = queue->whenWritable(fd_, [this] { flush(); });
        return;
    }
    if (isEnding_) ::shutdown(fd_, SHUT_WR);  // what the client says meanwhile is read, up to its end
}

void Peer::startPings() {
    auto const queue = queue_.lock();
    if (!queue) return;
    auto const& options = host_.options();
    ping_ = queue->after(options.pingInterval, [this, timeout = options.pingTimeout] {
        pong_ = queue_.lock()->after(timeout, [this] { cut(); });
        send(textFrame("2"));
    });
}

// ---- Ends

void Peer::cut() {
    if (fd_ < 0) return;
    auto const keep = shared_from_this();
    for (auto* timer : {&readable_, &writable_, &ping_, &pong_, &farewell_}) timer->cancel();
    ::close(std::exchange(fd_, -1));
    host_.onEnd(*this);
}

// Never within what made it end: the service may be telling others of it.
void Peer::cutAfter(std::chrono::nanoseconds delay) {
    if (auto const queue = queue_.lock()) farewell_ = queue->after(delay, [this] { cut(); });
}

void Peer::freeze() {
    isFrozen_ = true;
    for (auto* timer : {&readable_, &writable_, &ping_, &pong_}) timer->cancel();
}

void Peer::thaw() {
    isFrozen_ = false;
    if (isWebSocket_) startPings();
    flush();
    awaitReadable();
}

bool Peer::breaks(Moment moment, std::string_view half) {
    if (fd_ < 0) return true;
    auto const how = host_.breakAt(moment);
    if (!how) return false;
    send(half.substr(0, half.size() / 2));
    freeze();
    if (*how == Break::cut) cutAfter({});
    return true;
}

}  // namespace kv::test
