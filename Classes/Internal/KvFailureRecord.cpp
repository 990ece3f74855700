#include "Classes/Internal/KvFailureRecord.h"

#include "Platform/KvUtf8.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kv {
namespace {

using Stage = KvFailureStage;

constexpr std::size_t kMostCause = 500, kMostWords = 200, kMostRead = 4096;
constexpr std::size_t kLeastSecret = 4;  // what is shorter would blot out everything
constexpr std::size_t kTellingPart = 8;  // of a secret
constexpr std::string_view kBlot = "***";

thread_local std::shared_ptr<KvFailure const> current;

// What to do. Of a stage, the first row counts whose text is found in what happened; none means all.
struct Advice {
    Stage stage;
    std::string_view found, text;
};
constexpr Advice kAdvice[] = {
    {Stage::address, "Not an address",
     "The API server names a socket server that has no address of one: tell who runs it."},
    {Stage::address, "descriptor",
     "Raise the limits of descriptors and threads (ulimit -n, -u), or make fewer queues."},
    {Stage::address, "", "Correct it in the options that the client is made with."},
    {Stage::name, "",
     "Check the host's spelling, and that this machine finds names. Where only a proxy does: `network.proxy`."},
    {Stage::tcp, "refused", "Nobody listens there: check that the server runs, and its port."},
    {Stage::tcp, "open files", "The process may have too few descriptors: raise the limit (ulimit -n)."},
    {Stage::tcp, "",
     "Check address, port and firewalls. A network that lets nobody out directly needs `network.proxy`."},
    {Stage::proxy, "user and", "Set `network.proxy` with the user and the password that the proxy knows."},
    {Stage::proxy, "", "Check `network.proxy`, and what the proxy's rules let through."},
    {Stage::tls, "does not speak TLS",
     "On this port the server is spoken to in clear: http instead of https, or another port."},
    {Stage::tls, "in clear", "Use https instead of http in its address."},
    {Stage::tls, "wants a certificate", "Set `network.tls.certificateFile` and `keyFile`."},
    {Stage::tls, "this side's certificate",
     "The server wants another certificate of this side than `network.tls` has."},
    {Stage::tls, "client certificate", "Check `network.tls.certificateFile`, `keyFile` and `keyPassword`."},
    {Stage::tls, "CA ", "Check the path of the authorities, and that it can be read."},
    {Stage::tls, "PEM text", "Check `network.tls.caPem`."},
    {Stage::tls, "pinned", "If the server has a new key that you trust, add its pin to `network.tls.pins`."},
    {Stage::tls, "mismatch", "Use a name that stands in the certificate, or say it in `network.tls.serverName`."},
    {Stage::tls, "expired", "The server needs a new certificate, unless this machine's clock is wrong."},
    {Stage::tls, "not yet valid", "Check this machine's clock."},
    {Stage::tls, "versions", "The server needs a newer TLS, or `network.tls.minimumVersion` an older one."},
    {Stage::tls, "certificate", "If it is the server that you mean, trust its authority: `network.tls.caFile`."},
    {Stage::tls, "", "Check that nothing stands between, and what the server can do of TLS."},
    {Stage::discovery, "closed the connection",
     "Check that it is the API server, and whether its address is one of https."},
    {Stage::discovery, "", "Check the address of the API server and the app id."},
    {Stage::upgrade, "HTTP status", "Check `network.socketPath`, and whether a gateway lets WebSocket through."},
    {Stage::upgrade, "", "Somebody else answers in the socket server's place: check what stands between."},
    {Stage::session, "pings", "Check the network. With `KvPimEngine::mainQueue` a busy main thread looks the same."},
    {Stage::session, "", "If it goes on failing, ask who runs the service."},
    {Stage::login, "InvalidAppId", "Check the app id."},
    {Stage::login, "Token", "Get a new token for this user from your own server."},
    {Stage::login, "AuthFail", "Get a token that is this user's."},
    {Stage::login, "AppForbidden", "Ask who runs the service why the application is shut out."},
    {Stage::login, "in progress", "Wait for the completion of the login before, or log out first."},
    {Stage::login, "", "Check app id, user id and token."},
    {Stage::request, "not logged in", "Wait for the completion of a login."},
    {Stage::request, "Too Many Requests", "Send less often, and try again later."},
    {Stage::request, "no room", "Wait for `onWritable` before you send more, or raise `maxQueuedBytes`."},
    {Stage::request, "no connection", "Wait for the state Connected, and try again."},
    {Stage::request, "No answer", "Try again; the server may have carried it out all the same."},
    {Stage::request, "", "Check the arguments; the operation's list of codes tells more."},
};

// Whatever moves the cursor, colours or turns round the line: control characters, also those of two bytes, line
// separators and changes of the direction.
std::size_t sizeOfControl(std::string_view text) {
    auto const at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    if (at(0) < 0x20 || at(0) == 0x7F) return 1;
    if (at(0) == 0xC2 && at(1) < 0xA0) return 2;
    if (at(0) != 0xE2) return 0;
    bool const isMark = at(1) == 0x80 && (at(2) == 0x8E || at(2) == 0x8F || (at(2) >= 0xA8 && at(2) <= 0xAE));
    bool const isIsolate = at(1) == 0x81 && at(2) >= 0xA6 && at(2) <= 0xA9;
    return isMark || isIsolate ? 3 : 0;
}

std::string printable(std::string text, std::size_t most) {
    if (!isValidUtf8(text))
        std::ranges::replace_if(
            text, [](unsigned char c) { return c >= 0x80; }, '?');
    std::string line;
    for (std::string_view rest = text; !rest.empty();) {
        auto const control = sizeOfControl(rest);
        bool const isSpace = control > 0 || rest.front() == ' ';
        if (!isSpace || (!line.empty() && line.back() != ' ')) line += isSpace ? ' ' : rest.front();
        rest.remove_prefix(std::max<std::size_t>(control, 1));
    }
    if (line.ends_with(' ')) line.pop_back();
    if (line.size() <= most) return line;
    auto end = most;
    while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80) --end;
    return line.substr(0, end) + "...";
}

// Part of a secret in a text that was cut is too much already.
std::string withoutSecrets(std::string_view text, std::vector<std::string> const& secrets) {
    std::string clean;
    while (!text.empty()) {
        std::size_t hidden = 0;
        for (std::string_view const secret : secrets) {
            if (secret.size() < kLeastSecret) continue;
            auto const telling = std::min(kTellingPart, secret.size());
            for (std::size_t from = 0; from + telling <= secret.size(); ++from) {
                auto const part = secret.substr(from, text.size());
                auto const size = static_cast<std::size_t>(std::ranges::mismatch(part, text).in1 - part.begin());
                if (size >= telling) hidden = std::max(hidden, size);
            }
        }
        clean += hidden > 0 ? kBlot : text.substr(0, 1);
        text.remove_prefix(std::max<std::size_t>(hidden, 1));
    }
    return clean;
}

// An address may bear a password that nobody told this library of: all between "//" and "@".
std::string withoutPasswords(std::string text) {
    for (auto at = text.find("//"); at != std::string::npos; at = text.find("//", at + 2)) {
        auto const end = text.find_first_of("/ \"?#", at + 2);
        auto const sign = text.substr(0, end).rfind('@');
        if (sign != std::string::npos && sign > at) text.replace(at + 2, sign - at - 2, kBlot);
    }
    return text;
}

}  // namespace

std::string forPeople(std::string_view text, std::size_t most, std::vector<std::string> const& secrets) {
    return printable(withoutPasswords(withoutSecrets(text.substr(0, kMostRead), secrets)), most);
}

KvFailure failureOf(std::string_view operation, std::int64_t code, net::Failure const& known,
                    std::vector<std::string> const& secrets) {
    KvFailure failure;
    failure.stage = known.stage;
    failure.operation = operation;
    failure.code = code;
    failure.cause = forPeople(known.cause.empty() ? known.text : known.cause, kMostCause, secrets);
    failure.serverWords = forPeople(known.serverWords, kMostWords, secrets);
    if (!failure.cause.empty() && failure.cause[0] >= 'a' && failure.cause[0] <= 'z') failure.cause[0] += 'A' - 'a';
    auto const isFound = [&](Advice const& row) {
        return row.stage == known.stage && (failure.cause.find(row.found) != std::string::npos ||
                                            failure.serverWords.find(row.found) != std::string::npos);
    };
    if (auto const* const row = std::ranges::find_if(kAdvice, isFound); row != std::end(kAdvice))
        failure.advice = row->text;
    return failure;
}

KvFailureScope::KvFailureScope(std::shared_ptr<KvFailure const> failure)
    : outer_(std::exchange(current, std::move(failure))) {}

KvFailureScope::~KvFailureScope() { current = std::move(outer_); }

std::shared_ptr<KvFailure const> currentFailure() { return current; }

std::string_view toString(KvFailureStage stage) {
    static constexpr std::array<std::string_view, 10> kNames{"address",   "name",    "tcp",     "proxy", "tls",
                                                             "discovery", "upgrade", "session", "login", "request"};
    auto const index = static_cast<std::size_t>(stage);
    return index < kNames.size() ? kNames[index] : "unknown";
}

std::string describe(KvFailure const& failure) {
    auto text = failure.operation + " failed";
    if (failure.code != 0) text += " with " + std::to_string(failure.code);
    text.append(" (").append(toString(failure.stage)).append("): ").append(failure.cause);
    if (!failure.cause.ends_with('.')) text += '.';
    if (!failure.serverWords.empty()) text += " The server says: \"" + failure.serverWords + "\".";
    if (!failure.advice.empty()) text += ' ' + failure.advice;
    if (failure.goesOn) text += " The attempt goes on.";
    return text;
}

}  // namespace kv
