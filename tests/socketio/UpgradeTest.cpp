#include "SocketIO/transport/Upgrade.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/evp.h>

namespace kv::sio {
namespace {

std::string base64Sha1(std::string const& text) {
    unsigned char digest[EVP_MAX_MD_SIZE], encoded[64];
    unsigned size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha1(), nullptr);
    EVP_EncodeBlock(encoded, digest, static_cast<int>(size));
    return reinterpret_cast<char*>(encoded);
}

std::string valueOf(std::string const& request, std::string const& header) {
    auto const at = request.find("\r\n" + header + ": ");
    if (at == std::string::npos) return "absent";
    auto const start = at + header.size() + 4;
    return request.substr(start, request.find("\r\n", start) - start);
}

std::string acceptOf(Upgrade const& upgrade) {
    return base64Sha1(valueOf(upgrade.request(), "Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11");
}

std::string const kOffer =
    "permessage-deflate; client_no_context_takeover; server_no_context_takeover; client_max_window_bits, "
    "permessage-deflate; client_max_window_bits, permessage-deflate";

TEST(Upgrade, AsksForAWebSocket) {
    Upgrade const plain("host:81", "/socket.io/?EIO=4", false), offering("[::1]", "/", true, "A: b\r\nC: d\r\n");
    EXPECT_TRUE(plain.request().starts_with("GET /socket.io/?EIO=4 HTTP/1.1\r\n"));
    EXPECT_TRUE(plain.request().ends_with("\r\n\r\n"));
    EXPECT_EQ(valueOf(plain.request(), "Host"), "host:81");
    EXPECT_EQ(valueOf(plain.request(), "Upgrade"), "websocket");
    EXPECT_EQ(valueOf(plain.request(), "Connection"), "Upgrade");
    EXPECT_EQ(valueOf(plain.request(), "Sec-WebSocket-Version"), "13");
    EXPECT_EQ(valueOf(plain.request(), "Sec-WebSocket-Extensions"), "absent");
    EXPECT_EQ(valueOf(offering.request(), "Host"), "[::1]");
    EXPECT_TRUE(offering.request().ends_with("\r\nA: b\r\nC: d\r\n\r\n"));
    EXPECT_EQ(valueOf(offering.request(), "Sec-WebSocket-Extensions"), kOffer);
    EXPECT_EQ(valueOf(plain.request(), "Sec-WebSocket-Key").size(), 24u);
    EXPECT_NE(valueOf(plain.request(), "Sec-WebSocket-Key"), valueOf(offering.request(), "Sec-WebSocket-Key"));
}

TEST(Upgrade, JudgesTheAnswer) {
    std::string const good =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: $\r\n";
    std::string const deflate = "Sec-WebSocket-Extensions: permessage-deflate";
    enum class Deflates { no, droppingContext, keepingContext };
    using enum Deflates;
    struct Case {
        std::string head;  // '$' stands for the right key
        char const* error;
        bool offers = false;
        Deflates deflates = no;
        int bits = 15;
    };
    std::vector<Case> const cases{
        {good, ""},
        {good, "", true},
        {"HTTP/1.1 101 \r\nserver: x\r\nUPGRADE:  WebSocket \r\nconnection: keep-alive, "
         "UPGRADE\r\nsec-websocket-accept:$\r\n",
         ""},
        {good + deflate + "; server_no_context_takeover; client_no_context_takeover\r\n", "", true, droppingContext},
        {good + deflate + ";server_no_context_takeover ; server_max_window_bits=10\r\n", "", true, droppingContext},
        {good + deflate + "\r\n", "", true, keepingContext},
        {good + deflate + "\r\n", "extension that was not offered", false},
        {good + deflate + "; client_max_window_bits=\"10\"\r\n", "", true, keepingContext, 10},
        {good + deflate + "; client_max_window_bits=8\r\n", "", true, keepingContext, 0},
        {good + deflate + "; client_max_window_bits=7\r\n", "extension that was not offered", true},
        {good + deflate + "; server_max_window_bits=16\r\n", "extension that was not offered", true},
        {good + deflate + "; server_max_window_bits=010\r\n", "extension that was not offered", true},
        {good + deflate + "; client_max_window_bits\r\n", "extension that was not offered", true},
        {good + deflate + "; server_no_context_takeover=1\r\n", "extension that was not offered", true},
        {good + deflate + "; server_max_window_bits=9;server_max_window_bits=9\r\n", "not offered", true},
        {good + deflate + "; unknown\r\n", "extension that was not offered", true},
        {good + deflate + ", x-other\r\n", "extension that was not offered", true},
        {good + deflate + "\r\n" + deflate + "\r\n", "extension that was not offered", true},
        {good + "Sec-WebSocket-Extensions: x-webkit-deflate-frame\r\n", "extension that was not offered", true},
        {"HTTP/1.1 400 Bad Request\r\n", "HTTP status 400 Bad Request"},
        {"HTTP/1.1 301 Moved\r\nLocation: http://elsewhere\r\n", "HTTP status 301"},
        {"HTTP/1.1 1010 Odd\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: $\r\n",
         "HTTP status 1010"},
        {"HTTP/1.1 200 " + std::string(10000, 'x') + "\r\n", "HTTP status 200"},
        {"HTTP/1.0 101 Old\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: $\r\n", "HTTP"},
        {"HTTP/1.1 101 x\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: $\r\n", "did not switch"},
        {"HTTP/1.1 101 x\r\nUpgrade: websocket\r\nConnection: close\r\nSec-WebSocket-Accept: $\r\n", "did not switch"},
        {"HTTP/1.1 101 x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n", "Sec-WebSocket-Accept"},
        {"HTTP/1.1 101 x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: AAAA\r\n",
         "Sec-WebSocket-Accept"},
    };
    for (auto const& c : cases) {
        Upgrade const upgrade("host", "/", c.offers);
        auto head = c.head;
        if (auto const at = head.find('$'); at != std::string::npos) head.replace(at, 1, acceptOf(upgrade));
        DeflateAgreement agreement;
        auto const error = upgrade.check(head, agreement);
        if (*c.error != '\0') {
            EXPECT_NE(error.find(c.error), std::string::npos) << head << error;
            EXPECT_LT(error.size(), 200u);
            continue;
        }
        EXPECT_EQ(error, "") << head;
        EXPECT_EQ(agreement.isEnabled, c.deflates != no) << head;
        EXPECT_EQ(agreement.isEnabled ? agreement.clientWindowBits : c.bits, c.bits) << head;
        EXPECT_EQ(agreement.isEnabled && agreement.serverKeepsContext, c.deflates == keepingContext) << head;
    }
}

TEST(Upgrade, KnowsEarlyWhatIsNoHttp) {
    for (auto const* interim : {"HTTP/1.1 100 Continue\r\n", "HTTP/1.1 103\r\n"})
        EXPECT_TRUE(Upgrade::isInterim(interim));
    for (auto const* last : {"HTTP/1.1 101 x\r\n", "HTTP/1.1 1010 Odd\r\n", "HTTP/1.1 200\r\n", "x"})
        EXPECT_FALSE(Upgrade::isInterim(last)) << last;
    for (auto const* start : {"", "H", "HTTP", "HTTP/1.1 101"}) EXPECT_TRUE(Upgrade::mayBeHttp(start)) << start;
    for (auto const* start : {"h", "SSH-2.0", "\x15\x03\x01", "HTTQ/"})
        EXPECT_FALSE(Upgrade::mayBeHttp(start)) << start;
}

}  // namespace
}  // namespace kv::sio
