#include "support/ScriptedServer.h"

#include "support/Listener.h"

#include <algorithm>
#include <utility>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <openssl/evp.h>
#include <openssl/ssl.h>

namespace kv::test {

namespace json = boost::json;
namespace {

std::string base64(unsigned char const* data, std::size_t size) {
    std::string text(4 * ((size + 2) / 3), '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data, static_cast<int>(size));
    return text;
}

std::string headerOf(std::string const& head, std::string const& name) {
    auto const at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    auto const start = at + name.size() + 4;
    return head.substr(start, head.find("\r\n", start) - start);
}

std::shared_ptr<boost::asio::ssl::context> contextOf(ScriptedServer::Options const& options) {
    if (options.certificateFile.empty()) return nullptr;
    using Context = boost::asio::ssl::context;
    auto context = std::make_shared<Context>(Context::tls_server);
    if (options.onlyTls != 0) {
        SSL_CTX_set_min_proto_version(context->native_handle(), options.onlyTls);
        SSL_CTX_set_max_proto_version(context->native_handle(), options.onlyTls);
        SSL_CTX_set_cipher_list(context->native_handle(), "DEFAULT:@SECLEVEL=0");
    }
    context->use_certificate_chain_file(options.certificateFile);
    context->use_private_key_file(options.keyFile, Context::pem);
    SSL_CTX_set_session_id_context(context->native_handle(), reinterpret_cast<unsigned char const*>("test"), 4);
    if (!options.clientAuthorities.empty()) {
        context->load_verify_file(options.clientAuthorities);
        context->set_verify_mode(boost::asio::ssl::verify_peer | boost::asio::ssl::verify_fail_if_no_peer_cert);
    }
    return context;
}

}  // namespace

void ScriptedPeer::send(std::string_view bytes) { connection_.send(bytes); }

void ScriptedPeer::sendInPieces(std::string_view bytes, std::size_t size) {
    for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) {
        send(bytes.substr(0, size));
        sleep(std::chrono::milliseconds(1));  // or the kernel would join the pieces again
    }
}

std::string ScriptedPeer::upgradeAnswer(std::string const& moreHeaders) const {
    auto const text = headerOf(request_, "Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha1(), nullptr);
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
           base64(digest, size) + "\r\n" + moreHeaders + "\r\n";
}

void ScriptedPeer::acceptWebSocket(std::string const& moreHeaders) { send(upgradeAnswer(moreHeaders)); }

ClientFrame ScriptedPeer::readMessage() {
    while (messages_.empty()) {
        auto const more = connection_.receive();
        if (more.empty()) throw ConnectionEnds("the client is gone");
        std::ranges::move(takeClientFrames(unread_ += more), std::back_inserter(messages_));
    }
    auto message = std::move(messages_.front());
    messages_.pop_front();
    if (message.opcode < 0) throw ConnectionEnds("a frame that no client may send");
    return message;
}

std::string ScriptedPeer::readText() {
    for (;;) {
        auto message = readMessage();
        if (message.opcode == kText) return std::move(message.payload);
    }
}

std::string ScriptedPeer::openPacket(Pings pings) {
    std::string packet = "0";
    packet += json::serialize(json::value{{"sid", "engine"},
                                          {"upgrades", json::array()},
                                          {"pingInterval", pings.interval.count()},
                                          {"pingTimeout", pings.timeout.count()},
                                          {"maxPayload", 1000000}});
    return packet;
}

void ScriptedPeer::connect() { connect(Pings{}); }

void ScriptedPeer::connect(Pings pings, std::string const& moreHeaders) {
    acceptWebSocket(moreHeaders);
    sendText(openPacket(pings));
    if (readText() != "40") throw ConnectionEnds("no connect packet");
    sendText("40{\"sid\":\"session" + std::to_string(number_) + "\"}");
}

void ScriptedPeer::login() {
    connect();
    emit("loginSuccess", {json::object()});
}

json::value ScriptedPeer::placeholder(std::size_t number) { return {{"_placeholder", true}, {"num", number}}; }

void ScriptedPeer::sendPacket(std::string_view type, std::optional<std::uint64_t> id, json::array const& items,
                              std::vector<std::string> const& attachments) {
    std::string text(type);
    if (!attachments.empty()) text += std::to_string(attachments.size()) + '-';
    if (id) text += std::to_string(*id);
    std::string bytes = textFrame(text + json::serialize(items));
    for (auto const& attachment : attachments) bytes += binaryFrame(attachment);
    send(bytes);
}

void ScriptedPeer::emit(std::string_view event, json::array items, std::vector<std::string> const& attachments) {
    items.insert(items.begin(), json::value(json::string_view(event.data(), event.size())));
    sendPacket(attachments.empty() ? "42" : "45", {}, items, attachments);
}

ScriptedPeer::Event ScriptedPeer::readEvent() {
    auto text = readText();
    while (text[0] == '3') text = readText();
    Event event;
    if (text.size() < 2 || text[0] != '4' || (text[1] != '2' && text[1] != '5'))
        throw ConnectionEnds("no event: " + text);
    std::size_t at = 2, attachments = 0;
    if (text[1] == '5') {
        attachments = std::stoul(text.substr(at));
        at = text.find('-') + 1;
    }
    auto const start = text.find('[', at);
    if (start > at) event.id = std::stoull(text.substr(at, start - at));
    event.items = json::parse(text.substr(start)).as_array();
    while (event.attachments.size() < attachments) {
        auto message = readMessage();
        if (message.opcode == kBinary) event.attachments.push_back(std::move(message.payload));
    }
    return event;
}

void ScriptedPeer::acknowledge(Event const& event, json::array const& items,
                               std::vector<std::string> const& attachments) {
    sendPacket(attachments.empty() ? "43" : "46", event.id, items, attachments);
}

void ScriptedPeer::close(std::uint16_t code, std::string_view reason) {
    std::string payload = {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    send(serverFrame(kFin | kClose, payload.append(reason)));
}
void ScriptedPeer::hangUp() { connection_.close(); }
void ScriptedPeer::reset() { connection_.reset(); }

std::vector<ClientFrame> ScriptedPeer::readToEnd() {
    std::vector<ClientFrame> messages;
    try {
        for (;;) messages.push_back(readMessage());
    } catch (ConnectionEnds const&) {
    }
    return messages;
}

void ScriptedPeer::sleep(std::chrono::milliseconds time) { connection_.sleep(time); }

ScriptedServer::ScriptedServer(Script script) : ScriptedServer(std::move(script), Options()) {}

ScriptedServer::ScriptedServer(Script script, Options options)
    : script_(std::move(script)),
      options_(std::move(options)),
      listener_(std::make_unique<Listener>([this](Connection& connection) { serve(connection); },
                                           Listener::Options{options_.address, 0, contextOf(options_)})) {}

ScriptedServer::~ScriptedServer() = default;

std::uint16_t ScriptedServer::port() const { return listener_->port(); }

std::string ScriptedServer::url(std::string const& host) const {
    return (options_.certificateFile.empty() ? "http://" : "https://") + host + ':' + std::to_string(port());
}

void ScriptedServer::serve(Connection& connection) {
    resumptions_ += connection.isResumed() ? 1 : 0;
    ScriptedPeer peer(connection);
    peer.send(options_.greeting);
    peer.request_ = connection.takeUntil("\r\n\r\n");
    if (peer.request_.starts_with("GET /config/")) {
        auto const body = json::serialize(
            json::value{{"code", 200}, {"data", {{"brivelServers", json::array{url(options_.address)}}}}});
        return peer.send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                         std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    peer.number_ = connections_++;
    script_(peer);
}

}  // namespace kv::test
