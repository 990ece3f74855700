// The lines that a program writes to `kvpim console`, each an operation of a real client. An input begins with a
// character that says in which pieces its lines arrive; a line that begins with "<" is what the server does (see
// ServerScript.h).
#include "console/CarryOut.h"
#include "fuzz/support/ExactJson.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Network.h"
#include "fuzz/support/ServerScript.h"

#include <algorithm>
#include <string>

#include <fcntl.h>
#include <unistd.h>

// In place of console/Output.cpp.
void kv::console::Output::line(boost::json::object const& object) {
    auto const text = boost::json::serialize(object);
    fuzz::require(text.find('\n') == std::string::npos, "an answer is one line");
    boost::system::error_code error;
    auto const read = boost::json::parse(text, error);
    fuzz::require(!error, "an answer is JSON");
    fuzz::require(read == object || !fuzz::isExact(read), "an answer reads as it was meant");
}

namespace kv::fuzz {
namespace {

constexpr std::size_t kLongestLine = 1000;
constexpr std::chrono::seconds kLongestSleep{10}, kLongestOperation{20};

console::Session newSession() {
    console::Session session;
    session.queue = KvMainQueue::create(KvMainQueue::Time::manual);
    session.delegate = console::makeClientDelegate(session.output, std::nullopt);
    KvPimOptions options;
    options.envConfig.apiServer = "http://api.kvpim.example";
    options.envConfig.cachesDirectory = "/dev/null/caches";  // where nothing can be made
    options.mainQueue = session.queue;
    options.engine = KvPimEngine::mainQueue;
    session.client = KvPimKit::initWithAppId("app", session.delegate, options);
    session.client->setLogFilters(0);
    return session;
}

/// Whether the library would write its log into a file that exists.
bool choosesLogFile(std::string_view line) {
    boost::system::error_code error;
    auto const value = boost::json::parse(line, error);
    auto const* request = value.if_object();
    auto const* operation = request ? request->if_contains("op") : nullptr;
    return operation && *operation == "setLogFile";
}

void take(console::Session& session, console::InputLines::Line const& line) {
    require(line.text.size() <= kLongestLine && (!line.isTooLong || line.text.empty()), "no line is longer than asked");
    if (line.text.starts_with('<')) return playServer(std::string_view(line.text).substr(1), *session.queue);
    if (choosesLogFile(line.text)) return;
    console::carryOut(session, line);
    if (session.sleep.isActive()) session.queue->advance(kLongestSleep);
    session.sleep.cancel();
    playServer("+0", *session.queue);
}

/// Writes the text to a pipe, as a program would, and carries out what comes out of it.
void play(console::Session& session, std::string_view text, std::size_t pieceSize) {
    int pipe[2];
    require(::pipe2(pipe, O_CLOEXEC) == 0, "there are pipes");
    console::InputLines lines(pipe[0], kLongestLine);
    std::size_t number = 0;
    while (!lines.isEnded() && !session.isQuit) {
        auto const piece = text.substr(0, pieceSize);
        text.remove_prefix(piece.size());
        if (piece.empty()) {
            ::close(std::exchange(pipe[1], -1));
        } else {
            require(::write(pipe[1], piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()),
                    "a pipe takes it");
        }
        lines.fill();
        while (auto const line = session.isQuit ? std::nullopt : lines.next()) {
            require(line->number == ++number, "lines are counted");
            take(session, *line);
        }
    }
    ::close(pipe[0]);
    if (pipe[1] >= 0) ::close(pipe[1]);
}

}  // namespace

void run(Input input) {
    constexpr std::size_t kMostBytes = 16384;  // what a pipe takes at once for certain
    {
        auto const pieceSize = static_cast<unsigned char>(input.takeByte());
        auto session = newSession();
        play(session, input.takeRest().substr(0, kMostBytes), pieceSize == 0 ? kMostBytes : pieceSize);
        Network::shared().answerRequests({.failure = net::Failure{KvFailureStage::discovery, "the end"}});
        session.queue->advance(kLongestOperation);
        Network::shared().readAll();
        require(session.open->count == 0, "every operation is answered");
    }
    endInput();
}

}  // namespace kv::fuzz
