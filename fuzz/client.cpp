// The whole client against a server that may say anything: events, answers to all commands, lost connections, with an
// application that acts in its callbacks. An input is lines; the client is logged in before the first:
//
//     >xTEXT   the application begins operation "x" (see Application.cpp)      @x   it does so in its next callback
//     else     what the server does (see ServerScript.h)
#include "fuzz/support/Application.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Network.h"
#include "fuzz/support/ServerScript.h"

#include <string>

namespace kv::fuzz {
namespace {

constexpr std::size_t kMostText = 1024;  // a message that is far too long is refused and sent all the same: two ends

void play(Application& app, std::string_view line) {
    if (line.size() > 1 && line.front() == '@') {
        app.doInNextCallback(line[1]);
    } else if (line.size() > 1 && line.front() == '>') {
        app.begin(line[1], std::string(line.substr(2, kMostText)));
        playServer("+0", app.queue());
    } else {
        playServer(line, app.queue());
    }
}

}  // namespace

void run(Input input) {
    {
        Application app;
        for (auto const* const line : {">5", "D", "L", ">a", R"(A[{"result":0}])"}) play(app, line);
        while (!input.isEmpty()) play(app, input.takeLine());
        app.finish();
    }
    endInput();
}

}  // namespace kv::fuzz
