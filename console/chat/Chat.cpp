#include "console/chat/Chat.h"

#include "console/chat/ChatSession.h"

#include <unistd.h>

namespace kv::console {

namespace {

/// What the library prints would tear the prompt apart; only a standard error that goes elsewhere gets its share.
void keepPrintsOffTheScreen() {
    KvPimKit::setConsole([](KvConsoleStream stream, std::string_view line) {
        bool const isElsewhere = stream == KvConsoleStream::error && ::isatty(STDERR_FILENO) != 1;
        if (isElsewhere) KvPimKit::writeToStandardStream(stream, line);
    });
}

}  // namespace

int runChat(ChatOptions const& options) {
    keepPrintsOffTheScreen();
    auto const queue = KvMainQueue::main();
    Terminal terminal(queue);
    auto const session = std::make_shared<ChatSession>(options, queue, terminal);
    if (!session->create()) return 1;
    bool const isIn = session->login();
    while (isIn) {
        auto const line = terminal.readLine();
        if (!line) break;
        session->carryOut(*line);
        // A script's lines are carried out one after another; people need not wait.
        if (!terminal.isInteractive()) terminal.waitUntil([&] { return !session->isBusy(); });
    }
    bool const isByWish = isIn && !session->isLost();
    session->logout();
    return isByWish || (!isIn && terminal.isStopped()) ? 0 : 1;
}

}  // namespace kv::console
