// Servers that fail a login at each of its steps.
#pragma once

#include "support/Certificates.h"
#include "support/HttpTestServer.h"
#include "support/ScriptedServer.h"
#include "support/Test.h"

#include <string>

namespace kv::test {

inline constexpr char kSecret[] = "sesame-open-word";
// A token as it is, and as the request that bears it has it.
inline constexpr char kOddToken[] = "q+w/e=r+t/y=u+i/o=p+a/s=d+f/g=h+", kOddTokenSent[] = "q%2Bw%2Fe%3Dr%2Bt%2Fy";

struct FailingServers {
    CertificateAuthority const authority;
    CertificateAuthority::Certificate const itself = authority.selfSigned("IP:127.0.0.1");
    ScriptedServer const secure{[](auto&) {}, {.certificateFile = itself.certificateFile, .keyFile = itself.keyFile}};
    ScriptedServer const alert{
        [](auto&) {}, {.certificateFile = {}, .keyFile = {}, .greeting = std::string("\x15\x03\x03\0\2\2\x28", 7)}};
    ScriptedServer const clear{[](auto&) {},
                               {.certificateFile = {}, .keyFile = {}, .greeting = "HTTP/1.1 400 Bad Request\r\n\r\n"}};
    HttpTestServer const lost{[](auto&) -> HttpTestAnswer { return {.status = 404, .body = "<h1>\x1b[31mLost</h1>"}; }};
    HttpTestServer const rude{
        [](auto&) -> HttpTestAnswer { return {.body = R"({"code":403,"message":"no such app"})"}; }};
    HttpTestServer const silent{[](auto&) -> HttpTestAnswer { return {.ending = HttpTestAnswer::Ending::silence}; }};
    ScriptedServer const gateway{
        [](ScriptedPeer& peer) { peer.send("HTTP/1.1 403 Forbidden\r\n\r\nno way for " + peer.request()); }};
    ScriptedServer const refusing{[](ScriptedPeer& peer) {
        peer.acceptWebSocket();
        peer.sendText(ScriptedPeer::openPacket({}));
        peer.readText();
        peer.sendText(R"(44{"message":"not for you"})");
        peer.readToEnd();
    }};
    ScriptedServer const judging{[](ScriptedPeer& peer) {
        peer.connect();
        peer.emit("disconnectReason", {std::string("loginFail: InvalidToken")});
        peer.sendText("41");
        peer.readToEnd();
    }};
    ScriptedServer const slow{[](ScriptedPeer& peer) { peer.sleep(60s); }};

    static std::string port(auto const& server) { return server.url().substr(server.url().rfind(':')); }
};

}  // namespace kv::test
