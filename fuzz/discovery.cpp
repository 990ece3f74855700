// What a login starts from: addresses, ids, the answer of the API server, and the answer that makes a WebSocket. The
// first character of an input says what the rest is:
//
//     a  an address to check        i  an id or a token        u  the URL of a socket server
//     j  the API server's answer    e  its failure             h  the head of the answer to the upgrade, in which
//                                                                 "{accept}" stands for the right key
#include "Classes/Catagory/KvString.h"
#include "Classes/Network/KvServerAddress.h"
#include "Net/Url.h"
#include "SocketIO/transport/Upgrade.h"
#include "fuzz/support/Application.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Network.h"

#include <algorithm>
#include <string>
#include <vector>

#include <openssl/evp.h>

namespace kv::fuzz {
namespace {

bool isAscii(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char c) { return c < 0x80; });
}
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAlphanumeric(char c) { return isDigit(c) || isLetter(c); }
bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> parts;
    for (;;) {
        auto const end = text.find_first_of(separators);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

// ---- The address checks once more, without regular expressions
bool isOctet(std::string_view part) {
    if (part.empty() || part.size() > 3 || !std::ranges::all_of(part, isDigit)) return false;
    return part.size() < 3 || (part >= "100" && part <= "255");
}

bool isLabel(std::string_view part) {
    return !part.empty() && isAlphanumeric(part.front()) && isAlphanumeric(part.back()) &&
           std::ranges::all_of(part, [](char c) { return isAlphanumeric(c) || c == '-' || c == '_'; });
}

bool takeIgnoringCase(std::string_view& text, std::string_view wanted) {
    auto const lower = [](char c) { return isLetter(c) ? static_cast<char>(c | 0x20) : c; };
    if (!std::ranges::equal(text.substr(0, wanted.size()), wanted, {}, lower)) return false;
    text.remove_prefix(wanted.size());
    return true;
}

struct Judgement {
    bool isIP = false, isDomain = false;
};

Judgement judgeLine(std::string_view line) {
    if (!takeIgnoringCase(line, "https://") && !takeIgnoringCase(line, "http://")) return {};
    if (auto const colon = line.find(':'); colon != std::string_view::npos) {
        auto const port = line.substr(colon + 1);
        if (port.empty() || !std::ranges::all_of(port, isDigit)) return {};
        line = line.substr(0, colon);
    }
    auto parts = split(line, ".");
    if (parts.size() < 2) return {};
    bool const isIP = parts.size() == 4 && std::ranges::all_of(parts, isOctet);
    auto const last = parts.back();
    parts.pop_back();
    bool const endsInLetters = !last.empty() && std::ranges::all_of(last, isLetter);
    return {isIP, endsInLetters && std::ranges::all_of(parts, isLabel)};
}

void checkAddress(std::string_view text) {
    bool const isIP = isValidServerIP(text), isDomain = isValidServerDomain(text);
    require(isValidApiServer(text) == (isIP || isDomain), "an API server is one or the other");
    if (!isAscii(text)) return;  // letters have more cases there
    Judgement wanted;
    for (auto const line : split(text, "\r\n")) {
        auto const judged = judgeLine(line);
        wanted.isIP = wanted.isIP || judged.isIP;
        wanted.isDomain = wanted.isDomain || judged.isDomain;
    }
    require(isIP == wanted.isIP && isDomain == wanted.isDomain, "an address is what it is");
}

void checkId(std::string_view text) {
    constexpr std::string_view kPunctuation = "!#$%&()+-:;<=.>?@[\\]^_{}|~,";
    bool const isId = !text.empty() && text.size() <= 64 && std::ranges::all_of(text, [&](char c) {
        return isAlphanumeric(c) || isBlank(c) || kPunctuation.find(c) != std::string_view::npos;
    });
    require(isValidId(text) == isId, "an id is what it is");
    bool const isToken = text.size() == 32 && std::ranges::none_of(text, isBlank);
    bool const isValid = isValidToken(text);
    require(!isAscii(text) || isValid == isToken, "a token is what it is");
    require(md5Value(text).size() == 32, "a digest has its length");
}

void checkUrl(std::string_view text) {
    auto const target = sio::requestTarget("/socket.io/", {{std::string(text), std::string(text)}});
    require(std::ranges::all_of(target, [](unsigned char c) { return c > ' ' && c < 0x7F; }), "a target is one word");
    auto const url = net::Url::parse(text);
    if (!url) return;
    require(!url->host.empty() && url->port != 0, "a URL has host and port");
    auto const again = net::Url::parse((url->isSecure ? "wss://" : "ws://") + url->authority());
    require(again && again->host == url->host && again->port == url->port, "a URL is read as it is written");
}

void checkUpgrade(std::string_view text) {
    constexpr std::string_view kKey = "Sec-WebSocket-Key: ", kAccept = "{accept}";
    constexpr std::size_t kKeySize = 24;
    for (bool const offersDeflate : {false, true}) {
        sio::Upgrade const upgrade("host", "/", offersDeflate);
        auto const& request = upgrade.request();
        auto const key =
            request.substr(request.find(kKey) + kKey.size(), kKeySize) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned size = 0;
        EVP_Digest(key.data(), key.size(), digest, &size, EVP_sha1(), nullptr);
        unsigned char accept[64];
        EVP_EncodeBlock(accept, digest, static_cast<int>(size));
        std::string head(text);
        if (auto const at = head.find(kAccept); at != std::string::npos) {
            head.replace(at, kAccept.size(), reinterpret_cast<char const*>(accept));
        }
        sio::DeflateAgreement agreement;
        auto const problem = upgrade.check(head, agreement);
        if (!problem.empty()) continue;
        require(sio::Upgrade::mayBeHttp(head), "what is right looks right from the start");
        require(offersDeflate || !agreement.isEnabled, "nothing is agreed that was not offered");
    }
}

void logIn(KvHttpAnswer const& answer) {
    {
        Application app;
        app.begin('5', "");
        app.queue().poll();
        Network::shared().answerRequests(answer);
        app.queue().poll();
        app.begin('6', "");
        app.finish();
    }
    endInput();
}

}  // namespace

void run(Input input) {
    auto const what = input.takeByte();
    auto const rest = input.takeRest();
    switch (what) {
        case 'a':
            return checkAddress(rest);
        case 'i':
            return checkId(rest);
        case 'u':
            return checkUrl(rest);
        case 'h':
            return checkUpgrade(rest);
        case 'e':
            return logIn({.failure = net::Failure{KvFailureStage::discovery, std::string(rest)}});
        default:
            return logIn({.status = 200, .body = std::string(rest)});
    }
}

}  // namespace kv::fuzz
