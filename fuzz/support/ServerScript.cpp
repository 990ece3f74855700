#include "fuzz/support/ServerScript.h"

#include "fuzz/support/Network.h"
#include "fuzz/support/ServerFrames.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace kv::fuzz {
namespace {

constexpr char kServers[] = R"({"code":200,"data":{"brivelServers":["ws://server.kvpim.example"]}})";
constexpr char const* kLogin[] = {R"(0{"sid":"engine","pingInterval":25000,"pingTimeout":20000})",
                                  R"(40{"sid":"socket"})", R"(42["loginSuccess"])"};
constexpr int kMostMilliseconds = 61'000;

std::chrono::milliseconds timeOf(std::string_view text) {
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return std::chrono::milliseconds(std::clamp(number, 0, kMostMilliseconds));
}

void say(std::string_view line) {
    if (auto* const server = Network::shared().server()) server->send(framesOfLine(line));
}

std::string lastId() {
    auto const* const server = Network::shared().server();
    return std::to_string(server ? server->lastId() : 0);
}

}  // namespace

void playServer(std::string_view line, KvMainQueue& queue) {
    auto const rest = std::string(line.substr(std::min<std::size_t>(1, line.size())));
    switch (line.empty() ? '\0' : line.front()) {
        case 'A':
            say("43" + lastId() + rest);
            break;
        case 'B':
            say("461-" + lastId() + rest);
            break;
        case 'L':
            for (auto const* const text : kLogin) say(text);
            break;
        case 'D':
            Network::shared().answerRequests({.status = 200, .body = rest.empty() ? kServers : rest});
            break;
        case '#':
            if (auto* const server = Network::shared().server()) server->hangUp();
            break;
        case '+':
            queue.advance(timeOf(rest));
            break;
        default:
            say(line);
    }
    queue.poll();
    Network::shared().readAll();
}

void play(std::string_view line, Application& app) {
    constexpr std::size_t kMostText = 1024;  // a message that is far too long is refused and sent all the same
    if (line.size() > 1 && line.front() == '@') {
        app.doInNextCallbacks(line.substr(1));
    } else if (line.size() > 1 && line.front() == '>') {
        app.begin(line[1], std::string(line.substr(2, kMostText)));
        playServer("+0", app.queue());
    } else {
        playServer(line, app.queue());
    }
}

}  // namespace kv::fuzz
