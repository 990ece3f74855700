// The whole client against a server that may say anything: events, answers to all commands, lost connections, with an
// application that acts in its callbacks. An input is lines (see ServerScript.h); the client is logged in before the
// first.
#include "fuzz/support/Application.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/Network.h"
#include "fuzz/support/ServerScript.h"

namespace kv::fuzz {

void run(Input input) {
    {
        Application app;
        for (auto const* const line : {">5", "D", "L", ">a", R"(A[{"result":0}])"}) play(line, app);
        while (!input.isEmpty()) play(input.takeLine(), app);
        app.finish();
    }
    endInput();
}

}  // namespace kv::fuzz
