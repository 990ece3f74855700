#include "Platform/KvThread.h"

#include "Platform/KvSystem.h"

#include <system_error>
#include <utility>

namespace kv {

std::thread makeThread(char const* name, std::function<void()> body) try {
    return std::thread([name, body = std::move(body)] {
        // Signals are the application's: its own threads take them. That includes the one that a file over the size
        // limit raises in its writer, which would end the process.
        takeNoSignals();
        nameThisThread(name);
        body();
    });
} catch (std::system_error const&) {
    return {};
}

bool startThread(char const* name, std::function<void()> body) {
    auto thread = makeThread(name, std::move(body));
    if (!thread.joinable()) return false;
    thread.detach();
    return true;
}

}  // namespace kv
